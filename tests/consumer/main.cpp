#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>
#include <appserialization/Exceptions.hpp>
#include <appserialization/Functions.hpp>
#include <appserialization/KAppMetadataReader.hpp>

#include <iostream>

// Writes a packaged app, reads it back, and catches an exception that the library threw.
int main() {
    using namespace appserialization;
    const ustring file = u"consumer.kvpkg";

    AppMetadata metadata;
    metadata.setName(u"Consumer");
    AppFileWriter writer(file, true);
    writer.setAppModelFromFile(u"CMakeCache.txt");
    writer.setAppMetadata(metadata);
    writer.setKORVALCodeText(u"x = 1\n");
    writer.close();

    const AppFileReader reader(file);
    bool caught = false;
    try {
        KAppMetadataReader missing(u"missing.k");
    } catch (const AppFileReaderExceptionBase& error) {
        caught = error.getFileName() == u"missing.k";
    }
    const bool ok = caught && reader.getAppMetadata().getName() == ustring(u"Consumer") &&
                    reader.getKORVALCodeText() == u"x = 1\n";
    std::cout << (ok ? "the installed library works\n" : "FAILED\n");
    return ok ? 0 : 1;
}
