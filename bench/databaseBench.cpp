// Load, compaction and import of a large database, beside a plain program that does no more with its lines
// than keep them by key and write them sorted.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench/benchRecords.h"
#include "lib/harbrel/harbrel.h"
#include "lib/misc/owners.h"

namespace {

constexpr const char *DATABASE = "/etc/orvane/networking";
constexpr const char *SETTINGS_FILE = "/tmp/settings";

using Lines = std::unordered_map<std::string, std::string>;

// A record's value is what stands behind its last blank but for a description, which is kept whole.
bool ReadLines(const char *path, Lines *lines) {
    const FileStream stream(fopen(path, "re"));
    char *text = nullptr;
    size_t capacity = 0;
    ssize_t length = 0;
    while (stream != nullptr && (length = getline(&text, &capacity, stream.get())) > 0) {
        const std::string line(text, static_cast<size_t>(length));
        const size_t blank = std::min(line.rfind(' '), line.size());
        (*lines)[line.substr(0, blank)] = line.substr(blank);
    }
    free(text);
    return stream != nullptr;
}

bool WriteSorted(const char *path, const Lines &lines) {
    std::vector<const Lines::value_type *> order;
    for (const auto &line : lines) {
        order.push_back(&line);
    }
    std::sort(order.begin(), order.end(),
              [](const auto *left, const auto *right) { return left->first < right->first; });
    const FileStream stream(fopen(path, "we"));
    for (const auto *line : order) {
        fwrite(line->first.data(), 1, line->first.size(), stream.get());
        fwrite(line->second.data(), 1, line->second.size(), stream.get());
    }
    return stream != nullptr;
}

void PlainLoadAndWrite(benchmark::State &state) {
    InstallDatabase(LargeDatabase());
    for (auto _ : state) {
        Lines lines;
        if (!ReadLines(DATABASE, &lines) || !WriteSorted("/etc/orvane/plain", lines) ||
            rename("/etc/orvane/plain", DATABASE) != 0 || lines.size() != LARGE_RECORDS + 1) {
            state.SkipWithError("the plain program failed");
        }
    }
}

void LoadAndCompaction(benchmark::State &state) {
    InstallDatabase(LargeDatabase());
    for (auto _ : state) {
        if (!HBL_Load()) {
            state.SkipWithError("the library does not load");
            return;
        }
        HBL_Unload();
    }
}

void Import(benchmark::State &state) {
    WriteFile(SETTINGS_FILE, "BACKUP_VERSION=1,0\n" + LargeDatabase());
    for (auto _ : state) {
        state.PauseTiming();
        std::filesystem::remove("/etc/orvane/networking.bak.0");
        InstallDatabase("");
        state.ResumeTiming();
        if (!HBL_ImportDatabaseFromFile(SETTINGS_FILE)) {
            state.SkipWithError("the import failed");
        }
    }
}

}  // namespace

BENCHMARK(PlainLoadAndWrite)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(LoadAndCompaction)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(Import)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
