#pragma once

#include <foundation/Export.hpp>
#include <hvarray/Array.hpp>
#include <tarvo/COSClassInfo.hpp>
#include <tarvo/COSMethodInfo.hpp>
#include <tarvo/Namespace.hpp>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// What a host does with the classes that native modules have registered. Everything here is safe
// from any thread; one object is used by one thread at a time.
namespace tarvo {

using NamespacePtr = std::shared_ptr<const factory::TarvoNamespace>;
using ClassPtr = std::shared_ptr<const COSClassInfo>;

// In alphabetical order; no definer runs.
PLATFORM_API std::vector<std::string> namespaceNames();

// Null when there is none. Runs the definer if it has not run; what it throws passes through, and
// the next use tries again. Release what these two return before the module that registered it is
// unloaded.
PLATFORM_API NamespacePtr findNamespace(std::string_view name);
// By the full name, such as "lumenforge.internal.serialization.KAppMetadataReader".
PLATFORM_API ClassPtr findClass(std::string_view fullName);

// Calls the constructor of a class; the first output is a handle to the new object. Inputs that do
// not fit the signature, an abstract class, and whatever else host code can get wrong, raise a
// messages::HostError. std::bad_alloc passes, here and below, where the class system itself has no
// memory: no host error could be made then.
PLATFORM_API Outputs construct(std::string_view fullName, std::size_t outputCount, Inputs inputs);

// Calls a method. An ordinary method takes its object as the first input.
PLATFORM_API Outputs callMethod(std::string_view fullName, std::string_view method,
                                std::size_t outputCount, Inputs inputs);

// Destroys the object behind a handle now, rather than with its last handle. The handles that are
// left refer to no object; using one is a host error, destroying it again does nothing. Throws
// matrix::ArrayError for an array that is no object.
PLATFORM_API void destroyObject(const hvArray_tag& handle);
// Whether the array is a handle whose object is alive.
PLATFORM_API bool isValidHandle(const hvArray_tag& array);
// Number of objects alive in the process.
PLATFORM_API std::size_t boundObjectCount();

// Forgets a namespace and destroys the objects of its classes, so that the module that registered
// it can be unloaded. Returns whether there was such a namespace. No other thread may be using its
// classes.
PLATFORM_API bool unregisterTarvoNamespace(std::string_view name);

}  // namespace tarvo
