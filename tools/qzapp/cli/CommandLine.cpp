#include "tools/qzapp/cli/CommandLine.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Error.hpp>
#include <CLI/Option.hpp>
#include <foundation/Clock.hpp>
#include <foundation/Threads.hpp>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "app/PrivateFolder.hpp"
#include "app/Progress.hpp"
#include "app/Suggestion.hpp"
#include "app/Warnings.hpp"
#include "tools/OutOfMemory.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/Cage.hpp"
#include "tools/qzapp/cli/ErrorStream.hpp"
#include "tools/qzapp/cli/HelpText.hpp"
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

std::vector<std::string_view> namesOfVerbs() {
    std::vector<std::string_view> names;
    for (const Verb& verb : verbs())
        names.emplace_back(verb.name);
    return names;
}

std::string joined(const std::vector<std::string_view>& names) {
    return fmt::format("{}", fmt::join(names, ", "));
}

// "-" alone is standard input or output.
bool looksLikeOption(std::string_view argument) {
    return argument.size() > 1 && argument.starts_with('-');
}

// CLI11 takes a value of a list option that begins with "[" and ends with "]" for a list in that
// notation: it would read "[a,b]" as two file names. A zero byte at its end, which no argument can
// have by itself, makes it an ordinary value. One at its front makes it a value that is no option,
// for what stands behind "--", because CLI11 refuses a "--" behind the first name. The bytes are
// removed before anything else sees the value.
constexpr char kMark = '\0';

using Arguments = std::vector<std::string>;

// "help" becomes "--help", and "help VERB" becomes "VERB --help".
Arguments argumentsOf(int argc, const char* const* argv) {
    Arguments arguments(argv + std::min(argc, 1), argv + argc);
    if (arguments.empty() || arguments.front() != "help") return arguments;
    const bool hasVerb =
        arguments.size() > 1 && !looksLikeOption(arguments[1]) && arguments[1] != "help";
    return hasVerb ? Arguments{arguments[1], "--help"} : Arguments{"--help"};
}

// As CLI11 parses them: in reverse order.
Arguments marked(Arguments arguments) {
    for (std::string& argument : arguments) {
        if (argument.ends_with(']')) argument += kMark;
    }
    const auto end = std::ranges::find(arguments, "--");
    if (end != arguments.end() && end != arguments.begin()) {
        for (std::string& name : std::span(end + 1, arguments.end()))
            name.insert(0, 1, kMark);
        arguments.erase(end);
    }
    std::ranges::reverse(arguments);
    return arguments;
}

std::string withoutMarks(std::string text) {
    std::erase(text, kMark);
    return text;
}

void removeMarksFromValues(CLI::App& command) {
    for (CLI::Option* option : command.get_options())
        option->transform(withoutMarks);
}

std::string seeHelp(const std::string& command) {
    return fmt::format("; see \"{} --help\"", command);
}

std::string unknownOption(const CLI::App& command, std::string_view given,
                          const std::string& hint) {
    std::vector<std::string> names;
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
    }
    const std::vector<std::string_view> known(names.begin(), names.end());
    return fmt::format("unknown option \"{}\"{}", given,
                       didYouMean(given.substr(0, given.find('=')), known, hint));
}

// About a flag that was given a value; empty if `e` is not about that.
std::string flagWithValue(const CLI::App& verb, const CLI::ParseError& e) {
    if (e.get_exit_code() != static_cast<int>(CLI::ExitCodes::ConversionError)) return {};
    for (const CLI::Option* option : verb.get_options()) {
        const bool isMeant =
            std::string_view(e.what()).find(option->get_name() + " =") != std::string_view::npos;
        if (isMeant && option->get_items_expected_max() == 0)
            return option->get_name() + " takes no value";
    }
    return {};
}

std::string needsValue(const CLI::Option& option) {
    const std::string name = option.get_name();
    return fmt::format("{} needs a value: {} {}", name, name, option.get_type_name());
}

// About an option that has taken the next one for its value; empty if there is none.
std::string optionAsValue(const CLI::App& verb) {
    const auto isOption = [&](const std::string& value) {
        return looksLikeOption(value) && verb.get_option_no_throw(value) != nullptr;
    };
    for (const CLI::Option* option : verb.get_options()) {
        if (option->nonpositional() && std::ranges::any_of(option->results(), isOption))
            return needsValue(*option);
    }
    return {};
}

