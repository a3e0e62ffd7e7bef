#pragma once

#include <foundation/Export.hpp>

#include <atomic>
#include <mutex>
#include <optional>
#include <string_view>

namespace tarvo {

namespace internal {

// Held while anything is being defined. It is one for the whole process, because definitions use
// each other: with a lock for each, two threads that began at the two ends of a circle would wait
// for each other.
PLATFORM_API std::recursive_mutex& definitionMutex();

[[noreturn]] PLATFORM_API void throwUsesItself(std::string_view name);

}  // namespace internal

// A value that is made when it is first needed: the first thread makes it, while others wait.
template <class Value>
class DefinedOnce {
public:
    // Returns what `define` returned the first time. If `define` throws, nothing is defined, and
    // the next call tries again. Throws RegistrationError, which says `name`, if `define` needs the
    // value that it is making, whatever other definitions lie between.
    template <class Define>
    const Value& get(std::string_view name, Define define) const {
        if (isDefined_.load(std::memory_order_acquire)) return *value_;
        const std::lock_guard lock(internal::definitionMutex());
        if (!value_) value_.emplace(made(name, define));
        isDefined_.store(true, std::memory_order_release);
        return *value_;
    }

private:
    template <class Define>
    Value made(std::string_view name, Define define) const {
        if (isBeingDefined_) internal::throwUsesItself(name);
        isBeingDefined_ = true;
        const struct End {
            bool* mark;
            ~End() { *mark = false; }
        } end{&isBeingDefined_};
        return define();
    }

    mutable std::atomic<bool> isDefined_ = false;
    mutable std::optional<Value> value_;
    mutable bool isBeingDefined_ = false;  // under the lock, like value_ until it is defined
};

}  // namespace tarvo
