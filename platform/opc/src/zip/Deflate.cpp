#include "platform/opc/src/zip/Deflate.hpp"

#include <opc/ZipArchive.hpp>

#include <isa-l/crc.h>
#include <isa-l/igzip_lib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <stdexcept>

namespace opc::zip {

namespace {

// Level 0 would make random data larger by a quarter. Higher levels take much longer for little
// gain.
constexpr std::uint32_t kLevel = 1;
// The library counts the bytes of a buffer in 32 bits.
constexpr std::size_t kMostAtOnce = std::size_t{1} << 30;
constexpr std::size_t kOutputBuffer = std::size_t{128} << 10;

// The library's pointers to input are not const, although it only reads the input.
std::uint8_t* inputOf(std::span<const std::byte> bytes) {
    return const_cast<std::uint8_t*>(reinterpret_cast<const std::uint8_t*>(bytes.data()));
}

}  // namespace

struct Deflater::State {
    isal_zstream stream;
    std::array<std::uint8_t, ISAL_DEF_LVL1_DEFAULT> levelBuffer;
    std::array<std::byte, kOutputBuffer> output;
};

Deflater::Deflater() : state_(std::make_unique_for_overwrite<State>()) {
    start();
}
Deflater::~Deflater() = default;

void Deflater::start() {
    isal_zstream& stream = state_->stream;
    isal_deflate_init(&stream);
    stream.level = kLevel;
    stream.level_buf = state_->levelBuffer.data();
    stream.level_buf_size = static_cast<std::uint32_t>(state_->levelBuffer.size());
}

void Deflater::write(std::span<const std::byte> bytes, ByteSink& sink) {
    while (!bytes.empty()) {
        const auto piece = bytes.first(std::min(bytes.size(), kMostAtOnce));
        state_->stream.next_in = inputOf(piece);
        state_->stream.avail_in = static_cast<std::uint32_t>(piece.size());
        run(sink);
        bytes = bytes.subspan(piece.size());
    }
}

void Deflater::sync(ByteSink& sink) {
    state_->stream.flush = SYNC_FLUSH;
    state_->stream.avail_in = 0;
    run(sink);
    state_->stream.flush = NO_FLUSH;
}

void Deflater::finish(ByteSink& sink) {
    state_->stream.end_of_stream = 1;
    state_->stream.avail_in = 0;
    run(sink);
}

// The result of isal_deflate() needs no check: it reports invalid parameters, and ours are
// constants.
void Deflater::run(ByteSink& sink) {
    isal_zstream& stream = state_->stream;
    do {
        stream.next_out = reinterpret_cast<std::uint8_t*>(state_->output.data());
        stream.avail_out = static_cast<std::uint32_t>(kOutputBuffer);
        isal_deflate(&stream);
        sink.append(std::span(state_->output).first(kOutputBuffer - stream.avail_out));
    } while (stream.avail_out == 0);
}

std::unique_ptr<Deflater> DeflaterPool::take() {
    if (!idle_) return std::make_unique<Deflater>();
    idle_->start();
    return std::move(idle_);
}

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
    const auto room = static_cast<std::uint32_t>(std::min(output.size(), kMostAtOnce));
    stream.next_out = reinterpret_cast<std::uint8_t*>(output.data());
    stream.avail_out = room;
    if (isal_inflate(&stream) < 0) throw std::runtime_error("the deflated data is damaged");
    return room - stream.avail_out;
}

bool Inflater::hasEnded() const noexcept {
    return state_->stream.block_state == ISAL_BLOCK_FINISH;
}

// The library reads ahead into a bit buffer, so the whole bytes in it belong to the unused input.
std::size_t Inflater::unused() const noexcept {
    return state_->stream.avail_in + static_cast<std::size_t>(state_->stream.read_in_length) / 8;
}

std::uint32_t crc32(std::uint32_t sofar, std::span<const std::byte> bytes) {
    return crc32_gzip_refl(sofar, inputOf(bytes), bytes.size());
}

}  // namespace opc::zip
