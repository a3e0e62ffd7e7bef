#include "app/Warnings.hpp"

#include <atomic>

namespace qzapp {
namespace {

constinit std::atomic<ShowWarning> showWarning = nullptr;

}  // namespace

void setWarnings(ShowWarning show) noexcept {
    showWarning = show;
}

void warn(const std::string& message) {
    if (const ShowWarning show = showWarning) show(message);
}

}  // namespace qzapp
