#include <foundation/SaveWatch.hpp>

#include <cstdint>
#include <memory>
#include <utility>

namespace foundation {

namespace {

constinit thread_local SaveWatch* current = nullptr;

}  // namespace

Cancelled::~Cancelled() = default;

const char* Cancelled::what() const noexcept {
    return "the save was cancelled before it changed the file";
}

SaveWatch::SaveWatch(Report report)
    : report_(std::move(report)), outer_(std::exchange(current, this)) {}

SaveWatch::~SaveWatch() {
    current = outer_;
}

void SaveWatch::advance(std::uint64_t bytes) {
    if (current == nullptr) return;
    current->isReporting_ = true;
    const auto end = [](SaveWatch* watch) { watch->isReporting_ = false; };
    const std::unique_ptr<SaveWatch, decltype(end)> reporting(current, end);
    if (!current->report_(bytes)) throw Cancelled();
}

bool SaveWatch::isReporting() noexcept {
    const SaveWatch* watch = current;
    while (watch != nullptr && !watch->isReporting_)
        watch = watch->outer_;
    return watch != nullptr;
}

}  // namespace foundation
