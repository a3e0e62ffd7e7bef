#include "platform/opc/src/zip/Inflater.hpp"

#include <opc/ZipArchive.hpp>

#include <isa-l/crc.h>
#include <isa-l/igzip_lib.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace opc::zip {

namespace {

// The library counts its buffers in 32 bits.
constexpr std::size_t kMostOutput = std::size_t{1} << 30;

// It takes its input as not const, but does not write to it.
std::uint8_t* inputOf(std::span<const std::byte> bytes) {
    return const_cast<std::uint8_t*>(reinterpret_cast<const std::uint8_t*>(bytes.data()));
}

}  // namespace

struct Inflater::State {
    inflate_state stream;
};

Inflater::Inflater() : state_(std::make_unique_for_overwrite<State>()) {
    isal_inflate_init(&state_->stream);
}
Inflater::~Inflater() = default;

void Inflater::feed(std::span<const std::byte> input) {
    state_->stream.next_in = inputOf(input);
    state_->stream.avail_in = static_cast<std::uint32_t>(input.size());
}

bool Inflater::needsInput() const noexcept {
    return state_->stream.avail_in == 0;
}

std::size_t Inflater::decode(std::span<std::byte> output) {
    inflate_state& stream = state_->stream;
    const auto room = static_cast<std::uint32_t>(std::min(output.size(), kMostOutput));
    stream.next_out = reinterpret_cast<std::uint8_t*>(output.data());
    stream.avail_out = room;
    if (isal_inflate(&stream) < 0) throw std::runtime_error("the deflated data is damaged");
    return room - stream.avail_out;
}

bool Inflater::hasEnded() const noexcept {
    return state_->stream.block_state == ISAL_BLOCK_FINISH;
}

// Whole bytes in the bit buffer were read from the input but do not belong to the stream.
std::size_t Inflater::unused() const noexcept {
    return state_->stream.avail_in + static_cast<std::size_t>(state_->stream.read_in_length) / 8;
}

std::uint32_t crc32(std::uint32_t sofar, std::span<const std::byte> bytes) {
    return crc32_gzip_refl(sofar, inputOf(bytes), bytes.size());
}

}  // namespace opc::zip
