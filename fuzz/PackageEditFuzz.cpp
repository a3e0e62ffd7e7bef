// Edits packages part by part and keeps a list of what they should hold; then saves, and compares
// the list with the file.

#include <opc/Exception.hpp>
#include <opc/Package.hpp>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/PackageFile.hpp"
#include "fuzz/PackageProgram.hpp"
#include "platform/opc/src/Ascii.hpp"

namespace {

using fuzz::attempt;
using fuzz::FoundPackage;
using fuzz::FoundPart;
using fuzz::refuses;
using fuzz::require;
using opc::model::ContentType;
using opc::model::Part;
using opc::model::PartName;

const std::string kRelationshipsKey = "/_rels/.rels";

std::u16string wide(const std::string& text) {
    std::u16string units;
    for (const char c : text)
        units += char16_t(static_cast<unsigned char>(c));
    return units;
}

// An open package: what is done to it, and what it should hold.
class Session {
public:
    Session(const fuzz::PackageFile& file, FoundPackage before)
        : zip_(file.name(), true), package_(zip_), expected_(std::move(before)) {
        package_.open(opc::interfaces::OpenMode::Edit);
    }

    void take(fuzz::Input& input) {
        static constexpr void (Session::*kSteps[])(fuzz::Input&) = {
            &Session::create, &Session::write,    &Session::write, &Session::remove,
            &Session::relate, &Session::unrelate, &Session::read,  &Session::finishHeld};
        (this->*input.oneOf(kSteps))(input);
    }

    void save() { package_.close(); }

    const FoundPackage& expected() const noexcept { return expected_; }
    const std::set<std::string>& touched() const noexcept { return touched_; }
    std::size_t added() const noexcept { return added_; }

private:
    using Entry = std::map<std::string, FoundPart>::value_type;

    // One of the parts that are there, chosen by the input; null if there is none.
    Entry* choose(fuzz::Input& input) {
        auto& parts = expected_.parts;
        if (parts.empty()) return nullptr;
        return &*std::next(parts.begin(), std::ptrdiff_t(input.byte() % parts.size()));
    }

    static bool isOwn(const Entry& entry) { return entry.first == kRelationshipsKey; }

    Part open(const Entry& entry) const {
        return package_.getPart(PartName(std::u16string_view(entry.second.name)));
    }

    // The package decides which item holds a part: its name differs from the part's in case only.
    void touch(const std::u16string& name) {
        for (const auto& [item, bytes] : expected_.items) {
            if (opc::ascii::equalIgnoringCase(u"/" + wide(item), name)) touched_.insert(item);
        }
        touched_.insert(std::string(name.begin() + 1, name.end()));
    }

    void touchTypes() {
        touch(u"/[Content_Types].xml");
        added_ += 300;  // for an entry
    }

    // ---- Parts

    void create(fuzz::Input& input) {
        const auto name = u"/" + wide(fuzz::drawItemName(input));
        const auto type = input.flag() ? u"x/y" : u"application/xml";
        const opc::model::StandardPartInfo info(input.flag() ? 1 : 0, 0);
        const auto made = attempt<opc::Exception>([&] {
            const PartName checked{std::u16string_view(name)};
            package_.createPart(checked, ContentType(type), info);
            return checked.key();
        });
        if (!made) return;
        require(!expected_.parts.contains(*made), "a part is not created over another");
        touch(name);
        touchTypes();
        added_ += 8 * name.size();  // it stands in two records and, escaped, in the content types
        expected_.parts[*made] = {name, type, ""};
    }

    void write(fuzz::Input& input) {
        Entry* const entry = choose(input);
        if (entry == nullptr) return;
        const std::string content = fuzz::drawContent(input);
        if (isOwn(*entry)) {
            require(refuses<opc::Exception>([&] { open(*entry).getOutputStream(); }),
                    "the package's relationships are not written as a part");
            return;
        }
        held_ = open(*entry).getOutputStream();
        heldPart_ = entry->first;
        heldContent_ = content;
        const auto bytes = std::as_bytes(std::span(content));
        const auto middle = bytes.size() / 2;
        held_->write(bytes.first(middle));
        held_->write(bytes.subspan(middle));
        if (input.flag()) finishHeld(input);
    }

