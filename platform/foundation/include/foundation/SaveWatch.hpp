#pragma once

#include <foundation/Export.hpp>

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>

namespace foundation {

// What a save throws that a SaveWatch has cancelled.
class PLATFORM_API Cancelled : public std::exception {
public:
    ~Cancelled() override;
    const char* what() const noexcept override;
};

// Follows the saves that this thread makes as long as the object exists, and can cancel them. If
// there are several on a thread, the newest of those that are left counts. Make and destroy it on
// the same thread.
class PLATFORM_API SaveWatch {
public:
    // Called on the thread of the save whenever bytes have been handed to the new file, at least
    // once for each 8 MiB, and before the file is synced, with the number of bytes since the last
    // call. If it returns false, the call that is going on, which may be a setter that writes ahead
    // of the save, throws Cancelled and the old file stays. An exception of its own has the same
    // effect. Until it returns, calls that would change or save the package that is being saved
    // fail, whatever thread makes them, and the objects of the save must not be destroyed.
    using Report = std::function<bool(std::uint64_t bytes)>;

    explicit SaveWatch(Report report);
    ~SaveWatch();
    SaveWatch(const SaveWatch&) = delete;
    SaveWatch& operator=(const SaveWatch&) = delete;

    // For the libraries: reports to this thread's watch, if there is one, and throws what it wants.
    static void advance(std::uint64_t bytes);

private:
    std::shared_ptr<const Report> report_;  // shared by a call of it, which may destroy the watch
    SaveWatch* older_;
};

}  // namespace foundation
