#include <fcntl.h>
#include <gif_lib.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <fl/FileDescriptor.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include "tools/qzapp/pictures/DecoderProcess.hpp"
#include "tools/qzapp/pictures/Decoders.hpp"
#include "tools/qzapp/pictures/PictureScaler.hpp"
#include "tools/qzapp/pictures/Raster.hpp"

namespace qzapp::pictures {
namespace {

using namespace std::string_literals;
using Pixel = std::array<std::uint8_t, 4>;

constexpr Pixel kRed{255, 0, 0, 255}, kBlue{0, 0, 255, 255}, kNothing{0, 0, 0, 0};

void set(Raster& raster, std::uint32_t x, std::uint32_t y, Pixel pixel) {
    std::copy(pixel.begin(), pixel.end(), raster.row(y) + 4 * x);
}

Pixel at(const Raster& raster, std::uint32_t x, std::uint32_t y) {
    Pixel pixel;
    std::copy_n(raster.row(y) + 4 * x, 4, pixel.begin());
    return pixel;
}

// The left half is of one colour and the right half of another.
Raster halves(Size size, Pixel left, Pixel right) {
    Raster raster(size);
    for (std::uint32_t y = 0; y < size.height; ++y) {
        for (std::uint32_t x = 0; x < size.width; ++x)
            set(raster, x, y, x < size.width / 2 ? left : right);
    }
    return raster;
}

// A GIF of two frames: the first has the colours 1 (red) and 0 (transparent), the second is all
// blue.
std::string gifOf(int width, int height, bool isInterlaced) {
    std::string bytes;
    const auto write = [](GifFileType* gif, const GifByteType* from, int count) {
        static_cast<std::string*>(gif->UserData)
            ->append(reinterpret_cast<const char*>(from), static_cast<std::size_t>(count));
        return count;
    };
    int error = 0;
    GifFileType* const gif = EGifOpen(&bytes, write, &error);
    EGifSetGifVersion(gif, true);
    const std::array<GifColorType, 4> colours{{{9, 9, 9}, {255, 0, 0}, {0, 0, 255}, {0, 0, 0}}};
    ColorMapObject* const map = GifMakeMapObject(4, colours.data());
    EGifPutScreenDesc(gif, width, height, 2, 0, map);
    for (const bool isFirst : {true, false}) {
        const GraphicsControlBlock control{DISPOSAL_UNSPECIFIED, false, 10,
                                           isFirst ? 0 : NO_TRANSPARENT_COLOR};
        std::array<GifByteType, 4> block{};
        EGifGCBToExtension(&control, block.data());
        EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE, 4, block.data());
        EGifPutImageDesc(gif, 0, 0, width, height, isInterlaced, nullptr);
        std::vector<GifPixelType> line(static_cast<std::size_t>(width), isFirst ? 1 : 2);
        if (isFirst) std::fill_n(line.begin(), width / 2, GifPixelType{0});
        for (int y = 0; y < height; ++y)
            EGifPutLine(gif, line.data(), width);
    }
    EGifCloseFile(gif, &error);
    GifFreeMapObject(map);
    return bytes;
}

std::string png(const Raster& raster) {
    return encodePng(raster).bytes;
}

// The picture, decoded again.
Raster decoded(const ScaledPicture& picture) {
    return decode(picture.bytes, {1000, 1000}).raster;
}

// A shown reason instead of a picture fails the test.
ScaledPicture pictureOf(PictureScaler::Result result) {
    if (const auto* refusal = std::get_if<Refusal>(&result)) {
        ADD_FAILURE() << textOf(*refusal);
        return {};
    }
    return std::get<ScaledPicture>(std::move(result));
}

Refusal refusalOf(const PictureScaler::Result& result) {
    const auto* refusal = std::get_if<Refusal>(&result);
    EXPECT_NE(refusal, nullptr) << "a picture instead of a refusal";
    return refusal != nullptr ? *refusal : Refusal{255};
}

TEST(Fitted, KeepsProportionsAndNeverGrows) {
    const struct {
        Size size, expected;
    } rows[] = {
        {{100, 50}, {100, 50}},   {{1920, 1080}, {480, 270}}, {{300, 720}, {150, 360}},
        {{960, 720}, {480, 360}}, {{480, 361}, {479, 360}},   {{16384, 1}, {480, 1}},
        {{1, 16384}, {1, 360}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(fitted(row.size, {480, 360}), row.expected) << row.size.width;
}

TEST(Shrunk, IsTheMeanOfTheAreaWithoutTheColourOfWhatIsTransparent) {
    const auto column = [](std::vector<Pixel> pixels) {
        Raster raster({1, static_cast<std::uint32_t>(pixels.size())});
        for (std::uint32_t y = 0; y < raster.size.height; ++y)
            set(raster, 0, y, pixels[y]);
        return raster;
    };
    EXPECT_EQ(at(shrunk(column({kRed, kBlue}), {1, 1}), 0, 0), (Pixel{128, 0, 128, 255}));
    EXPECT_EQ(at(shrunk(column({kRed, {0, 255, 0, 0}}), {1, 1}), 0, 0), (Pixel{255, 0, 0, 128}));
    EXPECT_EQ(at(shrunk(column({kNothing, kNothing}), {1, 1}), 0, 0), kNothing);
    // Three rows become two: the middle one is shared.
    const Raster two = shrunk(column({kRed, kBlue, kBlue}), {1, 2});
    EXPECT_EQ(at(two, 0, 0), (Pixel{170, 0, 85, 255}));
    EXPECT_EQ(at(two, 0, 1), kBlue);
    // And columns, on both sides of the border.
    const Raster wide = shrunk(halves({6, 3}, kRed, kBlue), {4, 3});
    EXPECT_EQ(at(wide, 1, 2), kRed);
    EXPECT_EQ(at(wide, 2, 0), kBlue);
    // The sums of the largest picture do not overflow.
    const Raster large = shrunk(halves({kMaxSide, 3}, kRed, kRed), {1, 1});
    EXPECT_EQ(at(large, 0, 0), kRed);
}

TEST(PictureScaler, ScalesEachFormatWithWhatIsTransparentInIt) {
    PictureScaler scaler({40, 30});
    const Raster clear = halves({80, 60}, kNothing, kRed);
    const Raster opaque = halves({80, 60}, kBlue, kRed);
    const struct {
        const char* what;
        std::string image;
        std::string_view mediaType;
        Size size;
        Pixel left, right;
    } rows[] = {
        {"PNG", png(opaque), "image/jpeg", {40, 30}, kBlue, kRed},
        {"PNG with alpha", png(clear), "image/png", {40, 30}, kNothing, kRed},
        {"small PNG", png(halves({8, 6}, kBlue, kRed)), "image/png", {8, 6}, kBlue, kRed},
        {"JPEG", encodeJpeg(opaque).bytes, "image/jpeg", {40, 30}, kBlue, kRed},
        {"large JPEG",
         encodeJpeg(halves({800, 400}, kBlue, kRed)).bytes,
         "image/jpeg",
         {40, 20},
         kBlue,
         kRed},
        {"first frame of a GIF", gifOf(80, 60, false), "image/png", {40, 30}, kNothing, kRed},
        {"interlaced GIF", gifOf(79, 61, true), "image/png", {39, 30}, kNothing, kRed},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const ScaledPicture picture = pictureOf(scaler.scale(row.image));
        EXPECT_EQ(picture.mediaType, row.mediaType);
        ASSERT_EQ(picture.size, row.size);
        const Raster raster = decoded(picture);
        ASSERT_EQ(raster.size, row.size);
        for (const std::uint32_t y : {0U, row.size.height - 1}) {
            for (std::size_t c = 0; c < 4; ++c) {
                EXPECT_NEAR(at(raster, 0, y)[c], row.left[c], 3);
                EXPECT_NEAR(at(raster, row.size.width - 1, y)[c], row.right[c], 3);
            }
        }
    }
    EXPECT_EQ(pictureOf(scaler.scale(rows[4].image)).original, (Size{800, 400}));
}

TEST(PictureScaler, GivesTheSameBytesAlwaysAndOnAllThreads) {
    PictureScaler scaler({40, 30});
    std::vector<std::string> images, expected;
    for (std::uint32_t i = 0; i < 20; ++i) {
        images.push_back(png(halves({60 + i, 50}, kRed, kBlue)));
        expected.push_back(scaleHere(images.back(), {40, 30}).bytes);
    }
    // More than one process decodes.
    constexpr int kTimes = 20;
    const auto work = [&] {
        for (int time = 0; time < kTimes; ++time) {
            for (std::size_t i = 0; i < images.size(); ++i)
                EXPECT_EQ(pictureOf(scaler.scale(images[i])).bytes, expected[i]);
        }
    };
    std::thread other(work), third(work);
    work();
    other.join();
    third.join();
}

std::string bigEndian(std::uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

std::uint32_t checksum(std::string_view bytes) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (const char c : bytes) {
        crc ^= static_cast<std::uint8_t>(c);
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320 : 0);
    }
    return ~crc;
}

// With another size in its header, and the checksum of that.
std::string pngClaiming(Size size) {
    std::string bytes = png(halves({4, 4}, kRed, kBlue));
    bytes.replace(16, 8, bigEndian(size.width) + bigEndian(size.height));
    bytes.replace(29, 4, bigEndian(checksum(std::string_view(bytes).substr(12, 17))));
    return bytes;
}

std::string jpegClaiming(std::uint16_t side) {
    std::string bytes = encodeJpeg(halves({16, 16}, kRed, kBlue)).bytes;
    const std::size_t frame = bytes.find("\xFF\xC0");
    const std::string number = bigEndian(side).substr(2);
    return bytes.replace(frame + 5, 4, number + number);
}

std::string cut(std::string bytes) {
    bytes.resize(bytes.size() * 2 / 3);
    return bytes;
}

TEST(PictureScaler, RefusesWhatIsDamagedOrTooLargeAndGoesOn) {
    PictureScaler scaler({40, 30});
    const std::string good = png(halves({80, 60}, kRed, kBlue));
    std::string largeGif = gifOf(4, 4, false);
    largeGif.replace(6, 4, "\xFF\xFF\xFF\xFF");
    std::string flipped = good;
    flipped[good.size() / 2] ^= 1;
    const struct {
        const char* what;
        std::string image;
        Refusal expected;
    } rows[] = {
        {"nothing", "", Refusal::NoImage},
        {"a text", "<svg onload='alert(1)'/>", Refusal::NoImage},
        {"WebP", "RIFF\x10\0\0\0WEBPVP8 "s, Refusal::NoImage},
        {"a beginning only", good.substr(0, 8), Refusal::Damaged},
        {"a PNG that is cut", cut(good), Refusal::Damaged},
        {"a PNG with a wrong checksum", flipped, Refusal::Damaged},
        {"a PNG that claims many pixels", pngClaiming({16000, 16000}), Refusal::TooManyPixels},
        {"a PNG that claims a long side", pngClaiming({16385, 1}), Refusal::TooManyPixels},
        {"a PNG without width", pngClaiming({0, 9}), Refusal::Damaged},
        {"a JPEG that claims many pixels", jpegClaiming(16000), Refusal::TooManyPixels},
        {"a JPEG without data", "\xFF\xD8\xFF\xD9", Refusal::Damaged},
        {"a GIF that claims many pixels", largeGif, Refusal::TooManyPixels},
        {"a GIF that is cut", cut(gifOf(80, 60, false)), Refusal::Damaged},
        {"too many bytes", good + std::string(kMaxBytes, 'x'), Refusal::TooManyBytes},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(textOf(refusalOf(scaler.scale(row.image))), textOf(row.expected));
        EXPECT_EQ(pictureOf(scaler.scale(good)).size, (Size{40, 30}));
    }
    // The largest that are taken, and a JPEG whose end is missing, as browsers show it.
    EXPECT_EQ(refusalOf(scaler.scale(pngClaiming({8000, 4000}))), Refusal::Damaged);
    std::string endless = encodeJpeg(halves({80, 60}, kRed, kBlue)).bytes;
    endless.resize(endless.size() - 2);
    EXPECT_EQ(pictureOf(scaler.scale(endless)).size, (Size{40, 30}));
}

std::vector<pid_t> childrenOf(pid_t process) {
    const std::string id = std::to_string(process);
    std::ifstream list("/proc/" + id + "/task/" + id + "/children");
    std::vector<pid_t> children;
    for (pid_t child = 0; list >> child;)
        children.push_back(child);
    return children;
}

// The processes that decode are started by the only child of this process.
std::vector<pid_t> decoders() {
    const auto starters = childrenOf(::getpid());
    return starters.empty() ? starters : childrenOf(starters[0]);
}

TEST(PictureScaler, LosesOnePictureWithTheProcessAndLeavesNoProcess) {
    const std::string image = png(halves({80, 60}, kRed, kBlue));
    {
        PictureScaler scaler;
        pictureOf(scaler.scale(image));
        for (int time = 0; time < 3; ++time) {
            const auto running = decoders();
            ASSERT_EQ(running.size(), 1U);
            ::kill(running[0], SIGKILL);
            EXPECT_EQ(refusalOf(scaler.scale(image)), Refusal::Killed);
            pictureOf(scaler.scale(image));
        }
        // Without the process that starts them there is no other one.
        ::kill(childrenOf(::getpid()).front(), SIGKILL);
        // The one that is running ends too, but perhaps not at once.
        PictureScaler::Result last;
        const Refusal* refusal = nullptr;
        while (refusal == nullptr || *refusal != Refusal::NotNow) {
            last = scaler.scale(image);
            refusal = std::get_if<Refusal>(&last);
        }
    }
    EXPECT_TRUE(childrenOf(::getpid()).empty());
}

TEST(PictureScaler, GivesItsProcessesNoFileOfThisOne) {
    const fl::filesystem::FileDescriptor own(::open("/etc/passwd", O_RDONLY));
    PictureScaler scaler;
    pictureOf(scaler.scale(png(halves({80, 60}, kRed, kBlue))));
    ASSERT_EQ(decoders().size(), 1U);
    std::vector<std::string> open;
    const std::string folder = "/proc/" + std::to_string(decoders()[0]) + "/fd";
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        open.push_back(std::filesystem::read_symlink(entry).string());
    std::erase(open, "/proc/" + std::to_string(decoders()[0]));  // the cage keeps it
    for (std::string& name : open)
        name.resize(7);
    std::ranges::sort(open);
    EXPECT_EQ(open, (std::vector<std::string>{"/dev/nu", "/dev/nu", "/dev/nu", "socket:"}));
}

// What a confined process can still do, as a letter for each attempt that succeeds.
std::string doneWhenConfined(const std::vector<std::function<bool()>>& attempts) {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe(ends.data()), 0);
    const pid_t process = ::fork();
    if (process == 0) {
        confineToMemory();
        for (const auto& attempt : attempts) {
            const char done = attempt() ? 'y' : 'n';
            if (::write(ends[1], &done, 1) != 1) break;
        }
        ::_exit(0);
    }
    ::close(ends[1]);
    std::string done;
    for (char c = 0; ::read(ends[0], &c, 1) == 1;)
        done += c;
    ::close(ends[0]);
    ::waitpid(process, nullptr, 0);
    return done;
}

TEST(ConfineToMemory, LeavesMemoryAndNothingElse) {
    static const pid_t parent = ::getpid();
    const auto startsProgram = [] {
        std::string name = "/bin/true";
        char* const arguments[] = {name.data(), nullptr};
        pid_t process = 0;
        return ::posix_spawn(&process, name.c_str(), nullptr, nullptr, arguments, environ) == 0;
    };
    const auto maps = [](int rights) {
        return ::mmap(nullptr, 4096, rights, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) != MAP_FAILED;
    };
    EXPECT_EQ(doneWhenConfined({
                  [] { return std::string(1 << 20, 'x').size() > 1; },
                  [&] { return maps(PROT_READ | PROT_WRITE); },
                  [&] { return maps(PROT_READ | PROT_EXEC); },
                  [] { return ::open("/etc/passwd", O_RDONLY) >= 0; },
                  [] { return ::open("/proc/self/maps", O_RDONLY) >= 0; },
                  [] { return ::socket(AF_UNIX, SOCK_STREAM, 0) >= 0; },
                  [] { return ::socket(AF_INET, SOCK_DGRAM, 0) >= 0; },
                  [] { return ::fork() >= 0; },
                  [] { return ::kill(parent, 0) == 0; },
                  [] { return ::chmod("/tmp/nothing", 0600) == 0 || errno == ENOENT; },
                  startsProgram,
              }),
              "yynnnnnnnnn");
}

}  // namespace
}  // namespace qzapp::pictures
