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
        const auto c = schema.newClass("C");
        c->addAttr("e", TNAttrEnumeration, "Level", "");
        // Holders of one link "to": S to A, T to B (a second role first shifts T's link slot),
        // U to C.
        schema.newClass("S")->addAssociation("sa", "A", {0, -1}, {0, -1}, "s", "to");
        const auto t = schema.newClass("T");
        t->addAssociation("ta", "A", {0, -1}, {0, -1}, "t", "spare");
        t->addAssociation("tb", "B", {0, -1}, {0, -1}, "t", "to");
        schema.newClass("U")->addAssociation("uc", "C", {0, -1}, {0, -1}, "u", "to");
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
        for (int k = 0; k < 5; ++k) {
            holders.push_back(schema.newObject(k % 2 == 0 ? "S" : "T", false).get());
            holders.back()->associate(objects[k], "to");
        }
        holdsNone = schema.newObject("S", false).get();
        holdsTwo = schema.newObject("S", false).get();
        holdsTwo->associate(objects[2], "to");
        holdsTwo->associate(objects[0], "to");
        holdsLacking = schema.newObject("U", false).get();
        holdsLacking->associate(lacking, "to");
        schema.donePopulating();
    }
    std::vector<TNObject*> holders; // holders[k] holds objects[k]
    TNObject* holdsNone = nullptr;
    TNObject* holdsTwo = nullptr; // objects[2], then objects[0]
    TNObject* holdsLacking = nullptr;
};

const std::vector<TNValue>& constants() {
    static const std::vector<TNValue> values = {TNValue(), 0,   1,      -2,    0.5,    1.0,  "x",
                                                "",        "1", "true", "low", "high", true, false};
    return values;
}

// Frees, once each, the operands that graphs on the stack share: each node is copied to the
// heap and the copies given to `owner`, which deletes the shared graph when it goes.
template <class... Nodes> void adoptCopies(TNExprOwner& owner, const Nodes&... nodes) {
    (owner.adopt(new Nodes(nodes)), ...);
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
    TNExprOwner shared; // they share their operands
    adoptCopies(shared, map, attrs, number, joined, join);
}

namespace {
// What TNAttrExpr yields for `o`: an enumeration as its literal's name.
TNValue attributeValue(TNObject& o, const char* name) {
    const TNAttribute& slot = o[name];
    return slot.type() == TNAttrEnumeration ? TNValue(slot.asString()) : slot.value();
}
} // namespace

