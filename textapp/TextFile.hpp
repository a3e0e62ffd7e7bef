#pragma once

#include <appserialization/ustring.hpp>

namespace appserialization::textapp {

// The whole text of a regular file, decoded from UTF-8; what is not valid UTF-8 becomes U+FFFD, and
// neither a byte-order mark nor line ends are changed. Throws AppFileReaderInvalidFileName, without
// blocking, for a file that cannot be opened or is no regular file, and AppFileReaderGenericException
// for one that is larger than KAppMetadataReader::kLargestFile or fails while it is read.
ustring readTextFile(const ustring& fileName);

}  // namespace appserialization::textapp
