// Values read in place, comparisons on them, relational operands evaluated once, literal
// patterns and text sums: each against what evaluating node by node gives.
#include "tarnel/expressions/ExprTestNodes.h"
#include "tarnel/expressions/TNCollectionExpr.h"
#include "tarnel/expressions/TNExprOwner.h"
#include "tarnel/expressions/TNQuantifierExpr.h"
#include "tarnel/expressions/TNStringExpr.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNEnumType.h"
#include "tarnel/metamodel/TNSchema.h"

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

namespace {

using Op = TNRelationalExpr::TNRelOp;

// The operators as TNValue decides them, on values already evaluated.
bool reference(int op, const TNValue& l, const TNValue& r) {
    switch (op) {
    case TNRelationalExpr::TNEqual:
        return l == r;
    case TNRelationalExpr::TNNotEqual:
        return !(l == r);
    case TNRelationalExpr::TNLess:
        return l < r;
    case TNRelationalExpr::TNGreater:
        return !(l == r) && !(l < r);
    case TNRelationalExpr::TNLessEqual:
        return l == r || l < r;
    case TNRelationalExpr::TNGreaterEqual:
        return !(l < r);
    }
    return false;
}

// Two classes that hold the same attributes at different slots, and one that lacks "s".
struct PlanModel {
    TNSchema schema;
    std::vector<TNObject*> objects;
    TNObject* lacking = nullptr;
    PlanModel() {
        const auto level = schema.newEnumType("Level");
        for (const char* literal : {"low", "high", "1"})
            level->addName(literal);
        const auto a = schema.newClass("A");
        const auto b = schema.newClass("B");
        b->addAttr("pad", TNAttrString, "", ""); // shifts every slot of B
        for (const auto& cls : {a, b}) {
            cls->addAttr("e", TNAttrEnumeration, "Level", "");
            cls->addAttr("i", TNAttrInteger, "", "");
            cls->addAttr("r", TNAttrReal, "", "");
            cls->addAttr("s", TNAttrString, "", "");
            cls->addAttr("t", TNAttrBoolean, "", "");
        }
        schema.newClass("C")->addAttr("e", TNAttrEnumeration, "Level", "");
        const char* texts[] = {"x", "", "1", "true", "low"};
        for (int k = 0; k < 5; ++k) {
            TNObject& o = *schema.newObject(k % 2 == 0 ? "A" : "B", false);
            o["e"] = k % 3;
            o["i"] = k - 2;
            o["r"] = k * 0.5;
            o["s"] = texts[k];
            o["t"] = k % 2 == 0;
            objects.push_back(&o);
        }
        lacking = schema.newObject("C", false).get();
    }
};

const std::vector<TNValue>& constants() {
    static const std::vector<TNValue> values = {TNValue(), 0,   1,      -2,    0.5,    1.0,  "x",
                                                "",        "1", "true", "low", "high", true, false};
    return values;
}

} // namespace

TEST(TNPlan, ComparisonsOnViewsMatchComparingValuesForEveryTypeAndOperator) {
    PlanModel m;
    auto* x = new TNObjectVarExpr;
    auto* attr = new TNAttrExpr(new TNConstantExpr("e"), x);
    auto* other = new TNAttrExpr(new TNConstantExpr("s"), x);
    auto* value = new TNConstantExpr;
    TNRelationalExpr attrFirst(attr, TNRelationalExpr::TNEqual, value);
    TNRelationalExpr constantFirst(value, TNRelationalExpr::TNEqual, attr);
    TNRelationalExpr twoAttrs(attr, TNRelationalExpr::TNEqual, other);
    // One graph throughout, its name, operator and constant set between evaluations, over
    // objects of classes whose slots differ.
    for (const char* name : {"e", "i", "r", "s", "t"}) {
        static_cast<TNConstantExpr&>(*attr->name()).value(name);
        for (int op = 0; op <= 6; ++op) {
            for (auto* node : {&attrFirst, &constantFirst, &twoAttrs})
                node->op(static_cast<Op>(op));
            for (const TNValue& c : constants()) {
                value->value(c);
                for (TNObject* o : m.objects) {
                    x->object(o);
                    const TNValue a = (*attr)();
                    const TNValue s = (*other)();
                    SCOPED_TRACE(std::string(name) + " op " + std::to_string(op) + " " + show(a) +
                                 " vs " + show(c) + " / " + show(s));
                    EXPECT_EQ(attrFirst.test(), reference(op, a, c));
                    EXPECT_EQ(constantFirst.test(), reference(op, c, a));
                    EXPECT_EQ(twoAttrs.test(), reference(op, a, s));
                    EXPECT_EQ(show(attrFirst()), show(TNValue(reference(op, a, c))));
                }
            }
        }
    }
    // A class without the attribute and a null object raise what the attribute raises.
    static_cast<TNConstantExpr&>(*attr->name()).value("s");
    x->object(m.lacking);
    EXPECT_EQ(raised([&] { attrFirst.test(); }), raised([&] { (*attr)(); }));
    x->object(nullptr);
    EXPECT_EQ(raised([&] { constantFirst.test(); }), "Null dereference");
    TNExprOwner shared; // the three share their operands
    for (auto* node : {&attrFirst, &constantFirst, &twoAttrs})
        shared.adopt(new TNRelationalExpr(*node));
}

