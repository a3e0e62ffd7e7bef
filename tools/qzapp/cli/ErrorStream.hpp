#pragma once

#include <string>
#include <string_view>

namespace qzapp {

// Standard error, which messages share with a progress bar. Any thread may call these functions.

// Writes a line, which includes its line end. A bar is erased first. Returns whether it was
// written.
bool writeMessage(std::string_view line);

// Draws the bar over the one that is there; `bar` has no line end.
void drawBar(const std::string& bar);
// Erases the bar if there is one. A signal handler may call it.
void eraseBar() noexcept;

}  // namespace qzapp
