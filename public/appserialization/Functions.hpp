#pragma once

#include <appserialization/Export.hpp>
#include <appserialization/ustring.hpp>

#include <vector>

namespace appserialization {

// All functions here may be called from any thread.

// Whether `fileName` is longer than `extension` and ends in exactly its code units. `extension` is
// with the dot, such as ".kvpkg".
APPSERIALIZATION_API bool hasExtension(const ustring& fileName, const ustring& extension);

// Whether `fileName` lacks the extension, but would have it in lower case. `extension` is in lower
// case.
APPSERIALIZATION_API bool isExtensionWrongCase(const ustring& fileName, const ustring& extension);

// The absolute path of an existing file whose name has the extension. `fileName` is absolute or
// relative to the working directory; links are not resolved. Throws
// AppFileReaderInvalidFileExtension or AppFileReaderInvalidFileExtensionCase for the name, and then
// AppFileReaderInvalidFileName if there is no such file, each with the name as given. Throws
// std::system_error for a relative name if the name of the working directory is not valid UTF-8.
APPSERIALIZATION_API ustring validateFilePath(const ustring& fileName, const ustring& extension);

// Removes the white space of the global locale from both ends; in the classic locale that is ASCII
// white space. Throws fl::i18n::ConversionError (a std::runtime_error) for text that is not valid
// UTF-16, and leaves it as it is.
APPSERIALIZATION_API void trim(ustring& text);

// The four functions below read the appendix of a text app (docs/format-k.md). The appendix is not
// XML: each function returns what the first match of a regular expression captures, in ECMAScript
// grammar and over the UTF-8 form of `text`. The expression stands in the function's comment. What
// is not found is not an error. Time and memory are linear in the length of `text`.
//
// Names are inserted into the expressions as they are. A name that holds one of ^$\.*+?()[{| is a
// pattern, and is searched for by the standard library within bounds: it throws std::regex_error
// with error_stack if the search would not fit the thread's stack or the name has more than 64
// bytes of UTF-8, with error_complexity if the search takes too long, and with another code if the
// pattern is malformed.
//
// All four throw fl::i18n::ConversionError (a std::runtime_error) if `text` or a name is not valid
// UTF-16, even if the fault is in a part of the text that does not matter. An exception leaves
// `value` or `values` as it was.

// The body of the first section with that name, unchanged; empty if there is none.
// `%\[NAME\][\s\S]*?\{([\s\S]*?)%\}`
APPSERIALIZATION_API ustring getKAppAppendixSection(const ustring& text,
                                                    const ustring& sectionName);

// Replaces `value` by the text of the first element with that name. Entity references are replaced,
// white space is kept. Leaves `value` as it is if there is no such element.
// `<NAME[\s\S]*?>([\s\S]*?)</NAME>`
APPSERIALIZATION_API void readXMLElement(const ustring& text, const ustring& elementName,
                                         ustring& value);

// Appends the texts of all elements with that name to `values`, trimmed, in document order. Entity
// references are kept, because `text` is the content of a list as readXMLElement() returns it, in
// which they have been replaced already.
// `<NAME[\s\S]*?>([\s\S]*?)</NAME>`
APPSERIALIZATION_API void readXMLElements(const ustring& text, const ustring& elementName,
                                          std::vector<ustring>& values);

// Replaces `value` by the value of an attribute of the first element with that name. The value has
// to be in single quotes; entity references in it are replaced. Leaves `value` as it is if there is
// no such attribute.
// ``<ELEMENT[\s\S]*?ATTRIBUTE[\s\S]*?=[\s\S]*?'(.*?)'[\s\S]*?>``
APPSERIALIZATION_API void readXMLElementAttribute(const ustring& text, const ustring& elementName,
                                                  const ustring& attributeName, ustring& value);

}  // namespace appserialization
