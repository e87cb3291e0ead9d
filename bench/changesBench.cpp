// The cost of changes and of the generated files, and whether it grows with what is there already.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>

#include "bench/benchRecords.h"
#include "lib/file/fileLock.h"
#include "lib/harbrel/harbrel.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned CHANGES = 10000;
constexpr unsigned GROUP = 1000;

double SecondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

bool SetForwards(unsigned first) {
    bool done = true;
    for (unsigned port = first; port < first + GROUP; port++) {
        done =
            HBL_SetNATPortForward("zelan8", true, static_cast<uint16_t>(port), "172.16.8.3", 80, "web", 3) &&
            done;
    }
    return done;
}

// Counters: seconds for the first and for the last thousand of the changes.
void SetTenThousandForwards(benchmark::State &state) {
    double first = 0;
    double last = 0;
    for (auto _ : state) {
        state.PauseTiming();
        InstallDatabase(NatNetwork(0, 0));
        bool done = HBL_Load();
        state.ResumeTiming();
        for (unsigned at = 0; done && at < CHANGES; at += GROUP) {
            const Clock::time_point begin = Clock::now();
            done = SetForwards(at + 1);
            last = SecondsSince(begin);
            first = at == 0 ? last : first;
        }
        state.PauseTiming();
        HBL_Unload();
        if (!done) {
            state.SkipWithError("a change failed");
            return;
        }
        state.ResumeTiming();
    }
    state.counters["first"] = first;
    state.counters["last"] = last;
}

void UpdateFile(benchmark::State &state, bool (*update)(const char *)) {
    const auto records = static_cast<unsigned>(state.range(0));
    InstallDatabase(NatNetwork(records, records));
    if (!HBL_Load()) {
        state.SkipWithError("the library does not load");
        return;
    }
    for (auto _ : state) {
        if (!update("zelan8")) {
            state.SkipWithError("the file was not written");
        }
    }
    HBL_Unload();
}

void DhcpFile(benchmark::State &state) {
    UpdateFile(state, HBL_UpdateDHCPFromConfig);
}

void NatFile(benchmark::State &state) {
    UpdateFile(state, HBL_UpdateNATFromConfig);
}

void LockAndUnlock(benchmark::State &state) {
    for (auto _ : state) {
        int error = 0;
        FileLockToken *const token = FileLock_Lock("/etc/orvane/networking", false, 0, &error);
        if (token == nullptr || FileLock_Unlock("/etc/orvane/networking", token) != 0) {
            state.SkipWithError("no lock");
            return;
        }
    }
}

}  // namespace

BENCHMARK(SetTenThousandForwards)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(DhcpFile)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(NatFile)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(LockAndUnlock)->Unit(benchmark::kMicrosecond)->UseRealTime();
