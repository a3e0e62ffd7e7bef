#include "python/EndingSignals.hpp"

#include <signal.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <mutex>
#include <thread>

#include "app/PrivateFolder.hpp"

namespace qzapp::python {

namespace {

constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP, SIGXCPU};

// Each save may need two of the private folders that a process can have.
constexpr int kMostSaves = 8;

constinit std::mutex mutex;
constinit int savesGoingOn = 0;
constinit pid_t process = 0;  // whose saves are counted; those of a parent do not end in its child

bool isOfThisProcess() {
    return process == ::getpid();
}

using Handler = void (*)(int);

extern "C" void cleanUpAndDie(int signal) {
    removePrivateFolders();
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

void exchange(Handler from, Handler to) {
    for (const int signal : kSignals) {
        struct sigaction action {};
        ::sigaction(signal, nullptr, &action);
        if ((action.sa_flags & SA_SIGINFO) != 0 || action.sa_handler != from) continue;
        action.sa_handler = to;
        ::sigaction(signal, &action, nullptr);
    }
}

}  // namespace

bool EndingSignals::begin() {
    const std::lock_guard lock(mutex);
    if (!isOfThisProcess()) savesGoingOn = 0;
    process = ::getpid();
    if (savesGoingOn == kMostSaves) return false;
    if (savesGoingOn++ == 0) exchange(SIG_DFL, cleanUpAndDie);
    return true;
}

EndingSignals::EndingSignals() {
    constexpr std::chrono::milliseconds kPause{5};
    while (!begin())
        std::this_thread::sleep_for(kPause);
}

EndingSignals::~EndingSignals() {
    const std::lock_guard lock(mutex);
    if (!isOfThisProcess()) return;
    if (--savesGoingOn == 0) exchange(cleanUpAndDie, SIG_DFL);
}

}  // namespace qzapp::python
