#pragma once

#include <appserialization/ustring.hpp>

namespace appserialization::textapp {

// The whole text of a regular file, decoded from UTF-8. What is not valid UTF-8 becomes U+FFFD; a
// byte-order mark and the line ends stay as they are. Throws AppFileReaderInvalidFileName if the
// file cannot be opened or is not a regular file, without blocking on a FIFO. Throws
// AppFileReaderGenericException if it is larger than KAppMetadataReader::kLargestFile, has another
// number of bytes than the system says (unless that is 0, as for files in /proc), or cannot be read.
ustring readTextFile(const ustring& fileName);

}  // namespace appserialization::textapp
