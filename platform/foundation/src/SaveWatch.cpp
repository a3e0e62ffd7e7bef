#include <foundation/SaveWatch.hpp>

#include <cstdint>
#include <utility>

namespace foundation {

namespace {

constinit thread_local SaveWatch* current = nullptr;

}  // namespace

Cancelled::~Cancelled() = default;

const char* Cancelled::what() const noexcept {
    return "the save was cancelled, and the file is as it was";
}

SaveWatch::SaveWatch(Report report)
    : report_(std::move(report)), outer_(std::exchange(current, this)) {}

SaveWatch::~SaveWatch() {
    current = outer_;
}

void SaveWatch::advance(std::uint64_t bytes) {
    if (current != nullptr && !current->report_(bytes)) throw Cancelled();
}

}  // namespace foundation
