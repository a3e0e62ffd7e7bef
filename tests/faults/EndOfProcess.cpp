// A program that saves apps while its process ends, for ExitTest. The first argument says how, the
// second names the app, which exists.

#include <unistd.h>
#include <appserialization/AppFileReader.hpp>
#include <appserialization/AppFileWriter.hpp>
#include <fl/i18n.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <thread>
#include <vector>

namespace {

using appserialization::AppFileReader;
using appserialization::AppFileWriter;

const auto& kImage = *new std::vector<std::uint8_t>{'G', 'I', 'F', '8', '9', 'a'};

void save(const std::u16string& file, const std::u16string& author) {
    appserialization::AppMetadata record;
    record.setName(std::u16string(u"Saved at the end of the process"));
    record.setAuthor(author);
    AppFileWriter writer(file, false);
    writer.setKORVALCodeText(u"x = 4;\n");
    writer.setAppMetadata(record);
    writer.setAppScreenshot(kImage, u"gif");
    writer.close();
}

bool holds(const std::u16string& file, const std::u16string& author) {
    AppFileReader reader(file);
    std::vector<std::uint8_t> image;
    std::u16string format;
    reader.getAppScreenshot(image, format);
    return reader.getKORVALCodeText() == u"x = 4;\n" &&
           reader.getAppMetadata().getAuthor() == author && image == kImage && format == u"gif";
}

// What destructors of static objects do. This one is constructed before main(), so it is destroyed
// after everything that the libraries make at first use and would destroy at exit.
class LastObject {
public:
    ~LastObject() { atExit(); }
    void (*atExit)() = [] {};
};
LastObject lastObject;

std::u16string& app = *new std::u16string;  // never destroyed

void saveAtExit() {
    try {
        save(app, u"Static");
        if (holds(app, u"Static")) return;
        std::fputs("what was saved at exit does not read back\n", stderr);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "saving at exit failed: %s\n", failure.what());
    }
    std::_Exit(1);
}

std::atomic<int> saves = 0;

void saveForEver() {
    try {
        for (;; ++saves)
            save(app, saves % 2 == 0 ? u"One" : u"Other");
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "saving failed: %s\n", failure.what());
        std::_Exit(1);
    }
}

void waitForSaves(int count) {
    for (const int begin = saves; saves < begin + count;)
        std::this_thread::yield();
}

}  // namespace

int main(int, char** argv) {
    app = fl::i18n::utf8_to_ustring(argv[2]);
    if (std::strcmp(argv[1], "static") == 0) {
        save(app, u"main");
        lastObject.atExit = saveAtExit;
        return 0;
    }
    std::thread(saveForEver).detach();
    waitForSaves(1);
    // Goes on for at least one whole save after static objects are gone, and ends amid another.
    static const std::chrono::microseconds pause(std::atoi(argv[3]));
    lastObject.atExit = [] {
        waitForSaves(2);
        std::this_thread::sleep_for(pause);
    };
    return 0;
}