// About an option that was given too often or without its value, or a flag with one; empty if `e`
// is about neither.
std::string mismatchOf(const CLI::App& verb, const CLI::ParseError& e) {
    if (std::string text = flagWithValue(verb, e); !text.empty()) return text;
    if (e.get_exit_code() != static_cast<int>(CLI::ExitCodes::ArgumentMismatch)) return {};
    const std::string_view what = e.what();
    const std::string name(what.substr(0, what.find(':')));
    const CLI::Option* option = verb.get_option_no_throw(name);
    if (option == nullptr) return {};
    if (option->get_items_expected_max() == 1 && option->count() > 1) {
        return fmt::format("{} is given {} times; give it once", name, option->count());
    }
    return needsValue(*option);
}

// What is wrong with the arguments of a verb. An unknown option goes before what CLI11 reports,
// because a misspelt option is often why something else is missing.
std::string reasonOf(const CLI::App& verb, const CLI::ParseError& e) {
    const std::string hint = seeHelp("qzapp " + verb.get_name());
    auto extra = verb.remaining();
    std::erase(extra, "--");
    for (const std::string& argument : extra) {
        if (looksLikeOption(argument)) return unknownOption(verb, withoutMarks(argument), hint);
    }
    for (const std::string& text : {optionAsValue(verb), mismatchOf(verb, e)}) {
        if (!text.empty()) return text + hint;
    }
    if (e.get_exit_code() != static_cast<int>(CLI::ExitCodes::ExtrasError) || extra.empty()) {
        return e.what() + hint;
    }
    return fmt::format("unexpected argument \"{}\"{}", extra[0], hint);
}

// The message about a wrong command line, which names the verb if there is one.
std::string complaint(const CLI::App& app, const CLI::ParseError& e, const std::string& first) {
    const auto parsed = app.get_subcommands();
    if (!parsed.empty()) {
        const std::string verb = parsed[0]->get_name();
        if (!looksLikeOption(first)) return fmt::format("{}: {}", verb, reasonOf(*parsed[0], e));
        return fmt::format("\"{}\" stands before the verb; put it behind \"{}\"", first, verb);
    }
    const std::string hint = seeHelp("qzapp"), all = joined(namesOfVerbs());
    if (first.empty() || first == "--")
        return fmt::format("expected a verb, one of {}{}", all, hint);
    if (looksLikeOption(first)) return unknownOption(app, first, hint);
    return fmt::format(
        "unknown verb \"{}\"{}", first,
        didYouMean(first, namesOfVerbs(), fmt::format("; the verbs are {}{}", all, hint)));
}

// Null if there is no such verb. Takes no memory.
const Verb* findVerb(std::string_view name) {
    const auto found = std::ranges::find(verbs(), name, &Verb::name);
    return found == verbs().end() ? nullptr : &*found;
}

// A file's name can begin like an option only behind "--". If it is an option of the verb, and
// there is no such file, the option stands in the wrong place.
void refuseOptionsTakenForFiles(const CLI::App& verb) {
    for (const CLI::Option* positional : verb.get_options()) {
        if (!positional->get_positional()) continue;
        for (const std::string& name : positional->results()) {
            std::error_code ignored;
            if (!looksLikeOption(name) || verb.get_option_no_throw(name) == nullptr ||
                std::filesystem::exists(name, ignored)) {
                continue;
            }
            throw UsageError(verb.get_name(),
                             fmt::format("\"{}\" stands behind \"--\", so it is taken for a file, "
                                         "and there is none of that name; put it before \"--\"",
                                         name));
        }
    }
}

// Prints the help or the version, for which CLI11 throws too, or reports what is wrong.
int answer(const CLI::App& app, const CLI::ParseError& e, const std::string& first) {
    if (e.get_exit_code() != static_cast<int>(CLI::ExitCodes::Success)) {
        report(withoutMarks(complaint(app, e, first)));
        return kWrongCommandLine;
    }
    std::ostringstream text, none;
    app.exit(e, text, none);
    print(text.str());
    return kDone;
}

