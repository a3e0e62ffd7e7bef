#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>

namespace opc::zip {

// Takes bytes in order.
class ByteSink {
public:
    virtual ~ByteSink() = default;
    virtual void append(std::span<const std::byte> bytes) = 0;
};

// Encodes deflate streams, one after the other. The state is large, and lives on the heap.
class Deflater {
public:
    Deflater();
    ~Deflater();

    // Starts a new stream; what is left of an unfinished one is dropped.
    void start();
    void write(std::span<const std::byte> bytes, ByteSink& sink);
    // Hands out everything written so far, so that what it takes can be counted.
    void sync(ByteSink& sink);
    // Writes the end of the stream.
    void finish(ByteSink& sink);

private:
    void run(ByteSink& sink);

    struct State;
    std::unique_ptr<State> state_;
};

// Setting up a deflater costs more than deflating a small item, and most items are small: so one
// that is not in use is kept for the next.
class DeflaterPool {
public:
    std::unique_ptr<Deflater> take();
    void giveBack(std::unique_ptr<Deflater> deflater) noexcept { idle_ = std::move(deflater); }

private:
    std::unique_ptr<Deflater> idle_;
};

// Decodes one deflate stream. The state is large, and lives on the heap.
class Inflater {
public:
    Inflater();
    ~Inflater();

    // More input, to be kept until it is used up.
    void feed(std::span<const std::byte> input);
    bool needsInput() const noexcept;
    // Decodes into `output` and returns how much: less than there is room for when the input is
    // used up or the stream has ended. Throws std::runtime_error for what is not deflate.
    std::size_t decode(std::span<std::byte> output);
    // Whether the last block has been decoded and everything handed out when decode() returns 0.
    bool hasEnded() const noexcept;
    // Bytes of the input that are not part of the stream, once it has ended.
    std::size_t unused() const noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace opc::zip
