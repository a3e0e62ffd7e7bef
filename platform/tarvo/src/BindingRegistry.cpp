#include <tarvo/BindingRegistry.hpp>

#include <hvarray/Inspection.hpp>

#include <string_view>
#include <utility>

namespace tarvo::factory::basic {

// A host object, which its handles share. It lives as long as they do; its native object may be
// destroyed earlier.
class BoundObject final : public matrix::HostObject {
public:
    explicit BoundObject(InternedString className) : className_(className) {}
    ~BoundObject() override { BindingRegistry::instance().detach(*this); }

    std::string_view className() const noexcept override { return className_.str(); }
    std::string_view namespaceName() const noexcept {
        return className().substr(0, className().rfind('.'));
    }

    // Guarded by the registry's mutex.
    full::Wrappable* native = nullptr;

private:
    InternedString className_;
};

namespace {

// The host object of a handle; null if it belongs to another class system.
BoundObject* boundObjectOf(const hvArray_tag& handle) {
    return dynamic_cast<BoundObject*>(matrix::objectOf(handle).get());
}

}  // namespace

BindingRegistry::BindingRegistry() = default;
BindingRegistry::~BindingRegistry() = default;

BindingRegistry& BindingRegistry::instance() {
    static const foundation::Immortal<BindingRegistry> registry;
    return *registry;
}

hvArrayProxy BindingRegistry::announceForConstructor(const COSClassInfo& info,
                                                     std::unique_ptr<full::Wrappable> native) {
    const auto object = std::make_shared<BoundObject>(info.getFullName());
    hvArrayProxy handle = matrix::adopt(matrix::createObject(object));
    const std::lock_guard lock(mutex_);
    bindings_.emplace(native.get(), object.get());
    object->native = native.release();
    return handle;
}

void BindingRegistry::remove(full::Wrappable& native) noexcept {
    const std::lock_guard lock(mutex_);
    const auto found = bindings_.find(&native);
    if (found == bindings_.end()) return;
    found->second->native = nullptr;
    bindings_.erase(found);
}

bool BindingRegistry::hasMade(const hvArray_tag& handle) {
    return boundObjectOf(handle) != nullptr;
}

full::Wrappable* BindingRegistry::find(const hvArray_tag& handle) const {
    const BoundObject* const object = boundObjectOf(handle);
    const std::lock_guard lock(mutex_);
    return object == nullptr ? nullptr : object->native;
}

// Returns the native object instead of destroying it, because its destructor calls retract(), which
// takes the lock.
std::unique_ptr<full::Wrappable> BindingRegistry::detach(BoundObject& object) noexcept {
    const std::lock_guard lock(mutex_);
    std::unique_ptr<full::Wrappable> native(std::exchange(object.native, nullptr));
    bindings_.erase(native.get());
    return native;
}

void BindingRegistry::destroy(const hvArray_tag& handle) {
    BoundObject* const object = boundObjectOf(handle);
    if (object != nullptr) detach(*object);
}

void BindingRegistry::destroyAllOf(InternedString namespaceName) noexcept {
    Bindings doomed;
    {
        const std::lock_guard lock(mutex_);
        for (auto next = bindings_.begin(); next != bindings_.end();) {
            const auto current = next++;
            if (current->second->namespaceName() != namespaceName.str()) continue;
            current->second->native = nullptr;
            doomed.insert(bindings_.extract(current));
        }
    }
    for (const auto& [native, object] : doomed)
        std::unique_ptr<full::Wrappable>(native).reset();
}

std::size_t BindingRegistry::size() const {
    const std::lock_guard lock(mutex_);
    return bindings_.size();
}

}  // namespace tarvo::factory::basic
