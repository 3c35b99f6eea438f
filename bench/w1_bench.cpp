// Workload W1, phases populate, freeze and memory, on this library and on the hand-written
// baseline, at 100,000 and 1,000,000 objects. Each library run is compared with the baseline run
// of the same size made just before it in the same process.
//
// Counters, per object: populate_ns, freeze_ns, rss_B (resident-set growth from before populate
// to after freeze), and for the library data_B (what the data needs: object headers, 16-byte
// slots, link arrays, text and real bytes) with the ratios rss/data, populate/baseline and
// rss/baseline.
#include "w1_model.h"

#include <benchmark/benchmark.h>

#include <malloc.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <map>

namespace {

using Clock = std::chrono::steady_clock;

// Resident bytes of the process, after giving freed heap pages back so that memory released by
// an earlier run does not count as resident (nor get reused unseen).
double residentBytes() {
    malloc_trim(0);
    long pages = 0;
    long resident = 0;
    if (std::FILE* statm = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(statm, "%ld %ld", &pages, &resident) != 2)
            resident = 0;
        std::fclose(statm);
    }
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

double nanoseconds(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double, std::nano>(to - from).count();
}

struct Figures {
    double populateNs = 0;
    double residentBytes = 0;
};
// Baseline figures per object, by model size.
std::map<size_t, Figures> baselineFigures;

void BM_W1_Baseline(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    const double objects = static_cast<double>(w1::objectCount(n));
    Figures sum;
    for (auto _ : state) {
        const double before = residentBytes();
        auto model = std::make_unique<w1::baseline::Model>();
        const auto start = Clock::now();
        w1::generate(*model, n);
        const auto end = Clock::now();
        sum.populateNs += nanoseconds(start, end);
        sum.residentBytes += residentBytes() - before;
        state.PauseTiming();
        model.reset();
        state.ResumeTiming();
    }
    const double runs = static_cast<double>(state.iterations());
    Figures& figures = baselineFigures[n];
    figures.populateNs = sum.populateNs / runs / objects;
    figures.residentBytes = sum.residentBytes / runs / objects;
    state.counters["populate_ns"] = figures.populateNs;
    state.counters["freeze_ns"] = 0;
    state.counters["rss_B"] = figures.residentBytes;
}

void BM_W1_Tarnel(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    const double objects = static_cast<double>(w1::objectCount(n));
    TNSchema schema;
    w1::TarnelModel model(schema);
    double populateNs = 0;
    double freezeNs = 0;
    double resident = 0;
    double dataBytes = 0;
    for (auto _ : state) {
        const double before = residentBytes();
        const TNObjectStatistics from = TNObject::statistics();
        const auto start = Clock::now();
        w1::generate(model, n);
        const auto populated = Clock::now();
        schema.donePopulating();
        const auto frozen = Clock::now();
        populateNs += nanoseconds(start, populated);
        freezeNs += nanoseconds(populated, frozen);
        resident += residentBytes() - before;

        // The data: headers, slots and link arrays as the statistics count them, the texts as
        // placed in the string region, and 8 bytes per non-zero real (every weight but k = 0).
        const TNObjectStatistics to = TNObject::statistics();
        const double reals = objects - 4;
        dataBytes += static_cast<double>(sizeof(TNObject)) * objects +
                     static_cast<double>(to.attributeBytes - from.attributeBytes) +
                     static_cast<double>(to.associationBytes - from.associationBytes) +
                     static_cast<double>(TNSchema::stringMemoryRegion().bytesAllocated()) +
                     8 * reals;
        state.PauseTiming();
        schema.unpopulate();
        state.ResumeTiming();
    }
    const double runs = static_cast<double>(state.iterations());
    const double perObject = runs * objects;
    state.counters["populate_ns"] = populateNs / perObject;
    state.counters["freeze_ns"] = freezeNs / perObject;
    state.counters["rss_B"] = resident / perObject;
    state.counters["data_B"] = dataBytes / perObject;
    state.counters["rss/data"] = resident / dataBytes;
    if (const auto found = baselineFigures.find(n); found != baselineFigures.end()) {
        state.counters["populate/base"] = populateNs / perObject / found->second.populateNs;
        state.counters["rss/base"] = resident / perObject / found->second.residentBytes;
    }
}

} // namespace

// Baseline first at each size, so the library run finds the figures to compare with.
BENCHMARK(BM_W1_Baseline)->Arg(100000)->Iterations(5)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_W1_Tarnel)->Arg(100000)->Iterations(5)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_W1_Baseline)->Arg(1000000)->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_W1_Tarnel)->Arg(1000000)->Iterations(3)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    // Blocks of a megabyte or more come straight from the system and go straight back, for both
    // systems alike, so resident-set figures see what each one holds.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
