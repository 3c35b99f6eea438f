// Workload W1, phases populate, freeze and memory, and the report queries Q1 to Q3 and R1 to R6, on
// this library and on the hand-written baseline, at 100,000 and 1,000,000 objects. Each library run
// is compared with the baseline run of the same size made just before it in the same process.
//
// Counters, per object: populate_ns, freeze_ns, rss_B (resident-set growth from before populate
// to after freeze), and for the library data_B (what the data needs: object headers, 16-byte
// slots, link arrays, text and real bytes) with the ratios rss/data, populate/baseline and
// rss/baseline. Like the queries, each system first builds the model once untimed (the first
// touch of memory the process never had costs the kernel, and on a virtual machine the host,
// extra work that whichever system ran first would pay), then the medians of the timed runs are
// reported.
#include "w1/w1_model.h"
#include "w1/w1_reports.h"

#include <benchmark/benchmark.h>

#include "bench_process.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using bench::Clock;
using bench::nanoseconds;
using bench::residentBytes;
double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
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
    {
        w1::baseline::Model warmUp;
        w1::generate(warmUp, n);
    }
    std::vector<double> populateNs, resident;
    for (auto _ : state) {
        const double before = residentBytes();
        auto model = std::make_unique<w1::baseline::Model>();
        const auto start = Clock::now();
        w1::generate(*model, n);
        const auto end = Clock::now();
        populateNs.push_back(nanoseconds(start, end) / objects);
        resident.push_back((residentBytes() - before) / objects);
        state.PauseTiming();
        model.reset();
        state.ResumeTiming();
    }
    Figures& figures = baselineFigures[n];
    figures.populateNs = median(populateNs);
    figures.residentBytes = median(resident);
    state.counters["populate_ns"] = figures.populateNs;
    state.counters["freeze_ns"] = 0;
    state.counters["rss_B"] = figures.residentBytes;
}

void BM_W1_Tarnel(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    const double objects = static_cast<double>(w1::objectCount(n));
    TNSchema schema;
    w1::TarnelModel model(schema);
    w1::generate(model, n);
    schema.donePopulating();
    schema.unpopulate();
    std::vector<double> populateNs, freezeNs, resident, dataBytes;
    for (auto _ : state) {
        const double before = residentBytes();
        const TNObjectStatistics from = TNObject::statistics();
        const auto start = Clock::now();
        w1::generate(model, n);
        const auto populated = Clock::now();
        schema.donePopulating();
        const auto frozen = Clock::now();
        populateNs.push_back(nanoseconds(start, populated) / objects);
        freezeNs.push_back(nanoseconds(populated, frozen) / objects);
        resident.push_back((residentBytes() - before) / objects);

        // The data: headers, slots and link arrays as the statistics count them, the texts as
        // placed in the string region, and 8 bytes per non-zero real (every weight but k = 0).
        const TNObjectStatistics to = TNObject::statistics();
        const double reals = objects - 4;
        dataBytes.push_back((static_cast<double>(sizeof(TNObject)) * objects +
                             static_cast<double>(to.attributeBytes - from.attributeBytes) +
                             static_cast<double>(to.associationBytes - from.associationBytes) +
                             static_cast<double>(TNSchema::stringMemoryRegion().bytesAllocated()) +
                             8 * reals) /
                            objects);
        state.PauseTiming();
        schema.unpopulate();
        state.ResumeTiming();
    }
    const double populate = median(populateNs);
    const double rss = median(resident);
    const double data = median(dataBytes);
    state.counters["populate_ns"] = populate;
    state.counters["freeze_ns"] = median(freezeNs);
    state.counters["rss_B"] = rss;
    state.counters["data_B"] = data;
    state.counters["rss/data"] = rss / data;
    if (const auto found = baselineFigures.find(n); found != baselineFigures.end()) {
        state.counters["populate/base"] = populate / found->second.populateNs;
        state.counters["rss/base"] = rss / found->second.residentBytes;
    }
}

// --- Queries Q1 to Q3, R1 to R6 ---------------------------------------------------------------

// The median of `runs` timed runs of `query` after one warm-up run, in milliseconds per run.
// Each timed run is `batch` evaluations back to back.
template <class Query> double medianMs(Query query, int batch = 1, int runs = 5) {
    query();
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        const auto start = Clock::now();
        for (int b = 0; b < batch; ++b)
            benchmark::DoNotOptimize(query());
        times.push_back(nanoseconds(start, Clock::now()) / 1e6 / batch);
    }
    return median(times);
}

