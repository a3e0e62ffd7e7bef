#pragma once

#include <cstdint>
#include <memory>

namespace qzapp {

// What a front end shows while a piece of work goes on: constructed when it begins, destroyed when
// it ends.
class ShownProgress {
public:
    virtual ~ShownProgress() = default;
};

// A front end's function that starts to show work which reads about `bytes` bytes of files. May
// return null.
using ShowProgress = std::unique_ptr<ShownProgress> (*)(std::uint64_t bytes);
// Called once by the front end at its start; until then, progress is not shown.
void setProgress(ShowProgress show) noexcept;

// Declares that from now until this object is destroyed, work goes on that reads about `bytes`
// bytes of files. It is measured by what the process reads, so the code that reads need not know of
// it.
class Progress {
public:
    explicit Progress(std::uint64_t bytes);

private:
    std::unique_ptr<ShownProgress> shown_;
};

}  // namespace qzapp
