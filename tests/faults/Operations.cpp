#include "tests/faults/Operations.hpp"

#include <fcntl.h>
#include <unistd.h>
#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>
#include <appserialization/KAppMetadataReader.hpp>
#include <boost/variant/apply_visitor.hpp>
#include <boost/variant/static_visitor.hpp>
#include <fl/i18n.hpp>
#include <opc/Package.hpp>

#include <stdexcept>
#include <utility>

#ifdef QZ_TEST_QZAPP
#include "tools/qzapp/CommandLine.hpp"
#endif
#include "tests/support/TemporaryDirectory.hpp"

namespace faults {

using appserialization::AppFileReader;
using appserialization::AppFileWriter;
using appserialization::AppMetadata;
using fl::i18n::ustring_to_utf8;

namespace {

std::string bytesThatDoNotShrink(std::size_t count) {
    std::string bytes;
    for (unsigned state = 1; bytes.size() < count; state = state * 1664525 + 1013904223)
        bytes += static_cast<char>(state >> 24);
    return bytes;
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
class Silence {
public:
    Silence() {
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        ::dup2(nowhere, STDOUT_FILENO);
        ::dup2(nowhere, STDERR_FILENO);
        ::close(nowhere);
    }
    ~Silence() {
        ::dup2(output_, STDOUT_FILENO);
        ::dup2(errors_, STDERR_FILENO);
        ::close(output_);
        ::close(errors_);
    }

private:
    int output_ = ::dup(STDOUT_FILENO);
    int errors_ = ::dup(STDERR_FILENO);
};

void runTool(const std::vector<std::string>& arguments) {
    std::vector<const char*> all{"qzapp"};
    for (const std::string& argument : arguments)
        all.push_back(argument.c_str());
    const Silence silence;
    const int status = qzapp::runCommandLine(static_cast<int>(all.size()), all.data());
    if (status != 0) throw std::runtime_error("qzapp failed with " + std::to_string(status));
}

void createWithTool(const std::u16string& app, const Inputs& inputs) {
    runTool({"create", ustring_to_utf8(app), "--force", "--code", ustring_to_utf8(inputs.code()),
             "--model", ustring_to_utf8(inputs.model()), "--set", "Name=Made", "--screenshot",
             ustring_to_utf8(inputs.image())});
}

void editWithTool(const std::u16string& app, const Inputs&) {
    runTool({"edit", ustring_to_utf8(app), "--set", "Name=Edited"});
}

void editCodeWithTool(const std::u16string& app, const Inputs& inputs) {
    runTool({"edit", ustring_to_utf8(app), "--code", ustring_to_utf8(inputs.code()), "--set",
             "Name=Edited", "--remove-screenshot"});
}

#endif

void create(const std::u16string& app, const Inputs& inputs) {
    AppFileWriter writer(app, true);
    writer.setAppModelFromFile(inputs.model());
    writer.setAppMetadata(metadata(u"Created"));
    writer.close();
}

void editMetadata(const std::u16string& app, const Inputs&) {
    AppFileWriter writer(app, false);
    writer.setAppMetadata(metadata(u"Edited"));
    writer.close();
}

void editModel(const std::u16string& app, const Inputs& inputs) {
    AppFileWriter writer(app, false);
    writer.setAppModelFromFile(inputs.model());
    writer.close();
}

// Two saves, and no close().
void setCode(const std::u16string& app, const Inputs&) {
    AppFileWriter writer(app, false);
    writer.setAppScreenshot(kImage, u"jpg");
    writer.setKORVALCodeText(u"x = 2;\n");
}

// Three saves.
void setEverything(const std::u16string& app, const Inputs& inputs) {
    AppFileWriter writer(app, false);
    writer.setAppModelFromFile(inputs.model());
    writer.setKORVALCodeText(u"x = 3;\n");
    writer.setAppMetadata(metadata(u"Edited after the code"));
    writer.close();
}

void setScreenshot(const std::u16string& app, const Inputs&) {
    AppFileWriter writer(app, false);
    writer.setAppScreenshot({'G', 'I', 'F'}, u"gif");
    writer.close();
}

struct AsText : boost::static_visitor<std::string> {
    std::string operator()(const appserialization::appmetadata::OptionalString& text) const {
        return text ? ustring_to_utf8(*text) : "(absent)";
    }
    std::string operator()(const appserialization::appmetadata::OptionalStringList& list) const {
        std::string all = list ? "" : "(absent)";
        for (const auto& each : list.get_value_or({}))
            all += ustring_to_utf8(each) + ",";
        return all;
    }
};

std::string textOf(const AppMetadata& record) {
    std::string text;
    for (const auto& [field, value] : record.toMap())
        text += boost::apply_visitor(AsText(), value) + ";";
    return text;
}

std::string open(const std::u16string& app, const Inputs&, const std::u16string&) {
    return AppFileReader(app).hasParts() ? "has parts" : "has no parts";
}

std::string readMetadata(const std::u16string& app, const Inputs&, const std::u16string&) {
    return textOf(AppFileReader(app).getAppMetadata());
}

std::string readCode(const std::u16string& app, const Inputs&, const std::u16string&) {
    return ustring_to_utf8(AppFileReader(app).getKORVALCodeText());
}

std::string readScreenshot(const std::u16string& app, const Inputs&, const std::u16string&) {
    std::vector<std::uint8_t> bytes;
    std::u16string format;
    AppFileReader(app).getAppScreenshot(bytes, format);
    return std::string(bytes.begin(), bytes.end()) + ustring_to_utf8(format);
}

std::string copyModel(const std::u16string& app, const Inputs&, const std::u16string& scratch) {
    AppFileReader(app).copyAppDataToTempFile(scratch);
    return test_support::readFile(scratch);
}

std::string readTextApp(const std::u16string&, const Inputs& inputs, const std::u16string&) {
    const appserialization::KAppMetadataReader reader(inputs.text());
    const auto [format, bytes] = reader.readScreenshotAsBytes();
    return textOf(reader.readMetadata()) + ustring_to_utf8(format) +
           std::string(bytes.begin(), bytes.end());
}

void write(const std::u16string& file, const std::string& bytes) {
    std::ofstream stream(std::filesystem::path(file), std::ios::binary);
    stream << bytes;
    if (!stream.flush()) throw std::runtime_error("cannot write " + ustring_to_utf8(file));
}

}  // namespace

Inputs::Inputs(std::u16string inDirectory) : directory(std::move(inDirectory)) {
    write(model(), bytesThatDoNotShrink(300));
    write(code(), "function f\n  disp('hello')\nend\n");
    write(image(), {kImage.begin(), kImage.end()});
    write(text(),
          "x = 1;\n"
          "%[app:appDetails]\n%{\n<Name>Text</Name>\n<Summary>&lt;S&gt;</Summary>\n%}\n"
          "%[app:internalData]\n%{\n<RequiredProducts><Product>Core</Product></"
          "RequiredProducts>\n%}\n"
          "%[app:thumbnail]\n%{\n<Thumbnail>data:image/png;base64,aGVsbG8=</Thumbnail>\n%}\n");
}

const std::vector<SaveOperation>& saveOperations() {
    static const std::vector<SaveOperation> operations{
        {"Create", false, true, true, 1, create},
        {"Replace", false, false, true, 1, create},
        {"EditMetadata", false, false, false, 1, editMetadata},
        {"EditModel", false, false, false, 1, editModel},
        {"SetCode", false, false, false, 2, setCode},
        {"SetEverything", false, false, false, 3, setEverything},
        {"SetScreenshot", false, false, false, 1, setScreenshot},
#ifdef QZ_TEST_QZAPP
        {"ToolCreate", true, true, true, 1, createWithTool},
        {"ToolReplace", true, false, true, 1, createWithTool},
        {"ToolEdit", true, false, false, 1, editWithTool},
        {"ToolEditCode", true, false, false, 1, editCodeWithTool},
#endif
    };
    return operations;
}

const std::vector<ReadOperation>& readOperations() {
    static const std::vector<ReadOperation> operations{
        {"Open", open},           {"Metadata", readMetadata},
        {"Code", readCode},       {"Screenshot", readScreenshot},
        {"CopyModel", copyModel}, {"TextApp", readTextApp},
    };
    return operations;
}

void writeExample(const std::u16string& app, const Inputs& inputs) {
    AppFileWriter writer(app, true);
    writer.setAppModelFromFile(inputs.image());
    writer.setAppMetadata(metadata(u"Example"));
    writer.setAppScreenshot(kImage, u"png");
    writer.setKORVALCodeText(u"x = 1;\n");
}

std::string readPackage(const std::u16string& app) {
    const opc::zippackage::ZipPhysicalPackage zip(app, true);
    opc::model::Package package(zip);
    package.open(opc::interfaces::OpenMode::Read);
    std::u16string names;
    std::string contents;
    for (const auto& part : package.getParts()) {
        names += part.getName().toString() + u"=" + part.getContentType().toString() + u";";
        const auto bytes = readAll(part, 1 << 20);
        contents.append(bytes.begin(), bytes.end());
    }
    for (const auto& each : package.getRelationships())
        names += each.getID() + each.getType() + each.getTargetURI().toString() + u";";
    return contents + ustring_to_utf8(names);
}

}  // namespace faults
