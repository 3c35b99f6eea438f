#include "tarnel/expressions/TNExpr.h"
#include "tarnel/expressions/TNCollectionExpr.h"
#include "tarnel/navigation/TNAssociationTraversal.h"

#include "ExprTestNodes.h"

namespace {

TNArithmeticExpr* plus(const TNValueExprPtr& a, const TNValueExprPtr& b) {
    return new TNArithmeticExpr(a, TNArithmeticExpr::TNPlus, b);
}

// Yields the index i of the object fakeObject(i) that its operand yields, -1 for null.
struct ObjectIndex : TNValueExpr {
    explicit ObjectIndex(const TNObjectExprPtr& object) : m_object(object) {}
    TNValue operator()() const override {
        const SgxSimplePtr<TNObject> object = (*m_object)();
        for (int i = 0; i < 8; ++i)
            if (object == fakeObject(i))
                return TNValue(i);
        return TNValue(-1);
    }
    void prepareForDeletion() const override { tnClaimOperands(m_object); }
    TN_EXPR_FIELD(TNObjectExprPtr, object);
};

} // namespace

TEST(TNExpr, OwnershipDeletesEachNodeOnceAndOnlyFromAClaimedRoot) {
    ProbeScope scope;
    auto* shared = new ValueProbe("shared");
    auto* root = new ValueProbe("root");
    auto* branch = new TNIfValueExpr(new ValueProbe("test", {}, shared),
                                     new ValueProbe("then", {}, shared), nullptr);
    root->first(branch);
    root->second(plus(shared, root)); // a cycle back to the root through the constructor...
    branch->elseExpr(root);           // ...and another through a setter
    shared->first(shared);
    {
        SgxCyclicPtr<TNValueExpr> rootPointer(root);
        rootPointer.takeOwnership();
        rootPointer.takeOwnership(); // a second claim changes nothing
        EXPECT_TRUE(branch->isOwned());
        EXPECT_TRUE(deleted.empty());
    }
    for (const char* name : {"root", "shared", "test", "then"})
        EXPECT_EQ(times(deleted, name), 1) << name;
    const auto sharedAt = std::find(deleted.begin(), deleted.end(), "shared");
    ASSERT_GT(sharedAt - deleted.begin(), 0);
    EXPECT_EQ(*(sharedAt - 1), "test"); // the owner: the If claims testExpr first

    // Graphs never claimed, copies and a Let's handle to its binding delete nothing.
    deleted.clear();
    auto* a = new ValueProbe("a");
    auto* b = new ValueProbe("b");
    auto* unclaimed = new TNIfValueExpr(a, b, a);
    { SgxCyclicPtr<TNValueExpr> neverClaimed(unclaimed); }
    delete unclaimed; // its own pointers never owned anything
    EXPECT_EQ(live, 2);

    auto* claimed = new TNIfValueExpr(a, b, nullptr);
    SgxCyclicPtr<TNValueExpr> claimedPointer(claimed);
    claimedPointer.takeOwnership();
    TNIfValueExpr copy(*claimed);
    EXPECT_FALSE(copy.isOwned());
    claimAndDelete(new TNIfValueExpr(*claimed)); // a copy finds the operands owned already
    claimed->elseExpr(b);                        // a setter deletes nothing either
    claimed->thenExpr(nullptr);
    EXPECT_TRUE(deleted.empty());

    auto* binding = new TNValueBindingExpr(new ValueProbe("bound"));
    claimAndDelete(new TNLetValueExpr(binding, nullptr));
    EXPECT_EQ(live, 3); // the Let's handle to its binding never owns
    claimAndDelete(binding);
    delete b; // released by the setter above
}

TEST(TNExpr, LetEvaluatesItsBindingsOncePerEvaluation) {
    ProbeScope scope;
    auto* binding = new TNValueBindingExpr(new ValueProbe("bound", {TNValue(3), TNValue(10)}));
    TNLetValueExpr let(binding, plus(plus(binding, binding), binding));
    EXPECT_EQ(let().asLongInt(), 9);
    EXPECT_FALSE(binding->cached());
    EXPECT_EQ(let().asLongInt(), 30);
    EXPECT_EQ(times(evaluated, "bound"), 2);

    // Without a Let the first result stays until flushed; a copy takes flag and result.
    TNObjectBindingExpr alone(new ObjectProbe("object", {fakeObject(1), fakeObject(2)}));
    EXPECT_EQ(alone(), fakeObject(1));
    EXPECT_EQ(alone(), fakeObject(1));
    EXPECT_EQ(TNObjectBindingExpr(alone).value(), fakeObject(1));
    alone.flushCache();
    EXPECT_TRUE(alone.value().isNull());
    EXPECT_EQ(alone(), fakeObject(2));

    // Collection bindings the same way: counted twice, computed once.
    auto* objectsBinding = new TNObjectCollectionBindingExpr(
        new ObjectsProbe("objects", {TNObjectSequence{fakeObject(0), fakeObject(0), {}}}));
    TNLetValueExpr count(objectsBinding,
                         plus(new TNCountExpr(objectsBinding), new TNCountExpr(objectsBinding)));
    EXPECT_EQ(count().asLongInt(), 6); // duplicates and nulls count
    EXPECT_EQ(times(evaluated, "objects"), 1);
    EXPECT_TRUE(objectsBinding->value().empty());
    deleteOperandsOf(let), deleteOperandsOf(alone), deleteOperandsOf(count);

    // A binding reached from its own expression: the flag goes up first, the inner use reads
    // the current result (41), or an empty value (0) once flushed.
    auto* cyclic = new TNValueBindingExpr();
    cyclic->expr(plus(constant(1), cyclic));
    cyclic->value(TNValue(41));
    EXPECT_EQ((*cyclic)().asLongInt(), 42);
    cyclic->flushCache();
    EXPECT_EQ((*cyclic)().asLongInt(), 1);
    claimAndDelete(cyclic);

    // An exception inside a binding leaves it cached, with its old, empty result: the Let
    // skips its flush, and the evaluation after flushes it.
    auto* failing = new ValueProbe("failing");
    failing->throws = true;
    auto* failingBinding = new TNValueBindingExpr(failing);
    TNLetValueExpr failingLet(failingBinding, plus(failingBinding, constant(1)));
    EXPECT_EQ(raised([&] { failingLet(); }), "probe failure");
    EXPECT_TRUE(failingBinding->cached());
    EXPECT_EQ(failingLet().myType(), TNVNone);
    EXPECT_EQ(times(evaluated, "failing"), 1);
    EXPECT_EQ(raised([&] { failingLet(); }), "probe failure");
    deleteOperandsOf(failingLet);
}

