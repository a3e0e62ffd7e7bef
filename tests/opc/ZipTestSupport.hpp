#pragma once

#include <opc/Streams.hpp>
#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/ZipWriter.hpp"
#include "tests/support/TemporaryDirectory.hpp"

#include <random>
#include <string>
#include <vector>

namespace opc::zip {

inline std::string readAll(InputStream& stream, std::size_t step = 64 << 10) {
    std::string content;
    std::vector<std::byte> buffer(step);
    while (const std::size_t got = stream.read(buffer)) {
        content.append(reinterpret_cast<const char*>(buffer.data()), got);
    }
    return content;
}

inline std::string readItem(const ZipArchive& archive, std::string_view name) {
    const ZipItem* item = archive.find(name);
    return item ? readAll(*archive.read(*item)) : "(no such item)";
}

inline void writeItem(ZipWriter& writer, std::string_view name, std::string_view content,
                      const ItemOptions& options = {}) {
    const auto stream = writer.set(name, options);
    stream->write(std::as_bytes(std::span(content)));
    stream->flush();
}

// Does not shrink, and is the same every time.
inline std::string noise(std::size_t size, unsigned seed = 1) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

// Shrinks to about half.
inline std::string prose(std::size_t size, unsigned seed = 1) {
    std::mt19937 random(seed);
    std::string text;
    while (text.size() < size)
        text += "word" + std::to_string(random() % 1000) + " ";
    text.resize(size);
    return text;
}

inline fl::filesystem::path pathOf(const std::u16string& name) {
    return fl::filesystem::path(name);
}

}  // namespace opc::zip
