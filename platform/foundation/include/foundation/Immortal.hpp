#pragma once

#include <utility>

namespace foundation {

// Holds an object that is never destroyed. The destructors of other modules' static objects, and
// threads that nobody has joined, use the libraries until the process is gone; so whatever a function
// keeps from one call to the next is constexpr, or stands in one of these:
//
//     static const Immortal<ustring> type(u"...");
//     return *type;
//
// A leak checker still finds the object, which the static variable refers to.
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
