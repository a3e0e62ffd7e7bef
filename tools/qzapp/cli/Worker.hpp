#pragma once

#include <fl/FileDescriptor.hpp>

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "tools/qzapp/cli/Cage.hpp"

namespace qzapp {

// A child process that enters a cage and then works, sending what it finds piece by piece. The
// child shares the standard streams and is killed if this process, or this object, ends before it.
// Everything else that is open here is open there too, so open no file before that the child must
// not write to. Make this object before the first thread starts.
class CagedWorker {
public:
    // Waits until this process has taken the piece, if many are waiting already.
    using Send = std::function<void(std::string_view piece)>;

    CagedWorker(Cage& cage, const std::function<void(const Send&)>& work);
    ~CagedWorker();
    CagedWorker(const CagedWorker&) = delete;
    CagedWorker& operator=(const CagedWorker&) = delete;

    // Waits for the next piece; nothing once the work is done. A child that a malicious file has
    // taken over can send any bytes. If `work` threw, this throws std::bad_alloc or a
    // std::runtime_error with the same text; it also throws if a signal ended the child.
    std::optional<std::string> next();

private:
    void end();

    fl::filesystem::FileDescriptor from_;
    int process_ = -1;
};

// Runs `work` in a child process that enters the cage first, and returns its result. A verb uses it
// if it afterwards has to do something that the cage forbids. Throws as CagedWorker does. Call it
// before the first thread starts.
std::string inCage(Cage& cage, const std::function<std::string()>& work);

}  // namespace qzapp
