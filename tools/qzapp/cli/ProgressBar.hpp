#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "app/Progress.hpp"

namespace qzapp {

// Shows on standard error how far some work is, how fast it goes and how long it will still take.
// Construct it before the work and destroy it after; a thread of its own draws the bar, if the work
// takes more than a second and standard error is a terminal. Only the outermost of nested bars is
// drawn.
class ProgressBar : public ShownProgress {
public:
    // For work that reads about `bytes` bytes of files. Measures what the process reads, so the
    // work itself need not know of the bar. With 0 no bar is drawn.
    explicit ProgressBar(std::uint64_t bytes);
    // For work on `total` things, which counts them in `done`. `done` must outlive this object.
    ProgressBar(std::uint64_t total, const std::atomic<std::uint64_t>& done);
    ~ProgressBar() override;
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

private:
    using Measure = std::function<std::uint64_t()>;
    using Show = std::string (*)(std::uint64_t);

    void start();
    void run() noexcept;
    void drawUntilEnd();

    std::uint64_t total_;
    Measure done_;
    Show show_;
    std::uint64_t before_ = 0;  // what done_() returned at the start
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable ended_;
    bool hasEnded_ = false;
};

}  // namespace qzapp
