#include "app/Packaging.hpp"

#include <fl/i18n.hpp>
#include <opc/ZipArchive.hpp>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "app/AppContent.hpp"
#include "app/Error.hpp"
#include "app/InputFiles.hpp"
#include "app/Progress.hpp"
#include "app/Transaction.hpp"

namespace qzapp {

using appserialization::AppFileWriter;
using appserialization::AppMetadata;

AppMetadata recordOf(const FieldValues& fields) {
    AppMetadata record;
    for (const auto& [field, value] : fields)
        setField(record, field, value);
    return record;
}

PartsToEdit partsIn(const Content& content) {
    PartsToEdit parts{.code = content.code.has_value(),
                      .model = content.model.has_value(),
                      .metadata = content.hasMetadata(),
                      .screenshot = content.screenshot.has_value()};
    if (content.screenshot) parts.newFormat = content.screenshot->first;
    return parts;
}

namespace {

std::uint32_t checksumOf(const FileName& file) {
    std::uint32_t sum = 0;
    readToEnd(file, [&](std::span<const std::byte> bytes) { sum = opc::zip::crc32(sum, bytes); });
    return sum;
}

// The CRC and size of the model part, from the zip directory.
std::pair<std::uint32_t, std::uint64_t> modelIn(const FileName& file) {
    return about(file, [&] {
        const auto archive = opc::zip::ZipArchive::open(file.path);
        const std::string name = fl::i18n::ustring_to_utf8(modelName(file).toString());
        const opc::zip::ZipItem* item = archive->find(std::string_view(name).substr(1));
        if (item == nullptr) item = archive->findSimilar(std::string_view(name).substr(1));
        return item == nullptr ? std::pair<std::uint32_t, std::uint64_t>()
                               : std::pair(item->crc32, item->size);
    });
}

}  // namespace

void writeParts(const FileName& file, AppFileWriter& writer, const Content& content,
                const PartsToEdit& parts) {
    // Code first: setting it saves whatever was set before, so a model set earlier would be written
    // twice.
    if (parts.code) writer.setKORVALCodeText(*content.code);
    if (parts.model) {
        about(file, *content.model, [&] { writer.setAppModelFromFile(content.model->native()); });
    }
    if (parts.screenshot) {
        writer.setAppScreenshot(content.screenshot->second, content.screenshot->first);
    }
}

void requireModelArrived(const FileName& package, const Content& content) {
    const FileName& model = *content.model;
    const std::pair given(checksumOf(model), model.held->stamp.size);
    requireUnchanged(model);
    if (modelIn(package) == given) return;
    throw Error(model.shown, "could not be read as the model; nothing is changed, try again");
}

void createPackage(const FileName& out, const Content& content, bool mayReplace) {
    const Progress progress(content.model ? sizeOf(*content.model) : 0);
    Transaction transaction(out, mayReplace ? Transaction::Start::Empty : Transaction::Start::New);
    const FileName& file = transaction.workingFile();
    about(file, [&] {
        AppFileWriter writer(file.native(), true);
        writeParts(file, writer, content, partsIn(content));
        writer.setAppMetadata(recordOf(content.fields));
        writer.close();
    });
    if (content.model) requireModelArrived(file, content);
    transaction.commit();
}

}  // namespace qzapp
