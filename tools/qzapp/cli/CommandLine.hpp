#pragma once

namespace qzapp {

// Runs the tool. Returns its exit status, with everything said that there is to say.
int runCommandLine(int argc, const char* const* argv);

}  // namespace qzapp
