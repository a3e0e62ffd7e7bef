#pragma once

#include <foundation/Export.hpp>

#include <string_view>

namespace messages {

// A message of the host's catalog: the catalog's name, the message's own, and its English text, in
// which {0}, {1}, ... stand for the arguments.
struct CatalogEntry {
    const char* catalog;
    const char* identifier;
    const char16_t* text;
};

// The messages about app files; {0} is the file name.
inline constexpr const char* kLumenforgeCatalog = "KORVAL:lumenforge:lumenforge";

inline constexpr CatalogEntry kInvalidFileName{
    kLumenforgeCatalog, "InvalidFileName",
    u"'{0}' is not a valid app file name or does not exist."};
inline constexpr CatalogEntry kInvalidFileExtension{
    kLumenforgeCatalog, "InvalidFileExtension",
    u"'{0}' does not have the extension of an app file."};
inline constexpr CatalogEntry kInvalidFileExtensionCase{
    kLumenforgeCatalog, "InvalidFileExtensionCase",
    u"The extension of '{0}' must be in lower case."};
inline constexpr CatalogEntry kLoadFailed{kLumenforgeCatalog, "LoadFailed",
                                          u"The app file '{0}' could not be loaded."};

// The class system's messages.
inline constexpr const char* kTarvoCatalog = "KORVAL:tarvo:tarvo";

// {0} is the class.
inline constexpr CatalogEntry kUndefinedClass{kTarvoCatalog, "UndefinedClass",
                                              u"There is no class '{0}'."};
inline constexpr CatalogEntry kAbstractClass{
    kTarvoCatalog, "AbstractClass", u"The class '{0}' is abstract and has no objects of its own."};
// {1} is the method.
inline constexpr CatalogEntry kUndefinedMethod{kTarvoCatalog, "UndefinedMethod",
                                               u"The class '{0}' has no method '{1}'."};
// {0} is the method, {1} how many inputs it takes, {2} how many it was given.
inline constexpr CatalogEntry kWrongNumberOfInputs{
    kTarvoCatalog, "WrongNumberOfInputs", u"'{0}' was called with {2} inputs; it takes {1}."};
// {0} is the method, {1} the input's number from 1, {2} what it takes, {3} what it was given.
inline constexpr CatalogEntry kWrongInputType{kTarvoCatalog, "WrongInputType",
                                              u"Input {1} of '{0}' must be {2}; it is {3}."};
// {0} is what was found instead.
inline constexpr CatalogEntry kNotAText{kTarvoCatalog, "NotAText",
                                        u"Expected a row of characters, got {0}."};
inline constexpr CatalogEntry kNotAnObject{kTarvoCatalog, "NotAnObject",
                                           u"Expected an object, got {0}."};
inline constexpr CatalogEntry kDestroyedObject{kTarvoCatalog, "DestroyedObject",
                                               u"The object has been destroyed."};
inline constexpr CatalogEntry kForeignObject{
    kTarvoCatalog, "ForeignObject", u"The object belongs to another class than the method."};

// Null when the catalog has no such message.
PLATFORM_API const CatalogEntry* findEntry(std::string_view catalog, std::string_view identifier);

}  // namespace messages
