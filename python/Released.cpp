#include "python/Released.hpp"

#include <unistd.h>

namespace qzapp::python {

namespace {

// Keeps the thread if it is unwound out of the scope of this object.
class Guard {
public:
    ~Guard() {
        while (!isPassed_)
            ::pause();
    }
    void pass() noexcept { isPassed_ = true; }

private:
    bool isPassed_ = false;
};

// Asks for the lock. No part of a destructor, because nothing is unwound in a function that lets no
// exception pass.
template <class Ask>
[[gnu::noinline]] void take(Ask ask) {
    Guard guard;
    // After the interpreter has been shut down, there is no lock to ask for.
    if (Py_IsInitialized() == 0) return;
    ask();
    guard.pass();
}

}  // namespace

Unlocked::~Unlocked() {
    take([this] { PyEval_RestoreThread(state_); });
}

Locked::Locked() {
    take([this] { state_ = PyGILState_Ensure(); });
}

}  // namespace qzapp::python
