// Writes the corpus into a directory, or reads files as a host would.
//   hostile_corpus --write DIRECTORY
//   hostile_corpus --read SCRATCH FILE...     tells what comes out of each
#include <fl/i18n.hpp>

#include <cstdio>
#include <exception>
#include <fstream>
#include <string>
#include <vector>

#include "tests/hostile/Corpus.hpp"
#include "tests/hostile/Outcome.hpp"

namespace {

void write(const std::string& directory) {
    for (const auto& file : hostile::corpus()) {
        std::ofstream stream(directory + "/" + file.name, std::ios::binary);
        stream << file.bytes;
        if (!stream.flush()) throw std::runtime_error("cannot write " + file.name);
    }
}

void read(const std::vector<std::string>& arguments) {
    const auto scratch = fl::i18n::utf8_to_ustring(arguments.at(1));
    for (std::size_t i = 2; i < arguments.size(); ++i) {
        std::printf("%s\n", arguments[i].c_str());
        const auto file = fl::i18n::utf8_to_ustring(arguments[i]);
        for (const std::string& line : hostile::readEverything(file, scratch))
            std::printf("    %s\n", line.c_str());
    }
}

}  // namespace

int main(int count, char** words) try {
    const std::vector<std::string> arguments(words + 1, words + count);
    if (arguments.size() == 2 && arguments[0] == "--write") {
        write(arguments[1]);
    } else if (arguments.size() > 2 && arguments[0] == "--read") {
        read(arguments);
    } else {
        std::fputs("usage: hostile_corpus --write DIRECTORY | --read SCRATCH FILE...\n", stderr);
        return 2;
    }
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "hostile_corpus: %s\n", error.what());
    return 1;
}
