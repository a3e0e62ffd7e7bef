#include "tools/qzapp/cli/ProgressBar.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <string_view>

#include "app/SignalsBlocked.hpp"
#include "tools/qzapp/cli/ErrorStream.hpp"
#include "tools/qzapp/cli/TerminalText.hpp"

namespace qzapp {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kPatience = std::chrono::seconds(1);
constexpr auto kBetweenDrawings = std::chrono::milliseconds(200);
constexpr std::size_t kBarWidth = 20;

// The bytes that this process has read so far, by any system call; 0 if /proc does not say.
std::uint64_t bytesRead() {
    std::ifstream counters("/proc/self/io");
    std::string name;
    std::uint64_t count = 0;
    while (counters >> name >> count) {
        if (name == "rchar:") return count;
    }
    return 0;
}

std::string shownBytes(std::uint64_t bytes) {
    constexpr std::array<const char*, 5> kUnits = {"B", "kB", "MB", "GB", "TB"};
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (value >= 1000 && unit + 1 < kUnits.size()) {
        value /= 1000;
        ++unit;
    }
    return fmt::format("{:.{}f} {}", value, unit < 2 ? 0 : 1, kUnits[unit]);
}

std::string shownCount(std::uint64_t count) {
    return std::to_string(count);
}

std::string shownTime(std::uint64_t seconds) {
    if (seconds < 60) return fmt::format("{} s", seconds);
    return fmt::format("{}:{:02} min", seconds / 60, seconds % 60);
}

// True while a bar exists, so that work within work draws none.
std::atomic<bool> isUnderWay = false;

bool errorsGoToTerminal() {
    const char* terminal = std::getenv("TERM");
    return ::isatty(STDERR_FILENO) == 1 && terminal != nullptr &&
           std::string_view(terminal) != "dumb";
}

// "[######----]  60%  1.2 GB of 2.0 GB, 400.0 MB/s, 2 s left"
std::string barOf(std::uint64_t done, std::uint64_t total, double seconds,
                  std::string (*show)(std::uint64_t)) {
    const double part = static_cast<double>(done) / static_cast<double>(total);
    const auto filled = static_cast<std::size_t>(part * static_cast<double>(kBarWidth));
    const double rate = static_cast<double>(done) / seconds;
    std::string text = fmt::format("[{}{}] {:3.0f}%  {} of {}, {}/s", std::string(filled, '#'),
                                   std::string(kBarWidth - filled, '-'), part * 100, show(done),
                                   show(total), show(static_cast<std::uint64_t>(rate)));
    if (done == 0) return text;
    const auto left = static_cast<std::uint64_t>(static_cast<double>(total - done) / rate);
    return text + fmt::format(", {} left", shownTime(left));
}

// A bar that fits a terminal of this width, since one that wraps cannot be erased: what stands last
// goes first.
std::string fitted(std::string bar, std::size_t width) {
    while (bar.size() >= width) {
        const std::size_t comma = bar.rfind(", ");
        const std::size_t cut = comma == std::string::npos ? bar.rfind("  ") : comma;
        if (cut == std::string::npos) return "";
        bar.resize(cut);
    }
    return bar;
}

}  // namespace

ProgressBar::ProgressBar(std::uint64_t bytes) : total_(bytes), done_(bytesRead), show_(shownBytes) {
    start();
}

ProgressBar::ProgressBar(std::uint64_t total, const std::atomic<std::uint64_t>& done)
    : total_(total), done_([&done] { return done.load(); }), show_(shownCount) {
    start();
}

ProgressBar::~ProgressBar() {
    if (!thread_.joinable()) return;
    {
        const std::lock_guard lock(mutex_);
        hasEnded_ = true;
    }
    ended_.notify_one();
    thread_.join();
    isUnderWay = false;
}

void ProgressBar::start() {
    if (total_ == 0 || !errorsGoToTerminal() || isUnderWay.exchange(true)) return;
    before_ = done_();
    const SignalsBlocked
        blocked;  // the new thread inherits this; signals go to the thread that works
    try {
        thread_ = std::thread([this] { run(); });
    } catch (const std::exception&) {
        isUnderWay = false;  // a thread could not be made, so there is no bar
    }
}

void ProgressBar::run() noexcept {
    try {
        drawUntilEnd();
    } catch (const std::exception&) {
        // Without memory to draw the bar, the work goes on without it.
    }
    eraseBar();
}

void ProgressBar::drawUntilEnd() {
    const auto began = Clock::now();
    std::unique_lock lock(mutex_);
    if (ended_.wait_for(lock, kPatience, [this] { return hasEnded_; })) return;
    do {
        const std::chrono::duration<double> passed = Clock::now() - began;
        const std::uint64_t done = std::min(std::max(done_(), before_) - before_, total_);
        drawBar(fitted(barOf(done, total_, passed.count(), show_), terminalWidth(STDERR_FILENO)));
    } while (!ended_.wait_for(lock, kBetweenDrawings, [this] { return hasEnded_; }));
}

}  // namespace qzapp
