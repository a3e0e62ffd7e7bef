#pragma once

#include <sys/types.h>
#include <fl/FileDescriptor.hpp>

#include <mutex>
#include <optional>
#include <string_view>
#include <variant>
#include <vector>

#include "tools/qzapp/pictures/Picture.hpp"

namespace qzapp::pictures {

// Scales screenshots down. An image of an app may come from anyone, so it is decoded in a process
// that is confined to memory: it gets the image through a socket, can open no file, call no program
// and no network, and has bounds of pixels, memory and time (DecoderProcess). What ends such a
// process costs one picture; the next one gets another process. The same image always gives the
// same picture.
class PictureScaler {
public:
    // Pictures are scaled to fit into `box`. Forks a process that waits outside any cage and starts
    // nothing but those that decode. So make this object before the first thread starts, and before
    // files are opened or made that a child should not hold. Throws std::system_error.
    explicit PictureScaler(Size box = kBox);
    // Ends all the processes.
    ~PictureScaler();
    PictureScaler(const PictureScaler&) = delete;
    PictureScaler& operator=(const PictureScaler&) = delete;

    // Any number of threads may call this, in a cage too; each is served by a process of its own.
    // Of a GIF the first frame is taken.
    using Result = std::variant<ScaledPicture, Refusal>;
    Result scale(std::string_view image);

private:
    struct Decoder {
        fl::filesystem::FileDescriptor connection;
        pid_t process = 0;
    };
    // Nothing if no process can be started.
    std::optional<Decoder> take();
    std::optional<Decoder> start(pid_t toBeEnded);
    void giveBack(Decoder decoder);
    void end(Decoder decoder);

    const Size box_;
    fl::filesystem::FileDescriptor starter_;
    pid_t starterProcess_ = 0;
    std::mutex startMutex_;  // of starter_
    std::mutex idleMutex_;
    std::vector<Decoder> idle_;
};

}  // namespace qzapp::pictures
