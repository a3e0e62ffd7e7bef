#include "tools/qzapp/cli/Output.hpp"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <string>
#include <system_error>

#include "tools/qzapp/cli/Report.hpp"

namespace qzapp {
namespace {

// Needed if another program has made the terminal or pipe non-blocking.
void waitUntilWritable() {
    pollfd request{STDOUT_FILENO, POLLOUT, 0};
    ::poll(&request, 1, -1);
}

}  // namespace

void print(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            waitUntilWritable();
        } else if (errno != EINTR) {
            const std::string reason = std::generic_category().message(errno);
            throw OutputError("standard output", "cannot be written (" + reason + ")");
        }
    }
}

void printReport(const FileName& saved, std::string_view text) {
    try {
        print(text);
    } catch (const OutputError& e) {
        throw ReportError(saved.shown,
                          std::string("was saved; only the report is missing: ") + e.what());
    }
}

}  // namespace qzapp
