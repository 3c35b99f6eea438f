// The query language: compile time of each example query of examples/queries/ against the W1
// schema, and the evaluation of compiled Q1 beside the hand-built Q1 on one W1 model of 1,000,000
// objects (the same nodes, so the same time within noise). Run with --benchmark_repetitions=N
// for medians.
#include "tarnel/query/TNQuery.h"
#include "w1/w1_reports.h"

#include <benchmark/benchmark.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

namespace {

constexpr const char* examples[] = {
    "q1_public_operations.tnq",          "q2_public_operations_per_class.tnq",
    "q3_classes_below_top_packages.tnq", "r1_pattern_and_real.tnq",
    "r2_two_levels_of_links.tnq",        "r3_two_key_sort.tnq",
    "r4_reverse_navigation.tnq",         "r5_nested_quantifiers.tnq",
    "r6_text_along_a_link.tnq"};

std::string readExample(const char* name) {
    std::ifstream in(std::filesystem::path(__FILE__).parent_path() / "../examples/queries" / name);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// One W1 model for the whole run: schemas share the process-wide regions, so there is one.
struct Model {
    explicit Model(size_t n) {
        w1::generate(model, n);
        w1::defineAllClasses(schema);
        schema.donePopulating();
    }
    TNSchema schema;
    w1::TarnelModel model{schema};
};
Model& model(size_t n) {
    static std::unique_ptr<Model> built;
    if (!built)
        built = std::make_unique<Model>(n);
    return *built;
}
constexpr size_t objects = 1000000;

void compileExample(benchmark::State& state) {
    const std::string text = readExample(examples[state.range(0)]);
    const TNSchema& schema = model(objects).schema;
    for (auto _ : state)
        benchmark::DoNotOptimize(TNQuery::compile(schema, text));
    state.SetLabel(examples[state.range(0)]);
}
BENCHMARK(compileExample)->DenseRange(0, 8)->Unit(benchmark::kMicrosecond);

void q1Compiled(benchmark::State& state) {
    Model& m = model(objects);
    const TNQuery query = TNQuery::compile(m.schema, readExample(examples[0]));
    size_t length = 0;
    for (auto _ : state)
        length = query.evaluateOnModel(m.schema).value.asString().size();
    state.counters["length"] = static_cast<double>(length);
}
BENCHMARK(q1Compiled)->Unit(benchmark::kMillisecond);

void q1HandBuilt(benchmark::State& state) {
    Model& m = model(objects);
    const w1::Reports reports;
    size_t length = 0;
    for (auto _ : state)
        length = reports.q1(m.schema.rootObject().get()).size();
    state.counters["length"] = static_cast<double>(length);
}
BENCHMARK(q1HandBuilt)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
