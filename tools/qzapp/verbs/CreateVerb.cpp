#include <fmt/format.h>
#include <CLI/App.hpp>
#include <CLI/Option.hpp>

#include <memory>
#include <string>

#include "app/FileName.hpp"
#include "app/Packaging.hpp"
#include "app/VisibleText.hpp"
#include "tools/qzapp/cli/Arguments.hpp"
#include "tools/qzapp/cli/ContentOptions.hpp"
#include "tools/qzapp/cli/NewPackage.hpp"
#include "tools/qzapp/cli/Report.hpp"
#include "tools/qzapp/verbs/Verbs.hpp"

namespace qzapp {
namespace {

struct CreateOptions {
    std::string out;
    ContentOptions content;
    bool force = false;
};

int create(const CreateOptions& options) {
    const NewPackage out(options.out, NewPackage::Kind::App);
    const Content content = loadContent(options.content);
    out.requireFree(options.force, content.sources);
    const std::string report = fmt::format("wrote {}\n", visible(out.shown()));
    out.make([&](const FileName& file) { createPackage(file, content, options.force); });
    out.deliver(report);
    return kDone;
}

}  // namespace

Action declareCreate(CLI::App& command) {
    const auto options = std::make_shared<CreateOptions>();
    command.add_option("OUT.kvpkg", options->out, "The file to make, or \"-\", standard output")
        ->required()
        ->type_name("");
    addContentOptions(command, options->content, true);
    command.add_flag("--force", options->force, "Replace OUT.kvpkg if it exists");
    command.footer(
        "Fields that are not given get their defaults. If the exit status is 1 or 2, nothing was\n"
        "written. Repeat --set for the items of a list.\n" +
        valueHelp() + fieldHelp() +
        "\n\n"
        "Example:\n"
        "  qzapp create atlas.kvpkg --code atlas.k --model atlas.kvd --set Name=Atlas \\\n"
        "      --screenshot atlas.png \\\n"
        "      --set RequiredProducts=Core --set RequiredProducts=Signals\n"
        "  make-model | qzapp create - --code a.k --model - > a.kvpkg");
    return [options] { return create(*options); };
}

}  // namespace qzapp
