#pragma once

#include <foundation/Export.hpp>
#include <hvarray/Array.hpp>
#include <tarvo/COSClassInfo.hpp>
#include <tarvo/COSMethodInfo.hpp>
#include <tarvo/COSMethodSignature.hpp>
#include <tarvo/Namespace.hpp>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// What a host does with the classes that native modules have registered: look them up, construct
// objects, call methods, destroy objects, and let modules go. All functions may be called from any
// thread, but use one object from one thread at a time.
namespace tarvo {

using NamespacePtr = std::shared_ptr<const factory::TarvoNamespace>;
using ClassPtr = std::shared_ptr<const COSClassInfo>;

// The names of all registered namespaces, in alphabetical order. Does not run their definers.
PLATFORM_API std::vector<std::string> namespaceNames();

// The namespace with this name, or null. The first call runs its definer, while other threads wait;
// what the definer throws passes through, and the next use tries again. Throws RegistrationError if
// the definer uses its own namespace, perhaps through another one's definer. Release the pointer
// before the module that registered the namespace is unloaded.
PLATFORM_API NamespacePtr findNamespace(std::string_view name);
// The class with this full name, such as "lumenforge.internal.serialization.KAppMetadataReader", or
// null. Throws what findNamespace() throws. The pointer keeps the whole namespace; release it
// before the module is unloaded.
PLATFORM_API ClassPtr findClass(std::string_view fullName);

// Calls the constructor of a class. The first output is a handle to the new object. Throws
// messages::HostError for whatever host code can get wrong: an unknown or abstract class, inputs
// that do not fit the signature, a file that cannot be read. Throws std::bad_alloc if the class
// system itself runs out of memory, because it could not make a host error then. Exceptions of the
// module's definer and descriptions pass through.
PLATFORM_API Outputs construct(std::string_view fullName, std::size_t outputCount, Inputs inputs);

// Calls the method `method` of a class. Unless the method is static, its object is the first input.
// Throws what construct() throws, and messages::HostError for an unknown method or for an object
// that has been destroyed or belongs to another class.
PLATFORM_API Outputs callMethod(std::string_view fullName, std::string_view method,
                                std::size_t outputCount, Inputs inputs);

// Destroys the object of a handle now rather than with its last handle. The remaining handles refer
// to no object: calling a method on one is a host error, destroying it again does nothing. Throws
// matrix::ArrayError for an array that is not an object.
PLATFORM_API void destroyObject(const hvArray_tag& handle);
// Whether the array is a handle whose object is alive.
PLATFORM_API bool isValidHandle(const hvArray_tag& array);
// Number of objects alive in the process.
PLATFORM_API std::size_t boundObjectCount();

// Forgets a namespace and destroys the objects of its classes, so that the module that registered
// it can be unloaded. Returns whether there was such a namespace. Call it when no other thread uses
// the classes of the namespace.
PLATFORM_API bool unregisterTarvoNamespace(std::string_view name);

}  // namespace tarvo
