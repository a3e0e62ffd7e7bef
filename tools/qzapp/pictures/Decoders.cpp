#include "tools/qzapp/pictures/Decoders.hpp"

#include <gif_lib.h>
#include <png.h>
#include <turbojpeg.h>
#include <opc/ImageTypes.hpp>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace qzapp::pictures {
namespace {

constexpr std::size_t kChannels = Raster::kChannels;
constexpr std::uint8_t kOpaque = 255;
constexpr int kJpegQuality = 85;

void requireModest(Size size) {
    if (size.width == 0 || size.height == 0) throw Refused(Refusal::Damaged);
    if (size.width > kMaxSide || size.height > kMaxSide ||
        std::uint64_t{size.width} * size.height > kMaxPixels) {
        throw Refused(Refusal::TooManyPixels);
    }
}

Size sizeOf(int width, int height) {
    if (width <= 0 || height <= 0) throw Refused(Refusal::Damaged);
    return {static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)};
}

// PNG

// The state of libpng's simple interface, which needs no jumps across our own functions.
struct PngImage : png_image {
    PngImage() : png_image{} { version = PNG_IMAGE_VERSION; }
    ~PngImage() { png_image_free(this); }
    PngImage(const PngImage&) = delete;
    PngImage& operator=(const PngImage&) = delete;
};

Decoded decodePng(std::string_view bytes) {
    PngImage image;
    if (!png_image_begin_read_from_memory(&image, bytes.data(), bytes.size()))
        throw Refused(Refusal::Damaged);
    const Size size{image.width, image.height};
    requireModest(size);
    image.format = PNG_FORMAT_RGBA;
    Raster raster(size);
    if (!png_image_finish_read(&image, nullptr, raster.pixels.data(), 0, nullptr))
        throw Refused(Refusal::Damaged);
    return {std::move(raster), size};
}

// JPEG

using TurboJpeg = std::unique_ptr<void, int (*)(tjhandle)>;

TurboJpeg turboJpeg(tjhandle handle) {
    if (handle == nullptr) throw std::bad_alloc();
    return {handle, tjDestroy};
}

// The smallest size that the decoder can give which is not less than the one that is needed: it
// then leaves out work, and memory.
Size reducedSize(Size original, Size needed) {
    int count = 0;
    const tjscalingfactor* const factors = tjGetScalingFactors(&count);
    Size best = original;
    for (const tjscalingfactor factor : std::span(factors, static_cast<std::size_t>(count))) {
        const Size size = sizeOf(TJSCALED(static_cast<int>(original.width), factor),
                                 TJSCALED(static_cast<int>(original.height), factor));
        if (size.width >= needed.width && size.height >= needed.height && size.width < best.width)
            best = size;
    }
    return best;
}

// Programs that write CMYK store it inverted.
void turnCmykToRgb(Raster& raster) {
    for (std::size_t at = 0; at < raster.pixels.size(); at += kChannels) {
        std::uint8_t* const pixel = &raster.pixels[at];
        for (std::size_t c = 0; c < 3; ++c)
            pixel[c] = static_cast<std::uint8_t>(pixel[c] * pixel[3] / kOpaque);
        pixel[3] = kOpaque;
    }
}

Decoded decodeJpeg(std::string_view bytes, Size box) {
    const TurboJpeg decoder = turboJpeg(tjInitDecompress());
    const auto* const begin = reinterpret_cast<const unsigned char*>(bytes.data());
    int width = 0, height = 0, sampling = 0, colours = 0;
    if (tjDecompressHeader3(decoder.get(), begin, bytes.size(), &width, &height, &sampling,
                            &colours) != 0) {
        throw Refused(Refusal::Damaged);
    }
    const Size original = sizeOf(width, height);
    requireModest(original);
    const bool isCmyk = colours == TJCS_CMYK || colours == TJCS_YCCK;
    Raster raster(reducedSize(original, fitted(original, box)));
    const int status =
        tjDecompress2(decoder.get(), begin, bytes.size(), raster.pixels.data(),
                      static_cast<int>(raster.size.width), 0, static_cast<int>(raster.size.height),
                      isCmyk ? TJPF_CMYK : TJPF_RGBA, TJFLAG_ACCURATEDCT | TJFLAG_LIMITSCANS);
    // A warning is an image that is cut off or damaged in a few places; browsers show it too.
    if (status != 0 && tjGetErrorCode(decoder.get()) != TJERR_WARNING)
        throw Refused(Refusal::Damaged);
    if (isCmyk) turnCmykToRgb(raster);
    return {std::move(raster), original};
}

