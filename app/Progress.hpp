#pragma once

#include <cstdint>
#include <memory>

namespace qzapp {

// What a front end shows of a piece of work for as long as that lasts.
class ShownProgress {
public:
    virtual ~ShownProgress() = default;
};

// How a front end shows work that reads about `bytes` bytes of files. Without one nothing is shown.
using ShowProgress = std::unique_ptr<ShownProgress> (*)(std::uint64_t bytes);
void setProgress(ShowProgress show) noexcept;

// Work that reads about `bytes` bytes of files, whoever reads them in this process; it ends with this
// object.
class Progress {
public:
    explicit Progress(std::uint64_t bytes);

private:
    std::unique_ptr<ShownProgress> shown_;
};

}  // namespace qzapp
