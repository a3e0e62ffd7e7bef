#include "app/check/Checks.hpp"

#include <fl/i18n.hpp>

#include "app/Forms.hpp"
#include "app/InputFiles.hpp"

namespace qzapp {
namespace {

void checkExtension(const FileName& file, const foundation::ustring& extension,
                    Findings& findings) {
    if (file.native().ends_with(extension)) return;
    findings.add("extension-case", "", "the extension must be in lower case", "rename the file");
}

void checkAnyPackage(const FileName& file, bool isOpen, Findings& findings) {
    const PackageView package(file, isOpen);
    if (isOfAnotherKind(package)) {
        checkOtherZip(package, findings);
        return;
    }
    checkContainer(package, findings);
    if (package.items.empty() && !package.zipRefusal.empty()) return;
    const auto properties = checkPackage(package, findings);
    if (isAppName(file)) checkApp(package, properties, findings);
}

}  // namespace

bool isTextName(const FileName& file) {
    return fl::i18n::to_lower(file.native()).ends_with(kTextExtension);
}

Findings checkFile(const FileName& file, bool isOpen) {
    requireFile(file);
    Findings findings;
    const bool isText = isTextName(file);
    if (isText || isAppName(file)) {
        checkExtension(file, isText ? kTextExtension : kPackagedExtension, findings);
    }
    if (isText) {
        checkText(file, findings);
    } else {
        checkAnyPackage(file, isOpen, findings);
    }
    requireUnchanged(file);
    return findings;
}

}  // namespace qzapp
