#pragma once

#include <string>

namespace qzapp {

// Makes SIGINT, SIGTERM and SIGHUP remove what Leftovers name, and a bar that is drawn, before they
// end the process, and lets writes fail with an error where SIGPIPE and SIGXFSZ would end it.
void installSignalHandlers();

// A file or directory that must not outlive a process ended by a signal. Objects nest: they end in the
// reverse order of their making.
class Leftover {
public:
    explicit Leftover(std::string path);
    ~Leftover();
    Leftover(const Leftover&) = delete;
    Leftover& operator=(const Leftover&) = delete;

    const std::string& path() const noexcept { return path_; }
    // Removes it now, a directory only when it is empty.
    void remove() const noexcept;

private:
    std::string path_;
};

}  // namespace qzapp
