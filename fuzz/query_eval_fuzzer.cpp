// Compiles arbitrary text as a query against the W1 schema and evaluates it, twice (the second
// evaluation runs what the first planned), on a model of a few objects. Every input must either
// be refused (TNQueryError) or evaluate to a result or a library exception (SgxException: a
// missing link, an unknown attribute, a value of the wrong kind), without crashing, leaking or
// reading outside an object. The model is small and texts are capped, so that even nested walks
// end quickly: what is fuzzed is the evaluation's plans and their fallbacks, not its speed.
#include "tarnel/query/TNQuery.h"
#include "tarnel/tarnel.h"
#include "w1/w1_model.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

constexpr size_t maxText = 300;

// Two packages (one inside the other) holding three classes of three operations and three
// attributes each, with values that make every kind of test go both ways. The schema lives for
// the whole run (schemas share process-wide regions).
TNSchema& smallModel() {
    static TNSchema* schema = [] {
        auto* s = new TNSchema;
        const w1::TarnelModel defined(*s);
        TNObject* top = s->newObject("Package", false).get();
        s->setRoot(top);
        TNObject* inner = s->newObject("Package", false).get();
        top->associate(inner, "subpackages");
        int k = 0;
        for (TNObject* package : {top, inner, top}) {
            TNObject* cls = s->newObject("Class", false).get();
            (*cls)["name"] = ("C" + std::to_string(k)).c_str();
            (*cls)["order"] = k;
            (*cls)["isAbstract"] = k % 2 == 0;
            (*cls)["visibility"] = k % 4;
            (*cls)["weight"] = k * 1.5;
            (*cls)["documentation"] = k % 2 != 0 ? "doc" : "";
            package->associate(cls, "classes");
            for (int j = 0; j < 3; ++j) {
                TNObject* operation = s->newObject("Operation", false).get();
                (*operation)["name"] = ("op_12" + std::to_string(j)).c_str();
                (*operation)["order"] = j - 1;
                (*operation)["weight"] = j * 60.0;
                (*operation)["visibility"] = j % 4;
                cls->associate(operation, "operations");
                TNObject* attribute = s->newObject("Attribute", false).get();
                (*attribute)["stereotype"] = j % 2 != 0 ? "entity" : "value";
                cls->associate(attribute, "attributes");
            }
            ++k;
        }
        s->donePopulating();
        return s;
    }();
    return *schema;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > maxText)
        return 0;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    TNSchema& schema = smallModel();
    try {
        const TNQuery query = TNQuery::compile(schema, text);
        for (int i = 0; i < 2; ++i) {
            try {
                const TNQueryResult result = query.evaluate(schema.rootObject());
            } catch (const SgxException&) {
            }
        }
    } catch (const TNQueryError&) {
    }
    return 0;
}
