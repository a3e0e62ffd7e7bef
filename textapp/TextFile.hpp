#pragma once

#include <appserialization/ustring.hpp>
#include <boost/container/vector.hpp>

namespace appserialization::textapp {

class SectionFinder;

// Bytes that, unlike those of a std::string, are not set to zero before they are read.
using FileText = boost::container::vector<char>;

// All bytes of a regular file. While they are read, `sections` searches them. Throws
// AppFileReaderInvalidFileName if the file cannot be opened or is not a regular file, without
// blocking on a FIFO. Throws AppFileReaderGenericException if it is larger than
// KAppMetadataReader::kLargestFile, has another number of bytes than the system says (unless that
// is 0, as for files in /proc), or cannot be read.
FileText readTextFile(const ustring& fileName, SectionFinder& sections);

}  // namespace appserialization::textapp
