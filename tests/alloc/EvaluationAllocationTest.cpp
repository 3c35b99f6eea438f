// What an evaluation allocates once its graph has been evaluated before: nothing per element of
// the collections it walks. This program replaces the global operator new to count blocks, so it
// is a test program of its own.
#include "tarnel/tarnel.h"
#include "w1/w1_model.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>

namespace {
std::atomic<size_t> g_blocks{0};
} // namespace

// Every plain form is replaced, so that no block is made by one allocator and freed by another
// (a sanitizer's, say): the standard library's temporary buffers use the nothrow form.
namespace {
void* countedBlock(size_t size) noexcept {
    g_blocks.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size == 0 ? 1 : size);
}
} // namespace
void* operator new(size_t size) {
    if (void* block = countedBlock(size))
        return block;
    throw std::bad_alloc();
}
void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return countedBlock(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return countedBlock(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }
void operator delete[](void* block, size_t) noexcept { std::free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }

namespace {

// A frozen W1 model of `objects` objects.
struct Model {
    explicit Model(size_t objects) {
        w1::TarnelModel model(schema);
        w1::generate(model, objects);
        schema.donePopulating();
    }
    TNSchema schema;
};

// The blocks allocated by the second evaluation of `text` on `model` (the first derives what a
// graph keeps between evaluations), the result's included.
size_t blocksOfSecondEvaluation(const Model& model, const char* text) {
    const TNQuery query = TNQuery::compile(model.schema, text);
    const SgxSimplePtr<TNObject> self = model.schema.getClass("Package")->objects().front();
    query.evaluate(self);
    const size_t before = g_blocks.load();
    { const TNQueryResult result = query.evaluate(self); }
    return g_blocks.load() - before;
}

} // namespace

// Each query is evaluated on a model and on one four times as large: what the larger one
// allocates beyond the smaller is what the evaluation allocates per element.
TEST(EvaluationAllocation, SteadyStateAllocatesNothingPerElement) {
    const Model small(4000);
    const Model large(16000);
    struct Case {
        const char* what;
        const char* text;
        size_t extraBlocks; // the result's growth, at most
    };
    const Case cases[] = {
        {"count of a filter over a navigation",
         "Operation.allInstances()->select(o | o.owner->one().isAbstract)->size()", 0},
        {"count of a filter comparing texts along a link",
         "Operation.allInstances()->select(o | o.owner->one().name = 'Class_3')->size()", 0},
        {"count of a filter over each class's links",
         "Class.allInstances()->select(c | c.operations->exists(o | o.weight > 10.0))"
         "->size()",
         0},
        {"a quantifier over a filter in each element",
         "Class.allInstances()->select(c | c.operations->select(o | o.weight > 10.0)"
         "->exists(o | o.order > 3))->size()",
         0},
        {"a quantifier over the links of each element's links",
         "Package.allInstances()->select(p | p.classes->collect(c | c.operations)"
         "->exists(o | o.order < 0))->size()",
         0},
        {"a quantifier over reversed links in each element",
         "Class.allInstances()->select(c | c.operations->reverse()->exists(o | o.order < 0))"
         "->size()",
         0},
        // A sorted sequence grows by doubling when it is not sized ahead: two blocks for 4x.
        {"sort by two attribute keys",
         "Class.allInstances()->sortedBy(c | c.isAbstract desc, c.order desc)", 2},
        {"sort by a computed key",
         "Class.allInstances()->sortedBy(c | let k = c.order in if c.isAbstract then k else 0 - k "
         "endif)",
         2},
        // Texts too long to be held inside a value: kept once per element, in blocks that grow
        // by doubling.
        {"sort by a computed text key",
         "Class.allInstances()->sortedBy(c | c.name + '-' + c.quid desc)", 4},
        // The joined text doubles as it grows.
        {"map to text, joined",
         "Attribute.allInstances()->collect(a | a.name + '@' + a.owner->one().name)->join('; ')",
         2},
    };
    for (const Case& c : cases) {
        const size_t smallBlocks = blocksOfSecondEvaluation(small, c.text);
        const size_t largeBlocks = blocksOfSecondEvaluation(large, c.text);
        EXPECT_LE(largeBlocks, smallBlocks + c.extraBlocks)
            << c.what << ": " << smallBlocks << " blocks at 4,000 objects, " << largeBlocks
            << " at 16,000";
    }
}
