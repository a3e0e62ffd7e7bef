#pragma once

#include <opc/Exception.hpp>
#include <opc/Relationship.hpp>

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "fuzz/Fuzzing.hpp"
#include "fuzz/MemoryFiles.hpp"
#include "fuzz/PackageProgram.hpp"

// A package file before and after an edit.
namespace fuzz {

struct FoundPart {
    std::u16string name;
    std::u16string type;
    std::optional<std::string> content;  // nullopt if it cannot be read
};

// All that is in a package, as a reader of packages sees it, and the bytes of each item.
struct FoundPackage {
    std::map<std::string, FoundPart> parts;  // by the keys of their names
    std::vector<opc::model::Relationship> relationships;
    std::map<std::string, std::string> items;  // header, data, descriptor and directory record

    // The key of the part to which the relationship leads; nullopt if it leads to none.
    std::optional<std::string> targetOf(const opc::model::Relationship& relationship) const;
};

// The file on which the edits of an input are tried. It is the only one in its directory in memory.
class PackageFile {
public:
    explicit PackageFile(const std::string& bytes);

    const std::u16string& name() const noexcept { return name_; }
    std::string bytes() const;
    // Returns what is in it now, or nullopt if the package is refused. Looks again only if the
    // bytes have changed, because that takes most of the time of an execution.
    const std::optional<FoundPackage>& find();

    // Requires that the file holds `bytes` and that there is no other file beside it.
    void requireUntouched(const std::string& bytes) const;
    // Requires that a save has kept every item except those in `touched`, and that the file has not
    // grown by much more than `added` bytes.
    void requireKept(const FoundPackage& before, std::size_t sizeBefore,
                     const std::set<std::string>& touched, std::size_t added);

private:
    void requireAlone() const;

    std::u16string name_;
    std::optional<std::string> lookedAt_;
    std::optional<FoundPackage> found_;
};

// Edits the package that an input describes, up to three times. A package that cannot be read must
// be refused by `open` and stay as it is.
template <class Open, class Edit>
int editPackage(Input input, Open open, Edit edit) {
    PackageFile file(drawPackage(input).bytes);
    for (int edits = 3; edits > 0; --edits) {
        const std::string before = file.bytes();
        if (const auto found = file.find()) {
            edit(file, *found, input);
        } else {
            require(refuses<opc::Exception>([&] { open(file); }), "a wrong package is not edited");
            file.requireUntouched(before);
        }
        if (input.empty()) break;
    }
    require(memory::countOpen() == 0, "no file is left open");
    return 0;
}

}  // namespace fuzz