// medianMs with batches of about 2 ms: back-to-back evaluations, whose data stays in cache as
// far as it fits, timed over spans long enough that the clock and the scheduler add little. For
// queries of a few microseconds this is the steadier figure; the workload's own is the single
// run.
template <class Query> double repeatedMs(Query query) {
    const double once = medianMs(query, 1, 3);
    return medianMs(query, static_cast<int>(std::clamp(2.0 / std::max(once, 1e-6), 1.0, 1e5)));
}

// The report queries on both systems, built once per size: Q1 to Q3 and R1 to R6, each asserted
// to give the baseline's answer (a length for the joined texts, whose contents the tests compare).
// Counters per query: the library's median ms, the baseline's, their ratio, and the ratio of the
// two systems' repeated runs (repeatedMs), <query>_rep/base; for Q1 to Q3 also the library's ns
// per object walked (Q1: per Operation; Q2: per Class and Operation visited; Q3: per Package
// visited, the classes being counted from each package's link count, as the baseline takes its
// vectors' sizes).
void BM_W1_Queries(benchmark::State& state) {
    const size_t n = static_cast<size_t>(state.range(0));
    auto plain = std::make_unique<w1::baseline::Model>();
    w1::generate(*plain, n);
    TNSchema schema;
    w1::TarnelModel model(schema);
    w1::generate(model, n);
    schema.donePopulating();
    w1::defineAllClasses(schema);
    const w1::Reports reports;
    const w1::ShapeReports shapes;
    TNObject* any = schema.getClass("Package")->objects().front().get();

    const double classes = static_cast<double>(n / 10);
    const double walked[3] = {classes * w1::operationsPerClass,
                              classes * (1 + w1::operationsPerClass),
                              static_cast<double>(w1::packageCount)};
    const auto length = [](const std::string& text) { return static_cast<int64_t>(text.size()); };
    struct Query {
        const char* name;
        std::function<int64_t()> library;
        std::function<int64_t()> base;
    };
    const w1::baseline::Model& m = *plain;
    const Query queries[] = {
        {"Q1", [&] { return length(reports.q1(any)); },
         [&] { return length(w1::baseline::q1(m)); }},
        {"Q2", [&] { return reports.q2(any); }, [&] { return w1::baseline::q2(m); }},
        {"Q3", [&] { return reports.q3(any); }, [&] { return w1::baseline::q3(m); }},
        {"R1", [&] { return shapes.r1(any); }, [&] { return w1::baseline::r1(m); }},
        {"R2", [&] { return shapes.r2(any); }, [&] { return w1::baseline::r2(m); }},
        {"R3", [&] { return length(shapes.r3(any)); }, [&] { return length(w1::baseline::r3(m)); }},
        {"R4", [&] { return shapes.r4(any); }, [&] { return w1::baseline::r4(m); }},
        {"R5", [&] { return shapes.r5(any); }, [&] { return w1::baseline::r5(m); }},
        {"R6", [&] { return length(shapes.r6(any)); }, [&] { return length(w1::baseline::r6(m)); }},
    };
    constexpr size_t count = std::size(queries);
    for (const Query& query : queries)
        if (query.library() != query.base()) {
            state.SkipWithError((std::string(query.name) + ": the answers differ").c_str());
            return;
        }
    double library[count] = {}, base[count] = {}, libraryRepeated[count] = {},
           baseRepeated[count] = {};
    for (auto _ : state) {
        for (size_t q = 0; q < count; ++q) {
            library[q] = medianMs(queries[q].library);
            base[q] = medianMs(queries[q].base);
        }
        for (size_t q = 0; q < count; ++q) {
            libraryRepeated[q] = repeatedMs(queries[q].library);
            baseRepeated[q] = repeatedMs(queries[q].base);
        }
    }
    for (size_t q = 0; q < count; ++q) {
        const std::string name = queries[q].name;
        state.counters[name + "_ms"] = library[q];
        state.counters[name + "_base_ms"] = base[q];
        state.counters[name + "/base"] = library[q] / base[q];
        if (q < std::size(walked))
            state.counters[name + "_ns/obj"] = library[q] * 1e6 / walked[q];
        state.counters[name + "_rep/base"] = libraryRepeated[q] / baseRepeated[q];
    }
}

} // namespace

// Baseline first at each size, so the library run finds the figures to compare with.
BENCHMARK(BM_W1_Baseline)->Arg(100000)->Iterations(5)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_W1_Tarnel)->Arg(100000)->Iterations(5)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_W1_Baseline)->Arg(1000000)->Iterations(5)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_W1_Tarnel)->Arg(1000000)->Iterations(5)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_W1_Queries)->Arg(100000)->Arg(1000000)->Iterations(1)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    // Blocks of a megabyte or more come straight from the system and go straight back, for both
    // systems alike, so resident-set figures see what each one holds.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
