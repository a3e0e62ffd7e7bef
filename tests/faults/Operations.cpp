#include "tests/faults/Operations.hpp"

#include <fcntl.h>
#include <unistd.h>
#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>
#include <appserialization/KAppMetadataReader.hpp>
#include <boost/variant/apply_visitor.hpp>
#include <fl/i18n.hpp>
#include <foundation/Threads.hpp>
#include <opc/Package.hpp>

#include <random>
#include <stdexcept>
#include <utility>

#ifdef QZ_TEST_QZAPP
#include "tools/qzapp/cli/CommandLine.hpp"
#include "tools/qzapp/cli/Signals.hpp"
#endif

namespace faults {

using appserialization::AppFileReader;
using appserialization::AppFileWriter;
using appserialization::AppMetadata;
using fl::i18n::ustring_to_utf8;

namespace {

std::string textOf(const std::u16string& text) {
    return ustring_to_utf8(text);
}

std::string textOf(const std::vector<std::u16string>& list) {
    std::string all;
    for (const auto& each : list)
        all += ustring_to_utf8(each) + ",";
    return all;
}

std::string textOf(const AppMetadata& record) {
    const auto shown = [](const auto& value) { return value ? textOf(*value) : "(absent)"; };
    std::string text;
    for (const auto& [field, value] : record.toMap())
        text += boost::apply_visitor(shown, value) + ";";
    return text;
}

// So large that an edit tries to share it with the old file.
constexpr std::size_t kSharable = 80'000;

// Does not shrink.
std::string noise(std::size_t size) {
    std::mt19937 random(1);
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

// Lets the libraries use as many threads, whatever the machine has.
class Threads {
public:
    explicit Threads(unsigned count) { foundation::threads::setLimit(count); }
    ~Threads() { foundation::threads::setLimit(0); }
    Threads(const Threads&) = delete;
    Threads& operator=(const Threads&) = delete;
};

// Is deflated in four slices, the second of which does not shrink.
std::string largeContent() {
    constexpr std::size_t kSlice = std::size_t{1} << 20;
    std::string content;
    while (content.size() < kSlice)
        content += "line " + std::to_string(content.size()) + " of a large model\n";
    content.resize(kSlice);
    return content + noise(kSlice) + content + content;
}

AppMetadata metadata(const char16_t* name) {
    AppMetadata record;
    record.setName(std::u16string(name));
    record.setDescription(std::u16string(u"What it is for"));
    record.setRequiredProducts(std::vector<std::u16string>{u"Core", u"Signals"});
    return record;
}

const std::vector<std::uint8_t> kImage{0x89, 'P', 'N', 'G', 1, 2, 3};

#ifdef QZ_TEST_QZAPP

// The tool's messages do not belong in those of the tests.
void runTool(const std::vector<std::string>& arguments) {
    std::vector<const char*> all{"qzapp"};
    for (const std::string& argument : arguments)
        all.push_back(argument.c_str());
    const int output = ::dup(STDOUT_FILENO), errors = ::dup(STDERR_FILENO);
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::dup2(nowhere, STDOUT_FILENO);
    ::dup2(nowhere, STDERR_FILENO);
    const int status = qzapp::runCommandLine(static_cast<int>(all.size()), all.data());
    ::dup2(output, STDOUT_FILENO);
    ::dup2(errors, STDERR_FILENO);
    for (const int file : {output, errors, nowhere})
        ::close(file);
    if (status != 0) throw std::runtime_error("qzapp failed with " + std::to_string(status));
}

void createWithTool(const std::u16string& app, const Inputs& inputs) {
    runTool({"create", textOf(app), "--force", "--code", textOf(inputs.code), "--model",
             textOf(inputs.model), "--set", "Name=Made", "--screenshot", textOf(inputs.image)});
}

void addToolOperations(std::vector<SaveOperation>& operations) {
    const SaveOperation all[] = {
        {"ToolCreate", true, true, true, 1, createWithTool},
        {"ToolReplace", true, false, true, 1, createWithTool},
        {"ToolEdit", true, false, false, 1,
         [](const auto& app, const Inputs&) {
             runTool({"edit", textOf(app), "--set", "Name=Edited"});
         }},
        {"ToolEditCode", true, false, false, 1,
         [](const auto& app, const Inputs& inputs) {
             runTool({"edit", textOf(app), "--code", textOf(inputs.code), "--set", "Name=Edited",
                      "--remove-screenshot"});
         }},
    };
    operations.insert(operations.end(), std::begin(all), std::end(all));
}

#else

void addToolOperations(std::vector<SaveOperation>&) {}

#endif

void create(const std::u16string& app, const Inputs& inputs) {
    AppFileWriter writer(app, true);
    writer.setAppModelFromFile(inputs.model);
    writer.setAppMetadata(metadata(u"Created"));
    writer.close();
}

SaveOperation edit(const char* name, std::size_t saves,
                   void (*set)(AppFileWriter& writer, const Inputs& inputs)) {
    return {
        name, false, false, false, saves, [set](const std::u16string& app, const Inputs& inputs) {
            AppFileWriter writer(app, false);
            set(writer, inputs);
            writer.close();
        }};
}

SaveOperation usingThreads(SaveOperation operation) {
    operation.usesThreads = true;
    operation.run = [run = std::move(operation.run)](const auto& app, const Inputs& inputs) {
        const Threads three(3);
        run(app, inputs);
    };
    return operation;
}

std::vector<SaveOperation> makeSaveOperations() {
    std::vector<SaveOperation> operations{
        {"Create", false, true, true, 1, create},
        {"Replace", false, false, true, 1, create},
        edit("EditMetadata", 1,
             [](auto& writer, const Inputs&) { writer.setAppMetadata(metadata(u"Edited")); }),
        edit("EditModel", 1,
             [](auto& writer, const Inputs& inputs) { writer.setAppModelFromFile(inputs.model); }),
        usingThreads(edit("EditLargeModel", 1,
                          [](auto& writer, const Inputs& inputs) {
                              writer.setAppModelFromFile(inputs.largeModel);
                          })),
        edit("SetCode", 2,
             [](auto& writer, const Inputs&) {
                 writer.setAppScreenshot(kImage, u"jpg");
                 writer.setKORVALCodeText(u"x = 2;\n");
             }),
        edit("SetEverything", 3,
             [](auto& writer, const Inputs& inputs) {
                 writer.setAppModelFromFile(inputs.model);
                 writer.setKORVALCodeText(u"x = 3;\n");
                 writer.setAppMetadata(metadata(u"Edited after the code"));
             }),
        edit("SetScreenshot", 1,
             [](auto& writer, const Inputs&) {
                 writer.setAppScreenshot({'G', 'I', 'F'}, u"gif");
             }),
    };
    addToolOperations(operations);
    return operations;
}

std::string readTextApp(const std::u16string&, const Inputs& inputs, const std::u16string&) {
    const appserialization::KAppMetadataReader reader(inputs.textApp);
    const auto [format, bytes] = reader.readScreenshotAsBytes();
    return textOf(reader.readMetadata()) + textOf(format) + std::string(bytes.begin(), bytes.end());
}

std::string readScreenshot(const std::u16string& app, const Inputs&, const std::u16string&) {
    std::vector<std::uint8_t> bytes;
    std::u16string format;
    AppFileReader(app).getAppScreenshot(bytes, format);
    return std::string(bytes.begin(), bytes.end()) + textOf(format);
}

}  // namespace

Inputs::Inputs()
    : oldModel(directory.write("old.kvd", noise(kSharable))),
      model(directory.write("model.kvd", "bytes of a model")),
      largeModel(directory.write("large.kvd", largeContent())),
      code(directory.write("code.k", "function f\n  disp('hello')\nend\n")),
      image(directory.write("image.png", {kImage.begin(), kImage.end()})),
      textApp(directory.write(
          "app.k",
          "x = 1;\n"
          "%[app:appDetails]\n%{\n<Name>Text</Name>\n<Summary>&lt;S&gt;</Summary>\n%}\n"
          "%[app:internalData]\n%{\n"
          "<RequiredProducts><Product>Core</Product></RequiredProducts>\n%}\n"
          "%[app:thumbnail]\n%{\n<Thumbnail>data:image/png;base64,aGVsbG8=</Thumbnail>\n%}\n")),
      largeApp(directory.write("large.kvpkg", "")) {
    AppFileWriter writer(largeApp, true);
    writer.setAppModelFromFile(largeModel);
    writer.close();
}

void prepareToolForSignals() {
#ifdef QZ_TEST_QZAPP
    qzapp::installSignalHandlers();
#endif
}

const std::vector<SaveOperation>& saveOperations() {
    static const std::vector<SaveOperation> operations = makeSaveOperations();
    return operations;
}

const std::vector<ReadOperation>& readOperations() {
    static const std::vector<ReadOperation> operations{
        {"Open", [](const auto& app, const auto&,
                    const auto&) { return std::to_string(AppFileReader(app).hasParts()); }},
        {"Metadata", [](const auto& app, const auto&,
                        const auto&) { return textOf(AppFileReader(app).getAppMetadata()); }},
        {"Code", [](const auto& app, const auto&,
                    const auto&) { return textOf(AppFileReader(app).getKORVALCodeText()); }},
        {"Screenshot", readScreenshot},
        {"CopyModel",
         [](const auto& app, const auto&, const auto& scratch) {
             AppFileReader(app).copyAppDataToTempFile(scratch);
             return test_support::readFile(scratch);
         }},
        {"CopyLargeModel",
         [](const auto&, const auto& inputs, const auto& scratch) {
             const Threads three(3);
             AppFileReader(inputs.largeApp).copyAppDataToTempFile(scratch);
             return test_support::readFile(scratch);
         },
         true},
        {"TextApp", readTextApp},
    };
    return operations;
}

void writeExample(const std::u16string& app, const Inputs& inputs) {
    AppFileWriter writer(app, true);
    writer.setAppModelFromFile(inputs.oldModel);
    writer.setAppScreenshot(kImage, u"png");
    writer.setKORVALCodeText(u"x = 1;\n");
    // Another edit leaves the model in front, where its blocks can be shared.
    writer.setAppMetadata(metadata(u"Example"));
    writer.close();
}

std::string readPackage(const std::u16string& app) {
    const opc::zippackage::ZipPhysicalPackage zip(app, true);
    opc::model::Package package(zip);
    package.open(opc::interfaces::OpenMode::Read);
    std::u16string names;
    std::string contents;
    for (const auto& part : package.getParts()) {
        names += part.getName().toString() + u"=" + part.getContentType().toString() + u";";
        const auto bytes = readAll(part, 8 << 20);
        contents.append(bytes.begin(), bytes.end());
    }
    for (const auto& each : package.getRelationships())
        names += each.getID() + each.getType() + each.getTargetURI().toString() + u";";
    return contents + ustring_to_utf8(names);
}

}  // namespace faults
