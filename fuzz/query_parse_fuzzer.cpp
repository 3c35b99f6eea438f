// Compiles arbitrary text as a query against the W1 schema. Every input must either compile or
// be refused with TNQueryError, without crashing, leaking, overflowing the stack or hanging; any
// other exception escapes and counts as a crash. A query that compiles must print, its printed
// text must compile again, and that graph must print the same text. Nothing is evaluated: an
// arbitrary query may legitimately take very long on any model.
#include "tarnel/query/TNQuery.h"
#include "w1/w1_model.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace {

void check(bool condition) {
    if (!condition)
        __builtin_trap();
}

// The schema lives for the whole run (schemas share process-wide regions: destroying one would
// free the instances of all).
const TNSchema& w1Schema() {
    static TNSchema* schema = [] {
        auto* s = new TNSchema;
        w1::TarnelModel model(*s);
        w1::generate(model, 10);
        tnAddCompoundAssociation(*s->getClass("Package"), "<Package:All Classes>", "All Classes",
                                 s->getClass("Class"),
                                 "top: [] -> ( [subpackages] -> @top; [classes] )");
        s->donePopulating();
        return s;
    }();
    return *schema;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const TNSchema& schema = w1Schema();
    SgxString printed;
    try {
        printed = TNQuery::compile(schema, text).print();
    } catch (const TNQueryError&) {
        return 0;
    }
    SgxString again;
    try {
        again = TNQuery::compile(schema, printed).print();
    } catch (const TNQueryError&) {
        check(false);
    }
    check(again == printed);
    return 0;
}
