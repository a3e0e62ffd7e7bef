#include "tools/qzapp/cli/StandardInput.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <fl/FileDescriptor.hpp>
#include <fl/Retry.hpp>
#include <foundation/Immortal.hpp>
#include <foundation/ustring.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <utility>

#include "app/Error.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "app/ScratchFile.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/Report.hpp"

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;

constexpr const char* kName = kStandardInputName;
constexpr std::size_t kReadBytes = std::size_t{256} << 10;

// What can be read only once, from its start to its end: standard input or a pipe.
struct Stream {
    int descriptor;
    std::string shown;
};

std::size_t readSome(const Stream& stream, std::span<std::byte> buffer) {
    const auto count = fl::filesystem::retryInterrupted(
        [&] { return ::read(stream.descriptor, buffer.data(), buffer.size()); });
    if (count >= 0) return static_cast<std::size_t>(count);
    throw Error(stream.shown, "cannot be read (" + std::generic_category().message(errno) + ")");
}

std::optional<fl::filesystem::FileStamp> originalOfStandardInput() {
    struct stat status {};
    if (::fstat(STDIN_FILENO, &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    return fl::filesystem::stampOf(status);
}

// Copies the stream to a nameless file.
std::shared_ptr<const HeldFile> keep(const Stream& stream,
                                     std::optional<fl::filesystem::FileStamp> original = {}) {
    FileDescriptor file = makeScratchFile(stream.shown);
    std::vector<std::byte> buffer(kReadBytes);
    std::uint64_t size = 0;
    while (const std::size_t count = readSome(stream, buffer)) {
        try {
            file.writeAt(std::span(buffer).first(count), size);
        } catch (const std::system_error& e) {
            throwNotKept(stream.shown, e.code().message());
        }
        size += count;
    }
    const auto stamp = file.stamp();
    return std::make_shared<HeldFile>(HeldFile{std::move(file), stamp, original});
}

// If there is nothing in a stream, the program that should have filled it has failed.
void requireContent(const std::string& shown, const HeldFile& kept) {
    if (kept.stamp.size == 0) throw Error(shown, "is empty; check the program that writes to it");
}

// Standard input can be read only once, so the first call copies it and all calls return that copy.
FileName keptInput(const foundation::ustring& filename, MayBeEmpty mayBeEmpty = MayBeEmpty::No) {
    static const foundation::Immortal<std::shared_ptr<const HeldFile>> kept(
        keep({STDIN_FILENO, kName}, originalOfStandardInput()));
    if (mayBeEmpty == MayBeEmpty::No) requireContent(kName, **kept);
    return {kName, (*kept)->file.privateName(filename), *kept, true};
}

// Waits for a program to write to the pipe. Returns nothing if `file` is not a pipe.
std::optional<FileName> keptPipe(const FileName& file) {
    struct stat status {};
    if (::stat(file.bytes().c_str(), &status) != 0 || !S_ISFIFO(status.st_mode))
        return std::nullopt;
    const FileDescriptor pipe(fl::filesystem::retryInterrupted(
        [&] { return ::open(file.bytes().c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY); }));
    if (!pipe)
        throw Error(file.shown, whyNotOpened({errno, std::generic_category()}),
                    Error::Cause::Passing);
    // Something else may have taken the pipe's place in between.
    if (::fstat(pipe.get(), &status) != 0 || !S_ISFIFO(status.st_mode)) return std::nullopt;
    const auto kept = keep({pipe.get(), file.shown});
    requireContent(file.shown, *kept);
    return FileName{file.shown, kept->file.privateName(file.path.filename()), kept};
}

constexpr std::array kForms = {Form::Packaged, Form::Text};

bool endsInAnyCase(const std::string& name, Form form) {
    const std::string extension = shownExtension(form);
    return name.size() > extension.size() &&
           std::equal(extension.rbegin(), extension.rend(), name.rbegin(), [](char a, char b) {
               return a == (b >= 'A' && b <= 'Z' ? b - 'A' + 'a' : b);
           });
}

}  // namespace

FileName inputArgument(const std::string& value, MayBeEmpty mayBeEmpty) {
    return value == kStandardStream ? keptInput(u"input", mayBeEmpty) : hold(fileArgument(value));
}

FileName contentArgument(const std::string& value) {
    if (value != kStandardStream) {
        if (auto pipe = keptPipe(fileArgument(value))) return *std::move(pipe);
    }
    return inputArgument(value);
}

FileName appArgument(const std::string& value) {
    if (value != kStandardStream) return inputArgument(value);
    return keptInput(foundation::ustring(u"app") +
                     extensionOf(formOfContent(keptInput(u"input").held->file)));
}

FileName gitArgument(const std::string& value) {
    const auto form =
        std::ranges::find_if(kForms, [&](Form each) { return endsInAnyCase(value, each); });
    if (form == kForms.end()) return appArgument(value);
    FileDescriptor file(fl::filesystem::retryInterrupted(
        [&] { return ::open(value.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK); }));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0)
        throw Error(value, whyNotOpened({errno, std::generic_category()}), Error::Cause::Passing);
    if (!S_ISREG(status.st_mode)) throw Error(value, "is not a regular file");
    const auto held = about({value, {}}, [&] {
        const auto stamp = file.stamp();
        return std::make_shared<HeldFile>(HeldFile{std::move(file), stamp});
    });
    const auto extension = *form == Form::Packaged ? kPackagedExtension : kTextExtension;
    return {value, held->file.privateName(foundation::ustring(u"app") + extension), held};
}

void requireOneStandardInput(const std::vector<std::optional<std::string>>& values) {
    if (std::count(values.begin(), values.end(), kStandardStream) <= 1) return;
    throw UsageError(kStandardStream,
                     "standard input can be only one of the files; name the others");
}

}  // namespace qzapp
