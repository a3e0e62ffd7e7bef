#include "tools/qzapp/cli/Output.hpp"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <span>
#include <string>
#include <system_error>

#include "app/InputFiles.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/Signals.hpp"

namespace qzapp {
namespace {

// Needed if another program has made the terminal or pipe non-blocking.
void waitUntilWritable() {
    pollfd request{STDOUT_FILENO, POLLOUT, 0};
    ::poll(&request, 1, -1);
}

// Returns 0, or why not all of `text` could be written (an errno value).
int writeAll(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            waitUntilWritable();
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

std::string failureOf(int reason) {
    return "cannot be written (" + std::generic_category().message(reason) + ")";
}

}  // namespace

void print(std::string_view text) {
    const int reason = writeAll(text);
    if (reason == 0) return;
    if (reason == EPIPE) endBecauseReaderLeft();
    throw OutputError(kStandardOutput, failureOf(reason));
}

void printFile(const FileName& file) {
    readToEnd(file, [](std::span<const std::byte> bytes) {
        print({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    });
}

bool tryPrint(std::string_view text) {
    return writeAll(text) == 0;
}

void printReport(const FileName& saved, std::string_view text) {
    const int reason = writeAll(text);
    if (reason == 0) return;
    throw ReportError(saved.shown, "was saved; only the report is missing: standard output: " +
                                       failureOf(reason));
}

}  // namespace qzapp
