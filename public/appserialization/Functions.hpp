#pragma once

#include <appserialization/Export.hpp>
#include <appserialization/ustring.hpp>

#include <vector>

namespace appserialization {

// Whether `fileName` is longer than `extension` and ends in exactly its code units.
APPSERIALIZATION_API bool hasExtension(const ustring& fileName, const ustring& extension);

// Whether `fileName` has the extension only after lower-casing. `extension` is given in lower case.
APPSERIALIZATION_API bool isExtensionWrongCase(const ustring& fileName, const ustring& extension);

// The absolute path of an existing file whose name has the extension. Throws
// AppFileReaderInvalidFileExtensionCase, AppFileReaderInvalidFileExtension or, when only the file is
// missing, AppFileReaderInvalidFileName, each with the name as given. A relative name in a working
// directory whose own name is not valid UTF-8 throws std::system_error.
APPSERIALIZATION_API ustring validateFilePath(const ustring& fileName, const ustring& extension);

// Removes the white space of the global locale from both ends; in the classic locale that is ASCII
// white space. Throws the conversion error for text that is not valid UTF-16.
APPSERIALIZATION_API void trim(ustring& text);

}  // namespace appserialization
