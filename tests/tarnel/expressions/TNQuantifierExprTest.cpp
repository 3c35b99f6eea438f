#include "tarnel/expressions/TNQuantifierExpr.h"

#include "tarnel/expressions/ExprTestNodes.h"

namespace {

using Objects = TNObjectSequence;

const SgxSimplePtr<TNObject> a = fakeObject(0), b = fakeObject(1), c = fakeObject(2);

} // namespace

TEST(TNQuantifierExpr, StopsAtTheAnswerAndLeavesTheVariableOnIt) {
    ProbeScope scope;
    auto* variable = new TNObjectVarExpr;
    auto* condition = new ValueProbe("condition");
    auto* input = new ObjectsProbe("input", {Objects{a, b, c}});
    TNAllExpr all(input, condition, variable);
    TNSomeExpr some(input, condition, variable);
    const struct {
        const TNValueExpr& node;
        std::vector<TNValue> script;
        bool expected;
        int evaluations;
        SgxSimplePtr<TNObject> last;
    } cases[] = {
        {all, {true, false, true}, false, 2, b}, {all, {true, 1, "true"}, true, 3, c},
        {some, {false, 0, true}, true, 3, c},    {some, {false, true}, true, 2, b},
        {some, {0, 0.5, ""}, false, 3, c}, // asBoolean: 0.5 and "" are false
    };
    for (const auto& q : cases) {
        evaluated.clear();
        condition->script(q.script);
        EXPECT_EQ(q.node().asBoolean(), q.expected);
        EXPECT_EQ(times(evaluated, "condition"), q.evaluations);
        EXPECT_EQ(variable->object(), q.last);
    }
    // Empty: no condition evaluated, variable untouched, and a null variable is no error.
    input->script({Objects{}});
    evaluated.clear();
    all.boundVariable(nullptr);
    some.boundVariable(nullptr);
    EXPECT_TRUE(all().asBoolean());
    EXPECT_FALSE(some().asBoolean());
    EXPECT_EQ(times(evaluated, "condition"), 0);
    EXPECT_EQ(all().myType(), TNVBoolean);
    all.boundVariable(variable);
    deleteOperandsOf(all);
}

TEST(TNObjectSetExpr, ComparesMultisetsOfIdentities) {
    ProbeScope scope;
    using Op = TNObjectSetExpr::TNSetOp;
    const struct {
        Objects lhs;
        int32_t op;
        Objects rhs;
        bool expected;
    } cases[] = {
        {{a, b}, Op::TNSetEqual, {b, a}, true},
        {{a, a}, Op::TNSetEqual, {a, b}, false},
        {{a, a, b}, Op::TNSetEqual, {a, b, a}, true},
        {{a}, Op::TNSetEqual, {a, a}, false},
        {{a, b}, Op::TNSetNotEqual, {b, a}, false},
        {{a}, Op::TNSetNotEqual, {a, a}, true},
        {{a, a}, Op::TNSetNotEqual, {a, b}, true},
        {{a}, Op::TNSubset, {b, a}, true},
        {{a, a}, Op::TNSubset, {a, b, c}, false}, // multiplicity counts
        {{a, b}, Op::TNSubset, {b, a}, true},
        {{a, b}, Op::TNProperSubset, {b, a}, false},
        {{a, c}, Op::TNProperSubset, {c, b, a}, true},
        {{}, Op::TNProperSubset, {a}, true},
        {{a}, 0, {a}, false},
        {{a}, 5, {a}, false},
    };
    for (const auto& t : cases) {
        evaluated.clear();
        TNObjectSetExpr set(new ObjectsProbe("lhs", {t.lhs}), static_cast<Op>(t.op),
                            new ObjectsProbe("rhs", {t.rhs}));
        EXPECT_EQ(set().asBoolean(), t.expected)
            << "op " << t.op << ", sizes " << t.lhs.size() << " and " << t.rhs.size();
        EXPECT_EQ(evaluated, (std::vector<std::string>{"lhs", "rhs"}));
        deleteOperandsOf(set);
    }
}

TEST(TNObjectEqualityExpr, IdentityAndTheLhsSetterAsymmetry) {
    ProbeScope scope;
    using Op = TNObjectEqualityExpr::TNRelOp;
    auto* left = new ObjectProbe("left", {a});
    auto* right = new ObjectProbe("right", {b});
    TNObjectEqualityExpr equal(left, Op::TNEqual, right);
    EXPECT_FALSE(equal().asBoolean());
    equal.op(Op::TNNotEqual);
    EXPECT_TRUE(equal().asBoolean());
    // The lhs setter stores into rhs; the getters read their own fields.
    equal.lhs(left);
    EXPECT_EQ(equal.rhs().get(), left);
    EXPECT_EQ(equal.lhs().get(), left);
    EXPECT_FALSE(equal().asBoolean());
    left->script({nullptr});
    equal.op(Op::TNEqual);
    EXPECT_TRUE(equal().asBoolean()); // two nulls are the same
    equal.op(static_cast<Op>(3));
    EXPECT_FALSE(equal().asBoolean());

    TNObjectSetExpr set(new ObjectsProbe("x"), TNObjectSetExpr::TNSubset, nullptr);
    auto* y = new ObjectsProbe("y");
    set.lhs(y);
    EXPECT_EQ(set.rhs().get(), y);
    EXPECT_NE(set.lhs().get(), y);
    deleteOperandsOf(set);
    equal.rhs(right);
    deleteOperandsOf(equal);
}