void declareTool(CLI::App& app) {
    app.name("qzapp");
    app.description(
        "Makes, changes, reads and checks app files: packaged apps (.kvpkg) and text apps (.k).");
    app.set_help_flag("-h,--help", "Print this help");
    app.set_version_flag(
        "-V,--version", [] { return "qzapp " QZAPP_VERSION "\n" + describeConfinement(); },
        "Print the version, and how verbs that read are confined");
    app.require_subcommand(1);
    app.formatter(std::make_shared<HelpText>());
    app.footer(
        "\"qzapp help VERB\" shows a verb's options and an example. \"-\" as a file to be read is\n"
        "standard input, and as a package to be made standard output.\n"
        "Exit status: 0 done, 1 failed, 2 wrong command line, 3 saved, but the report could not "
        "be\n"
        "printed.\n"
        "\n"
        "Environment:\n"
        "  NO_COLOR  If set, output on a terminal has no colours\n"
        "  SOURCE_DATE_EPOCH  Seconds since 1970: the time that saved files carry\n"
        "  TERM  If \"dumb\": no colours and no progress bar\n"
        "  TMPDIR  The folder for temporary files, otherwise /tmp");
}

void addThreadsOption(CLI::App& command, unsigned& threads) {
    using foundation::threads::kMostThreads;
    command
        .add_option("--threads", threads,
                    "Work on at most N threads; otherwise one for each processor, up to 8")
        ->type_name("N")
        ->check(numberUpTo(kMostThreads));
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
    const Arguments arguments = argumentsOf(argc, argv);
    const std::string first = arguments.empty() ? "" : arguments.front();
    try {
        // CLI11 would answer "--help" behind an unknown verb.
        if (!first.empty() && !looksLikeOption(first) && findVerb(first) == nullptr)
            throw CLI::ExtrasError({first});
        app.parse(marked(arguments));
    } catch (const CLI::ParseError& e) {
        return answer(app, e, first);
    }
    const CLI::App& verb = *app.get_subcommands().front();
    if (const std::string text = optionAsValue(verb); !text.empty())
        throw UsageError(verb.get_name(), text + seeHelp("qzapp " + verb.get_name()));
    refuseOptionsTakenForFiles(verb);
    takeTimeFromEnvironment();
    foundation::threads::setLimit(threads);
    // Finds out the default now: inside a cage the control group's quota could not be read.
    static_cast<void>(foundation::threads::limit());
    return action();
}

// The name of an option does not say whose it is.
std::string withVerb(const Verb* verb, const UsageError& e) {
    const bool isNamed = verb != nullptr && looksLikeOption(e.subject());
    return isNamed ? fmt::format("{}: {}", verb->name, e.what()) : e.what();
}

int statusOfFailure(const Verb* verb) {
    return verb == nullptr ? kFailed : verb->failure;
}

// Reports all failures except a lack of memory, which its caller reports without taking any.
int runAndReport(int argc, const char* const* argv, const Verb* verb) {
    try {
        return parseAndRun(argc, argv);
    } catch (const UsageError& e) {
        report(withVerb(verb, e));
        return kWrongCommandLine;
    } catch (const ReportError& e) {
        report(e.what());
        return kSavedUnreported;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& e) {
        report(e.what());
        return statusOfFailure(verb);
    }
}

// Takes no memory, unlike report().
void reportLackOfMemory() {
    writeMessage("qzapp: there is not enough memory\n");
}

int statusAtTermination = kFailed;

// Without memory the process ends as it does after another failure.
[[noreturn]] void terminate() {
    if (!isOutOfMemory()) std::abort();
    removePrivateFolders();
    reportLackOfMemory();
    ::_exit(statusAtTermination);
}

}  // namespace

int runCommandLine(int argc, const char* const* argv) {
    const Verb* verb = findVerb(argc > 1 ? argv[1] : "");
    statusAtTermination = statusOfFailure(verb);
    std::set_terminate(terminate);
    try {
        return runAndReport(argc, argv, verb);
    } catch (const std::bad_alloc&) {
        reportLackOfMemory();
        return statusOfFailure(verb);
    }
}

}  // namespace qzapp
