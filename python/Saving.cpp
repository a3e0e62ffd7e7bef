#include "python/Saving.hpp"

#include <fmt/format.h>
#include <sys/stat.h>
#include <fl/ReplacementFile.hpp>
#include <fl/filesystem.hpp>
#include <fl/i18n.hpp>
#include <foundation/SaveWatch.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "app/DoubtfulValues.hpp"
#include "app/Edit.hpp"
#include "app/Error.hpp"
#include "app/FieldValues.hpp"
#include "app/InputFiles.hpp"
#include "app/Packaging.hpp"
#include "app/ScreenshotFormats.hpp"
#include "python/Conversions.hpp"
#include "python/EndingSignals.hpp"
#include "python/Errors.hpp"
#include "python/Released.hpp"

namespace qzapp::python {

namespace py = pybind11;

namespace {

constexpr std::size_t kCopiedBytes = std::size_t{1} << 20;

FileName nameOf(const SaveName& name) {
    FileName file = fileNamed(name.absolute);
    file.shown = name.shown;
    return file;
}

appserialization::Screenshot screenshotFrom(const py::tuple& pair) {
    appserialization::Screenshot screenshot{textFrom(pair[0]), {}};
    const Memory memory(pair[1], Memory::Use::Read);
    const auto* begin = reinterpret_cast<const std::uint8_t*>(memory.bytes().data());
    screenshot.second.assign(begin, begin + memory.bytes().size());
    if (isPackagedFormat(screenshot.first)) return screenshot;
    throw Error("<screenshot>",
                fmt::format("its format is \"{}\", and a packaged app holds {}; "
                            "convert it first",
                            fl::i18n::to_display(screenshot.first), packagedFormats()));
}

Content contentFrom(const Given& given) {
    Content content;
    for (const auto& [name, value] : given.fields) {
        const Field field = findField(name.cast<std::string>()).value();
        content.fields.emplace(field, valueFrom(field, value));
        content.named.insert(field);
    }
    if (!given.code.is_none()) content.code = textFrom(given.code);
    if (!given.screenshot.is_none()) content.screenshot = screenshotFrom(given.screenshot);
    if (given.model) {
        content.model = given.model->name();
        content.sources.push_back(*content.model);
    }
    return content;
}

// Shows what is odd about the content before anything is saved, as a filter may make that an
// exception.
void showDoubts(const Content& content) {
    Warnings warnings;
    warnOfDoubts(content);
    warnings.show();
}

}  // namespace

void requirePackaged(const std::string& shown) {
    requireForm(fileNamed(shown), Form::Packaged);
}

void requireFree(const SaveName& name, bool overwrite) {
    const FileName file = nameOf(name);
    struct stat found {};
    if (overwrite || ::lstat(file.bytes().c_str(), &found) != 0) return;
    throw Error(file.shown, "already exists; give overwrite=True to replace it",
                std::errc::file_exists);
}

void create(const SaveName& name, const Given& given, bool overwrite) {
    const Content content = contentFrom(given);
    showDoubts(content);
    Warnings warnings;
    savingReleased([&] {
        const EndingSignals ending;
        requireFree(name, overwrite);
        createPackage(nameOf(name), content, overwrite);
    });
    warnings.showAfterSave();
}

py::object edit(const SaveName& name, const std::shared_ptr<File>& opened, const Given& given,
                bool removeScreenshot, bool dropSignature) {
    const Content content = contentFrom(given);
    showDoubts(content);
    Warnings warnings;
    const PartsToEdit removed{.screenshot = removeScreenshot, .signature = dropSignature};
    const auto notes = savingReleased([&]() -> std::optional<std::vector<std::string>> {
        try {
            const EditPlan plan = planEdit(opened->name(), content, removed);
            if (plan.isEmpty()) return std::nullopt;
            const EndingSignals ending;
            return applyEdit(nameOf(name), opened->name(), content, plan);
        } catch (const SignedError& e) {
            throw Error(e.subject(),
                        e.text() + "; give edit() drop_signature=True to remove the signatures");
        }
    });
    warnings.showAfterSave();
    if (!notes) return py::none();
    py::list shown;
    for (const std::string& note : *notes)
        shown.append(strOfBytes(note));
    return shown;
}

void copyTo(Stream& stream, const SaveName& name) {
    savingReleased([&] {
        const FileName file = nameOf(name);
        if (fl::filesystem::isSameFile(file.path, stream.file().path))
            throw Error(file.shown, "holds what is to be copied to it; choose another file");
        about(file, [&] {
            fl::filesystem::ReplacementFile target{fl::filesystem::SaveTarget(file.path)};
            std::vector<std::byte> buffer(kCopiedBytes);
            std::uint64_t size = 0;
            while (const std::size_t count = stream.read(buffer)) {
                foundation::SaveWatch::advance(count);
                target.file().writeAt(std::span(buffer).first(count), size);
                size += count;
            }
            target.commit();
        });
    });
}

}  // namespace qzapp::python
