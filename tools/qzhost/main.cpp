#include <fmt/format.h>
#include <unistd.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Error.hpp>
#include <CLI/Formatter.hpp>
#include <fl/i18n.hpp>
#include <foundation/Shown.hpp>
#include <foundation/ustring.hpp>
#include <messages/HostError.hpp>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <new>
#include <sstream>
#include <string>
#include <system_error>

#include "tools/OutOfMemory.hpp"
#include "tools/qzhost/ClassesCommand.hpp"
#include "tools/qzhost/Module.hpp"
#include "tools/qzhost/ReadCommand.hpp"
#include "tools/qzhost/StructText.hpp"

namespace {

enum ExitStatus { kSuccess = 0, kFailure = 1, kWrongCommandLine = 2 };

struct Options {
    std::filesystem::path library;
    qzhost::ReadOptions read;
    bool classesJson = false;
};

// A file name from the command line, which the host language takes in UTF-16.
foundation::ustring toFileName(const std::string& argument) {
    try {
        return fl::i18n::utf8_to_ustring_strict(argument);
    } catch (const fl::i18n::ConversionError& error) {
        throw CLI::ValidationError(fl::i18n::to_display(fl::i18n::utf8_to_ustring(argument)),
                                   error.what());
    }
}

std::string describeWrongCommandLine(const CLI::App*, const CLI::Error& error) {
    return fmt::format("qzhost: {}\nTry \"qzhost --help\".\n", foundation::printable(error.what()));
}

void declareCommands(CLI::App& app, Options& options) {
    app.require_subcommand(1)->fallthrough();
    app.set_version_flag("--version", "qzhost " QZHOST_VERSION, "Print the version");
    app.failure_message(describeWrongCommandLine);
    app.footer("Exit status: 0 done, 1 failed, 2 wrong command line.");
    app.add_option("--library", options.library,
                   "The library to load; by default the one next to this program")
        ->type_name("PATH");
    CLI::App* const classes = app.add_subcommand("classes", "List what the library registers");
    classes->add_flag("--json", options.classesJson, "Print JSON");

    CLI::App* const read = app.add_subcommand("read", "Read a text app file");
    read->add_option_function<std::string>(
            "FILE", [&](const std::string& name) { options.read.file = toFileName(name); },
            "The text app file (.k)")
        ->required();
    read->add_flag("--json", options.read.json, "Print the metadata as JSON");
    read->add_option_function<std::string>(
            "--screenshot",
            [&](const std::string& name) { options.read.screenshot = toFileName(name); },
            "Write the screenshot to a new file")
        ->type_name("OUT");
    read->add_flag("--force", options.read.force, "Replace OUT if it exists, unless it is FILE");
}

void print(const std::string& text) {
    const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    if (written && std::fflush(stdout) == 0) return;
    throw std::system_error(errno, std::generic_category(), "writing to standard output");
}

// A failure to write to standard error changes nothing about how the program ends.
void report(const std::string& message) {
    std::fputs(message.c_str(), stderr);
}

void reportLackOfMemory() {
    std::fputs("qzhost: there is not enough memory\n", stderr);
}

int reportFailures(const std::function<void()>& command) {
    try {
        command();
        return kSuccess;
    } catch (const messages::HostError& error) {
        report(fmt::format("{}: {}\n", error.message().fullIdentifier(),
                           qzhost::visible(error.message().text())));
    } catch (const std::bad_alloc&) {
        reportLackOfMemory();
    } catch (const std::exception& error) {
        report(fmt::format("qzhost: {}\n", foundation::printable(error.what())));
    }
    return kFailure;
}

void runCommand(const CLI::App& app, const Options& options) {
    if (app.got_subcommand("read")) return qzhost::readApp(options.read, print);
    print(options.classesJson ? qzhost::listClassesAsJson() : qzhost::listClasses());
}

int run(const CLI::App& app, const Options& options) {
    int status = kFailure;
    const int ended = reportFailures([&] {
        qzhost::Module module(options.library.empty() ? qzhost::findLibrary() : options.library);
        // Reported while the module is loaded: an exception may be of a type that it defines.
        status = reportFailures([&] { runCommand(app, options); });
        module.unload();
    });
    return ended == kSuccess ? status : ended;
}

// Throws only std::bad_alloc, which main() reports without taking memory.
int runHost(int argc, char** argv) {
    CLI::App app("A small host: loads the app library and calls the class that it registers.",
                 "qzhost");
    Options options;
    declareCommands(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        std::ostringstream text;  // help or a version, otherwise what is wrong
        if (app.exit(error, text, text) == 0) return reportFailures([&] { print(text.str()); });
        report(text.str());
        return kWrongCommandLine;
    }
    return run(app, options);
}

[[noreturn]] void terminate() {
    if (!isOutOfMemory()) std::abort();
    reportLackOfMemory();
    ::_exit(kFailure);
}

}  // namespace

int main(int argc, char** argv) {
    std::set_terminate(terminate);
    try {
        return runHost(argc, argv);
    } catch (const std::bad_alloc&) {
        reportLackOfMemory();
        return kFailure;
    }
}