TEST(TNPlan, SlotTestsInFiltersAndQuantifiersDecideAsNodeByNode) {
    // The attribute of each element, or of the one object a link leads to from it (the first
    // link, or the only one), against every constant with every operator, and as a truth value.
    ProbeScope scope;
    PlanModel m;
    auto* objects = new ObjectsProbe("objects", {TNObjectSequence()});
    auto* x = new TNObjectVarExpr;
    auto* extraction = new TNObjectExtractionExpr(
        new TNAssociationExpr(new TNAssociationTraversal("to", true), x));
    auto* name = new TNConstantExpr("e");
    auto* attr = new TNAttrExpr(name, x);
    auto* value = new TNConstantExpr;
    auto* test = new TNRelationalExpr(attr, TNRelationalExpr::TNEqual, value);
    TNFilterExpr filter(new TNValueAbsExpr(x, test), objects);
    TNSomeExpr some(objects, test, x);
    TNAllExpr all(objects, test, x);
    TNFilterExpr truths(new TNValueAbsExpr(x, attr), objects); // the attribute as a truth value
    struct Subject {
        TNObjectExprPtr node;
        const std::vector<TNObject*>& elements; // each tests m.objects at its index
    };
    // Elements of two classes whose slots (or link slots) lie apart, in runs of one class, so
    // that each is decided by its slot, the first of a run being tested node by node.
    const size_t order[] = {0, 2, 4, 0, 2, 4, 1, 3, 1, 3};
    for (const auto& [subject, all5] : {Subject{x, m.objects}, Subject{extraction, m.holders}}) {
        attr->object(subject);
        std::vector<TNObject*> elements;
        for (size_t k : order)
            elements.push_back(all5[k]);
        objects->script({TNObjectSequence(elements.begin(), elements.end())});
        for (const char* attribute : {"e", "i", "r", "s", "t"}) {
            name->value(attribute);
            size_t expectedTruths = 0;
            for (size_t k : order)
                expectedTruths += attributeValue(*m.objects[k], attribute).asBoolean() ? 1 : 0;
            EXPECT_EQ(truths.count(), expectedTruths) << attribute;
            for (int op = TNRelationalExpr::TNEqual; op <= TNRelationalExpr::TNGreaterEqual; ++op) {
                test->op(static_cast<Op>(op));
                for (const TNValue& c : constants()) {
                    value->value(c);
                    SCOPED_TRACE(std::string(attribute) + " op " + std::to_string(op) + " " +
                                 show(c));
                    TNObjectSequence kept;
                    TNObject* firstTrue = nullptr;
                    TNObject* firstFalse = nullptr;
                    for (size_t i = 0; i < elements.size(); ++i) {
                        const bool holds =
                            reference(op, attributeValue(*m.objects[order[i]], attribute), c);
                        if (holds)
                            kept.push_back(elements[i]);
                        TNObject*& first = holds ? firstTrue : firstFalse;
                        if (first == nullptr)
                            first = elements[i];
                    }
                    EXPECT_EQ(filter(), kept);
                    EXPECT_EQ(filter.count(), kept.size());
                    EXPECT_EQ(x->object().get(), elements.back()); // bound to the last tested
                    EXPECT_EQ(some().asBoolean(), firstTrue != nullptr);
                    EXPECT_EQ(x->object().get(),
                              firstTrue != nullptr ? firstTrue : elements.back());
                    EXPECT_EQ(all().asBoolean(), firstFalse == nullptr);
                    EXPECT_EQ(x->object().get(),
                              firstFalse != nullptr ? firstFalse : elements.back());
                }
            }
        }
    }
    // An element for which the attribute raises (its class lacks it, it has no link or no such
    // role, it has two for ExactlyOne) raises that, after the elements before it were tested;
    // a First extraction takes the first of two links.
    name->value("s");
    test->op(TNRelationalExpr::TNLess);
    value->value("zzz"); // every text of the model is less: nothing stops before the element
    struct Fault {
        TNObjectExprPtr subject;
        TNObject* element;
        TNObjectExtractionExpr::Choice choice;
    };
    const Fault faults[] = {
        {x, m.lacking, TNObjectExtractionExpr::First},
        {extraction, m.holdsLacking, TNObjectExtractionExpr::First},
        {extraction, m.holdsNone, TNObjectExtractionExpr::First},
        {extraction, m.objects[3], TNObjectExtractionExpr::First},
        {extraction, m.holdsTwo, TNObjectExtractionExpr::ExactlyOne},
        {extraction, m.holdsTwo, TNObjectExtractionExpr::First},
    };
    for (const auto& [subject, element, choice] : faults) {
        attr->object(subject);
        extraction->choice(choice);
        const bool viaLink = subject.get() == extraction;
        const std::vector<TNObject*>& before = viaLink ? m.holders : m.objects;
        objects->script({TNObjectSequence{before[0], before[2], element, before[4]}});
        x->object(element);
        const std::string expected = raised([&] { attr->test(); });
        SCOPED_TRACE(expected);
        if (expected == "nothing") { // holdsTwo tests objects[2], its first link
            EXPECT_EQ(filter.count(), 4u);
            continue;
        }
        EXPECT_EQ(raised([&] { filter.count(); }), expected);
        EXPECT_EQ(raised([&] { truths.count(); }), expected);
        EXPECT_EQ(raised([&] { all(); }), expected);
        EXPECT_EQ(x->object().get(), element);
        EXPECT_EQ(some().asBoolean(), true); // stops at the first element, as it always has
    }
    EXPECT_EQ(raised([&] { filter.count(); }), "nothing");
    extraction->choice(TNObjectExtractionExpr::ExactlyOne); // a change the plan sees
    EXPECT_NE(raised([&] { filter.count(); }), "nothing");
    // All objects of a class come as one uniform array, whose elements after the first are
    // decided from their slot or link alone: the same answers, and the same failure where an
    // element raises (S holds holdsNone after its holders).
    extraction->choice(TNObjectExtractionExpr::First);
    auto* className = new TNConstantExpr;
    auto* ofClass = new TNAllInstancesExpr(className, x);
    TNFilterExpr overClass(new TNValueAbsExpr(x, test), ofClass);
    TNSomeExpr someOfClass(ofClass, test, x);
    TNAllExpr allOfClass(ofClass, test, x);
    const std::pair<const char*, TNObjectExprPtr> classes[] = {{"A", x}, {"T", extraction}};
    for (const auto& [cls, subject] : classes) {
        attr->object(subject);
        className->value(cls);
        const TNObjectSequence& elements = m.schema.getClass(cls)->instances();
        for (int op = TNRelationalExpr::TNEqual; op <= TNRelationalExpr::TNGreaterEqual; ++op) {
            test->op(static_cast<Op>(op));
            for (const TNValue& c : constants()) {
                value->value(c);
                SCOPED_TRACE(std::string(cls) + " op " + std::to_string(op) + " " + show(c));
                TNObjectSequence kept; // node by node: the relational node on each element
                TNObject* firstTrue = nullptr;
                TNObject* firstFalse = nullptr;
                for (const auto& element : elements) {
                    x->object(element);
                    const bool holds = test->test();
                    if (holds)
                        kept.push_back(element);
                    TNObject*& firstOfItsKind = holds ? firstTrue : firstFalse;
                    if (firstOfItsKind == nullptr)
                        firstOfItsKind = element.get();
                }
                x->object(m.objects[0]);
                EXPECT_EQ(overClass.count(), kept.size());
                EXPECT_EQ(x->object().get(), elements.back().get());
                EXPECT_EQ(someOfClass().asBoolean(), firstTrue != nullptr);
                EXPECT_EQ(x->object().get(), firstTrue ? firstTrue : elements.back().get());
                EXPECT_EQ(allOfClass().asBoolean(), firstFalse == nullptr);
                EXPECT_EQ(x->object().get(), firstFalse ? firstFalse : elements.back().get());
            }
        }
    }
    className->value("S");
    x->object(m.holdsNone);
    const std::string none = raised([&] { attr->test(); });
    EXPECT_EQ(raised([&] { overClass.count(); }), none);
    EXPECT_EQ(x->object().get(), m.holdsNone);
    TNExprOwner shared;
    adoptCopies(shared, overClass, someOfClass, allOfClass, filter, some, all, truths);
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
    adoptCopies(shared, sorted, probed, below);
}

