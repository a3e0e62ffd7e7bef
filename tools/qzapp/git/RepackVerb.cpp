#include <fmt/format.h>
#include <unistd.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>
#include <fl/FileDescriptor.hpp>
#include <nlohmann/json.hpp>
#include <opc/ZipArchive.hpp>

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "app/Error.hpp"
#include "app/FileName.hpp"
#include "app/InputFiles.hpp"
#include "app/Repack.hpp"
#include "app/ScratchFile.hpp"
#include "app/Transaction.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/Cage.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/cli/StandardInput.hpp"
#include "tools/qzapp/cli/Worker.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

using fl::filesystem::FileDescriptor;
using nlohmann::json;

// For a file from a stranger, which could claim to hold any number of items. What is larger stays
// as it is; an app with a few thousand items takes less than a tenth of this.
constexpr std::uint64_t kMostMemory = std::uint64_t{1} << 30;

struct RepackOptions {
    std::optional<std::string> in, out;
    std::vector<std::string> inPlace;
    bool store = false;
    bool deflate = false;
    bool orUnchanged = false;
    bool force = false;

    opc::zip::Method method() const {
        return store ? opc::zip::Method::Stored : opc::zip::Method::Deflated;
    }
};

// The file itself is why it cannot be repacked.
class NotRepacked : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Repacked {
    std::vector<std::string> leftOut;  // a phrase each
    bool isSame;                       // asked for only with --in-place
};

// Repacks in a process of its own, because only such a process may look into the file. `name` is
// that of `to` in messages.
Repacked repackInCage(const FileName& in, const RepackOptions& options, FileDescriptor& to,
                      const std::string& name) {
    Cage cage;
    const std::string answer = inCage(cage, [&] {
        if (options.orUnchanged) limitMemory(kMostMemory);
        try {
            const RepackFor whom = options.orUnchanged ? RepackFor::History : RepackFor::People;
            const auto leftOut = repackPackage(in, options.method(), to, name, whom);
            const bool isSame = !options.inPlace.empty() &&
                                haveSameContent(in, {name, to.privateName(u"repacked")});
            return json{{"leftOut", leftOut}, {"isSame", isSame}}.dump();
        } catch (const Error& e) {
            if (e.isPassing()) throw;
            return json(e.what()).dump(-1, ' ', false, json::error_handler_t::replace);
        }
    });
    const json parsed = json::parse(answer);
    if (parsed.is_string()) throw NotRepacked(parsed.get<std::string>());
    return {parsed["leftOut"].get<std::vector<std::string>>(), parsed["isSame"].get<bool>()};
}

void noteWhatIsLeftOut(const FileName& in, const std::vector<std::string>& phrases) {
    for (const std::string& phrase : phrases)
        report(fmt::format("note: {}: left out {}", in.shown, phrase));
}

// The repacked file, which has no name, held open; and what it lacks of `in`.
std::pair<FileName, std::vector<std::string>> repackedCopy(const FileName& in,
                                                           const RepackOptions& options) {
    const std::string shown = "the repacked file";
    FileDescriptor scratch = makeScratchFile(shown);
    Repacked repacked = [&] {
        try {
            return repackInCage(in, options, scratch, shown);
        } catch (const std::runtime_error& e) {
            const std::string text = e.what(), start = shown + ": ";
            if (text.starts_with(start)) throwNotKept(shown, text.substr(start.size()));
            throw;
        }
    }();
    return {hold({shown, scratch.privateName(u"repacked")}), std::move(repacked.leftOut)};
}

int repackToStandardOutput(const RepackOptions& options) {
    const FileName in = contentArgument(*options.in);
    requireOutputIsNoInput({in});
    const auto [copy, leftOut] = repackedCopy(in, options);
    printFile(copy);
    noteWhatIsLeftOut(in, leftOut);
    return kDone;
}

// What is wrong with the file is no news for a filter of git, which every version of it passes.
// Only a failure of the system is reported, since another try may go well.
FileName repackedOrAsItIs(const FileName& in, const RepackOptions& options) {
    try {
        return repackedCopy(in, options).first;
    } catch (const NotRepacked&) {
        return in;
    } catch (const std::exception& e) {
        report(fmt::format("{}; it stays as it is", e.what()));
        return in;
    }
}

