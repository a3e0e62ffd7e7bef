#pragma once

#include <utility>

namespace foundation {

// Holds an object that is never destroyed. Destructors of other modules' static objects, and
// threads that nobody has joined, may call these libraries until the process is gone. So whatever a
// function keeps from one call to the next is either constexpr or held by an Immortal:
//
//     static const Immortal<ustring> type(u"...");
//     return *type;
//
// A leak checker does not report the object, because the static variable still points to it.
template <class Object>
class Immortal {
public:
    template <class... Arguments>
    explicit Immortal(Arguments&&... arguments)
        : object_(new Object(std::forward<Arguments>(arguments)...)) {}

    Object& operator*() const noexcept { return *object_; }
    Object* operator->() const noexcept { return object_; }

private:
    Object* object_;
};

}  // namespace foundation
