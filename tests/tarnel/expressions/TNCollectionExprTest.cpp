#include "tarnel/expressions/TNCollectionExpr.h"

#include "tarnel/expressions/ExprTestNodes.h"
#include "tarnel/navigation/NavigationTestModel.h"

#include <algorithm>
#include <tuple>

namespace {

using Objects = TNObjectSequence;

// a, b, c, d with sizes 2, 1, 2, 1 and a -next-> b, c.
struct Four : NodeModel {
    Four() {
        for (auto [n, size] : {std::pair{"a", 2}, {"b", 1}, {"c", 2}, {"d", 1}})
            o.push_back(make(n, size));
        link(o[0], {o[1], o[2]});
    }
    Objects seq(std::initializer_list<int> indexes) const {
        Objects result;
        for (int i : indexes)
            result.push_back(o[static_cast<size_t>(i)]);
        return result;
    }
    std::vector<TNObject*> o;
};

// What a filter of `collection` by `attribute op value` keeps, counts, leaves its variable on
// (or raises). Opaque: the test wrapped in a double negation, which is evaluated node by node
// where the plain test is compared by the filter itself.
std::string filterOutcome(const char* attribute, TNRelationalExpr::TNRelOp op, const TNValue& value,
                          TNObjectCollectionExpr* collection, bool opaque) {
    SgxCyclicPtr<TNObjectVarExpr> x = new TNObjectVarExpr;
    TNValueExprPtr test = new TNRelationalExpr(new TNAttrExpr(attribute, x), op, constant(value));
    if (opaque)
        test = new TNBooleanExpr(new TNBooleanExpr(test, TNBooleanExpr::TNNot, nullptr),
                                 TNBooleanExpr::TNNot, nullptr);
    auto* filter = new TNFilterExpr(new TNValueAbsExpr(x, test), collection);
    std::string kept = raised([&] {
        const std::string keptNames = names((*filter)());
        throw SgxException(keptNames + " #" + std::to_string(filter->count()));
    });
    const TNObject* last = x->object().get();
    kept += " @" + (last == nullptr ? "-" : last->getClass() ? (*last)["name"].asString() : "?");
    release(filter);
    return kept;
}

} // namespace

TEST(TNAllInstancesExpr, ClassInstancesOldestFirstAndTheModelRoot) {
    Four m;
    m.make("leaf", 0, true);
    auto* object = new TNObjectVarExpr(m.o[3]);
    TNAllInstancesExpr all("Node", object);
    TNModelExpr model(object);
    EXPECT_EQ(names(all()), "a b c d");
    EXPECT_EQ(all.count(), 4u);
    // Visiting walks the instances in place: it stops when told, and objects made meanwhile
    // are not visited (nor is the growing vector read past its old end).
    Objects visited;
    all.forEach([&](const SgxSimplePtr<TNObject>& node) {
        visited.push_back(node);
        m.make("late");
        return visited.size() < 3;
    });
    EXPECT_EQ(names(visited), "a b c");
    visited.clear();
    all.forEach([&](const SgxSimplePtr<TNObject>& node) {
        visited.push_back(node);
        return true;
    });
    EXPECT_EQ(names(visited), "a b c d late late late");
    EXPECT_EQ(model().get(), nullptr);
    m.schema.setRoot(m.o[1]);
    EXPECT_EQ(model().get(), m.o[1]);
    static_cast<TNConstantExpr&>(*all.name()).value(TNValue("Nope"));
    EXPECT_TRUE(all().empty()); // an unknown class
    EXPECT_EQ(all.count(), 0u);
    all.forEach([](const SgxSimplePtr<TNObject>&) -> bool { throw SgxException("visited"); });
    object->object(nullptr);
    EXPECT_EQ(raised([&] { all(); }), "Null dereference");
    EXPECT_EQ(raised([&] { model(); }), "Null dereference");
    deleteOperandsOf(all);
    release(new TNAllInstancesExpr("Node", nullptr)); // the constant it made is freed
}

