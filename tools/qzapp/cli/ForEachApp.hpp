#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/FileName.hpp"
#include "tools/qzapp/cli/Cage.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/Report.hpp"

namespace qzapp {

// Lets the cage read everything below a folder, and the targets of those of its `files` that are
// links.
void letRead(Cage& cage, const std::string& folder, const std::vector<std::string>& files);

// What a verb found out about one file: the text to be printed, an exit status, and what the verb
// counts the file as.
struct Answer {
    std::string text;
    int status = kDone;
    int kind = 0;
};

// What a verb does with several apps.
struct AppVisitor {
    // Finds out about a file, which is held open. Called on several threads at the same time.
    std::function<Answer(const FileName&)> ask;
    // Prints an answer. Called on the thread of forEachApp(), in the order of the names.
    std::function<void(const Answer&)> show = [](const Answer& answer) { print(answer.text); };
    // Called, like `show`, for a file or folder that could not be read, after the message about it
    // was written to standard error. `reason` is the message without the name.
    std::function<void(const std::string& name, const std::string& reason)> fail =
        [](const std::string&, const std::string&) {};
};

// Confines this process to what is named (see Cage), then asks the visitor about each named file,
// held open, and about each app below a named folder. "-" is standard input. Several files are
// asked about at the same time, on several threads; the answers are shown in the order of the
// names, and memory does not grow with their number. An Error, a folder without an app included, is
// reported in its place and does not stop the others; only an OutputError passes. Returns kDone if
// nothing was reported and every answer's status is kDone, otherwise kFailed.
int forEachApp(const std::vector<std::string>& names, const AppVisitor& visitor);

// Whether the names may stand for more than one file: there are several, or one is a folder.
bool maybeSeveral(const std::vector<std::string>& names);

}  // namespace qzapp
