// write_app APP.kvpkg MODEL: makes a packaged app from a model file.

#include <appserialization/AppFileWriter.hpp>

#include <exception>
#include <iostream>

#include "examples/Text.hpp"

using namespace appserialization;

namespace {

AppMetadata describe() {
    AppMetadata metadata;
    metadata.setName(u"Tide Table");
    metadata.setAuthor(u"Zoë Ångström");
    metadata.setVersion(u"1.0");
    metadata.setKORVALRelease(u"R2019a");  // for which the app was written
    metadata.setSummary(u"High and low water for a harbour");
    metadata.setRequiredProducts({u"KORVAL", u"Signal Toolbox"});
    return metadata;
}

void writeApp(const ustring& app, const ustring& model) {
    AppFileWriter writer(app, true);
    // The code comes first, because setting it saves everything set before.
    writer.setKORVALCodeText(u"classdef TideTable < lumenforge.App\nend\n");
    writer.setAppModelFromFile(model);
    writer.setAppMetadata(describe());
    writer.close();  // without this, model and metadata are not saved
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: write_app APP.kvpkg MODEL\n";
        return 2;
    }
    try {
        writeApp(fromUtf8(argv[1]), fromUtf8(argv[2]));
    } catch (const std::exception& error) {
        std::cerr << "write_app: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
