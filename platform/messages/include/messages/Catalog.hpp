#pragma once

#include <foundation/Export.hpp>

#include <string_view>

namespace messages {

// A message of the host's catalog: the catalog's name, the message's own name, and its English
// text, in which {0}, {1}, ... stand for the arguments. Programs in the host language compare the
// two names, so these stay as they are; the text is only for people.
struct CatalogEntry {
    const char* catalog;
    const char* identifier;
    const char16_t* text;
};

// The messages about app files. {0} is the file name, as the caller gave it.
inline constexpr const char* kLumenforgeCatalog = "KORVAL:lumenforge:lumenforge";

// There is no such file, or it cannot be opened.
inline constexpr CatalogEntry kInvalidFileName{
    kLumenforgeCatalog, "InvalidFileName",
    u"'{0}' is not a valid app file name or does not exist."};
inline constexpr CatalogEntry kInvalidFileExtension{
    kLumenforgeCatalog, "InvalidFileExtension",
    u"'{0}' does not have the extension of an app file."};
inline constexpr CatalogEntry kInvalidFileExtensionCase{
    kLumenforgeCatalog, "InvalidFileExtensionCase",
    u"The extension of '{0}' must be in lower case."};
// Any other failure to read the file.
inline constexpr CatalogEntry kLoadFailed{kLumenforgeCatalog, "LoadFailed",
                                          u"The app file '{0}' could not be loaded."};

// The messages of the class system, for calls that a program in the host language gets wrong.
inline constexpr const char* kTarvoCatalog = "KORVAL:tarvo:tarvo";

// {0} is the class.
inline constexpr CatalogEntry kUndefinedClass{kTarvoCatalog, "UndefinedClass",
                                              u"There is no class '{0}'."};
// {0} is the class.
inline constexpr CatalogEntry kAbstractClass{
    kTarvoCatalog, "AbstractClass", u"The class '{0}' is abstract and has no objects of its own."};
// {0} is the class, {1} the method.
inline constexpr CatalogEntry kUndefinedMethod{kTarvoCatalog, "UndefinedMethod",
                                               u"The class '{0}' has no method '{1}'."};
// {0} is the method, {1} how many inputs it takes, {2} how many it was given.
inline constexpr CatalogEntry kWrongNumberOfInputs{
    kTarvoCatalog, "WrongNumberOfInputs", u"'{0}' was called with {2} inputs; it takes {1}."};
// {0} is the method, {1} the input's number from 1, {2} what it takes, {3} what it was given.
inline constexpr CatalogEntry kWrongInputType{kTarvoCatalog, "WrongInputType",
                                              u"Input {1} of '{0}' must be {2}; it is {3}."};
// {0} is what was given instead, such as "a 2x1 cell".
inline constexpr CatalogEntry kNotAText{kTarvoCatalog, "NotAText",
                                        u"Expected a row of characters, got {0}."};
// {0} is what was given instead.
inline constexpr CatalogEntry kNotAnObject{kTarvoCatalog, "NotAnObject",
                                           u"Expected an object, got {0}."};
// A handle is left whose object was destroyed earlier. No arguments.
inline constexpr CatalogEntry kDestroyedObject{kTarvoCatalog, "DestroyedObject",
                                               u"The object has been destroyed."};
// The method of one class was called on an object of another. No arguments.
inline constexpr CatalogEntry kForeignObject{
    kTarvoCatalog, "ForeignObject", u"The object belongs to another class than the method."};

// The entry with both names; null if there is none. Entries are constants, so it is never
// destroyed.
PLATFORM_API const CatalogEntry* findEntry(std::string_view catalog, std::string_view identifier);

}  // namespace messages