namespace {
// A host's condition with an effect: it lowers `target`'s "i" below every constant the test
// filters by, and holds.
struct Lowering : TNValueExpr {
    TNObject* target = nullptr;
    mutable int evaluations = 0;
    TNValue operator()() const override {
        ++evaluations;
        (*target)["i"] = -5;
        return TNValue(true);
    }
    void prepareForDeletion() const override {}
};
} // namespace

TEST(TNPlan, ConsumersOfAFilterSeeWhatTheFinishedFilterGives) {
    // A filter of a class's objects by their own slot may hand each element on as it is kept
    // and stop where its consumer stops; the consumer must still see the variable on the last
    // object and the elements a finished filter keeps.
    PlanModel m;
    auto* x = new TNObjectVarExpr(m.objects[0]);
    auto* y = new TNObjectVarExpr;
    auto* kept =
        new TNFilterExpr(new TNValueAbsExpr(x, new TNRelationalExpr(new TNAttrExpr("i", x),
                                                                    TNRelationalExpr::TNGreater,
                                                                    new TNConstantExpr(-3))),
                         new TNAllInstancesExpr("A", x)); // objects 0, 2, 4: i is -2, 0, 2
    TNObjectExtractionExpr first(kept);
    first.choice(TNObjectExtractionExpr::First);
    EXPECT_EQ(first().get(), m.objects[0]);
    EXPECT_EQ(x->object().get(), m.objects[4]);
    first.choice(TNObjectExtractionExpr::ExactlyOne);
    x->object(m.objects[0]);
    EXPECT_EQ(raised([&] { first(); }),
              "ObjectExtraction: association doesn't have exactly one object.");
    EXPECT_EQ(x->object().get(), m.objects[4]);
    // y.i == x.i holds only for the last object, which x is on once the filter is done.
    TNSomeExpr sameAsLast(kept,
                          new TNRelationalExpr(new TNAttrExpr("i", y), TNRelationalExpr::TNEqual,
                                               new TNAttrExpr("i", x)),
                          y);
    x->object(m.objects[0]);
    EXPECT_TRUE(sameAsLast().asBoolean());
    EXPECT_EQ(y->object().get(), m.objects[4]);
    // A condition with an effect sees every element the filter kept before its first visit,
    // though it lowers the last one below the filter's bound on its first evaluation.
    auto* lowering = new Lowering;
    lowering->target = m.objects[4];
    TNAllExpr all(kept, lowering, y);
    EXPECT_TRUE(all().asBoolean());
    EXPECT_EQ(lowering->evaluations, 3);
    TNExprOwner shared;
    adoptCopies(shared, first, sameAsLast, all);
}