    // The stream that was opened last is closed now, later or never.
    void finishHeld(fuzz::Input& input) {
        const auto stream = std::exchange(held_, nullptr);
        if (!stream || input.below(8) == 7) return;
        const auto part = expected_.parts.find(heldPart_);
        const bool isRefused = refuses<opc::Exception>([&] { stream->flush(); });
        require(isRefused == (part == expected_.parts.end()),
                "content is set while there is a part");
        if (isRefused) return;
        touch(part->second.name);
        added_ += heldContent_.size();
        part->second.content = heldContent_;
    }

    void remove(fuzz::Input& input) {
        const Entry* const entry = choose(input);
        if (entry == nullptr) return;
        const Part removed = open(*entry);
        const bool isRefused =
            refuses<opc::Exception>([&] { package_.deletePart(removed.getName()); });
        require(isRefused == isOwn(*entry), "a part can be deleted");
        if (isRefused) return;
        require(refuses<opc::Exception>([&] { removed.size(); }), "a deleted part is gone");
        touch(entry->second.name);
        touchTypes();
        if (heldPart_ == entry->first) held_ = nullptr;
        expected_.parts.erase(entry->first);
    }

    void read(fuzz::Input& input) {
        const Entry* const entry = choose(input);
        if (entry == nullptr || isOwn(*entry)) return;
        const auto bytes = attempt<opc::Exception>([&] { return readAll(open(*entry), 1 << 20); });
        const auto& content = entry->second.content;
        require(bytes.has_value() == content.has_value(), "a part is read before it is saved");
        require(!bytes || std::string(bytes->begin(), bytes->end()) == *content,
                "and has the content that was set");
    }

    // ---- Relationships

    void touchRelationships() {
        touch(u"/_rels/.rels");
        touchTypes();
    }

    void relate(fuzz::Input& input) {
        const auto type = input.units();
        const opc::model::URI target(input.units());
        const auto id = input.flag() ? std::u16string() : input.units();
        const bool isRefused = refuses<opc::Exception>([&] {
            expected_.relationships.push_back(
                package_.createInternalRelationship(type, target, id));
        });
        if (isRefused) return;
        touchRelationships();
        added_ += 6 * (type.size() + target.toString().size() + id.size());
    }

    void unrelate(fuzz::Input& input) {
        auto& all = expected_.relationships;
        if (all.empty()) return;
        const auto chosen = all.begin() + std::ptrdiff_t(input.byte() % all.size());
        package_.deleteRelationship(chosen->getID());
        all.erase(chosen);
        touchRelationships();
    }

    opc::zippackage::ZipPhysicalPackage zip_;
    opc::model::Package package_;
    FoundPackage expected_;
    std::set<std::string> touched_;
    std::size_t added_ = 0;
    std::unique_ptr<opc::OutputStream> held_;
    std::string heldPart_, heldContent_;
};

void compare(const FoundPackage& found, FoundPackage expected) {
    require(found.relationships == expected.relationships, "relationships read back");
    auto parts = found.parts;
    parts.erase(kRelationshipsKey);
    expected.parts.erase(kRelationshipsKey);
    require(parts.size() == expected.parts.size(), "there are as many parts");
    for (const auto& [key, part] : expected.parts) {
        const auto same = parts.find(key);
        require(same != parts.end(), "the same parts");
        require(opc::ascii::equalIgnoringCase(same->second.type, part.type), "of the same types");
        require(same->second.content == part.content, "with the same content");
    }
}

void edit(fuzz::PackageFile& file, const FoundPackage& before, fuzz::Input& input) {
    const std::string bytes = file.bytes();
    Session session(file, before);
    const bool isSaved = input.below(8) != 7;
    for (auto count = input.below(12); count > 0 && !input.empty(); --count)
        session.take(input);
    if (!isSaved || refuses<opc::Exception>([&] { session.save(); }) || session.touched().empty())
        return file.requireUntouched(bytes);
    file.requireKept(before, bytes.size(), session.touched(), session.added());
    compare(*file.find(), session.expected());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return fuzz::editPackage(
        {data, size}, [](auto& file) { Session(file, {}); }, edit);
}