TEST(TNAllInstancesExpr, ManyInstancesVisitedInBatchesAsTheyWereWhenTheVisitBegan) {
    // More instances than one batch holds: visits stop where told, objects made meanwhile are
    // neither visited nor read, and a map over them keeps their order.
    NodeModel m;
    constexpr int made = 700;
    for (int i = 0; i < made; ++i)
        m.make("n" + std::to_string(i), i);
    auto* object = new TNObjectVarExpr(m.make("last", made));
    TNAllInstancesExpr all("Node", object);
    Objects visited;
    all.forEach([&](const SgxSimplePtr<TNObject>& node) {
        visited.push_back(node);
        m.make("late"); // the vector of instances grows, and moves, while it is visited
        return visited.size() < 600;
    });
    ASSERT_EQ(visited.size(), 600u);
    EXPECT_EQ((*visited[599])["name"].asString(), "n599");
    visited.clear();
    all.forEach([&](const SgxSimplePtr<TNObject>& node) {
        visited.push_back(node);
        return true;
    });
    EXPECT_EQ(visited.size(), static_cast<size_t>(made + 1 + 600));
    EXPECT_EQ(visited, m.node->objects());
    TNMapExpr sizes(attributeOf("size"), new TNAllInstancesExpr("Node", object));
    const TNStringSequence texts = sizes();
    ASSERT_EQ(texts.size(), visited.size());
    EXPECT_EQ(texts[0], "0");
    EXPECT_EQ(texts[made - 1], std::to_string(made - 1));
    EXPECT_EQ(texts[made], std::to_string(made));
    deleteOperandsOf(sizes); // deletes the shared variable
    all.object(nullptr);
    deleteOperandsOf(all);
}

