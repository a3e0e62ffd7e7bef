#pragma once

#include <foundation/Export.hpp>

#include <boost/exception/exception.hpp>

#include <exception>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace foundation::core::except {

// The interface by which the host carries an exception of native code to another thread or
// language: it clones the exception, hands the clone over, and rethrows it there. Catch by this
// type to carry any exception; catch by the exception's own type to handle it.
class PLATFORM_API InternalException : public virtual boost::exception {
public:
    ~InternalException() noexcept override;
    // A copy with its own attached details, which another thread may use.
    virtual std::unique_ptr<InternalException> clone() const = 0;
    // Throws a copy of this exception with its full type.
    [[noreturn]] virtual void rethrow() const = 0;
};

// Thrown if memory for the host's own structures cannot be allocated.
class PLATFORM_API BadAlloc : public std::bad_alloc {
public:
    const char* what() const noexcept override;
};

namespace detail {

// Adds the InternalException interface to the exception type `Wrapped`. Handlers for `Wrapped` and
// its bases catch it unchanged.
template <class Wrapped>
class PLATFORM_API AnonymousInternalException final : public Wrapped, public InternalException {
    static_assert(std::is_base_of_v<std::exception, Wrapped>);

public:
    explicit AnonymousInternalException(Wrapped wrapped) : Wrapped(std::move(wrapped)) {}

    std::unique_ptr<InternalException> clone() const override {
        auto copy = std::make_unique<AnonymousInternalException>(*this);
        // Copies share the attached details, whose reference count is not synchronised. A clone may
        // go to another thread, so it gets its own.
        boost::exception_detail::copy_boost_exception(copy.get(), this);
        return copy;
    }
    [[noreturn]] void rethrow() const override { throw AnonymousInternalException(*this); }
};

// Keeps the exception in flight as the cause of `Wrapped`.
template <class Wrapped>
class PLATFORM_API CausedException : public Wrapped, public std::nested_exception {
public:
    explicit CausedException(Wrapped wrapped) : Wrapped(std::move(wrapped)) {}
};

}  // namespace detail

// Throws `exception` with the InternalException interface added. Throw through this function
// whatever may reach the host.
template <class Wrapped>
[[noreturn]] void throwInternal(Wrapped exception) {
    throw detail::AnonymousInternalException<Wrapped>(std::move(exception));
}

// Like throwInternal(), and nests the exception in flight (std::nested_exception). Call it only in
// a handler.
template <class Wrapped>
[[noreturn]] void throwInternalWithNested(Wrapped exception) {
    throwInternal(detail::CausedException<Wrapped>(std::move(exception)));
}

}  // namespace foundation::core::except
