#include <tarvo/Namespace.hpp>

#include <exception>

namespace {

// Its code goes when the module is unloaded.
struct Failure : std::exception {
    const char* what() const noexcept override { return "no licence"; }
};

}  // namespace

// A module that registers something and then fails.
extern "C" __attribute__((visibility("default"))) void KVInitialize_libqzappserialization() {
    tarvo::factory::registerTarvoNamespace("half.done", [](tarvo::factory::TarvoNamespace&) {});
    throw Failure();
}
