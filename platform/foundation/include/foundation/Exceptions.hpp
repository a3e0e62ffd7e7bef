#pragma once

#include <foundation/Export.hpp>

#include <boost/exception/exception.hpp>

#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace foundation::core::except {

// What every exception of the host's native code can do besides being caught: be copied, carried to
// another thread or language, and be thrown again there with its own type.
class PLATFORM_API InternalException : public virtual boost::exception {
public:
    ~InternalException() noexcept override;
    virtual std::unique_ptr<InternalException> clone() const = 0;
    [[noreturn]] virtual void rethrow() const = 0;
};

// The allocation failure of the host's own structures.
class PLATFORM_API BadAlloc : public std::bad_alloc {
public:
    const char* what() const noexcept override;
};

namespace detail {

// Gives an exception type from elsewhere the InternalException interface. Handlers for
// `Wrapped` and its bases catch it unchanged.
template <class Wrapped>
class PLATFORM_API AnonymousInternalException final : public Wrapped, public InternalException {
    static_assert(std::is_base_of_v<std::exception, Wrapped>);

public:
    explicit AnonymousInternalException(Wrapped wrapped) : Wrapped(std::move(wrapped)) {}

    std::unique_ptr<InternalException> clone() const override {
        auto copy = std::make_unique<AnonymousInternalException>(*this);
        // The attached details are shared between copies, with an unsynchronised count; a clone may
        // go to another thread and gets its own.
        boost::exception_detail::copy_boost_exception(copy.get(), this);
        return copy;
    }
    [[noreturn]] void rethrow() const override { throw AnonymousInternalException(*this); }
};

}  // namespace detail

// Throws `exception` with the InternalException interface added.
template <class Wrapped>
[[noreturn]] void throwInternal(Wrapped exception) {
    throw detail::AnonymousInternalException<Wrapped>(std::move(exception));
}

}  // namespace foundation::core::except
