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

// The four functions below read the appendix of a text app (docs/format-k.md). It is no XML: a lookup
// is the first match of a regular expression in ECMAScript grammar, given with each, in the UTF-8 form
// of `text`. What is not found is not an error. Time is linear in the text, and no copy of it is made.
//
// Names are spliced into the expressions as they stand. One that is a pattern (any of ^$\.*+?()[{| in
// it) takes the standard library's search, which is bounded: it throws std::regex_error with
// error_stack where the search would not fit the thread's stack or the name is longer than 64 bytes of
// UTF-8, with error_complexity where it takes too long, and with the code that fits a pattern
// that is malformed. All four throw fl::i18n::ConversionError (a std::runtime_error) for a text or
// name that is not valid UTF-16, wherever in the text that stands.

// The body of the first section with that name, as it stands; empty when there is none.
// `%\[NAME\][\s\S]*?\{([\s\S]*?)%\}`
APPSERIALIZATION_API ustring getKAppAppendixSection(const ustring& text,
                                                    const ustring& sectionName);

// Replaces `value` by the text of the first element with that name, entity references replaced, white
// space kept. Leaves `value` as it is when there is none.
// `<NAME[\s\S]*?>([\s\S]*?)</NAME>`
APPSERIALIZATION_API void readXMLElement(const ustring& text, const ustring& elementName,
                                         ustring& value);

// Appends the trimmed texts of all elements with that name, in document order. Entity references are
// kept: the list that holds the items, read with readXMLElement, has had its references replaced.
// `<NAME[\s\S]*?>([\s\S]*?)</NAME>`
APPSERIALIZATION_API void readXMLElements(const ustring& text, const ustring& elementName,
                                          std::vector<ustring>& values);

// Replaces `value` by an attribute of the first element with that name, entity references replaced.
// Only a value in single quotes counts. Leaves `value` as it is when there is none.
// ``<ELEMENT[\s\S]*?ATTRIBUTE[\s\S]*?=[\s\S]*?'(.*?)'[\s\S]*?>``
APPSERIALIZATION_API void readXMLElementAttribute(const ustring& text, const ustring& elementName,
                                                  const ustring& attributeName, ustring& value);

}  // namespace appserialization
