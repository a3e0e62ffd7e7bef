#include "app/check/PackageView.hpp"

#include <fl/i18n.hpp>
#include <opc/Package.hpp>
#include <opc/PackageNames.hpp>
#include <opc/PartKind.hpp>
#include <opc/Relationship.hpp>

#include <algorithm>
#include <memory>
#include <utility>

#include "app/Error.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "app/Progress.hpp"
#include "app/WithPackage.hpp"
#include "app/check/AppLayout.hpp"
#include "package/PartKinds.hpp"

namespace qzapp {
namespace {

using opc::model::FoundItem;
using opc::model::PartKind;
using opc::model::PartName;
using opc::model::Relationship;
using opc::zip::LostItem;
using opc::zip::ZipArchive;

// Runs `action` and returns why it failed, in the user's words; empty if it did not. Passes on what
// is not the file's fault, because what was whole would be searched for remains.
template <class Action>
std::string refusalOf(const FileName& file, Action action) {
    try {
        about(file, action);
        return {};
    } catch (const Error& e) {
        if (e.isPassing()) throw;
        return e.text();
    }
}

std::string packageRefusalOf(const FileName& file) {
    return refusalOf(file, [&] { withPackage(file, [](const opc::model::Package&) {}); });
}

}  // namespace

// The zip file, opened or salvaged, and the progress of reading it; a helper of the constructor.
struct PackageView::Source {
    explicit Source(const FileName& file)
        : refusal(refusalOf(file, [&] { open(file); })),
          // Salvaging a refused file reads it twice before its items are read.
          progress((archive ? 1 : 3) * sizeOf(file)) {
        if (archive) return;
        about(file, [&] { archive = ZipArchive::salvage(file.path, lost, usualNames()); });
    }

    static std::vector<std::string> usualNames() {
        std::vector<std::string> names = {
            std::string(opc::names::kContentTypesItem),
            opc::names::itemNameOf(opc::names::packageRelationships())};
        for (const PartKind& kind : layout::app::partKinds())
            names.push_back(opc::names::itemNameOf(kind.name));
        return names;
    }

    void open(const FileName& file) {
        try {
            archive = ZipArchive::open(file.path);
        } catch (const opc::zip::ZipRefusal& refused) {
            brokenRule = refused.rule();
            throw;
        }
    }

    std::shared_ptr<const ZipArchive> archive;
    std::optional<opc::zip::ZipRule> brokenRule;
    std::vector<LostItem> lost;
    std::string refusal;
    Progress progress;
};

bool isAppName(const FileName& file) {
    return fl::i18n::to_lower(file.native()).ends_with(kPackagedExtension);
}

std::string shownName(const PartName& name) {
    return fl::i18n::to_display(name.toString());
}

PackageView::PackageView(const FileName& itsFile, bool isOpen) try
    : PackageView(itsFile, Source(itsFile), isOpen) {
} catch (const Error&) {
    throw;
} catch (...) {
    rethrowAbout(itsFile);
}

PackageView::PackageView(const FileName& itsFile, Source source, bool isOpen)
    : FoundPackage(std::move(source.archive), layout::app::partKinds()),
      file(itsFile),
      zipRefusal(std::move(source.refusal)),
      packageRefusal(zipRefusal.empty() && !isOpen ? packageRefusalOf(file) : ""),
      brokenRule(source.brokenRule),
      lost(std::move(source.lost)) {
    // A name that is a part's gets its "/", as the parts that were found have it.
    for (LostItem& item : lost) {
        if (PartName::isValid(u"/" + fl::i18n::utf8_to_ustring(item.name)))
            item.name.insert(0, 1, '/');
    }
    isRepairable = isAppName(file) ? holdsApp() : holdsTables();
}

bool PackageView::holdsApp() const {
    std::vector<PartKind> kinds = layout::app::partKinds();
    std::erase_if(kinds, [](const PartKind& kind) {
        return kind.relationshipType == layout::kCoreProperties.relationshipType;
    });
    const auto isOfApp = [&](const Relationship& link) {
        return std::ranges::find(kinds, link.getType(), &PartKind::relationshipType) != kinds.end();
    };
    const auto isOfKind = [&](const std::optional<PartName>& name) {
        return name && std::ranges::find(kinds, *name, &PartKind::name) != kinds.end();
    };
    const auto isLostPart = [&](const LostItem& item) {
        return isOfKind(PartName::fromName(fl::i18n::utf8_to_ustring(item.name)));
    };
    return std::ranges::any_of(relationships, isOfApp) ||
           std::ranges::any_of(items, isOfKind, &FoundItem::name) ||
           std::ranges::any_of(lost, isLostPart);
}

// Whether the file has, or once had, content types or package relationships, which make a zip file
// a package.
bool PackageView::holdsTables() const {
    const auto isTable = [](const LostItem& item) {
        return opc::names::isContentTypesItem(item.name) ||
               item.name == shownName(opc::names::packageRelationships());
    };
    return typesItem != nullptr || relationshipsItem != nullptr ||
           std::ranges::any_of(lost, isTable);
}

}  // namespace qzapp
