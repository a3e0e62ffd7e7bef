#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace opc::zip {

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
