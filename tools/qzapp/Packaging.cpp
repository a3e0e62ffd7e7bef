#include "tools/qzapp/Packaging.hpp"

#include "tools/qzapp/Errors.hpp"
#include "tools/qzapp/Files.hpp"
#include "tools/qzapp/Progress.hpp"
#include "tools/qzapp/Transaction.hpp"

namespace qzapp {

using appserialization::AppFileWriter;
using appserialization::AppMetadata;

AppMetadata recordOf(const FieldValues& fields) {
    AppMetadata record;
    for (const auto& [field, value] : fields)
        setField(record, field, value);
    return record;
}

void writeParts(AppFileWriter& writer, const Content& content) {
    // The code first: setting it saves what was set before, and the model would be written twice.
    if (content.code) writer.setKORVALCodeText(*content.code);
    if (content.model) writer.setAppModelFromFile(content.model->native());
    if (content.screenshot) {
        writer.setAppScreenshot(content.screenshot->second, content.screenshot->first);
    }
}

void createPackage(const FileName& out, const Content& content) {
    const Progress progress(content.model ? sizeOf(*content.model) : 0);
    Transaction transaction(out, Transaction::Start::Empty);
    const FileName& file = transaction.workingFile();
    about(file, [&] {
        AppFileWriter writer(file.native(), true);
        writeParts(writer, content);
        writer.setAppMetadata(recordOf(content.fields));
        writer.close();
    });
    transaction.commit();
}

}  // namespace qzapp
