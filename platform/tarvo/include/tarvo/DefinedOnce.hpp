#pragma once

#include <mutex>
#include <optional>
#include <utility>

namespace tarvo {

// A value that is made on first use, by one thread while others wait.
template <class Value>
class DefinedOnce {
public:
    // What `define` returned the first time. If it throws, nothing is defined, and the next call
    // tries again. `define` must not ask for the same value.
    template <class Define>
    const Value& get(Define define) const {
        const std::lock_guard lock(mutex_);
        if (!value_) value_.emplace(define());
        return *value_;
    }

private:
    mutable std::mutex mutex_;
    mutable std::optional<Value> value_;
};

}  // namespace tarvo