TEST(TNExpr, IfEvaluatesOnlyTheChosenBranch) {
    ProbeScope scope;
    auto* test = new ValueProbe("test", {TNValue("true"), TNValue("TRUE"), TNValue(0.5)});
    TNIfValueExpr node(test, new ValueProbe("then", {TNValue(1)}), nullptr);
    EXPECT_EQ(node().asLongInt(), 1); // the null branch is not reached
    EXPECT_EQ(raised([&] { node(); }), kNullOperand);
    EXPECT_EQ(raised([&] { node(); }), kNullOperand);
    EXPECT_EQ(evaluated, (Log{"test", "then", "test", "test"}));
    TNIfObjectExpr noTest(nullptr, new ObjectProbe("then"), nullptr);
    EXPECT_EQ(raised([&] { noTest(); }), kNullOperand);
    deleteOperandsOf(node), deleteOperandsOf(noTest);
}

TEST(TNExpr, AbstractionAndApplyBindTheVariable) {
    ProbeScope scope;
    auto* x = new TNObjectVarExpr(fakeObject(5));
    TNValueAbsExpr abstraction(x, new ObjectIndex(x));
    EXPECT_EQ(abstraction(fakeObject(3)).asLongInt(), 3);
    EXPECT_EQ(x->object(), fakeObject(3)); // not restored
    EXPECT_EQ(abstraction(nullptr).asLongInt(), -1);

    auto* sharing = new TNValueAbsExpr(abstraction); // shares the variable and the body
    TNApplyValueExpr apply(sharing, new ObjectProbe("parameter", {fakeObject(2)}));
    EXPECT_EQ(apply().asLongInt(), 2);
    apply.abstraction(nullptr); // raises only after the parameter is evaluated
    EXPECT_EQ(raised([&] { apply(); }), kNullOperand);
    EXPECT_EQ(times(evaluated, "parameter"), 2);

    TNObjectAbsExpr noVariable(nullptr, new ObjectProbe("body"));
    EXPECT_EQ(raised([&] { noVariable(fakeObject(0)); }),
              "Null dereference of SgxCyclicPtr<T>::operator->() const");
    deleteOperandsOf(abstraction), deleteOperandsOf(apply), deleteOperandsOf(noVariable);
    delete sharing; // let go by the setter, and owning nothing
}

// Plans are kept while tn_detail::graphChanges stays put, so every way of changing what a graph
// computes must advance it, and binding a variable, which happens per element, must not.
TEST(TNExpr, EveryChangeToAGraphIsCountedAndBindingIsNot) {
    auto* constant = new TNConstantExpr(TNValue(1));
    auto* sum = plus(constant, constant);
    auto* variable = new TNObjectVarExpr();
    auto* index = new ObjectIndex(variable);
    auto* sort = new TNSortExpr();
    auto* step = new TNAssociationTraversal("owner", true);
    const std::pair<const char*, std::function<void()>> changes[] = {
        {"field setter", [&] { sum->rhs(index); }},
        {"host node's field setter", [&] { index->object(variable); }},
        {"node assigned over another", [&] { *sum = TNArithmeticExpr(); }},
        {"constant's value", [&] { constant->value(TNValue(2)); }},
        {"sort key appended", [&] { sort->key(nullptr, true); }},
        {"traversal's name", [&] { step->setAssociationToTraverse("class"); }},
        {"traversal's flag", [&] { step->setDepthFirstEvaluation(true); }},
        {"traversal's child", [&] { step->setChild(nullptr); }},
    };
    for (const auto& [what, change] : changes) {
        const uint64_t before = tn_detail::graphChanges.load();
        change();
        EXPECT_GT(tn_detail::graphChanges.load(), before) << what;
    }
    const uint64_t before = tn_detail::graphChanges.load();
    variable->object(fakeObject(1));
    EXPECT_EQ(tn_detail::graphChanges.load(), before);
    for (SgxObject* node : std::initializer_list<SgxObject*>{constant, sum, variable, index, sort})
        delete node;
    delete step;
}