TEST(TNMapExpr, CountsOfLinksOverThousandsOfMixedElementsAgreeWithTheModel) {
    // A map counting each element's links, or those an attribute test keeps, loads what it reads
    // a few elements ahead and compares uniform arrays itself. The elements here mix two classes
    // and host copies; hubs have no link, one (held in the link word), a few, or more than are
    // loaded ahead, to objects of one class, of the other, or of both; links are lists before
    // the freeze and arrays after. Each count must be what the model holds, and the test's
    // variable must be left on the last object compared; under the sanitizers, nothing may be
    // read outside an object or an array. Last, an element of no class, and one whose link holds
    // a literal index outside its type: the map raises when its turn comes, and not before.
    ProbeScope scope;
    NodeModel m;
    constexpr int hubCount = 3000;
    std::vector<TNObject*> hubs;
    std::vector<int> linked, linkedPublic;
    TNObject* lastCompared = nullptr;
    for (int i = 0; i < hubCount; ++i) {
        const bool isLeaf = i % 7 == 3;
        hubs.push_back(m.make("hub" + std::to_string(i), 0, isLeaf));
        const int links = isLeaf ? 0 : i % 13 == 0 ? 20 : i % 5;
        linked.push_back(links), linkedPublic.push_back(0);
        for (int k = 0; k < links; ++k) {
            TNObject* target = m.make("t", 0, i % 11 == 5 || (i % 17 == 8 && k == 0));
            (*target)["visibility"] = (i + k) % 3 == 0 ? "public" : "private";
            linkedPublic.back() += (i + k) % 3 == 0;
            hubs.back()->associate(target, "next");
            lastCompared = target;
        }
    }
    // Then a hub whose links hold a host copy, which stands for its original.
    const TNObject copiedTarget = *lastCompared;
    hubs.push_back(m.make("copyHub"));
    TNObject* publicTarget = m.make("t");
    (*publicTarget)["visibility"] = "public";
    hubs.back()->associate(publicTarget, "next");
    hubs.back()->associate(const_cast<TNObject*>(&copiedTarget), "next");
    linked.push_back(2);
    linkedPublic.push_back(1 + (copiedTarget["visibility"].asString() == "public"));
    // And one with a plain array, so that the variable is left by the map's own comparison.
    hubs.push_back(m.make("lastHub"));
    lastCompared = m.make("t");
    (*lastCompared)["visibility"] = "private";
    hubs.back()->associate(publicTarget, "next");
    hubs.back()->associate(lastCompared, "next");
    linked.push_back(2), linkedPublic.push_back(1);
    const TNObject copyA = *hubs[10], copyB = *hubs[2004];
    Objects elements(hubs.begin(), hubs.end());
    elements.insert(elements.begin() + 100, SgxSimplePtr<TNObject>(const_cast<TNObject*>(&copyA)));
    elements.insert(elements.begin() + 2500, SgxSimplePtr<TNObject>(const_cast<TNObject*>(&copyB)));
    auto expected = [&](const std::vector<int>& counts) {
        TNStringSequence texts;
        for (int count : counts)
            texts.push_back(std::to_string(count));
        texts.insert(texts.begin() + 100, texts[10]);
        texts.insert(texts.begin() + 2500, texts[2004 + 1]);
        return texts;
    };
    SgxCyclicPtr<TNObjectVarExpr> y = new TNObjectVarExpr;
    auto countOf = [&](bool onlyPublic) {
        SgxCyclicPtr<TNObjectVarExpr> x = new TNObjectVarExpr;
        TNObjectCollectionExprPtr links =
            new TNAssociationExpr(new TNAssociationTraversal("next", true), x);
        if (onlyPublic)
            links = new TNFilterExpr(
                new TNValueAbsExpr(y, new TNRelationalExpr(new TNAttrExpr("visibility", y),
                                                           TNRelationalExpr::TNEqual,
                                                           new TNConstantExpr("public"))),
                links);
        return new TNMapExpr(new TNValueAbsExpr(x, new TNCountExpr(links)),
                             new ObjectsProbe("elements", {elements}));
    };
    TNMapExpr* all = countOf(false);
    TNMapExpr* onlyPublic = countOf(true);
    for (const bool frozen : {false, true}) {
        if (frozen)
            m.schema.donePopulating();
        for (int evaluation = 0; evaluation < 2; ++evaluation) { // the second with kept plans
            EXPECT_EQ((*all)(), expected(linked)) << frozen;
            y->object(nullptr);
            EXPECT_EQ((*onlyPublic)(), expected(linkedPublic)) << frozen;
            EXPECT_EQ(y->object().get(), lastCompared) << frozen;
        }
    }
    const TNObject classless;
    TNObject* bad = m.make("bad");
    if (!tnCheckedBuild()) // which refuses an index outside the type
        (*bad)["visibility"] = 7;
    TNObject* badHub = m.make("badHub");
    badHub->associate(m.make("fine"), "next");
    badHub->associate(bad, "next");
    m.schema.donePopulating();
    for (TNObject* last : {const_cast<TNObject*>(&classless), badHub}) {
        if (last == badHub && tnCheckedBuild())
            continue;
        Objects withLast = elements;
        withLast.push_back(last);
        const std::string raisedByLast =
            raised([&] { (*onlyPublic->function())(SgxSimplePtr<TNObject>(last)); });
        ASSERT_NE(raisedByLast, "nothing");
        for (TNMapExpr* map : {all, onlyPublic}) {
            static_cast<ObjectsProbe&>(*map->collection()).script({withLast});
            if (map == onlyPublic || last == &classless)
                EXPECT_EQ(raised([&] { (*map)(); }), raisedByLast);
            else
                EXPECT_EQ((*map)().back(), "2");
        }
    }
    release(all), release(onlyPublic);
}

TEST(TNCollectionExpr, FilterTraverseReverseMapUniqueKeepOrder) {
    ProbeScope scope;
    Four m;
    auto input = [&] { return new ObjectsProbe("input", {m.seq({0, 1, 0, 2})}); };
    // Keeps size 2: the predicate yields size - 1, and a non-boolean 1 reads true.
    SgxCyclicPtr<TNObjectVarExpr> x = new TNObjectVarExpr;
    TNFilterExpr filter(new TNValueAbsExpr(x, new TNArithmeticExpr(new TNAttrExpr("size", x),
                                                                   TNArithmeticExpr::TNMinus,
                                                                   new TNConstantExpr(1))),
                        input());
    EXPECT_EQ(names(filter()), "a a c");
    // a's path yields b, c; the others' nothing.
    SgxCyclicPtr<TNObjectVarExpr> y = new TNObjectVarExpr;
    TNTraverseExpr traverse(
        new TNObjectCollectionAbsExpr(
            y, new TNAssociationExpr(new TNAssociationTraversal("next", true), y)),
        input());
    EXPECT_EQ(names(traverse()), "b c b c");
    TNReverseExpr reverse(input());
    EXPECT_EQ(names(reverse()), "c a b a");
    TNMapExpr map(attributeOf("size"), input());
    EXPECT_EQ(map(), (TNStringSequence{"2", "1", "2", "2"}));
    TNUniqueExpr stable(input(), true), unstable(input(), false);
    EXPECT_EQ(names(stable()), "a b c"); // first occurrences
    Objects identityOrder = m.seq({0, 1, 2});
    std::sort(identityOrder.begin(), identityOrder.end(), std::less<>());
    EXPECT_EQ(unstable(), identityOrder);
    TNMapExpr empty(attributeOf("size"), new TNReverseExpr(new ObjectsProbe("empty", {Objects{}})));
    EXPECT_TRUE(empty().empty());
    deleteOperandsOf(filter), deleteOperandsOf(traverse), deleteOperandsOf(reverse);
    deleteOperandsOf(map), deleteOperandsOf(stable), deleteOperandsOf(unstable);
    deleteOperandsOf(empty);
}

