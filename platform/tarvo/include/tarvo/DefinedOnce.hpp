#pragma once

#include <mutex>
#include <optional>

namespace tarvo {

// A value that is made when it is first needed: the first thread makes it, while others wait.
template <class Value>
class DefinedOnce {
public:
    // Returns what `define` returned the first time. If `define` throws, nothing is defined, and
    // the next call tries again. `define` must not ask for the same value, or the thread locks
    // itself out.
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
