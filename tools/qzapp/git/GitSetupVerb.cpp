#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
#include <CLI/App.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "app/Error.hpp"
#include "app/FileName.hpp"
#include "app/InputFiles.hpp"
#include "app/Transaction.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/Program.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/git/GitAttributes.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

constexpr std::uint64_t kMostAttributes = std::uint64_t{1} << 20;
constexpr const char* kCachedTexts = "refs/notes/textconv/qzapp";

struct SetupOptions {
    bool print = false;
    bool undo = false;
};

// Runs git without the hooks and the file watcher that the repository may name.
ProgramEnd git(const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {"git", "-c", "core.hooksPath=/dev/null", "-c",
                                        "core.fsmonitor=false"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    auto end = Program({std::move(command)}).run();
    if (!end) throw Error("git", "is not installed");
    return *std::move(end);
}

void requireGit(const std::vector<std::string>& arguments) {
    const ProgramEnd end = git(arguments);
    if (end.status == 0) return;
    throw Error("git " + arguments.front(), end.failure());
}

std::string withoutLineEnd(std::string text) {
    if (text.ends_with('\n')) text.pop_back();
    return text;
}

// The way to the top of the repository from here: "", "../", "../../" and so on.
std::string wayToTop() {
    const ProgramEnd end = git({"rev-parse", "--is-inside-work-tree", "--show-cdup"});
    constexpr std::string_view kInside = "true\n";
    if (end.status == 0 && end.output.starts_with(kInside))
        return withoutLineEnd(end.output.substr(kInside.size()));
    const std::string reason = end.status == 0
                                   ? "there are no files of a repository here"
                                   : "git refuses: " + end.errors.substr(0, end.errors.find('\n'));
    throw Error("git-setup",
                reason + "; go into a repository, or see with --print what would be done");
}

// Whether git does with apps at the top what attributesLines() say, whoever else says something of
// them.
bool isInForce(const std::string& top) {
    return std::ranges::all_of(attributesLines(), [&](const AttributesLine& line) {
        const std::string app = top + "app" + (line.pattern + 1);
        std::vector<std::string> command = {"check-attr"};
        std::string expected;
        for (const std::string_view attribute : line.attributes) {
            const bool isUnset = attribute.starts_with('-');
            const std::size_t equals = attribute.find('=');
            const auto name = attribute.substr(isUnset ? 1 : 0, equals);
            const auto value = isUnset ? "unset" : attribute.substr(equals + 1);
            command.emplace_back(name);
            expected += fmt::format("{}: {}: {}\n", app, name, value);
        }
        command.insert(command.end(), {"--", app});
        return git(command).output == expected;
    });
}

// A word for the shell, through which git runs its filters.
std::string quoted(const std::string& word) {
    std::string text = "'";
    for (const char c : word)
        text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return text + "'";
}

// How git is to call this program: by its name if that leads to it, otherwise by its path.
std::string ownCommand() {
    std::error_code ignored;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", ignored);
    const char* path = std::getenv("PATH");
    std::istringstream folders(path == nullptr ? "" : path);
    for (std::string folder; std::getline(folders, folder, ':');) {
        const auto candidate = std::filesystem::path(folder) / "qzapp";
        if (::access(candidate.c_str(), X_OK) != 0) continue;
        if (std::filesystem::equivalent(candidate, self, ignored)) return "qzapp";
        break;
    }
    return self.empty() ? "qzapp" : quoted(self.string());
}

std::string withoutPlaceholders(std::string command) {
    for (std::size_t at = 0; (at = command.find('%', at)) != std::string::npos; at += 2)
        command.insert(at, 1, '%');
    return command;
}

// What a key of git's configuration is to say: a call of this program, or just `rest`.
struct Setting {
    std::string key, program, rest;
    std::string value() const { return program + rest; }
    // Also if the value leads to this program by another path.
    bool isIn(const std::string& value) const {
        return program.empty() ? value == rest : value.ends_with(rest);
    }
};

// git quotes the path (%P) for the shell, and the names of the three files are its own.
std::vector<Setting> settings() {
    const std::string qzapp = ownCommand(), expanded = withoutPlaceholders(qzapp);
    return {
        {"diff.qzapp.textconv", qzapp, " show --text --"},
        {"diff.qzapp.cachetextconv", "", "true"},
        {"filter.qzapp.clean", "exec " + expanded, " repack --store --or-unchanged - -"},
        {"merge.qzapp.name", "", "apps, by field, line and part"},
        {"merge.qzapp.driver", expanded,
         " merge --store --marker-size %L --path=%P -o %A -- %O %A %B"},
    };
}

std::optional<std::string> settingIn(const std::string& key) {
    const ProgramEnd end = git({"config", "--local", "--get", key});
    return end.status == 0 ? std::optional(withoutLineEnd(end.output)) : std::nullopt;
}

void printSettings() {
    std::string text = "# lines of .gitattributes\n";
    for (const AttributesLine& line : attributesLines())
        text += textOf(line);
    text += "# commands for each clone\n";
    for (const Setting& setting : settings())
        text += fmt::format("git config {} {}\n", setting.key, quoted(setting.value()));
    print(text);
}

class Setup {
public:
    Setup() : top_(wayToTop()), attributes_(fileNamed(top_ + ".gitattributes")) {
        // git does not follow such a link, and it may lead anywhere.
        struct stat status {};
        const bool exists = ::lstat(attributes_.bytes().c_str(), &status) == 0;
        if (exists && !S_ISREG(status.st_mode))
            throw Error(attributes_.shown, "is not a regular file; put one in its place");
        content();  // fails now rather than when the clone is configured
    }

    // Reports what was done even if what follows failed.
    void run(void (Setup::*work)()) {
        try {
            (this->*work)();
        } catch (...) {
            tryPrint(report_);
            throw;
        }
        printReport(attributes_, report_);
    }

    // git's configuration first: that fails more often, and without it the lines do nothing.
    void make() {
        bool isChanged = configure();
        if (change(withOurLines)) {
            say("added lines to .gitattributes, which is for all clones; commit it");
            isChanged = true;
        }
        if (!isInForce(top_)) {
            say("note: lines of yours say otherwise for apps, and stay; see \"git check-attr -a "
                "app.kvpkg\"");
        } else if (!isChanged) {
            say("nothing to change");
        }
    }

    void undo() {
        bool isChanged = unconfigure();
        if (change(withoutOurLines)) {
            say("removed the lines from .gitattributes");
            isChanged = true;
        }
        if (!isChanged) say("nothing to change");
    }

private:
    // Returns whether anything has changed.
    bool configure() {
        bool isChanged = false;
        for (const Setting& setting : settings()) {
            const auto present = settingIn(setting.key);
            if (present == setting.value()) continue;
            if (present) say(fmt::format("{} was \"{}\"", setting.key, visible(*present)));
            requireGit({"config", "--local", "--replace-all", setting.key, setting.value()});
            isChanged = true;
        }
        if (isChanged) {
            forgetTexts();
            say("configured this clone: diff, filter and merge of apps");
            say("pack the apps that it has with \"git add --renormalize .\", then commit");
        }
        return isChanged;
    }

    bool unconfigure() {
        bool isChanged = false;
        for (const Setting& setting : settings()) {
            const auto present = settingIn(setting.key);
            if (!present) continue;
            if (!setting.isIn(*present)) {
                say(fmt::format("note: {} is \"{}\", which is yours and stays", setting.key,
                                visible(*present)));
                continue;
            }
            requireGit({"config", "--local", "--unset-all", setting.key});
            isChanged = true;
        }
        if (isChanged) {
            forgetTexts();
            say("removed the configuration from this clone");
        }
        return isChanged;
    }

    std::string content() const {
        const bool exists = ::access(attributes_.bytes().c_str(), F_OK) == 0;
        return exists ? readBytes(attributes_, kMostAttributes) : "";
    }

    // Returns whether the file has changed.
    bool change(std::string (*changed)(const std::string&)) const {
        if (const std::string present = content(); changed(present) == present) return false;
        // Before the file is read: what others save from now on is not replaced.
        Transaction transaction(attributes_, Transaction::Start::Empty);
        const std::string now = content(), wanted = changed(now);
        if (wanted.empty() && content() == now && ::unlink(attributes_.bytes().c_str()) == 0)
            return true;
        transaction.write(wanted, 0);
        transaction.commit();
        return true;
    }

    // Those that git has kept may be of another version.
    static void forgetTexts() {
        if (git({"rev-parse", "-q", "--verify", kCachedTexts}).status == 0)
            requireGit({"update-ref", "-d", kCachedTexts});
    }

    void say(const std::string& line) { report_ += line + "\n"; }

    std::string top_;
    FileName attributes_;
    std::string report_;
};

int setUp(const SetupOptions& options) {
    if (options.print && options.undo)
        throw UsageError("--print", "cannot be given with --undo; leave one out");
    if (options.print) {
        printSettings();
    } else if (options.undo) {
        Setup().run(&Setup::undo);
    } else {
        Setup().run(&Setup::make);
    }
    return kDone;
}

}  // namespace

Action declareGitSetup(CLI::App& command) {
    const auto options = std::make_shared<SetupOptions>();
    command.add_flag("--print", options->print, "Show the lines and commands, and change nothing");
    command.add_flag("--undo", options->undo, "Remove what was set up");
    command.footer(
        "Adds lines to .gitattributes and configures this clone, so that \"git diff\" and \"git "
        "log\"\n"
        "show apps as text, \"git merge\" merges them with \"qzapp merge\", and \"git add\" stores "
        "them\n"
        "with \"qzapp repack --store\", which keeps the repository small. Running it again "
        "changes\n"
        "nothing. A clone without this configuration works, but adds apps as they are packed.\n\n"
        "Example:\n"
        "  qzapp git-setup --print");
    return [options] { return setUp(*options); };
}

}  // namespace qzapp
