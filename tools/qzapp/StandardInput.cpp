#include "tools/qzapp/StandardInput.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>
#include <fl/FileDescriptor.hpp>
#include <fl/Retry.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <system_error>

#include "tools/qzapp/Arguments.hpp"
#include "tools/qzapp/Cleanup.hpp"
#include "tools/qzapp/Errors.hpp"

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;

constexpr const char* kName = "standard input";
constexpr std::size_t kReadBytes = std::size_t{256} << 10;

// A zip file has a zero byte in its first record, and text has none: these bytes tell the two apart
// unless more than that stands in front of the record.
constexpr std::size_t kSniffedBytes = 4096;

[[noreturn]] void throwNotKept(const std::string& folder, const std::string& reason) {
    throw Error(kName, fmt::format("cannot be kept in {} ({}); name a folder with room in TMPDIR",
                                   folder, reason));
}

std::string temporaryFolder() {
    const char* named = std::getenv("TMPDIR");
    return named != nullptr && *named != '\0' ? named : "/tmp";
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
    const std::string folder = temporaryFolder();
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

// Kept once, whoever asks for it.
const FileDescriptor& keptInput() {
    static const FileDescriptor kept = keepStandardInput();
    return kept;
}

std::string nameOf(const FileDescriptor& file) {
    std::string name = fmt::format("/proc/self/fd/{}", file.get());
    if (::access(name.c_str(), F_OK) == 0) return name;
    throw Error(kName,
                "cannot be read where /proc is not mounted; save it to a file and name that");
}

bool looksPackaged(const FileDescriptor& file) {
    std::array<std::byte, kSniffedBytes> start;
    const auto count = file.readAt(start, 0);
    return std::find(start.begin(), start.begin() + count, std::byte{0}) != start.begin() + count;
}

// A file under a name of our own, gone when the process ends.
class NamedInput {
public:
    NamedInput(const std::string& target, const std::string& extension)
        : folder_(makeFolder()), link_(folder_.path() + "/app" + extension) {
        if (::symlink(target.c_str(), link_.path().c_str()) == 0) return;
        const int reason = errno;
        folder_.remove();
        throwNotKept(temporaryFolder(), std::generic_category().message(reason));
    }
    ~NamedInput() {
        link_.remove();
        folder_.remove();
    }
    NamedInput(const NamedInput&) = delete;
    NamedInput& operator=(const NamedInput&) = delete;

    const std::string& name() const noexcept { return link_.path(); }

private:
    static std::string makeFolder() {
        std::string name = temporaryFolder() + "/qzapp-XXXXXX";
        if (::mkdtemp(name.data()) != nullptr) return name;
        throwNotKept(temporaryFolder(), std::generic_category().message(errno));
    }

    Leftover folder_, link_;
};

}  // namespace

FileName inputArgument(const std::string& value) {
    if (value != kStandardStream) return fileArgument(value);
    return {kName, fl::filesystem::path::fromBytes(nameOf(keptInput()))};
}

FileName appArgument(const std::string& value) {
    if (value != kStandardStream) return fileArgument(value);
    static const NamedInput input(nameOf(keptInput()),
                                  looksPackaged(keptInput()) ? ".kvpkg" : ".k");
    return {kName, fl::filesystem::path::fromBytes(input.name())};
}

bool isStandardInput(const FileName& file) {
    return file.shown == kName;
}

void requireOneStandardInput(const std::vector<std::optional<std::string>>& values) {
    if (std::count(values.begin(), values.end(), kStandardStream) <= 1) return;
    throw UsageError(kStandardStream, "standard input can be one file only; name the others");
}

}  // namespace qzapp
