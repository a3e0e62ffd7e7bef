#include <hvarray/Array.hpp>

#include <vector>

// A module that leaves an array behind, for qzhost to notice.
extern "C" __attribute__((visibility("default"))) void KVInitialize_libqzappserialization() {
    matrix::createUint8(std::vector<std::uint8_t>{1, 2, 3});
}
