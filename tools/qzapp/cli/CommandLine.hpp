#pragma once

namespace qzapp {

// Runs the tool with these arguments. All errors are reported on standard error; returns the exit
// status.
int runCommandLine(int argc, const char* const* argv);

}  // namespace qzapp
