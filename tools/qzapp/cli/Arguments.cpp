#include "tools/qzapp/cli/Arguments.hpp"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
#include <appserialization/Functions.hpp>
#include <fl/FileDescriptor.hpp>
#include <fl/i18n.hpp>

#include <charconv>
#include <functional>
#include <string>
#include <system_error>

#include "app/Error.hpp"
#include "app/Forms.hpp"
#include "app/InputFiles.hpp"
#include "tools/qzapp/cli/Output.hpp"
#include "tools/qzapp/cli/Report.hpp"

namespace qzapp {
foundation::ustring textArgument(const std::string& option, const std::string& value) {
    try {
        return fl::i18n::utf8_to_ustring_strict(value);
    } catch (const fl::i18n::ConversionError& e) {
        throw UsageError(
            option, fmt::format("\"{}\" is not valid UTF-8 at byte {}; use a UTF-8 locale", value,
                                e.index()));
    }
}

FileName fileArgument(const std::string& value) {
    if (value.empty()) throw UsageError("\"\"", "a file name cannot be empty; name a file");
    try {
        return fileNamed(value);
    } catch (const Error& e) {
        throw UsageError(value, e.text());
    }
}

std::function<std::string(const std::string&)> numberUpTo(unsigned most) {
    return [most](const std::string& text) {
        unsigned number = 0;
        const char* const end = text.data() + text.size();
        const auto [parsed, fault] = std::from_chars(text.data(), end, number);
        if (fault == std::errc() && parsed == end && number > 0 && number <= most)
            return std::string();
        return fmt::format("expected a number from 1 to {}, found \"{}\"", most, text);
    };
}

Field fieldArgument(const std::string& option, const std::string& name) {
    if (const auto field = findFieldInAnyCase(name)) return *field;
    throw UsageError(option, unknownField(name));
}

std::string valueHelp() {
    return "\"@FILE\" as a VALUE is what the text file holds, without its last line end; for a\n"
           "list, each line that is not empty is an item. \"@@TEXT\" is the text \"@TEXT\".\n"
           "Any FILE may be a pipe, such as \"<(COMMAND)\" in a shell, and one may be \"-\", "
           "standard\n"
           "input.\n";
}

std::string fieldHelp() {
    std::string texts, lists;
    for (const Field field : allFields()) {
        std::string& names = isList(field) ? lists : texts;
        names += (names.empty() ? "" : ", ") + std::string(nameOf(field));
    }
    return fmt::format("\nText fields: {}.\n\nList fields: {}.", texts, lists);
}

FileName newPackageArgument(const std::string& value) {
    FileName file = fileArgument(value);
    if (!appserialization::hasExtension(file.native(), kPackagedExtension)) {
        throw UsageError(
            value, fmt::format("the name of a packaged app must end in \"{}\"; choose another",
                               shownExtension(Form::Packaged)));
    }
    return file;
}

void requireAbsent(const FileName& file, bool force) {
    struct stat found {};
    if (force || ::lstat(file.bytes().c_str(), &found) != 0) return;
    throw Error(file.shown, "already exists; give --force to replace it");
}

namespace {

void requireOther(const fl::filesystem::FileStamp& out, const std::string& shown,
                  const std::vector<FileName>& inputs) {
    for (const FileName& input : inputs) {
        const auto& in = input.held->original.value_or(input.held->stamp);
        if (in.device != out.device || in.inode != out.inode) continue;
        throw UsageError(
            shown, fmt::format("is the same file as the input {}; name another file", input.shown));
    }
}

}  // namespace

void requireNoInput(const FileName& out, const std::vector<FileName>& inputs) {
    const auto target = about(out, [&] { return fl::filesystem::findStamp(out.path); });
    if (target) requireOther(*target, out.shown, inputs);
}

void requireOutputIsNoInput(const std::vector<FileName>& inputs) {
    struct stat output {};
    if (::fstat(STDOUT_FILENO, &output) != 0 || !S_ISREG(output.st_mode)) return;
    requireOther(fl::filesystem::stampOf(output), kStandardOutput, inputs);
}

}  // namespace qzapp
