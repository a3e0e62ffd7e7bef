#pragma once

#include <string>
#include <string_view>

namespace qzapp {

// Standard error, which messages share with a bar that comes and goes. All functions may be called
// from any thread. What cannot be written there is no reason to do anything else.

// Writes a line with its end; a bar goes out of its way.
void writeMessage(std::string_view line);

// Puts a line without end in the place of the one before it.
void drawBar(const std::string& bar);
// Takes the bar away, if there is one. Signal handlers may call it.
void eraseBar() noexcept;

}  // namespace qzapp
