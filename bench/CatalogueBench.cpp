// What it costs to keep a catalogue of many apps, and to ask it.

#include "bench/BenchFiles.hpp"
#include "bench/Cases.hpp"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <filesystem>
#include <string>

namespace {

using namespace bench;
namespace fs = std::filesystem;

constexpr std::size_t kApps = 10'000;
constexpr std::size_t kManyApps = 100'000;

constexpr const char* kQuery = "small* product:signals OR release:>=R2020a";
// The statement that the query stands for.
constexpr const char* kSql =
    "SELECT File FROM apps a WHERE a.id IN (SELECT rowid FROM words WHERE words MATCH "
    "'\"small\" * AND RequiredProducts : \"signals\"') OR a.releaseOrder >= 20201 "
    "ORDER BY CASE WHEN a.id IN (SELECT rowid FROM words WHERE words MATCH 'Name : (\"small\" *)') "
    "THEN 0 WHEN a.id IN (SELECT rowid FROM words WHERE words MATCH 'Summary : (\"small\" *)') "
    "THEN 1 ELSE 2 END, a.Name COLLATE NOCASE, a.File";

std::string inQuotes(const std::string& word) {
    return "'" + word + "'";
}

// A folder with so many apps of 14 KiB, which cost little to make because they share their bytes.
fs::path manyApps(std::size_t count) {
    fs::path apps = folder() / ("catalogue-" + std::to_string(count));
    if (fs::exists(apps)) return apps;
    fs::create_directories(apps);
    const fs::path app = packagedApp(14 * kKiB);
    fs::path source;
    for (std::size_t i = 0; i < count; ++i) {
        const fs::path file = apps / (std::to_string(i) + ".kvpkg");
        // A file has at most 65,000 names on usual file systems.
        if (i % 10'000 == 0) {
            fs::copy_file(app, file);
            source = file;
        } else {
            fs::create_hard_link(source, file);
        }
    }
    return apps;
}

std::string catalogueOf(std::size_t count) {
    return manyApps(count).string() + ".db";
}

std::string indexOf(std::size_t count) {
    return std::string(BENCH_QZAPP) + " index " + manyApps(count).string() + " -d " +
           catalogueOf(count) + " >/dev/null";
}

void firstRun(benchmark::State& state) {
    const std::string index = indexOf(kApps);
    measureEach(state, kApps, [&] {
        fs::remove(catalogueOf(kApps));
        run(state, index);
    });
}

void checkAll(benchmark::State& state) {
    const std::string check =
        std::string(BENCH_QZAPP) + " check --json " + manyApps(kApps).string() + " >/dev/null";
    measureEach(state, kApps, [&] { run(state, check); });
}

// Like firstRun(), with 100 apps that have changed since the last run.
void changedRun(benchmark::State& state) {
    const std::string index = indexOf(kApps);
    run(state, index);
    const std::string touch =
        "cd " + manyApps(kApps).string() +
        " && for i in $(seq 100); do cp $i.kvpkg new && mv new $i.kvpkg; done";
    for (auto _ : state) {
        state.PauseTiming();
        run(state, touch);
        state.ResumeTiming();
        run(state, index);
    }
}

// What a run costs in which nothing has changed, and what the first one cost for 100 apps.
void unchangedAndHundred(benchmark::State& state) {
    const std::string index = indexOf(kApps);
    run(state, index);
    const fs::path hundred = manyApps(100);
    const std::string database = catalogueOf(100);
    for (auto _ : state) {
        run(state, index);
        fs::remove(database);
        run(state, indexOf(100));
    }
}

void unchangedRun(benchmark::State& state) {
    const std::string index = indexOf(kApps);
    run(state, index);
    measureEach(state, kApps, [&] { run(state, index); });
}

void listAll(benchmark::State& state) {
    const std::string list = "find " + manyApps(kApps).string() + " -printf '%s %T@\\n' >/dev/null";
    measureEach(state, kApps, [&] { run(state, list); });
}

void ask(benchmark::State& state, const std::string& command) {
    run(state, indexOf(kManyApps));
    measure(state, [&] { run(state, command); });
}

void registerAll() {
    Case("qzapp index, first, each of 10,000 apps", firstRun).against("qzapp check", 1.5, checkAll);
    Case("qzapp index, unchanged, each of 10,000 apps", unchangedRun)
        .against("find -printf", 4, listAll);
    Case("qzapp index of 10,000 apps, 100 changed", changedRun)
        .against("none changed, and 100 first", 1.5, unchangedAndHundred);
    Case("qzapp find among 100,000 apps", [](auto& state) {
        ask(state, std::string(BENCH_QZAPP) + " find -d " + catalogueOf(kManyApps) + " " +
                       inQuotes(kQuery) + " >/dev/null");
    }).against("sqlite3, and qzapp --version", 1.5, [](auto& state) {
        std::string sql = kSql;
        for (std::size_t at = 0; (at = sql.find('\'', at)) != std::string::npos; at += 4)
            sql.replace(at, 1, "'\\''");
        ask(state, "sqlite3 -readonly " + catalogueOf(kManyApps) + " " + inQuotes(sql) +
                       " >/dev/null && " + BENCH_QZAPP + " --version >/dev/null");
    });
}

const bool registered = (registerAll(), true);

}  // namespace