TEST(TNFilterExpr, AttributeTestsAgreeWithEvaluatingThePredicate) {
    // attr == constant and attr != constant are compared by the filter itself; the same test
    // wrapped in a double negation is evaluated node by node. Both keep the same elements and
    // leave the variable on the last element, and both raise on a null element.
    ProbeScope scope;
    Four m;
    (*m.o[1])["visibility"] = "private";
    (*m.o[3])["visibility"] = "private";
    TNObject* leaf = m.make("leaf", 2, true);
    (*leaf)["visibility"] = "private";
    TNObject* outside = m.make("outside", 2);
    if (!tnCheckedBuild()) // which refuses an index outside the type
        (*outside)["visibility"] = 7;
    TNObject classless; // made by no class: it has no attributes at all
    const std::tuple<const char*, TNValue> tests[] = {
        {"visibility", "private"}, {"visibility", "nope"}, {"name", "c"}, {"size", 2}};
    for (const auto op : {TNRelationalExpr::TNEqual, TNRelationalExpr::TNNotEqual}) {
        for (const auto& [attribute, value] : tests) {
            SCOPED_TRACE(std::string(attribute) +
                         (op == TNRelationalExpr::TNEqual ? " == " : " != ") + show(value));
            auto filterOn = [&](const Objects& input, bool opaque) {
                return filterOutcome(attribute, op, value, new ObjectsProbe("input", {input}),
                                     opaque);
            };
            // Runs of one class, a subclass object between them, and a literal index outside
            // the type after a run (the filter's per-class shortcut must not answer for it).
            for (const Objects& input :
                 {m.seq({0, 1, 2, 3}), Objects{m.o[0], nullptr},
                  Objects{m.o[0], m.o[1], leaf, m.o[2], m.o[3]},
                  Objects{m.o[0], m.o[1], m.o[2], outside}, Objects{&classless, m.o[0]}})
                EXPECT_EQ(filterOn(input, false), filterOn(input, true));
        }
    }
    EXPECT_EQ(live, 0);
}

TEST(TNFilterExpr, AttributeTestsOverFrozenLinksAgreeWithThePredicate) {
    // A frozen array of links to objects of one class is compared by reading each slot alone;
    // arrays mixing classes, holding a copy, or holding a literal index outside the type must
    // give what the predicate evaluated node by node gives, raising included.
    NodeModel m;
    auto hubWith = [&](std::initializer_list<TNObject*> targets) {
        TNObject* hub = m.make("hub");
        m.link(hub, targets);
        return hub;
    };
    auto node = [&](const char* name, const char* visibility, bool isLeaf = false) {
        TNObject* o = m.make(name, 0, isLeaf);
        (*o)["visibility"] = visibility;
        return o;
    };
    TNObject* bad = node("bad", "public");
    if (!tnCheckedBuild()) // which refuses an index outside the type
        (*bad)["visibility"] = 7;
    TNObject* copied = node("copied", "private");
    const TNObject copy = *copied;
    const std::vector<TNObject*> hubs = {
        hubWith({node("a", "public"), node("b", "private"), node("c", "public")}),
        hubWith({node("d", "public"), node("e", "private", true), node("f", "public")}),
        hubWith({node("g", "private"), const_cast<TNObject*>(&copy), node("h", "public")}),
        hubWith({node("i", "public"), bad, node("j", "public")}),
    };
    m.schema.donePopulating();
    // Last, an object of a uniform array made a copy of another after the freeze: it must read
    // the other's slot from then on.
    for (const bool overwritten : {false, true}) {
        if (overwritten)
            *hubs[0]->objects("next")[1] = *hubs[0]->objects("next")[0];
        for (const auto op : {TNRelationalExpr::TNEqual, TNRelationalExpr::TNNotEqual}) {
            for (TNObject* hub : hubs) {
                auto filterOn = [&](bool opaque) {
                    return filterOutcome(
                        "visibility", op, "public",
                        new TNAssociationExpr(new TNAssociationTraversal("next", true),
                                              new TNObjectVarExpr(hub)),
                        opaque);
                };
                EXPECT_EQ(filterOn(false), filterOn(true));
            }
        }
    }
}

