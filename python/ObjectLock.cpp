#include "python/ObjectLock.hpp"

#include <pthread.h>

#include <new>

namespace qzapp::python {

namespace {

// Readers are the threads that have an object locked; the writer is the one that forks, which goes
// first lest it wait for ever.
constexpr pthread_rwlock_t kFree = PTHREAD_RWLOCK_WRITER_NONRECURSIVE_INITIALIZER_NP;
constinit pthread_rwlock_t forks = kFree;

}  // namespace

ObjectLock::ObjectLock(std::mutex& mutex) : mutex_(mutex) {
    ::pthread_rwlock_rdlock(&forks);
    mutex_.lock();
}

ObjectLock::~ObjectLock() {
    mutex_.unlock();
    ::pthread_rwlock_unlock(&forks);
}

void ObjectLock::install() {
    const auto before = [] { ::pthread_rwlock_wrlock(&forks); };
    const auto inParent = [] { ::pthread_rwlock_unlock(&forks); };
    const auto inChild = [] { forks = kFree; };
    if (::pthread_atfork(before, inParent, inChild) != 0) throw std::bad_alloc();
}

}  // namespace qzapp::python
