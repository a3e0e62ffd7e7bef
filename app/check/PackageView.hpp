#pragma once

#include <opc/FoundPackage.hpp>
#include <opc/ZipArchive.hpp>

#include <optional>
#include <string>
#include <vector>

#include "app/FileName.hpp"
#include "app/Progress.hpp"

namespace qzapp {

// A package as it was found in a file, readers may refuse that or not, with what only front ends know: how
// the user calls the file, in whose words all refusals and faults are, and what an app usually holds. Making
// one throws Error only when the file itself cannot be read.
class PackageView : public opc::model::FoundPackage {
public:
    explicit PackageView(const FileName& file);

    FileName file;
    // Why readers refuse the zip file, then the package; empty when they do not.
    std::string zipRefusal, packageRefusal;
    // Which rule the zip file breaks; nullopt when readers do not refuse it, or could not tell.
    std::optional<opc::zip::ZipRule> brokenRule;
    std::vector<opc::zip::LostItem> lost;

    // Whether anything in it, readable or not, is of what its name promises: of an app (core properties,
    // which every package may have, are not enough), or of a package.
    bool isRepairable = false;

    bool opens() const { return zipRefusal.empty() && packageRefusal.empty(); }

private:
    struct Source;

    PackageView(const FileName& file, Source source);
    bool holdsApp() const;
    bool holdsTables() const;
};

// Whether the file's name says that it is a packaged app, in any case.
bool isAppName(const FileName& file);
std::string shownName(const opc::model::PartName& name);

}  // namespace qzapp