TEST(TNFilterExpr, KeptAttributeTestFollowsChangesToItsNodesAndTheSchema) {
    // A filter keeps what it recognized its predicate as, and the comparison it prepared, from
    // one evaluation to the next. After each change to a node of the predicate or to the
    // enumeration type, the filter must agree with the same test wrapped in a double negation,
    // which shares the changed nodes and is evaluated node by node: over frozen links (whole
    // arrays of one class) and over all instances (one element at a time).
    NodeModel m;
    TNObject* hub = m.make("hub");
    std::vector<TNObject*> linked;
    for (const char* visibility : {"public", "private", "public", "private"}) {
        linked.push_back(m.make("n" + std::to_string(linked.size())));
        (*linked.back())["visibility"] = visibility;
    }
    m.link(hub, {linked[0], linked[1], linked[2], linked[3]});
    m.schema.donePopulating();

    SgxCyclicPtr<TNObjectVarExpr> x = new TNObjectVarExpr;
    auto* attr = new TNAttrExpr("visibility", x);
    auto* value = new TNConstantExpr("public");
    auto* test = new TNRelationalExpr(attr, TNRelationalExpr::TNEqual, value);
    auto* notNot = new TNBooleanExpr(new TNBooleanExpr(test, TNBooleanExpr::TNNot, nullptr),
                                     TNBooleanExpr::TNNot, nullptr);
    SgxCyclicPtr<TNObjectVarExpr> input = new TNObjectVarExpr(hub);
    auto sources = [&] {
        return std::vector<TNObjectCollectionExprPtr>{
            new TNAssociationExpr(new TNAssociationTraversal("next", true), input),
            new TNAllInstancesExpr("Node", input)};
    };
    std::vector<TNFilterExpr*> plain, opaque;
    for (const TNObjectCollectionExprPtr& source : sources())
        plain.push_back(new TNFilterExpr(new TNValueAbsExpr(x, test), source));
    for (const TNObjectCollectionExprPtr& source : sources())
        opaque.push_back(new TNFilterExpr(new TNValueAbsExpr(x, notNot), source));
    auto agree = [&](const std::string& step, const std::string& expected) {
        SCOPED_TRACE(step);
        for (size_t i = 0; i < plain.size(); ++i) {
            // Twice: the second evaluation runs from what the first one kept.
            for (int round = 0; round < 2; ++round) {
                EXPECT_EQ(names((*plain[i])()), names((*opaque[i])()));
                EXPECT_EQ(plain[i]->count(), opaque[i]->count());
            }
        }
        EXPECT_EQ(names((*plain[0])()), expected);
        // A copy derives its own plan and agrees too.
        const TNFilterExpr copy = *plain[0];
        EXPECT_EQ(names(copy()), expected);
    };
    agree("== public", "n0 n2");
    value->value(TNValue("private"));
    agree("== private", "n1 n3");
    test->op(TNRelationalExpr::TNNotEqual);
    agree("!= private", "n0 n2");
    value->value(TNValue("secret")); // no such literal yet
    agree("!= secret", "n0 n1 n2 n3");
    test->op(TNRelationalExpr::TNEqual);
    agree("== secret", "");
    // The type gains the literal the constant names; no node changes.
    m.schema.getEnumType("Visibility")->addName("secret");
    (*linked[2])["visibility"] = "secret";
    agree("== secret, now a literal", "n2");
    // A literal index outside the type, met by a walk running from a kept comparison (which
    // a checked build refuses to assign).
    if (!tnCheckedBuild()) {
        (*linked[1])["visibility"] = 9;
        for (size_t i = 0; i < plain.size(); ++i)
            EXPECT_EQ(raised([&] { (*plain[i])(); }), raised([&] { (*opaque[i])(); }));
    }
    (*linked[1])["visibility"] = "private";
    // Another attribute, of another kind, then another comparison altogether.
    static_cast<TNConstantExpr&>(*attr->name()).value(TNValue("name"));
    value->value(TNValue("n3"));
    agree("name == n3", "n3");
    test->lhs(new TNAttrExpr("size", x));
    value->value(TNValue(0));
    agree("size == 0", "n0 n1 n2 n3");
    // A filter assigned over another takes its operands, and its own kept plan is dropped.
    const SgxCyclicPtr<TNValueAbsExpr> replacedPredicate = plain[1]->predicate();
    const TNObjectCollectionExprPtr replacedSource = plain[1]->collection();
    *plain[1] = *plain[0];
    EXPECT_EQ(names((*plain[1])()), "n0 n1 n2 n3");

    // The graphs share nodes: every root is claimed before any is deleted.
    std::vector<SgxCyclicPtr<SgxCyclicPtrBody>> roots = {replacedPredicate, replacedSource,
                                                         SgxCyclicPtr<TNValueExpr>(attr)};
    for (TNFilterExpr* filter : {plain[0], plain[1], opaque[0], opaque[1]})
        roots.push_back(SgxCyclicPtr<TNObjectCollectionExpr>(filter));
    for (const auto& root : roots)
        root.takeOwnership();
}

