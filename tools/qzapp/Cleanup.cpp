#include "tools/qzapp/Cleanup.hpp"

#include <signal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <stdexcept>
#include <utility>

#include "tools/qzapp/ErrorStream.hpp"

namespace qzapp {
namespace {

// What the handler may touch: a stack of plain paths, without locks or allocation. Deep enough for the
// files of one extract and the directories made for it.
constexpr std::size_t kMaxLeftovers = 64;
std::array<std::atomic<const char*>, kMaxLeftovers> leftovers{};
std::atomic<std::size_t> leftoverCount{0};
static_assert(std::atomic<const char*>::is_always_lock_free);

void removePath(const char* path) {
    if (::unlink(path) != 0) ::rmdir(path);
}

extern "C" void removeLeftoversAndDie(int signal) {
    for (std::size_t i = leftoverCount.load(); i-- > 0;)
        removePath(leftovers[i].load());
    eraseBar();
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

}  // namespace

void installSignalHandlers() {
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        // What the caller has set to be ignored (nohup) stays ignored.
        if (::signal(signal, SIG_IGN) != SIG_IGN) ::signal(signal, removeLeftoversAndDie);
    }
}

Leftover::Leftover(std::string path) : path_(std::move(path)) {
    const std::size_t index = leftoverCount.load();
    if (index == kMaxLeftovers) throw std::length_error("too many files in the making");
    leftovers[index].store(path_.c_str());
    leftoverCount.store(index + 1);
}

Leftover::~Leftover() {
    leftoverCount.store(leftoverCount.load() - 1);
}

void Leftover::remove() const noexcept {
    removePath(path_.c_str());
}

}  // namespace qzapp
