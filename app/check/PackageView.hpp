#pragma once

#include <opc/FoundPackage.hpp>
#include <opc/PartName.hpp>
#include <opc/ZipArchive.hpp>

#include <optional>
#include <string>
#include <vector>

#include "app/FileName.hpp"

namespace qzapp {

// All that can be read of a package, for the checks and the repair, which must go on where readers
// refuse the file. Adds to FoundPackage the file's name, why readers refuse it, and whether a
// repair makes sense. Messages call the file what the user calls it.
class PackageView : public opc::model::FoundPackage {
public:
    // Opens the file and reads every item in it to its end; a file that readers refuse is salvaged,
    // which reads it twice more. `isOpen` says that a reader has it open, so that it is not asked
    // whether readers refuse it. Throws Error only if the file itself cannot be read.
    explicit PackageView(const FileName& file, bool isOpen = false);

    FileName file;
    // Why readers refuse the zip file or, if they accept that, the package. Empty if they do not.
    std::string zipRefusal, packageRefusal;
    // The rule that the zip file breaks. Nothing if readers accept it, or failed for another
    // reason.
    std::optional<opc::zip::ZipRule> brokenRule;
    // Items that a salvaged file once had and that cannot be read; part names begin with "/".
    std::vector<opc::zip::LostItem> lost;

    // Whether the file holds, readable or not, anything of what its name promises: a part of an app
    // (core properties do not count, because any package may have them), or else content types or
    // relationships.
    bool isRepairable = false;

    // Whether readers open the package. Parts may still be damaged.
    bool opens() const { return zipRefusal.empty() && packageRefusal.empty(); }

private:
    struct Source;

    PackageView(const FileName& file, Source source, bool isOpen);
    bool holdsApp() const;
    bool holdsTables() const;
};

// Whether the file's name ends in ".kvpkg", in any case.
bool isAppName(const FileName& file);
std::string shownName(const opc::model::PartName& name);

}  // namespace qzapp
