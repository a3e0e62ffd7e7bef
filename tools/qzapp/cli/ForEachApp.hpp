#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/FileName.hpp"
#include "tools/qzapp/cli/Cage.hpp"
#include "tools/qzapp/cli/Report.hpp"

namespace qzapp {

// Lets the cage read everything below a folder, and the targets of those of its `files` that are links.
void letRead(Cage& cage, const std::string& folder, const std::vector<std::string>& files);

// What a verb found out about one file: the text to be printed, and an exit status.
struct Answer {
    std::string text;
    int status = kDone;
};

// Confines this process to what is named (see Cage), then prints what `ask` answers for each named file,
// held open, and for each app below a named folder. "-" is standard input. Several files are asked about at
// the same time, on several threads; the answers are printed in the order of the names, and memory does not
// grow with their number. An Error, a folder without an app included, is reported in its place and does not
// stop the others; only an OutputError passes. Returns kDone if nothing was reported and every answer's
// status is kDone, otherwise kFailed.
int forEachApp(const std::vector<std::string>& names,
               const std::function<Answer(const FileName&)>& ask);

}  // namespace qzapp
