#pragma once

#include <mutex>

namespace qzapp::python {

// Locks the mutex of an object. A fork waits until no thread has such a lock, so that the child
// finds every object whole and its mutex free. The work that is done under it must not need the
// interpreter's lock, which the thread that forks holds.
class ObjectLock {
public:
    explicit ObjectLock(std::mutex& mutex);
    ~ObjectLock();
    ObjectLock(const ObjectLock&) = delete;
    ObjectLock& operator=(const ObjectLock&) = delete;

    // Called once, when the module is loaded.
    static void install();

private:
    std::mutex& mutex_;
};

}  // namespace qzapp::python
