#include "tools/qzapp/cli/ErrorStream.hpp"

#include <unistd.h>
#include <fl/Retry.hpp>

#include <atomic>
#include <cstddef>
#include <mutex>

namespace qzapp {
namespace {

constexpr std::string_view kErase = "\r\x1B[K";

std::mutex stream;
std::atomic<bool> barIsDrawn = false;
static_assert(std::atomic<bool>::is_always_lock_free);

bool write(std::string_view text) noexcept {
    while (!text.empty()) {
        const auto written = fl::filesystem::retryInterrupted(
            [&] { return ::write(STDERR_FILENO, text.data(), text.size()); });
        if (written <= 0) return false;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

}  // namespace

bool writeMessage(std::string_view line) {
    const std::lock_guard lock(stream);
    eraseBar();
    return write(line);
}

void drawBar(const std::string& bar) {
    const std::lock_guard lock(stream);
    barIsDrawn = true;
    write("\r" + bar + "\x1B[K");
}

// Takes no lock, because a signal handler may interrupt the thread that holds it.
void eraseBar() noexcept {
    if (barIsDrawn.exchange(false)) write(kErase);
}

}  // namespace qzapp
