#include "platform/opc/src/zip/Deflate.hpp"

#include <opc/ZipArchive.hpp>

#include <isa-l/crc.h>
#include <isa-l/igzip_lib.h>
#include <zlib.h>

#include "platform/opc/src/zip/StoredBlocks.hpp"

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
// For content without a history the library takes one hash from the address of its state, and not
// from the content (2.30, `write_first_byte`), so that the same content is deflated differently now
// and then. So the first byte of a slice is stored, and is the history of the rest.
constexpr std::size_t kHistory = 1;

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

Deflater::Deflater() : state_(std::make_unique_for_overwrite<State>()) {}
Deflater::~Deflater() = default;

// Every parameter is ours and valid, and output never runs out, so there is no failure to check
// for.
void Deflater::deflate(std::span<const std::byte> slice, bool isLast, ByteSink& sink) {
    isal_zstream& stream = state_->stream;
    isal_deflate_init(&stream);
    stream.level = kLevel;
    stream.level_buf = state_->levelBuffer.data();
    stream.level_buf_size = static_cast<std::uint32_t>(state_->levelBuffer.size());
    stream.flush = FULL_FLUSH;
    stream.end_of_stream = isLast ? 1 : 0;
    if (slice.size() > kHistory) {
        writeStoredBlock(slice.first(kHistory), false, sink);
        isal_deflate_set_dict(&stream, inputOf(slice), kHistory);
        slice = slice.subspan(kHistory);
    }
    stream.next_in = inputOf(slice);
    stream.avail_in = static_cast<std::uint32_t>(slice.size());
    do {
        stream.next_out = reinterpret_cast<std::uint8_t*>(state_->output.data());
        stream.avail_out = static_cast<std::uint32_t>(kOutputBuffer);
        isal_deflate(&stream);
        sink.append(std::span(state_->output).first(kOutputBuffer - stream.avail_out));
    } while (stream.avail_out == 0);
}

std::unique_ptr<Deflater> DeflaterPool::take() {
    return idle_ ? std::move(idle_) : std::make_unique<Deflater>();
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

bool Inflater::isBetweenBlocks() const noexcept {
    const inflate_state& stream = state_->stream;
    const bool isAtHeader =
        stream.block_state == ISAL_BLOCK_NEW_HDR || stream.block_state == ISAL_BLOCK_HDR;
    const bool hasBits =
        stream.avail_in > 0 || stream.read_in_length != 0 || stream.tmp_in_size != 0;
    const bool hasOutput = stream.tmp_out_valid != stream.tmp_out_processed;
    return isAtHeader && !hasBits && !hasOutput && stream.bfinal == 0;
}

// The library reads ahead into a bit buffer, so the whole bytes in it belong to the unused input.
std::size_t Inflater::unused() const noexcept {
    return state_->stream.avail_in + static_cast<std::size_t>(state_->stream.read_in_length) / 8;
}

std::uint32_t crc32(std::uint32_t sofar, std::span<const std::byte> bytes) {
    return crc32_gzip_refl(sofar, inputOf(bytes), bytes.size());
}

std::uint32_t joinedCrc32(std::uint32_t first, std::uint32_t second, std::uint64_t sizeOfSecond) {
    return static_cast<std::uint32_t>(
        crc32_combine(first, second, static_cast<z_off_t>(sizeOfSecond)));
}

}  // namespace opc::zip
