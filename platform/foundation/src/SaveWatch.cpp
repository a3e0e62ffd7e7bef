#include <foundation/SaveWatch.hpp>

#include <cstdint>
#include <memory>
#include <utility>

namespace foundation {

namespace {

constinit thread_local SaveWatch* newest = nullptr;

}  // namespace

Cancelled::~Cancelled() = default;

const char* Cancelled::what() const noexcept {
    return "the save was cancelled before it changed the file";
}

SaveWatch::SaveWatch(Report report)
    : report_(std::make_shared<const Report>(std::move(report))),
      older_(std::exchange(newest, this)) {}

SaveWatch::~SaveWatch() {
    SaveWatch** link = &newest;
    while (*link != nullptr && *link != this)
        link = &(*link)->older_;
    if (*link == this) *link = older_;
}

void SaveWatch::advance(std::uint64_t bytes) {
    if (newest == nullptr) return;
    const auto report = newest->report_;
    if (!(*report)(bytes)) throw Cancelled();
}

}  // namespace foundation
