#pragma once

namespace qzapp {

// The file schema.sql: the statements that make the tables of a catalogue. A change of them needs a
// new kSchemaVersion.
extern const char* const kSchema;

inline constexpr int kSchemaVersion = 1;
// In the head of the file, so that other programs know what it is: "QZAP".
inline constexpr int kApplicationId = 0x515A4150;

// Row of `sources` that stands for the catalogue itself.
inline constexpr int kOwnSource = 1;

}  // namespace qzapp