TEST(TNPlan, CombinedSlotTestsDecideAsNodeByNode) {
    // Slot tests combined by and, or, not and implies (a search for a literal pattern among
    // them) against the combination evaluated node by node, over runs of two classes; then with
    // an object lacking the attributes, where a test reached raises and one not reached does not.
    ProbeScope scope;
    PlanModel m;
    auto* objects = new ObjectsProbe("objects", {TNObjectSequence()});
    auto* x = new TNObjectVarExpr;
    auto* bound = new TNConstantExpr(1);
    auto* pattern = new TNConstantExpr("ue");
    TNValueExpr* less =
        new TNRelationalExpr(new TNAttrExpr("i", x), TNRelationalExpr::TNLess, bound);
    TNValueExpr* found = new TNRegExpMatchExpr(pattern, new TNAttrExpr("s", x));
    TNValueExpr* truth = new TNAttrExpr("t", x);
    TNValueExpr* low = new TNRelationalExpr(new TNAttrExpr("e", x), TNRelationalExpr::TNEqual,
                                            new TNConstantExpr("low"));
    using B = TNBooleanExpr;
    TNValueExpr* shapes[] = {
        new B(less, B::TNAnd, found),
        new B(found, B::TNOr, truth),
        new B(truth, B::TNNot, nullptr),
        new B(truth, B::TNImplies, less),
        new B(new B(less, B::TNOr, truth), B::TNAnd, new B(found, B::TNNot, nullptr)),
        new B(low, B::TNOr, new B(less, B::TNAnd, truth)),
        new B(found, B::TNOr, low), // the object lacking "s" raises before "e" is read
        // A search in a number is left to the nodes, which search its text.
        new B(new TNRegExpMatchExpr(new TNConstantExpr("1"), new TNAttrExpr("i", x)), B::TNOr, low),
    };
    const size_t order[] = {0, 2, 4, 0, 2, 4, 1, 3, 1, 3};
    TNObjectSequence elements;
    for (size_t k : order)
        elements.push_back(m.objects[k]);
    TNExprOwner shared;
    for (TNValueExpr* shape : shapes) {
        TNFilterExpr filter(new TNValueAbsExpr(x, shape), objects);
        TNSomeExpr some(objects, shape, x);
        TNAllExpr all(objects, shape, x);
        // What a quantifier walking `walked` node by node answers ("true", "false" or what it
        // raises), and the element it leaves its variable on.
        const auto quantified = [&](const TNObjectSequence& walked, bool whileResult) {
            TNObject* last = nullptr;
            bool result = whileResult;
            const std::string failure = raised([&] {
                for (const auto& element : walked) {
                    x->object(last = element.get());
                    if ((result = shape->test()) != whileResult)
                        return;
                }
            });
            return std::pair(failure != "nothing" ? failure : result ? "true" : "false", last);
        };
        for (const TNObjectSequence& walked : {elements, [&] {
                                                   TNObjectSequence withLacking = elements;
                                                   withLacking.insert(withLacking.begin() + 4,
                                                                      m.lacking);
                                                   return withLacking;
                                               }()}) {
            objects->script({walked});
            for (const char* text : {"ue", "", "1", "x"}) {
                pattern->value(text);
                for (int b : {-3, 1, 2}) {
                    bound->value(b);
                    TNObjectSequence kept;
                    const std::string expected = raised([&] {
                        for (const auto& element : walked) {
                            x->object(element);
                            if (shape->test())
                                kept.push_back(element);
                        }
                    });
                    SCOPED_TRACE(std::string(text) + " " + std::to_string(b) + " " + expected);
                    for (TNQuantifierExpr* quantifier : {static_cast<TNQuantifierExpr*>(&some),
                                                         static_cast<TNQuantifierExpr*>(&all)}) {
                        const auto [answer, on] = quantified(walked, quantifier == &all);
                        std::string got;
                        const std::string failure = raised(
                            [&] { got = quantifier->operator()().asBoolean() ? "true" : "false"; });
                        EXPECT_EQ(failure != "nothing" ? failure : got, answer);
                        EXPECT_EQ(x->object().get(), on);
                    }
                    if (expected != "nothing") {
                        EXPECT_EQ(raised([&] { filter.count(); }), expected);
                        continue;
                    }
                    EXPECT_EQ(filter(), kept);
                    EXPECT_EQ(x->object().get(), walked.back().get());
                }
            }
        }
        adoptCopies(shared, filter, some, all);
    }
}
