//   hostile_corpus --write DIRECTORY          writes the corpus into it, and prints the names with the
//                                             number of bytes that each file stands for
//   hostile_corpus --read SCRATCH FILE...     reads files as a host would
#include <fl/i18n.hpp>

#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "tests/hostile/Corpus.hpp"
#include "tests/hostile/Outcome.hpp"

int main(int count, char** words) {
    const std::vector<std::string> arguments(words + 1, words + count);
    if (arguments.size() < 2) return 2;
    if (arguments[0] == "--write") {
        for (const auto& file : hostile::corpus()) {
            std::ofstream(arguments[1] + "/" + file.name, std::ios::binary) << file.bytes;
            std::cout << file.content << " " << file.name << "\n";
        }
        return 0;
    }
    const auto scratch = fl::i18n::utf8_to_ustring(arguments[1]);
    for (std::size_t i = 2; i < arguments.size(); ++i)
        hostile::readEverything(fl::i18n::utf8_to_ustring(arguments[i]), scratch);
    return 0;
}
