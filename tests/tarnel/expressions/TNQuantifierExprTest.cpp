#include "tarnel/expressions/TNQuantifierExpr.h"

#include "tarnel/expressions/ExprTestNodes.h"

#include <tuple>

namespace {

using Objects = TNObjectSequence;

const SgxSimplePtr<TNObject> a = fakeObject(0), b = fakeObject(1), c = fakeObject(2);

// The objects named by the letters of `names`, "a" for fakeObject(0).
Objects objects(const std::string& names) {
    Objects result;
    for (const char name : names)
        result.push_back(fakeObject(name - 'a'));
    return result;
}

} // namespace

TEST(TNQuantifierExpr, StopsAtTheAnswerAndLeavesTheVariableOnIt) {
    ProbeScope scope;
    auto* variable = new TNObjectVarExpr;
    auto* condition = new ValueProbe("condition");
    auto* input = new ObjectsProbe("input", {Objects{a, b, c}});
    TNAllExpr all(input, condition, variable);
    TNSomeExpr some(input, condition, variable);
    // quantifier, condition results, result, condition evaluations, the variable's object
    const std::tuple<const TNValueExpr&, std::vector<TNValue>, bool, int, SgxSimplePtr<TNObject>>
        rows[] = {
            {all, {true, false, true}, false, 2, b}, {all, {true, 1, "true"}, true, 3, c},
            {some, {false, 0, true}, true, 3, c},    {some, {false, true}, true, 2, b},
            {some, {0, 0.5, ""}, false, 3, c}, // asBoolean: 0.5 and "" are false
        };
    for (const auto& [node, script, expected, evaluations, last] : rows) {
        SCOPED_TRACE(&node == &all ? "all" : "some");
        evaluated.clear();
        condition->script(script);
        EXPECT_EQ(node().asBoolean(), expected);
        EXPECT_EQ(times(evaluated, "condition"), evaluations);
        EXPECT_EQ(variable->object(), last);
    }
    // Empty: no condition evaluated, variable untouched, and a null variable is no error.
    input->script({Objects{}});
    evaluated.clear();
    all.boundVariable(nullptr);
    some.boundVariable(nullptr);
    EXPECT_TRUE(all().asBoolean());
    EXPECT_FALSE(some().asBoolean());
    EXPECT_EQ(times(evaluated, "condition"), 0);
    all.boundVariable(variable);
    deleteOperandsOf(all);
}

TEST(TNObjectSetExpr, MultisetsIdentitiesAndTheLhsSetterAsymmetry) {
    ProbeScope scope;
    using Op = TNObjectSetExpr::TNSetOp;
    // Unknown operators yield false.
    const std::tuple<const char*, Op, const char*, bool> rows[] = {
        {"ab", Op::TNSetEqual, "ba", true},      {"aa", Op::TNSetEqual, "ab", false},
        {"aab", Op::TNSetEqual, "aba", true},    {"a", Op::TNSetEqual, "aa", false},
        {"ab", Op::TNSetNotEqual, "ba", false},  {"a", Op::TNSetNotEqual, "aa", true},
        {"aa", Op::TNSetNotEqual, "ab", true},   {"a", Op::TNSubset, "ba", true},
        {"aa", Op::TNSubset, "abc", false},      {"ab", Op::TNSubset, "ba", true},
        {"ab", Op::TNProperSubset, "ba", false}, {"ac", Op::TNProperSubset, "cba", true},
        {"", Op::TNProperSubset, "a", true},     {"aabbc", Op(0), "aabbc", false},
        {"aabbc", Op(5), "aabbc", false},
    };
    for (const auto& [lhs, op, rhs, expected] : rows) {
        SCOPED_TRACE(lhs + (" op " + std::to_string(op) + " ") + rhs);
        evaluated.clear();
        TNObjectSetExpr set(new ObjectsProbe("lhs", {objects(lhs)}), op,
                            new ObjectsProbe("rhs", {objects(rhs)}));
        EXPECT_EQ(set().asBoolean(), expected);
        EXPECT_EQ(evaluated, (Log{"lhs", "rhs"}));
        deleteOperandsOf(set);
    }

    // Object equality is identity; both operators' lhs setters store into rhs.
    using EqOp = TNObjectEqualityExpr::TNRelOp;
    auto* left = new ObjectProbe("left", {a});
    auto* right = new ObjectProbe("right", {b});
    TNObjectEqualityExpr equal(left, EqOp::TNEqual, right);
    EXPECT_FALSE(equal().asBoolean());
    equal.op(EqOp::TNNotEqual);
    EXPECT_TRUE(equal().asBoolean());
    equal.lhs(left);
    EXPECT_EQ(equal.rhs().get(), left);
    EXPECT_EQ(equal.lhs().get(), left);
    EXPECT_FALSE(equal().asBoolean());
    left->script({nullptr});
    equal.op(EqOp::TNEqual);
    EXPECT_TRUE(equal().asBoolean()); // two nulls are the same
    equal.op(static_cast<EqOp>(3));
    EXPECT_FALSE(equal().asBoolean());

    TNObjectSetExpr set(new ObjectsProbe("x"), Op::TNSubset, nullptr);
    auto* y = new ObjectsProbe("y");
    set.lhs(y);
    EXPECT_EQ(set.rhs().get(), y);
    EXPECT_NE(set.lhs().get(), y);
    deleteOperandsOf(set);
    equal.rhs(right);
    deleteOperandsOf(equal);
}