TEST(TNSortExpr, TwoKeysGroupByTheFirstAndOrderByTheSecond) {
    ProbeScope scope;
    Four m;
    m.o.push_back(m.make("a", 5));
    m.o.push_back(m.make("b", 7));
    const Objects input = m.seq({0, 1, 2, 3, 4, 5}); // a2 b1 c2 d1 a5 b7
    auto sorted = [&](TNValueAbsExpr* first, bool ascending, TNValueAbsExpr* second) {
        auto* sort = new TNSortExpr;
        sort->collection(new ObjectsProbe("input", {input}));
        sort->key(first, ascending);
        if (second)
            sort->key(second, false);
        std::string text;
        for (const auto& o : (*sort)())
            text += (text.empty() ? "" : " ") + (*o)["name"].asString() + (*o)["size"].asString();
        // Where the walk left the first key's variable (the last element before the runs were
        // sorted by the second key).
        text += " @" + (*sort->keys()[0].key->contextObject()->object())["name"].asString();
        release(sort);
        return text;
    };
    EXPECT_EQ(sorted(attributeOf("name"), true, attributeOf("size")), "a5 a2 b7 b1 c2 d1 @d");
    EXPECT_EQ(sorted(attributeOf("size"), false, attributeOf("name")), "b7 a5 c2 a2 d1 b1 @d");
    // A key the sort cannot see through (a conversion of the name) is evaluated per comparison;
    // the order and the variable's last binding are the same.
    SgxCyclicPtr<TNObjectVarExpr> x = new TNObjectVarExpr;
    auto* opaque = new TNValueAbsExpr(
        x, new TNConversionExpr(new TNAttrExpr("name", x), TNVString, TNVString));
    EXPECT_EQ(sorted(opaque, true, attributeOf("size")), "a5 a2 b7 b1 c2 d1 @d");
    // Keys that compare inconsistently (TNVNone is less than itself) still give a permutation.
    SgxCyclicPtr<TNObjectVarExpr> z = new TNObjectVarExpr;
    const std::string none = sorted(new TNValueAbsExpr(z, new TNConstantExpr), true, nullptr);
    EXPECT_EQ(std::count(none.begin(), none.end(), ' '), 6);

    // Fewer than two elements or no keys: no key is evaluated.
    auto* few = new ObjectsProbe("input", {m.seq({0})});
    SgxCyclicPtr<TNObjectVarExpr> w = new TNObjectVarExpr;
    TNSortExpr sort;
    sort.collection(few);
    EXPECT_EQ(names(sort()), "a"); // no keys
    sort.key(new TNValueAbsExpr(w, new ValueProbe("key")), true);
    EXPECT_EQ(names(sort()), "a");
    few->script({Objects{}});
    EXPECT_TRUE(sort().empty());
    EXPECT_EQ(times(evaluated, "key"), 0);
    few->script({m.seq({1, 0})});
    EXPECT_EQ(sort().size(), 2u);
    EXPECT_EQ(times(evaluated, "key"), 4); // one comparison (two keys), then the walk
    deleteOperandsOf(sort);
}

