#pragma once

#include <foundation/Export.hpp>
#include <foundation/Immortal.hpp>
#include <hvarray/Array.hpp>
#include <tarvo/COSClassInfo.hpp>
#include <tarvo/InternedString.hpp>
#include <tarvo/Wrappable.hpp>

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>

namespace tarvo::factory {

// What a native method returns: an array, with the reference that the host takes over.
using hvArrayProxy = matrix::ArrayPtr;

namespace basic {

class BoundObject;

// Knows which native object backs which host object. A handle is an object array that refers to a
// host object; the host object owns the native one, which is destroyed with the last handle, by
// destroy() or by destroyAllOf(). Handles may outlive their native object and then refer to none.
//
// There is one registry in a process, and it is never destroyed. Its functions may be called from
// any thread. They do not keep an object alive while another thread uses it: one object is for one
// thread at a time. Native objects are destroyed outside of the registry's lock, so their
// destructors may call it.
class PLATFORM_API BindingRegistry {
public:
    static BindingRegistry& instance();

    // Binds `native`, which a constructor of the class has just made, to a new host object that
    // owns it, and returns the first handle. If this throws, it destroys the native object.
    hvArrayProxy announceForConstructor(const COSClassInfo& info,
                                        std::unique_ptr<full::Wrappable> native);

    // Unbinds a native object without destroying it; the caller owns it then. Does nothing if it is
    // not bound.
    void remove(full::Wrappable& native) noexcept;

    // Whether announceForConstructor() has made the handle. Throws matrix::ArrayError for an array
    // that is not an object.
    static bool hasMade(const hvArray_tag& handle);

    // The native object of a handle; null if it has been destroyed or the handle is not one of this
    // registry. Throws matrix::ArrayError for an array that is not an object.
    full::Wrappable* find(const hvArray_tag& handle) const;

    // Destroys the native object of a handle; does nothing if there is none. Throws
    // matrix::ArrayError for an array that is not an object.
    void destroy(const hvArray_tag& handle);
    // Destroys the native objects of all classes of a namespace.
    void destroyAllOf(InternedString namespaceName) noexcept;

    // Number of native objects that are bound.
    std::size_t size() const;

private:
    friend class BoundObject;
    friend class foundation::Immortal<BindingRegistry>;
    using Bindings = std::map<full::Wrappable*, BoundObject*>;

    BindingRegistry();
    ~BindingRegistry();
    std::unique_ptr<full::Wrappable> detach(BoundObject& object) noexcept;

    mutable std::mutex mutex_;
    Bindings bindings_;
};

}  // namespace basic
}  // namespace tarvo::factory
