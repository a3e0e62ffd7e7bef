#include <fcntl.h>
#include <unistd.h>

#include "tools/qzapp/cli/CommandLine.hpp"
#include "tools/qzapp/cli/Signals.hpp"

namespace {

// With a standard stream closed, the next file opened would get its number, and messages would be
// written into an app. What is put there can only be read, so that output still fails.
void occupyStandardStreams() {
    int opened = 0;
    do {
        opened = ::open("/dev/null", O_RDONLY);
    } while (opened >= 0 && opened <= STDERR_FILENO);
    if (opened > STDERR_FILENO) ::close(opened);
}

}  // namespace

int main(int argc, char** argv) {
    occupyStandardStreams();
    qzapp::installSignalHandlers();
    return qzapp::runCommandLine(argc, argv);
}
