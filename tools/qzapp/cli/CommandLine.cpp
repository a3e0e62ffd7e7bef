#include "tools/qzapp/cli/CommandLine.hpp"

#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Error.hpp>
#include <CLI/Formatter.hpp>
#include <CLI/Option.hpp>
#include <foundation/Clock.hpp>
#include <foundation/Threads.hpp>

#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "app/Progress.hpp"
#include "app/Warnings.hpp"
#include "tools/qzapp/cli/Cage.hpp"
#include "tools/qzapp/cli/ErrorStream.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/ProgressBar.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

// The last second of the year 9999. The times in a package have years of four digits.
constexpr std::int64_t kLastSecond = 253'402'300'799;

// Reproducible builds set SOURCE_DATE_EPOCH to the time that files are to carry.
void takeTimeFromEnvironment() {
    const char* value = std::getenv("SOURCE_DATE_EPOCH");
    if (value == nullptr) return;
    const std::string_view text(value);
    std::int64_t seconds = -1;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (fault != std::errc() || end != text.data() + text.size() || seconds < 0 ||
        seconds > kLastSecond) {
        throw UsageError(
            "SOURCE_DATE_EPOCH",
            fmt::format("expected seconds since 1970, found \"{}\"; correct or unset it", text));
    }
    foundation::clock::set(foundation::clock::Seconds(std::chrono::seconds(seconds)));
}

std::string verbNames() {
    std::string names;
    for (const Verb& verb : verbs())
        names += (names.empty() ? "" : ", ") + std::string(verb.name);
    return names;
}

// CLI11 puts two blank lines between groups.
std::string withoutDoubleGaps(std::string help) {
    for (std::size_t at = 0; (at = help.find("\n\n\n", at)) != std::string::npos;)
        help.erase(at, 1);
    return help;
}

// "-" alone is standard input or output.
bool looksLikeOption(std::string_view argument) {
    return argument.size() > 1 && argument.starts_with('-');
}

// CLI11 takes a value of a list option that begins with "[" and ends with "]" for a list in that
// notation: it would read "[a,b]" as two file names. A zero byte at its end, which no argument can
// have by itself, makes it an ordinary value. It is removed before anything else sees the value.
constexpr char kNoList = '\0';

// The arguments in reverse order, as CLI11 parses them.
std::vector<std::string> argumentsOf(int argc, const char* const* argv) {
    std::vector<std::string> arguments;
    for (int i = argc - 1; i > 0; --i) {
        std::string& argument = arguments.emplace_back(argv[i]);
        if (argument.ends_with(']')) argument += kNoList;
    }
    return arguments;
}

std::string withoutMarks(std::string text) {
    std::erase(text, kNoList);
    return text;
}

void removeMarksFromValues(CLI::App& command) {
    for (CLI::Option* option : command.get_options())
        option->transform(withoutMarks);
}

// What is wrong with the arguments of a verb. An unknown option goes before what CLI11 reports,
// because a misspelt option is often why something else is missing.
std::string reasonOf(const CLI::App& verb, const CLI::ParseError& e) {
    const auto extra = verb.remaining();
    for (const std::string& argument : extra) {
        if (looksLikeOption(argument)) return fmt::format("unknown option \"{}\"", argument);
    }
    if (e.get_exit_code() != static_cast<int>(CLI::ExitCodes::ExtrasError) || extra.empty()) {
        return e.what();
    }
    return fmt::format("unexpected argument \"{}\"", extra[0]);
}

// The message about a wrong command line, which names the verb if there is one.
std::string complaint(const CLI::App& app, const CLI::ParseError& e,
                      std::string_view firstArgument) {
    const auto parsed = app.get_subcommands();
    if (!parsed.empty()) {
        const std::string verb = parsed[0]->get_name();
        return fmt::format("{}: {}; see \"qzapp {} --help\"", verb, reasonOf(*parsed[0], e), verb);
    }
    constexpr const char* kSeeHelp = "see \"qzapp --help\"";
    if (firstArgument.empty()) {
        return fmt::format("expected a verb, one of {}; {}", verbNames(), kSeeHelp);
    }
    if (looksLikeOption(firstArgument)) {
        return fmt::format("unknown option \"{}\"; {}", firstArgument, kSeeHelp);
    }
    return fmt::format("unknown verb \"{}\"; the verbs are {}; {}", firstArgument, verbNames(),
                       kSeeHelp);
}

