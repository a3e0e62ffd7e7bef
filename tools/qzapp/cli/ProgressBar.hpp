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

// A bar on standard error that tells how far some work is, how fast it goes and how long it still
// takes: where that is a terminal, and the work takes more than a second. Gone with this object. An
// object made while another lives draws nothing. The work itself knows nothing of it.
class ProgressBar : public ShownProgress {
public:
    // Work that reads about `bytes` bytes of files, whoever reads them in this process.
    explicit ProgressBar(std::uint64_t bytes);
    // Work on `total` things, which counts in `done`.
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
    std::uint64_t before_ = 0;  // what done_ said at the start
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable ended_;
    bool hasEnded_ = false;
};

}  // namespace qzapp
