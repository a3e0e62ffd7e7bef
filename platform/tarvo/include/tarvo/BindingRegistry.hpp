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

// The result of a method, owned until the host takes it.
using hvArrayProxy = matrix::ArrayPtr;

namespace basic {

class BoundObject;

// Which native object stands behind which host object. Safe from any thread.
class PLATFORM_API BindingRegistry {
public:
    static BindingRegistry& instance();

    // Binds `native`, which a constructor of the class has just made, to a new host object, and
    // returns a handle to it. The host object owns the native one. When this throws, the native
    // object has been destroyed.
    hvArrayProxy announceForConstructor(const COSClassInfo& info,
                                        std::unique_ptr<full::Wrappable> native);

    // Unbinds a native object without destroying it. Does nothing when it is not bound.
    void remove(full::Wrappable& native) noexcept;

    // Whether the handle is one that announceForConstructor() has made. Throws matrix::ArrayError for
    // an array that is no object.
    static bool hasMade(const hvArray_tag& handle);

    // Null when the object has been destroyed. Throws matrix::ArrayError for an array that is no
    // object.
    full::Wrappable* find(const hvArray_tag& handle) const;

    void destroy(const hvArray_tag& handle);
    // Destroys the objects of every class of a namespace.
    void destroyAllOf(InternedString namespaceName) noexcept;

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