TEST(TNPlan, HostNodesAndBindingsKeepEverySecondEvaluation) {
    ProbeScope scope;
    PlanModel m;
    auto* x = new TNObjectVarExpr(m.objects[4]); // i is 2
    auto* attr = new TNAttrExpr("i", x);
    auto* probe = new ValueProbe("probe", {TNValue(1), TNValue(5)});
    auto* one = new TNConstantExpr(1);
    TNRelationalExpr greater(attr, TNRelationalExpr::TNGreater, one);
    EXPECT_TRUE(greater.test()); // library nodes only: decided once
    // A host's node set in their place (a graph change) is evaluated twice, and the second
    // values decide: 2 > 1, then 2 > 5.
    greater.rhs(probe);
    EXPECT_FALSE(greater.test());
    EXPECT_EQ(times(evaluated, "probe"), 2);
    // On equal values both operators decide on the first evaluation.
    probe->script({TNValue(2), TNValue(7)});
    greater.op(TNRelationalExpr::TNLessEqual);
    EXPECT_TRUE(greater.test());
    EXPECT_EQ(times(evaluated, "probe"), 3);
    // A host's node on the left, a constant on the right: still twice.
    evaluated.clear();
    auto* left = new ValueProbe("left", {TNValue(0), TNValue(9)});
    TNRelationalExpr lessEqual(left, TNRelationalExpr::TNLessEqual, new TNConstantExpr(3));
    EXPECT_FALSE(lessEqual.test()); // 0 <= 3 unequal, then 9 < 3
    EXPECT_EQ(times(evaluated, "left"), 2);
    // A binding read in place on the right while the left flushes it through a Let: the
    // comparison sees the value the binding held when it was read.
    auto* binding = new TNValueBindingExpr(new ValueProbe("bound", {TNValue(4), TNValue(6)}));
    auto* let = new TNLetValueExpr(SgxSimplePtr<TNCachedExpr>(binding), binding);
    TNRelationalExpr flushed(let, TNRelationalExpr::TNEqual, binding);
    EXPECT_TRUE(flushed.test()); // 4 == 4, though the Let has flushed the binding meanwhile
    EXPECT_EQ(times(evaluated, "bound"), 1);
    deleteOperandsOf(greater);
    claimAndDelete(one); // replaced by the setter
    deleteOperandsOf(lessEqual);
    deleteOperandsOf(flushed);
}

TEST(TNPlan, LiteralPatternsSearchAsTheDialectDoes) {
    const char* patterns[] = {"_12", "", "a.c", "^ab", "ab$", "a$b", "x^", "[ab]", "a\\.", "b*"};
    const char* subjects[] = {"", "_12", "x_123", "abc", "a.c", "a$b", "x^", "zab"};
    auto* pattern = new TNConstantExpr;
    auto* subject = new TNConstantExpr;
    TNRegExpMatchExpr match(pattern, subject);
    TNRegExpFindExpr find(pattern, subject);
    for (const char* p : patterns) {
        pattern->value(p);
        const RWCRegexp regexp(p);
        for (const char* s : subjects) {
            SCOPED_TRACE(std::string(p) + " in " + s);
            subject->value(s);
            size_t length = 0;
            const size_t at = regexp.index(s, &length);
            EXPECT_EQ(match().asBoolean(), at != RW_NPOS);
            EXPECT_EQ(find().asString(), at == RW_NPOS ? "" : std::string(s).substr(at, length));
        }
    }
    deleteOperandsOf(match);
}

