#pragma once

#include <foundation/Export.hpp>
#include <foundation/ustring.hpp>
#include <messages/Catalog.hpp>
#include <messages/MessageId.hpp>

namespace KORVAL::lumenforge::lumenforge {

// The class of the catalog message `entry`, whose only argument is the name of a file. Make one and
// throw it with hvErrMsgId():
//
//     hvErrMsgId(KORVAL::lumenforge::lumenforge::LoadFailed(fileName));
template <const messages::CatalogEntry& entry>
class PLATFORM_API FileMessage : public messages::MessageId {
public:
    explicit FileMessage(const foundation::ustring& fileName)
        : MessageId(entry.catalog, entry.identifier, {fileName}) {}
};

using InvalidFileName = FileMessage<messages::kInvalidFileName>;
using InvalidFileExtension = FileMessage<messages::kInvalidFileExtension>;
using InvalidFileExtensionCase = FileMessage<messages::kInvalidFileExtensionCase>;
using LoadFailed = FileMessage<messages::kLoadFailed>;

}  // namespace KORVAL::lumenforge::lumenforge
