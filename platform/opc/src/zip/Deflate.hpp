#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>

namespace opc::zip {

// A destination that bytes are appended to.
class ByteSink {
public:
    virtual ~ByteSink() = default;
    // `bytes` may be empty. What this throws passes through the encoder that called it unchanged.
    virtual void append(std::span<const std::byte> bytes) = 0;
};

// Deflates content slice by slice. No slice refers to another's content, so slices may be deflated
// on different threads, by a deflater each. After an exception from a sink the deflater is as good
// as new. The large state is on the heap, because the stacks of the host's threads may be small.
// For one thread at a time.
class Deflater {
public:
    Deflater();
    ~Deflater();

    // Hands out the deflated `slice`, of less than 4 GiB: whole blocks that end at a byte boundary.
    // Those of the last slice end the deflate stream.
    void deflate(std::span<const std::byte> slice, bool isLast, ByteSink& sink);

private:
    struct State;
    std::unique_ptr<State> state_;
};

// Keeps one idle deflater for the next item. Most items are small, and setting up a deflater costs
// more than deflating a small item.
class DeflaterPool {
public:
    // The idle deflater or a new one, ready to write.
    std::unique_ptr<Deflater> take();
    // Accepts a deflater in any state.
    void giveBack(std::unique_ptr<Deflater> deflater) noexcept { idle_ = std::move(deflater); }

private:
    std::unique_ptr<Deflater> idle_;
};

// Decodes one deflate stream: feed() whenever needsInput(), then decode(). The state is on the
// heap, as that of Deflater. For one thread at a time.
class Inflater {
public:
    Inflater();
    ~Inflater();

    // Sets the next input, of less than 4 GiB. It is not copied: the caller keeps it until
    // needsInput() or the end of the stream. Input that was not used up yet is dropped.
    void feed(std::span<const std::byte> input);
    // Whether all of the input has been taken in; some of its content may still have to be decoded.
    bool needsInput() const noexcept;
    // Decodes into `output` from its front and returns the number of bytes. It is smaller than the
    // room when the input is used up or the stream has ended. Throws std::runtime_error if the
    // input is not a deflate stream; the inflater is of no use after that.
    std::size_t decode(std::span<std::byte> output);
    // Whether the end of the last block has been decoded. All content has been handed out once
    // decode() returns 0, too.
    bool hasEnded() const noexcept;
    // Whether everything that was fed has been decoded and handed out, and its last bit ends a
    // block that is not the last of the stream.
    bool isBetweenBlocks() const noexcept;
    // Once the stream has ended: the number of bytes of the last input that are not part of it.
    std::size_t unused() const noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

// The checksum of two pieces of content one after the other, from theirs and the second one's size.
std::uint32_t joinedCrc32(std::uint32_t first, std::uint32_t second, std::uint64_t sizeOfSecond);

}  // namespace opc::zip
