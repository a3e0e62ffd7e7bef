#include "app/check/Checks.hpp"

#include <fl/i18n.hpp>

#include <utility>

#include "app/Forms.hpp"
#include "app/InputFiles.hpp"

namespace qzapp {
namespace {

void checkExtension(const FileName& file, const foundation::ustring& extension,
                    Findings& findings) {
    if (file.native().ends_with(extension)) return;
    findings.add("extension-case", "", "the extension must be in lower case", "rename the file");
}

void checkPackageOfAnyKind(const PackageView& package, Findings& findings) {
    if (isOfAnotherKind(package)) {
        checkOtherZip(package, findings);
        return;
    }
    checkContainer(package, findings);
    if (package.items.empty() && !package.zipRefusal.empty()) return;
    const auto properties = checkPackage(package, findings);
    if (isAppName(package.file)) checkApp(package, properties, findings);
}

}  // namespace

bool isTextName(const FileName& file) {
    return fl::i18n::to_lower(file.native()).ends_with(kTextExtension);
}

CheckedFile checkAndOpen(const FileName& file) {
    requireFile(file);
    CheckedFile checked;
    Findings& findings = checked.findings;
    const bool isText = isTextName(file);
    if (isText || isAppName(file)) {
        checkExtension(file, isText ? kTextExtension : kPackagedExtension, findings);
    }
    if (isText) {
        checkText(file, findings);
    } else {
        PackageView package(file);
        checkPackageOfAnyKind(package, findings);
        checked.app = std::move(package.app);
    }
    requireUnchanged(file);
    return checked;
}

Findings checkFile(const FileName& file) {
    return checkAndOpen(file).findings;
}

}  // namespace qzapp
