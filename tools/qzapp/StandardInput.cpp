#include "tools/qzapp/StandardInput.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>
#include <fl/FileDescriptor.hpp>
#include <fl/Retry.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <system_error>

#include "tools/qzapp/Arguments.hpp"
#include "tools/qzapp/Errors.hpp"

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;

constexpr const char* kName = "standard input";
constexpr std::size_t kReadBytes = std::size_t{256} << 10;

[[noreturn]] void throwNotKept(const std::string& folder, const std::string& reason) {
    throw Error(kName, fmt::format("cannot be kept in {} ({}); name a folder with room in TMPDIR",
                                   folder, reason));
}

FileDescriptor makeNamelessFile(const std::string& folder) {
    FileDescriptor file(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (file) return file;
    // Not every file system has files without a name.
    std::string name = folder + "/qzapp-XXXXXX";
    file = FileDescriptor(::mkostemp(name.data(), O_CLOEXEC));
    if (!file) throwNotKept(folder, std::generic_category().message(errno));
    ::unlink(name.c_str());
    return file;
}

std::size_t readSome(std::span<std::byte> buffer) {
    const auto count = fl::filesystem::retryInterrupted(
        [&] { return ::read(STDIN_FILENO, buffer.data(), buffer.size()); });
    if (count >= 0) return static_cast<std::size_t>(count);
    throw Error(kName, "cannot be read (" + std::generic_category().message(errno) + ")");
}

FileDescriptor keepStandardInput() {
    const char* named = std::getenv("TMPDIR");
    const std::string folder = named != nullptr && *named != '\0' ? named : "/tmp";
    FileDescriptor file = makeNamelessFile(folder);
    std::vector<std::byte> buffer(kReadBytes);
    std::uint64_t size = 0;
    while (const std::size_t count = readSome(buffer)) {
        try {
            file.writeAt(std::span(buffer).first(count), size);
        } catch (const std::system_error& e) {
            throwNotKept(folder, e.code().message());
        }
        size += count;
    }
    if (size == 0) throw Error(kName, "holds nothing; check the program that writes to it");
    return file;
}

}  // namespace

FileName inputArgument(const std::string& value) {
    if (value != kStandardStream) return fileArgument(value);
    static const FileDescriptor kept = keepStandardInput();
    return {kName, fl::filesystem::path::fromBytes(fmt::format("/proc/self/fd/{}", kept.get()))};
}

void requireOneStandardInput(const std::vector<std::optional<std::string>>& values) {
    if (std::count(values.begin(), values.end(), kStandardStream) <= 1) return;
    throw UsageError(kStandardStream, "standard input can be one file only; name the others");
}

}  // namespace qzapp
