#include "python/EndingSignals.hpp"

#include <signal.h>

#include <array>
#include <mutex>

#include "app/PrivateFolder.hpp"

namespace qzapp::python {

namespace {

constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP, SIGXCPU};

constinit std::mutex mutex;
constinit int savesGoingOn = 0;

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

EndingSignals::EndingSignals() {
    const std::lock_guard lock(mutex);
    if (savesGoingOn++ == 0) exchange(SIG_DFL, cleanUpAndDie);
}

EndingSignals::~EndingSignals() {
    const std::lock_guard lock(mutex);
    if (--savesGoingOn == 0) exchange(cleanUpAndDie, SIG_DFL);
}

}  // namespace qzapp::python
