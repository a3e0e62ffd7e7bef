// several_threads APP.kvpkg...: reads the names of many packaged apps, with one thread for each
// core.

#include <appserialization/KVPKGMetadataReader.hpp>

#include <atomic>
#include <exception>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "examples/Text.hpp"

using namespace appserialization;

namespace {

std::string nameOf(const ustring& file) {
    try {
        return toUtf8(*KVPKGMetadataReader(file).readMetadata().getName());
    } catch (const std::exception& error) {
        return toUtf8(file) + ": " + error.what();
    }
}

// Each reader is used by one thread only, so nothing needs a lock.
std::vector<std::string> namesOf(const std::vector<ustring>& files) {
    std::vector<std::string> names(files.size());
    std::atomic<std::size_t> next = 0;
    const auto work = [&] {
        for (std::size_t i = next++; i < files.size(); i = next++)
            names[i] = nameOf(files[i]);
    };
    std::vector<std::jthread> threads;
    for (unsigned i = 1; i < std::thread::hardware_concurrency(); ++i)
        threads.emplace_back(work);
    work();
    threads.clear();  // waits for them
    return names;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<ustring> files;
    for (int i = 1; i < argc; ++i)
        files.push_back(fromUtf8(argv[i]));
    for (const std::string& name : namesOf(files))
        std::cout << name << '\n';
    return 0;
}
