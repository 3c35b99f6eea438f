// A large metamodel built through the interface, saved to a schema file and loaded again.
//
// The schema: 50 enumeration types of 8 literals; 2,000 classes in 500 families of a root and
// three subclasses, every class with 40 attributes (the roots declare them, of every kind, one in
// eight an enumeration; the subclasses receive copies); 4,000 simple associations between classes
// of different families; and one compound association per family root (handed down to its
// subclasses) whose chain follows two of them. The file-size counter is in bytes.
#include "tarnel/tarnel.h"

#include <benchmark/benchmark.h>

#include <filesystem>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

constexpr int enumCount = 50;
constexpr int literalCount = 8;
constexpr int familyCount = 500;
constexpr int familySize = 4;
constexpr int classCount = familyCount * familySize;
constexpr int attributeCount = 40;
constexpr int associationCount = 4000;

std::string className(int i) { return "Class" + std::to_string(i); }

// Association k leads from class from(k) to class to(k); declared(c) is an association declared
// on class c (7 x 1143 = 1 modulo 2,000).
int from(int k) { return (k * 7) % classCount; }
int to(int k) { return (k * 7 + 13 + (k % 5) * familySize) % classCount; }
int declared(int c) { return (c * 1143) % classCount; }

void build(TNSchema& schema) {
    for (int e = 0; e < enumCount; ++e) {
        const auto type = schema.newEnumType("Enum" + std::to_string(e));
        for (int l = 0; l < literalCount; ++l)
            type->addName("literal" + std::to_string(l));
    }
    std::vector<SgxSimplePtr<TNClass>> classes;
    for (int i = 0; i < classCount; ++i)
        classes.push_back(schema.newClass(className(i)));
    for (int f = 0; f < familyCount; ++f) {
        const auto& root = classes[f * familySize];
        for (int c = 1; c < familySize; ++c)
            root->addChild(classes[f * familySize + c]);
        for (int a = 0; a < attributeCount; ++a) {
            const auto kind = static_cast<TNAttrType>(a % 6);
            root->addAttr("attribute" + std::to_string(a), kind,
                          kind == TNAttrEnumeration ? "Enum" + std::to_string((f + a) % enumCount)
                                                    : "",
                          "");
        }
    }
    for (int k = 0; k < associationCount; ++k)
        classes[from(k)]->addAssociation("assoc" + std::to_string(k), className(to(k)), {0, -1},
                                         {1, 1}, "from" + std::to_string(k),
                                         "to" + std::to_string(k));
    for (int f = 0; f < familyCount; ++f) {
        const int root = f * familySize;
        const int first = declared(root);
        const int second = declared(to(first));
        tnAddCompoundAssociation(*classes[root], "<" + className(root) + ":reach>", "reach",
                                 classes[to(second)],
                                 "[to" + std::to_string(first) + "] -> [to" +
                                     std::to_string(second) + "]");
    }
}

std::string schemaPath() {
    return (std::filesystem::temp_directory_path() /
            ("tarnel-schema-bench-" + std::to_string(::getpid()) + ".schema"))
        .string();
}

void BM_BuildThroughInterface(benchmark::State& state) {
    for (auto _ : state) {
        TNSchema schema;
        build(schema);
        benchmark::DoNotOptimize(schema.classCount());
    }
}
BENCHMARK(BM_BuildThroughInterface)->Unit(benchmark::kMillisecond);

void BM_Save(benchmark::State& state) {
    TNSchema schema;
    build(schema);
    const std::string path = schemaPath();
    for (auto _ : state)
        schema.save(path);
    state.counters["file_bytes"] = static_cast<double>(std::filesystem::file_size(path));
    std::filesystem::remove(path);
}
BENCHMARK(BM_Save)->Unit(benchmark::kMillisecond);

void BM_Load(benchmark::State& state) {
    const std::string path = schemaPath();
    {
        TNSchema schema;
        build(schema);
        schema.save(path);
    }
    for (auto _ : state) {
        const std::unique_ptr<TNSchema> loaded(TNSchema::load(path).get());
        benchmark::DoNotOptimize(loaded->classCount());
    }
    state.counters["file_bytes"] = static_cast<double>(std::filesystem::file_size(path));
    std::filesystem::remove(path);
}
BENCHMARK(BM_Load)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
