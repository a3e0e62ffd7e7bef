#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "app/Fields.hpp"
#include "app/FileName.hpp"
#include "app/Forms.hpp"

namespace qzapp {

struct PartFacts {
    std::string name;
    std::string contentType;
    std::uint64_t size = 0;
    std::string sha256;  // of the bytes
    // Of what they mean where that is less: core properties without the time of the last save,
    // relationships without their order and identifiers. Else the same.
    std::string sha256OfMeaning;
    std::string error;  // why the bytes cannot be read, or empty
};

struct ScreenshotFacts {
    std::string format;
    std::uint64_t size = 0;
    std::string sha256;
};

// Something of the app that could not be read: "metadata", "screenshot", "parts" or "code".
struct Fault {
    std::string what;
    std::string text;
};

// All of an app, with hashes for what is no text. What cannot be read is missing and among the faults.
struct Snapshot {
    Form form = Form::Packaged;
    std::optional<FieldValues> metadata;
    std::optional<ScreenshotFacts> screenshot;
    std::optional<std::vector<PartFacts>> parts;  // by name; none of a text app
    std::optional<std::string> code;              // UTF-8, but for a text app any bytes
    std::vector<Fault> faults;
};

// Throws Error when the file cannot be opened at all, has a name of neither form or was written to
// meanwhile.
Snapshot takeSnapshot(const FileName& file);

// The code as lines for people, each ended: without control characters, CR before LF left out when all
// lines have it, very long lines cut with their size and hash. A last line tells that no line end
// stands there.
std::string codeLines(const std::string& code);
bool endsLinesInCrLf(const std::string& code);

}  // namespace qzapp
