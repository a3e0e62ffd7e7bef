#include "tools/qzapp/cli/Signals.hpp"

#include <signal.h>

#include "app/PrivateFolder.hpp"
#include "tools/qzapp/cli/ErrorStream.hpp"

namespace qzapp {
namespace {

bool pipeIsIgnored = false;

extern "C" void cleanUpAndDie(int signal) {
    removePrivateFolders();
    eraseBar();
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

}  // namespace

void installSignalHandlers() {
    // Ignored here, so that a pipe that closes while files are being saved stops nothing.
    pipeIsIgnored = ::signal(SIGPIPE, SIG_IGN) == SIG_IGN;
    ::signal(SIGXFSZ, SIG_IGN);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGXCPU}) {
        // A signal that the parent process ignores (as nohup does) stays ignored.
        if (::signal(signal, SIG_IGN) != SIG_IGN) ::signal(signal, cleanUpAndDie);
    }
}

void endBecauseReaderLeft() {
    if (!pipeIsIgnored) cleanUpAndDie(SIGPIPE);
}

}  // namespace qzapp