// GIF

int readFromText(GifFileType* gif, GifByteType* to, int count) {
    auto& rest = *static_cast<std::string_view*>(gif->UserData);
    const std::size_t taken = std::min(rest.size(), static_cast<std::size_t>(std::max(count, 0)));
    std::memcpy(to, rest.data(), taken);
    rest.remove_prefix(taken);
    return static_cast<int>(taken);
}

void close(GifFileType* gif) {
    int ignored = 0;
    DGifCloseFile(gif, &ignored);
}

using Gif = std::unique_ptr<GifFileType, void (*)(GifFileType*)>;

void requireGif(int status) {
    if (status != GIF_OK) throw Refused(Refusal::Damaged);
}

// Reads on to the first frame. Returns the colour that stands for transparent in it, if there is
// one.
std::optional<int> findFirstFrame(GifFileType* gif) {
    std::optional<int> transparent;
    while (true) {
        GifRecordType type = UNDEFINED_RECORD_TYPE;
        requireGif(DGifGetRecordType(gif, &type));
        if (type == IMAGE_DESC_RECORD_TYPE) return transparent;
        if (type != EXTENSION_RECORD_TYPE) throw Refused(Refusal::Damaged);
        int code = 0;
        GifByteType* block = nullptr;
        requireGif(DGifGetExtension(gif, &code, &block));
        while (block != nullptr) {
            GraphicsControlBlock control{};
            if (code == GRAPHICS_EXT_FUNC_CODE &&
                DGifExtensionToGCB(block[0], block + 1, &control) == GIF_OK) {
                transparent.reset();
                if (control.TransparentColor != NO_TRANSPARENT_COLOR)
                    transparent = control.TransparentColor;
            }
            requireGif(DGifGetExtensionNext(gif, &block));
        }
    }
}

// The order in which an interlaced image has its rows.
std::vector<std::uint32_t> interlacedRows(std::uint32_t height) {
    struct Pass {
        std::uint32_t first, step;
    };
    std::vector<std::uint32_t> rows;
    for (const Pass pass : {Pass{0, 8}, Pass{4, 8}, Pass{2, 4}, Pass{1, 2}}) {
        for (std::uint32_t y = pass.first; y < height; y += pass.step)
            rows.push_back(y);
    }
    return rows;
}

Decoded decodeGif(std::string_view bytes) {
    int error = 0;
    const Gif gif(DGifOpen(&bytes, readFromText, &error), close);
    if (!gif) throw Refused(Refusal::Damaged);
    const std::optional<int> transparent = findFirstFrame(gif.get());
    requireGif(DGifGetImageDesc(gif.get()));
    const GifImageDesc& frame = gif->Image;
    const Size frameSize = sizeOf(frame.Width, frame.Height);
    requireModest(frameSize);
    // Some programs give no size of the whole.
    const Size size =
        gif->SWidth > 0 && gif->SHeight > 0 ? sizeOf(gif->SWidth, gif->SHeight) : frameSize;
    requireModest(size);
    const ColorMapObject* const colours =
        frame.ColorMap != nullptr ? frame.ColorMap : gif->SColorMap;
    if (colours == nullptr) throw Refused(Refusal::Damaged);

    Raster raster(size);
    std::vector<GifPixelType> line(frameSize.width);
    const std::vector<std::uint32_t> order =
        frame.Interlace ? interlacedRows(frameSize.height) : std::vector<std::uint32_t>();
    for (std::uint32_t i = 0; i < frameSize.height; ++i) {
        requireGif(DGifGetLine(gif.get(), line.data(), frame.Width));
        const auto y = static_cast<std::int64_t>(order.empty() ? i : order[i]) + frame.Top;
        if (y < 0 || y >= size.height) continue;
        std::uint8_t* const row = raster.row(static_cast<std::uint32_t>(y));
        for (std::uint32_t column = 0; column < frameSize.width; ++column) {
            const auto x = static_cast<std::int64_t>(column) + frame.Left;
            const int index = line[column];
            if (x < 0 || x >= size.width || index == transparent || index >= colours->ColorCount)
                continue;
            const GifColorType& colour = colours->Colors[index];
            std::uint8_t* const pixel = row + kChannels * static_cast<std::size_t>(x);
            pixel[0] = colour.Red;
            pixel[1] = colour.Green;
            pixel[2] = colour.Blue;
            pixel[3] = kOpaque;
        }
    }
    return {std::move(raster), size};
}

}  // namespace

