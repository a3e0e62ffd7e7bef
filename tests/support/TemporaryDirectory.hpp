#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>

namespace test_support {

// A new directory for the files of a test. The destructor removes it with everything in it.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "qz-test-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp: " + name);
        path_ = std::filesystem::canonical(name);
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }
    // The absolute name of a file in the directory, in UTF-16, as the library takes names.
    std::u16string name(const std::filesystem::path& file) const {
        return (path_ / file).u16string();
    }
    // Writes a file in the directory and returns its name().
    std::u16string write(const std::filesystem::path& file, const std::string& bytes) const {
        std::ofstream stream(path_ / file, std::ios::binary);
        stream << bytes;
        if (!stream.flush()) throw std::runtime_error("cannot write " + file.string());
        return name(file);
    }

private:
    std::filesystem::path path_;
};

// A temporary directory that is also the working directory of the process until it is destroyed.
class WorkingDirectory : public TemporaryDirectory {
public:
    WorkingDirectory() { std::filesystem::current_path(path()); }
    ~WorkingDirectory() { std::filesystem::current_path(previous_); }

private:
    std::filesystem::path previous_ = std::filesystem::current_path();
};

inline std::string readFile(const std::filesystem::path& file) {
    std::string bytes(std::filesystem::file_size(file), '\0');
    std::ifstream stream;
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    stream.open(file, std::ios::binary);
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

}  // namespace test_support
