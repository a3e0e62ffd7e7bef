#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/salvage/DamagedFile.hpp"

#include <cstdint>
#include <string_view>
#include <vector>

namespace opc::zip {

// Where an item of a directory record may be, if the local header or the record is damaged.

// Adds what the local header says: where the data starts, and the header's name if it is a
// different one of the same length, as when a bit was flipped. A folder keeps its name. If the
// header is damaged, the data starts where a header without extra fields would end.
void addLocal(const SalvageSource& source, ZipItem& item);

// Returns `item` once for each place where its local header may be, the likeliest first: the offset
// that the directory says, and the one `shift` bytes after it if that is another.
std::vector<ZipItem> placesOf(const SalvageSource& source, const ZipItem& item, std::int64_t shift);

// Where the data may begin if the local header does not say it right, because the length of the
// name or of the extra fields is damaged: so that it ends where the next item begins, at `next`, or
// behind a header with the directory's name.
std::vector<std::uint64_t> otherOffsetsOfData(const SalvageSource& source, const ZipItem& item,
                                              std::uint64_t next);

// Whether its descriptor with a signature, another record or the end of the file follows an item
// without data, the last two perhaps behind a descriptor that is damaged. If something else does, zeros may have been written over what
// its header says.
bool isFollowedByRecord(const SalvageSource& source, const ZipItem& item);

// Whether the directory calls an item empty and the local header or the descriptor does not, as if
// zeros had been written over the directory. Empty content would always be whole.
bool isEmptied(const SalvageSource& source, const ZipItem& item);

// Whether the header at the place of an item that its directory record calls empty does so, too:
// empty content would be whole anywhere.
bool saysEmpty(const SalvageSource& source, const LocalHeader& header, const ZipItem& item);

// Whether a directory `record` may have described an item with these numbers, before it was
// damaged: the checksum is the same, or in each number at most one byte differs but for those that
// were overwritten with zeros. Otherwise the item is of another version of the file, which was
// written over this one.
bool mayDescribe(const ZipItem& record, const ZipItem& item);

// Whether a record's name can be one: it is neither empty nor overwritten with zeros.
bool isName(std::string_view name);

}  // namespace opc::zip
