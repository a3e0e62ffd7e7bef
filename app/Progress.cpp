#include "app/Progress.hpp"

#include <atomic>

namespace qzapp {
namespace {

constinit std::atomic<ShowProgress> showProgress = nullptr;

}  // namespace

void setProgress(ShowProgress show) noexcept {
    showProgress = show;
}

Progress::Progress(std::uint64_t bytes) {
    if (const ShowProgress show = showProgress) shown_ = show(bytes);
}

}  // namespace qzapp
