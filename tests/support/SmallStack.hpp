#pragma once

#include <pthread.h>

#include <cstddef>
#include <functional>
#include <future>
#include <stdexcept>

namespace test_support {

// The stack that is enough for everything in the library. Under the sanitizers stack frames are
// several times larger.
#if defined(QZ_SANITIZED)
inline constexpr std::size_t kSmallStack = 512 * 1024;
#else
inline constexpr std::size_t kSmallStack = 128 * 1024;
#endif

// Runs `work` on a thread with a stack of kSmallStack bytes; throws what it throws.
inline void onSmallStack(const std::function<void()>& work) {
    std::packaged_task<void()> task(work);
    const auto run = [](void* started) -> void* {
        (*static_cast<std::packaged_task<void()>*>(started))();
        return nullptr;
    };
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_t thread;
    const bool running = pthread_attr_setstacksize(&attributes, kSmallStack) == 0 &&
                         pthread_create(&thread, &attributes, run, &task) == 0;
    pthread_attr_destroy(&attributes);
    if (!running) throw std::runtime_error("cannot start a thread");
    pthread_join(thread, nullptr);
    task.get_future().get();
}

}  // namespace test_support
