// beyond_the_interface APP.kvpkg: what the public headers have no call for. Prints the release that
// an app keeps as legacy information, sets its code and its version, and removes its screenshot,
// all of it as one save. The headers <opc/...> and <fl/...> are those of the platform's libraries.

#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>
#include <fl/ReplacementFile.hpp>
#include <opc/CorePropertiesManager.hpp>
#include <opc/Package.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <optional>
#include <system_error>

#include "examples/Text.hpp"

using namespace appserialization;
using opc::interfaces::OpenMode;

namespace {

constexpr const char16_t* kScreenshot =
    u"http://schemas.quorvane.com/lumenForge/app/2017/relationships/appScreenshot";

// The release that the author set, if it is not that of the host which saved the file.
std::optional<ustring> legacyRelease(const ustring& app) {
    const opc::zippackage::ZipPhysicalPackage zip(app, true);
    opc::model::Package package(zip);
    package.open(OpenMode::Read);
    const auto info = opc::qzservices::CorePropertiesManager(package, 0)
                          .getCoreProperties()
                          .getKORVALReleaseInfo();
    return info && info->legacy ? std::optional(info->release) : std::nullopt;
}

// Removes the screenshot, and the thumbnail, which is the same part.
void removeScreenshot(const ustring& app) {
    const opc::zippackage::ZipPhysicalPackage zip(app, true);
    opc::model::Package package(zip);
    package.open(OpenMode::Edit);
    for (const auto& screenshot : package.getRelationshipsByType(kScreenshot)) {
        if (!package.hasTarget(screenshot)) continue;
        const auto part = package.getTarget(screenshot).getName();
        for (const auto& link : package.getRelationships()) {
            if (package.hasTarget(link) && package.getTarget(link).getName() == part)
                package.deleteRelationship(link.getID());
        }
        package.deletePart(part);
    }
    package.close();
}

// Lets `edit` save a copy of the app as often as it likes, then puts the copy in the app's place,
// durably and under the rules of every save: if another program has saved the app meanwhile, this
// throws.
void asOneSave(const std::filesystem::path& app, const std::function<void(const ustring&)>& edit) {
    const fl::filesystem::SaveTarget target{fl::filesystem::path(app.u16string())};
    const std::filesystem::path file = target.resolved().native();  // where links lead
    const std::filesystem::path copy = file.parent_path() / ("edited-" + file.filename().string());
    std::filesystem::copy_file(file, copy);
    try {
        edit(copy.u16string());
        fl::filesystem::replaceWithFile(target, fl::filesystem::path(copy.u16string()));
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove(copy, ignored);
        throw;
    }
}

void edit(const ustring& app) {
    AppFileWriter writer(app, false);
    writer.setKORVALCodeText(u"classdef TideTable\nend % without a picture\n");
    const AppMetadata current = AppFileReader(app).getAppMetadata();
    AppMetadata changed;
    changed.setVersion(u"3.0");
    changed.setRequiredProducts(*current.getRequiredProducts());
    changed.setUserComponents(*current.getUserComponents());
    changed.setImageRelativePaths(*current.getImageRelativePaths());
    // Otherwise the release that the file keeps would become the running host's.
    if (const auto release = legacyRelease(app)) changed.setKORVALRelease(*release);
    writer.setAppMetadata(changed);
    writer.close();
    removeScreenshot(app);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: beyond_the_interface APP.kvpkg\n";
        return 2;
    }
    try {
        const auto release = legacyRelease(fromUtf8(argv[1]));
        std::cout << "legacy release: " << (release ? toUtf8(*release) : "none") << '\n';
        asOneSave(argv[1], edit);
    } catch (const std::exception& error) {
        std::cerr << "beyond_the_interface: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
