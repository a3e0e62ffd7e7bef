#pragma once

namespace qzapp::python {

// As long as one of these exists on any thread, signals that would end the process at once
// (SIGTERM, for example) first remove what a save has put beside the file. Signals that the program
// ignores or handles stay as they are, also if it sets a handler meanwhile. The constructor waits
// while many saves are going on, because a process can clean up only so much.
class EndingSignals {
public:
    EndingSignals();
    ~EndingSignals();
    EndingSignals(const EndingSignals&) = delete;
    EndingSignals& operator=(const EndingSignals&) = delete;

private:
    static bool begin();
};

}  // namespace qzapp::python