// An extraction of a navigation takes the links where a frozen slot holds them (an array, or the
// one link in the slot's word): the same objects and failures as the lists before the freeze, for
// none, one and two links, both choices, a null start and classes alternating.
TEST(TNObjectExtractionExpr, NavigatedLinksAsBeforeTheFreeze) {
    Four m; // a -next-> b, c
    TNObject* leaf = m.make("leaf", 0, true);
    m.link(m.o[3], {leaf});
    const std::vector<TNObject*> starts = {m.o[0], leaf, m.o[3], nullptr, m.o[1], m.o[2], leaf};
    std::vector<std::pair<TNObjectExtractionExpr*, SgxCyclicPtr<TNObjectVarExpr>>> extractions;
    for (const char* role : {"next", "prev"})
        for (const auto choice :
             {TNObjectExtractionExpr::ExactlyOne, TNObjectExtractionExpr::First}) {
            SgxCyclicPtr<TNObjectVarExpr> x = new TNObjectVarExpr;
            auto* e = new TNObjectExtractionExpr(
                new TNAssociationExpr(new TNAssociationTraversal(role, true), x));
            e->choice(choice);
            extractions.emplace_back(e, x);
        }
    const auto outcomes = [&] {
        std::string all;
        for (const auto& [extraction, x] : extractions)
            for (TNObject* start : starts) {
                x->object(start);
                all += raised([&] { throw SgxException((*(*extraction)())["name"].asString()); });
                all += "|";
            }
        return all;
    };
    const std::string one = "ObjectExtraction: association doesn't have exactly one object.";
    const std::string none = "ObjectExtraction: association doesn't have one or more objects.";
    const std::string null = raised([] { (void)*SgxSimplePtr<TNObject>(); });
    const std::string rows[] = {one,  one,  "leaf", null, one,  one,  one,  // next, exactly one
                                "b",  none, "leaf", null, none, none, none, // next, first
                                one,  "d",  one,    null, "a",  "a",  "d",  // prev, exactly one
                                none, "d",  none,   null, "a",  "a",  "d"}; // prev, first
    std::string expected;
    for (const std::string& row : rows)
        expected += row + "|";
    EXPECT_EQ(outcomes(), expected);
    m.schema.donePopulating();
    EXPECT_EQ(outcomes(), expected);
    for (const auto& [extraction, x] : extractions)
        release(extraction);
}

TEST(TNObjectExtractionExpr, CardinalityFailuresAndChoices) {
    ProbeScope scope;
    Four m;
    const std::string exactlyOne = "ObjectExtraction: association doesn't have exactly one object.";
    const std::string oneOrMore = "ObjectExtraction: association doesn't have one or more objects.";
    const std::tuple<int32_t, Objects, std::string> rows[] = {
        {0, {}, exactlyOne}, {0, m.seq({0, 1}), exactlyOne}, {0, m.seq({1}), "b"},
        {1, {}, oneOrMore},  {1, m.seq({0, 1}), "a"},        {7, m.seq({2, 1}), "c"},
    };
    for (const auto& [choice, input, expected] : rows) {
        SCOPED_TRACE("choice " + std::to_string(choice) + ", " + std::to_string(input.size()));
        TNObjectExtractionExpr extract(new ObjectsProbe("input", {input}));
        extract.choice(static_cast<TNObjectExtractionExpr::Choice>(choice));
        const std::string got = raised([&] {
            if (const auto o = extract())
                throw SgxException((*o)["name"].asString());
        });
        EXPECT_EQ(got, expected);
        deleteOperandsOf(extract);
    }
}
