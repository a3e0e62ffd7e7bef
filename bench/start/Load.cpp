// qz_bench_load MODULE [ARGUMENT]: loads a module, calls its run(), and prints how many seconds
// both took together. The process has loaded none of the module's libraries before.
#include <dlfcn.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    void* const module = argc > 1 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : nullptr;
    void* const run = module ? dlsym(module, "run") : nullptr;
    if (!run) {
        std::fprintf(stderr, "%s\n", dlerror());
        return EXIT_FAILURE;
    }
    reinterpret_cast<void (*)(const char*)>(run)(argc > 2 ? argv[2] : "");
    std::printf("%.9f\n", std::chrono::duration<double>(Clock::now() - start).count());
}
