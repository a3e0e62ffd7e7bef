#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>
#include <fl/FileDescriptor.hpp>
#include <nlohmann/json.hpp>
#include <opc/ZipArchive.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
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

// For a file from a stranger, which could claim to hold any number of items. What is larger stays as it
// is; an app with a few thousand items takes less than a tenth of this.
constexpr std::uint64_t kMostMemory = std::uint64_t{1} << 30;

struct RepackOptions {
    std::string in, out;
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

// Repacks in a process of its own, because only such a process may look into the file. Returns what was
// left out, a phrase each.
std::vector<std::string> repackInCage(const FileName& in, const RepackOptions& options,
                                      FileDescriptor& to, const std::string& name) {
    Cage cage;
    const std::string leftOut = inCage(cage, [&] {
        if (options.orUnchanged) limitMemory(kMostMemory);
        try {
            return json(repackPackage(in, options.method(), to, name)).dump();
        } catch (const Error& e) {
            if (e.isPassing()) throw;
            return json(e.what()).dump(-1, ' ', false, json::error_handler_t::replace);
        }
    });
    const json parsed = json::parse(leftOut);
    if (parsed.is_string()) throw NotRepacked(parsed.get<std::string>());
    return parsed.get<std::vector<std::string>>();
}

void copyToStandardOutput(const FileDescriptor& file, const std::string& name) {
    std::vector<std::byte> buffer(std::size_t{256} << 10);
    std::uint64_t at = 0;
    while (const std::size_t count = about({name, {}}, [&] { return file.readAt(buffer, at); })) {
        print({reinterpret_cast<const char*>(buffer.data()), count});
        at += count;
    }
}

void noteWhatIsLeftOut(const FileName& in, const std::vector<std::string>& phrases) {
    for (const std::string& phrase : phrases)
        report(fmt::format("note: {}: left out {}", in.shown, phrase));
}

void repackToStandardOutput(const FileName& in, const RepackOptions& options) {
    FileDescriptor scratch = makeScratchFile("the repacked file");
    const auto leftOut = repackInCage(in, options, scratch, "standard output");
    copyToStandardOutput(scratch, "standard output");
    if (!options.orUnchanged) noteWhatIsLeftOut(in, leftOut);
}

// What is wrong with the file is no news for a filter of git, which every version of it passes. Only a
// failure of the system is reported, since another try may go well.
int repackOrPassOn(const RepackOptions& options) {
    const FileName in = inputArgument(options.in, MayBeEmpty::Yes);
    try {
        repackToStandardOutput(in, options);
    } catch (const OutputError&) {
        throw;
    } catch (const NotRepacked&) {
        copyToStandardOutput(in.held->file, in.shown);
    } catch (const std::exception& e) {
        report(fmt::format("{}; it stays as it is", e.what()));
        copyToStandardOutput(in.held->file, in.shown);
    }
    return kDone;
}

int repackToFile(const RepackOptions& options) {
    const FileName out = fileArgument(options.out);
    const FileName in = inputArgument(options.in);
    requireAbsent(out, options.force);
    Transaction transaction(out, Transaction::Start::Empty);
    const auto leftOut = repackInCage(in, options, transaction.file(), out.shown);
    transaction.commit();
    noteWhatIsLeftOut(in, leftOut);
    printReport(out, fmt::format("wrote {}\n", visible(out.shown)));
    return kDone;
}

int repack(const RepackOptions& options) {
    if (options.store == options.deflate)
        throw UsageError("repack", "give one of --store and --deflate");
    const bool toOutput = options.out == kStandardStream;
    if (options.orUnchanged) {
        if (toOutput) return repackOrPassOn(options);
        throw UsageError("--or-unchanged", "only goes with \"-\" as OUT; leave it out");
    }
    if (!toOutput) return repackToFile(options);
    repackToStandardOutput(inputArgument(options.in), options);
    return kDone;
}

}  // namespace

Action declareRepack(CLI::App& command) {
    const auto options = std::make_shared<RepackOptions>();
    command.add_option("IN", options->in, "An app (.kvpkg) or any other package, or \"-\"")
        ->required()
        ->type_name("");
    command.add_option("OUT", options->out, "The file to write, or \"-\", standard output")
        ->required()
        ->type_name("");
    command.add_flag("--store", options->store,
                     "Store every item, so that a small change stays small in a history");
    command.add_flag("--deflate", options->deflate,
                     "Deflate every item, so that the file is small");
    command.add_flag("--force", options->force, "Replace OUT if it exists; it may be IN");
    command.add_flag("--or-unchanged", options->orUnchanged,
                     "For git: write to \"-\" what cannot be read or is signed as it is");
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