Decoded decode(std::string_view bytes, Size box) {
    const opc::ImageType* const type = opc::imageTypeOf(bytes);
    if (type == nullptr) throw Refused(Refusal::NoImage);
    if (bytes.size() > kMaxBytes) throw Refused(Refusal::TooManyBytes);
    if (type->format == "png") return decodePng(bytes);
    if (type->format == "jpg") return decodeJpeg(bytes, box);
    if (type->format == "gif") return decodeGif(bytes);
    throw Refused(Refusal::NoImage);
}

Encoded encodePng(const Raster& raster) {
    PngImage image;
    image.width = raster.size.width;
    image.height = raster.size.height;
    const bool isOpaque = raster.isOpaque();
    image.format = PNG_FORMAT_RGBA;
    std::vector<std::uint8_t> opaque;
    if (isOpaque) {
        image.format = PNG_FORMAT_RGB;
        opaque.reserve(raster.pixels.size() / kChannels * 3);
        for (std::size_t at = 0; at < raster.pixels.size(); at += kChannels)
            opaque.insert(opaque.end(), &raster.pixels[at], &raster.pixels[at] + 3);
    }
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    std::string bytes(size, '\0');
    const void* const pixels = isOpaque ? opaque.data() : raster.pixels.data();
    if (!png_image_write_to_memory(&image, bytes.data(), &size, 0, pixels, 0, nullptr))
        throw std::bad_alloc();
    bytes.resize(size);
    return {std::move(bytes), opc::imageType("png")->mediaType};
}

Encoded encodeJpeg(const Raster& raster) {
    const TurboJpeg encoder = turboJpeg(tjInitCompress());
    const auto width = static_cast<int>(raster.size.width);
    const auto height = static_cast<int>(raster.size.height);
    std::string bytes(tjBufSize(width, height, TJSAMP_444), '\0');
    auto* begin = reinterpret_cast<unsigned char*>(bytes.data());
    unsigned long size = bytes.size();
    // Text in colour stays legible only without subsampling. The accurate transform gives the same
    // bytes on every processor.
    if (tjCompress2(encoder.get(), raster.pixels.data(), width, 0, height, TJPF_RGBA, &begin, &size,
                    TJSAMP_444, kJpegQuality, TJFLAG_ACCURATEDCT | TJFLAG_NOREALLOC) != 0) {
        throw std::bad_alloc();
    }
    bytes.resize(size);
    return {std::move(bytes), opc::imageType("jpg")->mediaType};
}

ScaledPicture scaleHere(std::string_view bytes, Size box) {
    Decoded decoded = decode(bytes, box);
    const Size size = fitted(decoded.original, box);
    if (decoded.raster.size != size) decoded.raster = shrunk(decoded.raster, size);
    const bool isJpeg = opc::imageTypeOf(bytes)->format == "jpg";
    // What was not scaled stays as sharp as it was.
    const bool isExact = size == decoded.original && !isJpeg;
    Encoded encoded = isExact || !decoded.raster.isOpaque() ? encodePng(decoded.raster)
                                                            : encodeJpeg(decoded.raster);
    return {std::move(encoded.bytes), encoded.mediaType, size, decoded.original};
}

}  // namespace qzapp::pictures