// git leaves the other end of this process's own output open in it. While it is open, nothing tells
// that git has gone, and this process would wait for it for ever.
void closeInheritedFiles() {
    ::close_range(STDERR_FILENO + 1, ~0U, 0);
}

int repackOrPassOn(const RepackOptions& options) {
    closeInheritedFiles();
    printFile(repackedOrAsItIs(inputArgument(*options.in, MayBeEmpty::Yes), options));
    return kDone;
}

int repackToFile(const RepackOptions& options) {
    const FileName out = fileArgument(*options.out);
    // Before IN is opened, which may be OUT: what others save from now on is not replaced.
    Transaction transaction(out, Transaction::Start::Empty);
    requireAbsent(out, options.force);
    const FileName in = contentArgument(*options.in);
    const Repacked repacked = repackInCage(in, options, transaction.file(), out.shown);
    transaction.commit();
    noteWhatIsLeftOut(in, repacked.leftOut);
    printReport(out, fmt::format("wrote {}\n", visible(out.shown)));
    return kDone;
}

void repackInPlace(const std::string& name, const RepackOptions& options) {
    const FileName file = fileArgument(name);
    Transaction transaction(file, Transaction::Start::Empty);
    const FileName in = hold(file);
    const Repacked repacked = repackInCage(in, options, transaction.file(), in.shown);
    if (repacked.isSame) return print(fmt::format("{}: nothing to change\n", visible(file.shown)));
    transaction.commit();
    noteWhatIsLeftOut(in, repacked.leftOut);
    printReport(file, fmt::format("repacked {}\n", visible(file.shown)));
}

int repackAllInPlace(const RepackOptions& options) {
    int status = kDone;
    for (const std::string& name : options.inPlace) {
        try {
            repackInPlace(name, options);
        } catch (const OutputError&) {
            throw;
        } catch (const std::exception& e) {
            const bool isLeft =
                options.orUnchanged && dynamic_cast<const NotRepacked*>(&e) != nullptr;
            if (isLeft) continue;
            report(e.what());
            status = kFailed;
        }
    }
    return status;
}

int repack(const RepackOptions& options) {
    if (options.store == options.deflate)
        throw UsageError("repack", "give one of --store and --deflate");
    if (!options.inPlace.empty()) {
        if (options.in) throw UsageError("--in-place", "takes all files; leave IN and OUT out");
        return repackAllInPlace(options);
    }
    if (!options.in || !options.out)
        throw UsageError("repack", "IN and OUT are required; see \"qzapp repack --help\"");
    const bool toOutput = *options.out == kStandardStream;
    if (options.orUnchanged) {
        if (toOutput) return repackOrPassOn(options);
        throw UsageError("--or-unchanged", "only goes with \"-\" as OUT, or with --in-place");
    }
    return toOutput ? repackToStandardOutput(options) : repackToFile(options);
}

}  // namespace

Action declareRepack(CLI::App& command) {
    const auto options = std::make_shared<RepackOptions>();
    command.add_option("IN", options->in, "An app (.kvpkg) or any other package, or \"-\"")
        ->type_name("");
    command.add_option("OUT", options->out, "The file to write, or \"-\", standard output")
        ->type_name("");
    command.add_flag("--store", options->store,
                     "Store every item, so that a small change stays small in a history");
    command.add_flag("--deflate", options->deflate,
                     "Deflate every item, so that the file is small");
    command.add_flag("--force", options->force, "Replace OUT if it exists; it may be IN");
    command
        .add_option("--in-place", options->inPlace,
                    "Repack these files, each in its place, instead of IN")
        ->type_name("FILE");
    command.add_flag("--or-unchanged", options->orUnchanged,
                     "For git: leave what cannot be read or is signed as it is, without an error");
    command.footer(
        "Writes the same items in the order of their names, with the earliest time that zip files\n"
        "have. Comments, extra fields and bytes between items go, with a note. The same content "
        "gives\n"
        "the same file however it was packed; with --store in every version of qzapp. An item is\n"
        "deflated also with --store if readers could take what it holds for a part of the zip "
        "file.\n"
        "\"qzapp git-setup\" lets git do this to each app that is added.\n\n"
        "Example:\n"
        "  qzapp repack --deflate atlas.kvpkg atlas-small.kvpkg");
    return [options] { return repack(*options); };
}

}  // namespace qzapp
