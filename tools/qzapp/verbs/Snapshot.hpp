#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "app/FieldValues.hpp"
#include "app/FileName.hpp"
#include "app/Forms.hpp"

namespace qzapp {

// A part, an item that is not a part, or the bytes in front of the zip file.
struct PartFacts {
    std::string name;
    bool isLoose = false;     // the bytes in front, not an item of that name
    std::string contentType;  // empty if it is not a part
    std::uint64_t size = 0;
    std::string sha256;  // of the bytes
    // Of the core properties and the package's relationships, what they say, in an order of its
    // own: without the time of the last save, and without identifiers.
    std::optional<std::vector<std::string>> meaning;
    // The hash that two parts are compared by: of the meaning, if there is one, otherwise sha256.
    std::string sha256OfMeaning;
    std::string error;            // why the bytes cannot be read, or empty
    bool isErrorPassing = false;  // see Error
};

struct ScreenshotFacts {
    std::string format;
    std::uint64_t size = 0;
    std::string sha256;
};

// Something that could not be read: "app" for all of it, "metadata", "screenshot", "parts" or
// "code".
struct Fault {
    std::string what;
    std::string text;
    bool isPassing = false;  // see Error
};

// All of an app, with hashes in place of what is not text. What could not be read is missing, and
// `faults` says why.
struct Snapshot {
    Form form = Form::Packaged;
    std::optional<FieldValues> metadata;
    std::optional<ScreenshotFacts> screenshot;
    std::optional<std::vector<PartFacts>> parts;  // sorted by name; nothing for a text app
    std::optional<std::string> code;              // UTF-8; for a text app any bytes
    std::vector<Fault> faults;

    // Whether another try may read what is missing, because the file is not to blame for it.
    bool mayReadMoreLater() const;
};

// Throws Error if the file cannot be opened at all, its name is of neither form, or it was written
// to meanwhile.
Snapshot takeSnapshot(const FileName& file);

// The code as lines for people. Control characters are escaped, a line of more than 2,000 bytes is
// cut and ends with its size and hash, and CR LF becomes LF if endsLinesInCrLf(). If the last line
// has no line end, another line says so.
std::string codeLines(const std::string& code);
// Whether there is a line end, and all of them are CR LF.
bool endsLinesInCrLf(const std::string& code);

}  // namespace qzapp
