// Loaded in front of the C library: the allocation with the number in QZ_FAILING_ALLOCATION fails,
// counted from 1.
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

extern "C" void* __libc_malloc(std::size_t size);

namespace {

std::atomic<long> left{0};

[[gnu::constructor]] void begin() {
    if (const char* number = std::getenv("QZ_FAILING_ALLOCATION")) left = std::atol(number);
}

}  // namespace

extern "C" void* malloc(std::size_t size) {
    if (left.load(std::memory_order_relaxed) == 0 || left.fetch_sub(1) != 1)
        return __libc_malloc(size);
    errno = ENOMEM;
    return nullptr;
}