TEST(TNPlan, TextSumsAndMapsReadValuesInPlace) {
    PlanModel m;
    auto* x = new TNObjectVarExpr;
    auto* all = new TNAllInstancesExpr("A", x);
    // x.s + "@" + x.<name>, mapped over the objects of A: texts, numbers and literal names.
    auto* name = new TNConstantExpr("e");
    auto* sum =
        new TNArithmeticExpr(new TNArithmeticExpr(new TNAttrExpr("s", x), TNArithmeticExpr::TNPlus,
                                                  new TNConstantExpr("@")),
                             TNArithmeticExpr::TNPlus, new TNAttrExpr(name, x));
    TNMapExpr map(new TNValueAbsExpr(x, sum), all);
    TNMapExpr attrs(new TNValueAbsExpr(x, new TNAttrExpr(name, x)), all);
    TNDelimiterExpr join(new TNConstantExpr("; "), new TNMapExpr(map));
    x->object(m.objects[0]);
    for (const char* attribute : {"e", "i", "r", "s", "t"}) {
        SCOPED_TRACE(attribute);
        name->value(attribute);
        TNStringSequence expected, expectedAttrs;
        for (TNObject* o : m.objects)
            if (o->getClass()->name() == "A") {
                const TNAttribute& slot = (*o)[attribute];
                const TNValue v =
                    slot.type() == TNAttrEnumeration ? TNValue(slot.asString()) : slot.value();
                expected.push_back((*o)["s"].asString() + "@" + v.asString());
                expectedAttrs.push_back(v.asString());
            }
        EXPECT_EQ(map(), expected);
        EXPECT_EQ(attrs(), expectedAttrs);
        // Joined, the texts are appended where the joined text is built.
        std::string joined;
        for (const std::string& text : expected)
            joined += (joined.empty() ? "" : "; ") + text;
        EXPECT_EQ(join().asString(), joined);
    }
    // A host's nodes in a joined sum are evaluated once per element, the delimiter first, each
    // sum left to right; a number on the leftmost place makes every sum above it a number.
    ProbeScope scope;
    auto* probed = new TNMapExpr(
        new TNValueAbsExpr(
            x, new TNArithmeticExpr(new TNArithmeticExpr(new ValueProbe("p", {TNValue(2)}),
                                                         TNArithmeticExpr::TNPlus,
                                                         new ValueProbe("q", {TNValue("3")})),
                                    TNArithmeticExpr::TNPlus, new TNConstantExpr("x"))),
        all);
    TNDelimiterExpr joined(new ValueProbe("delimiter", {TNValue("/")}), probed);
    EXPECT_EQ(joined().asString(), "5/5/5");
    EXPECT_EQ(evaluated, (Log{"delimiter", "p", "q", "p", "q", "p", "q"}));
    // A number on the left adds, whatever the right reads.
    TNArithmeticExpr number(new TNAttrExpr("i", x), TNArithmeticExpr::TNPlus,
                            new TNConstantExpr("3"));
    x->object(m.objects[4]);
    EXPECT_EQ(show(number()), show(TNValue(5)));
    TNExprOwner shared; // the three share their operands
    shared.adopt(new TNMapExpr(map));
    shared.adopt(new TNMapExpr(attrs));
    shared.adopt(new TNArithmeticExpr(number));
    shared.adopt(new TNDelimiterExpr(joined));
    shared.adopt(new TNDelimiterExpr(join));
}

namespace {
// What TNAttrExpr yields for `o`: an enumeration as its literal's name.
TNValue attributeValue(TNObject& o, const char* name) {
    const TNAttribute& slot = o[name];
    return slot.type() == TNAttrEnumeration ? TNValue(slot.asString()) : slot.value();
}
} // namespace

