#include <fl/FileReader.hpp>

#include <fl/ReplacementFile.hpp>
#include <fl/Retry.hpp>
#include <fl/SystemCalls.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <string>
#include <utility>

namespace fl::filesystem {

namespace {

FileDescriptor openAsStreamsDo(const path& file) {
    const std::string name = detail::make_native_access_form_i18n(file);
    // Not through systemCalls(), as streams do not: whoever reads in this way takes a file that
    // cannot be opened for none.
    FileDescriptor opened(
        retryInterrupted([&] { return ::open(name.c_str(), O_RDONLY | O_CLOEXEC); }));
    return opened ? std::move(opened) : FileDescriptor(detail::openPrivateName(file, errno));
}

// Reads on from the descriptor's own position.
std::size_t readOn(const FileDescriptor& file, std::span<std::byte> buffer) {
    std::size_t done = 0;
    while (done < buffer.size()) {
        const ssize_t got = retryInterrupted([&] {
            return systemCalls().read(file.get(), buffer.data() + done, buffer.size() - done);
        });
        if (got < 0) throwSystemError(errno, "cannot read");
        if (got == 0) break;
        done += static_cast<std::size_t>(got);
    }
    return done;
}

}  // namespace

FileReader::FileReader(const path& file) : file_(openAsStreamsDo(file)) {
    if (!file_) return;
    struct stat status {};
    if (retryInterrupted([&] { return systemCalls().fstat(file_.get(), &status); }) < 0) {
        throwSystemError(errno, "cannot stat");
    }
    hasPositions_ = S_ISREG(status.st_mode) || S_ISBLK(status.st_mode);
    if (S_ISREG(status.st_mode)) size_ = static_cast<std::uint64_t>(status.st_size);
}

std::size_t FileReader::read(std::span<std::byte> buffer) {
    requireOwn(process_);
    if (!hasPositions_) return readOn(file_, buffer);
    const std::size_t count = file_.readAt(buffer, position_);
    position_ += count;
    if (count < buffer.size() && position_ < size_) {
        throwSystemError(EIO, "ends before the size that it had when it was opened");
    }
    return count;
}

}  // namespace fl::filesystem