// Prints the help or the version, for which CLI11 throws too, or reports what is wrong.
int answer(const CLI::App& app, const CLI::ParseError& e, std::string_view firstArgument) {
    if (e.get_exit_code() != static_cast<int>(CLI::ExitCodes::Success)) {
        report(withoutMarks(complaint(app, e, firstArgument)));
        return kWrongCommandLine;
    }
    std::ostringstream text, none;
    app.exit(e, text, none);
    print(withoutDoubleGaps(text.str()));
    return kDone;
}

void nameThings(CLI::FormatterBase& formatter) {
    formatter.column_width(28);
    formatter.label("REQUIRED", "(required)");
    formatter.label("Positionals", "Arguments");
    formatter.label("SUBCOMMAND", "VERB");
}

void declareTool(CLI::App& app) {
    app.name("qzapp");
    app.description(
        "Makes, changes, reads and checks app files: packaged apps (.kvpkg) and text apps (.k).");
    app.set_help_flag("-h,--help", "Print this help");
    app.set_version_flag(
        "--version", [] { return "qzapp " QZAPP_VERSION "\n" + describeConfinement(); },
        "Print the version, and how verbs that read are confined");
    app.require_subcommand(1);
    nameThings(*app.get_formatter());
    app.footer(
        "\"qzapp VERB --help\" shows a verb's options and an example. \"-\" as a file to be read "
        "is\n"
        "standard input.\n"
        "Exit status: 0 done, 1 failed, 2 wrong command line, 3 saved, but the report could not "
        "be\n"
        "printed. SOURCE_DATE_EPOCH, in seconds since 1970, sets the time that files carry.");
}

void addThreadsOption(CLI::App& command, unsigned& threads) {
    using foundation::threads::kMostThreads;
    command
        .add_option("--threads", threads,
                    "Work on at most N threads; otherwise one for each processor, up to 8")
        ->type_name("N")
        ->check([](const std::string& text) {
            unsigned number = 0;
            const auto [end, fault] =
                std::from_chars(text.data(), text.data() + text.size(), number);
            const bool isNumber = fault == std::errc() && end == text.data() + text.size();
            if (isNumber && number > 0 && number <= kMostThreads) return std::string();
            return fmt::format("expected a number from 1 to {}, found \"{}\"", kMostThreads, text);
        });
}

int parseAndRun(int argc, const char* const* argv) {
    setWarnings(report);
    setProgress([](std::uint64_t bytes) -> std::unique_ptr<ShownProgress> {
        return std::make_unique<ProgressBar>(bytes);
    });
    CLI::App app;
    declareTool(app);
    Action action;
    unsigned threads = 0;  // the default
    for (const Verb& verb : verbs()) {
        CLI::App* command = app.add_subcommand(verb.name, verb.summary);
        command->group("Verbs");
        command->final_callback([&action, run = verb.declare(*command)] { action = run; });
        addThreadsOption(*command, threads);
        removeMarksFromValues(*command);
    }
    try {
        app.parse(argumentsOf(argc, argv));
    } catch (const CLI::ParseError& e) {
        return answer(app, e, argc > 1 ? argv[1] : "");
    }
    takeTimeFromEnvironment();
    foundation::threads::setLimit(threads);
    // Finds out the default now: inside a cage the control group's quota could not be read.
    static_cast<void>(foundation::threads::limit());
    return action();
}

// Reports all failures except a lack of memory, which its caller reports without taking any.
int runAndReport(int argc, const char* const* argv) {
    try {
        return parseAndRun(argc, argv);
    } catch (const UsageError& e) {
        report(e.what());
        return kWrongCommandLine;
    } catch (const ReportError& e) {
        report(e.what());
        return kSavedUnreported;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& e) {
        report(e.what());
        return kFailed;
    }
}

}  // namespace

int runCommandLine(int argc, const char* const* argv) {
    try {
        return runAndReport(argc, argv);
    } catch (const std::bad_alloc&) {
        // Takes no memory, unlike report().
        writeMessage("qzapp: there is not enough memory\n");
        return kFailed;
    }
}

}  // namespace qzapp