TEST(TNPlan, SlotTestsInFiltersAndQuantifiersDecideAsNodeByNode) {
    ProbeScope scope;
    PlanModel m;
    // Objects of two classes whose slots lie apart, through a host's collection node.
    TNObjectSequence mixed(m.objects.begin(), m.objects.end());
    auto* objects = new ObjectsProbe("objects", {mixed});
    auto* x = new TNObjectVarExpr;
    auto* name = new TNConstantExpr("e");
    auto* attr = new TNAttrExpr(name, x);
    auto* value = new TNConstantExpr;
    auto* test = new TNRelationalExpr(attr, TNRelationalExpr::TNEqual, value);
    TNFilterExpr filter(new TNValueAbsExpr(x, test), objects);
    TNSomeExpr some(objects, test, x);
    TNAllExpr all(objects, test, x);
    TNFilterExpr truths(new TNValueAbsExpr(x, attr), objects); // the attribute as a truth value
    for (const char* attribute : {"e", "i", "r", "s", "t"}) {
        name->value(attribute);
        size_t expectedTruths = 0;
        for (TNObject* o : m.objects)
            expectedTruths += attributeValue(*o, attribute).asBoolean() ? 1 : 0;
        EXPECT_EQ(truths.count(), expectedTruths) << attribute;
        for (int op = TNRelationalExpr::TNEqual; op <= TNRelationalExpr::TNGreaterEqual; ++op) {
            test->op(static_cast<Op>(op));
            for (const TNValue& c : constants()) {
                value->value(c);
                SCOPED_TRACE(std::string(attribute) + " op " + std::to_string(op) + " " + show(c));
                TNObjectSequence kept;
                TNObject* firstTrue = nullptr;
                TNObject* firstFalse = nullptr;
                for (TNObject* o : m.objects) {
                    const bool holds = reference(op, attributeValue(*o, attribute), c);
                    if (holds)
                        kept.push_back(o);
                    TNObject*& first = holds ? firstTrue : firstFalse;
                    if (first == nullptr)
                        first = o;
                }
                EXPECT_EQ(filter(), kept);
                EXPECT_EQ(filter.count(), kept.size());
                EXPECT_EQ(x->object().get(), m.objects.back()); // bound to the last tested
                EXPECT_EQ(some().asBoolean(), firstTrue != nullptr);
                EXPECT_EQ(x->object().get(), firstTrue != nullptr ? firstTrue : m.objects.back());
                EXPECT_EQ(all().asBoolean(), firstFalse == nullptr);
                EXPECT_EQ(x->object().get(), firstFalse != nullptr ? firstFalse : m.objects.back());
            }
        }
    }
    // An object whose class lacks the attribute raises, after the objects before it were
    // tested, what the attribute raises for it.
    name->value("s");
    test->op(TNRelationalExpr::TNLess);
    value->value("zzz"); // every text of the model is less: nothing stops before the object
    objects->script({TNObjectSequence{m.objects[0], m.objects[1], m.lacking, m.objects[2]}});
    x->object(m.lacking);
    const std::string lacks = raised([&] { (*attr)(); });
    EXPECT_NE(lacks, "nothing");
    EXPECT_EQ(raised([&] { filter.count(); }), lacks);
    EXPECT_EQ(raised([&] { all(); }), lacks);
    EXPECT_EQ(some().asBoolean(), true); // stops at the first object, as it always has
    TNExprOwner shared;
    shared.adopt(new TNFilterExpr(filter));
    shared.adopt(new TNSomeExpr(some));
    shared.adopt(new TNAllExpr(all));
    shared.adopt(new TNFilterExpr(truths));
}

TEST(TNPlan, SortKeysOfLibraryNodesOnceHostNodesEveryComparison) {
    ProbeScope scope;
    PlanModel m;
    TNObjectSequence mixed(m.objects.begin(), m.objects.end());
    auto* objects = new ObjectsProbe("objects", {mixed});
    // t descending, then each attribute ascending: against a stable sort of the values.
    auto* x = new TNObjectVarExpr;
    auto* y = new TNObjectVarExpr;
    auto* second = new TNConstantExpr("e");
    TNSortExpr sorted;
    sorted.collection(objects);
    sorted.key(new TNValueAbsExpr(x, new TNAttrExpr("t", x)), false);
    sorted.key(new TNValueAbsExpr(y, new TNAttrExpr(second, y)), true);
    for (const char* attribute : {"e", "i", "r", "s"}) {
        second->value(attribute);
        TNObjectSequence expected = mixed;
        std::stable_sort(expected.begin(), expected.end(), [&](const auto& a, const auto& b) {
            const TNValue ta = attributeValue(*a, "t"), tb = attributeValue(*b, "t");
            if (!(ta == tb))
                return tb < ta;
            return attributeValue(*a, attribute) < attributeValue(*b, attribute);
        });
        EXPECT_EQ(sorted(), expected) << attribute;
    }
    // A key holding a host's node is evaluated for each comparison and each step of the run
    // walk: twice per comparison, at least one comparison per element but one, then once per
    // element.
    auto* z = new TNObjectVarExpr;
    TNSortExpr probed;
    probed.collection(objects);
    probed.key(
        new TNValueAbsExpr(z, new TNArithmeticExpr(new TNAttrExpr("i", z), TNArithmeticExpr::TNPlus,
                                                   new ValueProbe("key", {TNValue(0)}))),
        false);
    evaluated.clear();
    TNObjectSequence byI = mixed;
    std::reverse(byI.begin(), byI.end()); // i is k - 2: descending is the reverse
    EXPECT_EQ(probed(), byI);
    const int n = static_cast<int>(mixed.size());
    EXPECT_GE(times(evaluated, "key"), 2 * (n - 1) + n);
    // A slot test whose constant is a host's node is no slot test: the node is evaluated for
    // every element tested.
    auto* w = new TNObjectVarExpr;
    auto* bound = new ValueProbe("bound", {TNValue(1)});
    TNAllExpr below(
        objects, new TNRelationalExpr(new TNAttrExpr("i", w), TNRelationalExpr::TNLess, bound), w);
    evaluated.clear();
    EXPECT_FALSE(below().asBoolean()); // -2, -1, 0 are below 1; 1 is not
    EXPECT_EQ(times(evaluated, "bound"), 4);
    TNExprOwner shared;
    shared.adopt(new TNSortExpr(sorted));
    shared.adopt(new TNSortExpr(probed));
    shared.adopt(new TNAllExpr(below));
}
