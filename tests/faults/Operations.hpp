#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/TemporaryDirectory.hpp"

namespace faults {

// Files that an operation may take content from, in a directory of their own.
struct Inputs {
    Inputs();  // makes the files

    const test_support::TemporaryDirectory directory;
    const std::u16string oldModel, model, largeModel, code, image, textApp;
    const std::u16string largeApp;  // with largeModel, which several threads inflate
};

// Something that saves an app file, or an exception when it fails.
struct SaveOperation {
    const char* name;
    bool isTool;           // the command-line tool's
    bool isCreation;       // there is no file before
    bool replacesAnyFile;  // also one that it has not seen
    std::size_t saves;     // each of which is whole or not at all
    std::function<void(const std::u16string& app, const Inputs& inputs)> run;
    bool usesThreads = false;  // of its own, which takes long
};
const std::vector<SaveOperation>& saveOperations();
// Has signals end this process as they end the tool.
void prepareToolForSignals();

// Something that reads an app file; returns all that it has read. May use the name `scratch`.
struct ReadOperation {
    const char* name;
    std::string (*run)(const std::u16string& app, const Inputs& inputs,
                       const std::u16string& scratch);
    bool usesThreads = false;
};
const std::vector<ReadOperation>& readOperations();

// For the names of tests.
inline void PrintTo(const SaveOperation& operation, std::ostream* out) {
    *out << operation.name;
}
inline void PrintTo(const ReadOperation& operation, std::ostream* out) {
    *out << operation.name;
}

// A small app file with everything that one can hold.
void writeExample(const std::u16string& app, const Inputs& inputs);
// All that a package gives out: its parts, their types and bytes, and its relationships.
std::string readPackage(const std::u16string& app);

}  // namespace faults
