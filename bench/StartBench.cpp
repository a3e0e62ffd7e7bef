// What the first use of the library in a process costs, what a whole process of the tool costs, and
// how much faster the tool is with many files on several threads.

#include "bench/BenchFiles.hpp"
#include "bench/Cases.hpp"

#include <appserialization/KVPKGMetadataReader.hpp>

#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using namespace bench;
namespace fs = std::filesystem;

constexpr std::size_t kApps = 10'000;

std::string smallPackage() {
    return packagedApp(kKiB).string();
}

std::string smallTextApp() {
    const fs::path file = folder() / "small.k";
    std::ofstream(file) << "x = 1;\n\n%[app:appDetails]\n%{\n<Name>Small</Name>\n%}\n";
    return file.string();
}

void loadAndRun(benchmark::State& state, const std::string& module, const std::string& argument) {
    measureItself(state, BENCH_LOAD " " + module + " " + argument);
}

void program(benchmark::State& state, const std::vector<std::string>& arguments) {
    measure(state, [&] { runProgram(state, arguments); });
}

void xercesProgram(benchmark::State& state) {
    program(state, {BENCH_XERCES});
}

// --- a folder full of apps -----------------------------------------------------------------------

const std::vector<fs::path>& manyApps() {
    static const std::vector<fs::path> files = [] {
        std::vector<fs::path> made;
        const fs::path directory = folder() / "apps";
        fs::create_directories(directory);
        for (std::size_t i = 0; i < kApps; ++i) {
            made.push_back(directory / (std::to_string(i) + ".kvpkg"));
            fs::copy_file(smallPackage(), made.back(), fs::copy_options::skip_existing);
        }
        return made;
    }();
    return files;
}

void runOnMany(benchmark::State& state, std::vector<std::string> arguments) {
    for (const fs::path& file : manyApps())
        arguments.push_back(file.string());
    measureEach(state, kApps, [&] { runProgram(state, arguments); });
}

void readMany(benchmark::State& state) {
    const auto& files = manyApps();
    measureEach(state, kApps, [&] {
        for (const fs::path& file : files) {
            const appserialization::KVPKGMetadataReader reader(text(file));
            benchmark::DoNotOptimize(reader.readMetadata());
        }
    });
}

#ifdef BENCH_PYTHON
// The time for all of them.
auto inPython(const std::string& way) {
    return [=](benchmark::State& state) {
        manyApps();
        measureItself(state, BENCH_PYTHON " " BENCH_BASELINES "/read_apps.py " + way + " " +
                                 (folder() / "apps").string());
    };
}

void registerPython() {
    Case("Python, open() of 10,000 apps", inPython("open"))
        .against("python3 zipfile, etree", 1, inPython("zipfile"));
    Case("Python, scan() of 10,000 apps, 1 thread", inPython("scan"))
        .against("python3 zipfile, etree", 1, inPython("zipfile"));
    Case("Python, scan() of 10,000 apps, all cores", inPython("scan-all"))
        .against("1 thread", 1 / 1.6, inPython("scan"));
}
#else
void registerPython() {}
#endif

void registerAll() {
    registerPython();
    const auto xercesModule = [](auto& state) { loadAndRun(state, BENCH_XERCES_MODULE, ""); };
    Case("first packaged app in a process", [](auto& state) {
        loadAndRun(state, BENCH_READER_MODULE, smallPackage());
    }).against("load, initialise Xerces", 1.3, xercesModule);
    Case("first text app in a process", [](auto& state) {
        loadAndRun(state, BENCH_READER_MODULE, smallTextApp());
    }).against("load, initialise Xerces", 1.3, xercesModule);
    Case("qzapp info of a packaged app", [](auto& state) {
        program(state, {BENCH_QZAPP, "info", smallPackage()});
    }).against("process with Xerces", 1.4, xercesProgram);
    Case("qzapp info of a text app", [](auto& state) {
        program(state, {BENCH_QZAPP, "info", smallTextApp()});
    }).against("process with Xerces", 1.4, xercesProgram);
    const auto onMany = [](const std::string& verb, const std::string& threads) {
        return [=](auto& state) {
            runOnMany(state, {BENCH_QZAPP, verb, "--json", "--threads", threads});
        };
    };
    Case("qzapp info, each of 10,000 apps", onMany("info", "1"))
        .against("in process", 1.3, readMany);
    for (const std::string verb : {"info", "check"}) {
        Case("qzapp " + verb + " of 10,000 apps, 2 threads", onMany(verb, "2"))
            .against("1 thread", 1 / 1.6, onMany(verb, "1"));
    }
}

const bool registered = (registerAll(), true);

}  // namespace
