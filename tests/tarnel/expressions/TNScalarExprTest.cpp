#include "tarnel/expressions/TNScalarExpr.h"

#include "ExprTestNodes.h"
#include "sgx/general/GeneralTestSupport.h"

#include <limits>
#include <tuple>

namespace {
constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
} // namespace

TEST(TNRelationalExpr, EvaluatesRhsFirstAndTwiceForUnequalGreaterOrLessEqual) {
    using R = TNRelationalExpr;
    ProbeScope scope;
    auto* lhs = new ValueProbe("lhs", {TNValue(3)});
    R node(lhs, R::TNGreater, new ValueProbe("rhs", {TNValue(3)}));
    EXPECT_FALSE(node().asBoolean()); // equal: decided at once
    EXPECT_EQ(evaluated, (Log{"rhs", "lhs"}));
    lhs->script({TNValue(1), TNValue(5)}); // 1 > 3 is false, but the second values decide
    EXPECT_TRUE(node().asBoolean());
    EXPECT_EQ(evaluated, (Log{"rhs", "lhs", "rhs", "lhs", "rhs", "lhs"}));
    node.op(R::TNLessEqual);
    lhs->script({TNValue(5), TNValue(1)});
    EXPECT_TRUE(node().asBoolean());
    node.lhs(nullptr);
    EXPECT_EQ(raised([&] { node(); }), kNullOperand);
    EXPECT_EQ(evaluated.back(), "rhs");
    deleteOperandsOf(node);
    delete lhs;
}

TEST(TNRelationalExpr, LeftOperandTypeDecides) {
    using R = TNRelationalExpr;
    const std::tuple<TNValue, R::TNRelOp, TNValue, bool> rows[] = {
        {10, R::TNEqual, "10abc", true},    {"10abc", R::TNEqual, 10, false},
        {"10abc", R::TNNotEqual, 10, true}, {9, R::TNLess, "10", true},
        {"9", R::TNLess, 10, false},        {"B", R::TNLess, "a", true},
        {2, R::TNGreaterEqual, 2.5, true},  {2.5, R::TNGreater, 2, true},
        {2, R::TNLessEqual, 1, false},      {{}, R::TNGreaterEqual, {}, false},
        {{}, R::TNGreater, 1, false},       {{}, R::TNLess, {}, true},
        {{}, R::TNEqual, {}, false},        {1, R::TNRelOp(0), 1, false},
    };
    for (const auto& [lhs, op, rhs, expected] : rows) {
        SCOPED_TRACE(show(lhs) + " op " + std::to_string(op) + " " + show(rhs));
        R node(constant(lhs), op, constant(rhs));
        EXPECT_EQ(show(node()), show(TNValue(expected)));
        deleteOperandsOf(node);
    }
}

TEST(TNBooleanExpr, ShortCircuitsLeftToRight) {
    using B = TNBooleanExpr;
    // operator, lhs, rhs, result, whether rhs was evaluated
    const std::tuple<B::TNLogOp, TNValue, TNValue, bool, bool> rows[] = {
        {B::TNAnd, false, "true", false, false}, {B::TNAnd, 1, "yes", false, true},
        {B::TNOr, "true", false, true, false},   {B::TNOr, "TRUE", "true", true, true},
        {B::TNImplies, 0.5, false, true, false}, {B::TNImplies, true, 0, false, true},
        {B::TNNot, true, true, false, false},    {B::TNLogOp(0), true, true, false, false},
    };
    for (const auto& [op, lhs, rhs, expected, rhsEvaluated] : rows) {
        SCOPED_TRACE(std::to_string(op) + " " + show(lhs));
        ProbeScope scope;
        B node(new ValueProbe("lhs", {lhs}), op, new ValueProbe("rhs", {rhs}));
        EXPECT_EQ(show(node()), show(TNValue(expected)));
        EXPECT_EQ(times(evaluated, "rhs"), rhsEvaluated ? 1 : 0);
        deleteOperandsOf(node);
    }
}

TEST(TNArithmeticExpr, DispatchesOnTheLeftTypeWrapsIn32BitsAndRefusesZeroDivisors) {
    using A = TNArithmeticExpr;
    const TNValue none;
    // lhs, operator, whether there is a rhs, rhs, result
    const std::tuple<TNValue, A::TNArithOp, bool, TNValue, TNValue> rows[] = {
        {7, A::TNPlus, true, 2.9, 9},          {1, A::TNPlus, true, "2", 3},
        {1, A::TNPlus, false, none, 1},        {2.5, A::TNPlus, true, 1, 3.5},
        {1.5, A::TNPlus, true, "2.25", 3.75},  {"a", A::TNPlus, true, 1, "a1"},
        {"a", A::TNPlus, true, true, "atrue"}, {"a", A::TNMinus, true, 1, none},
        {"2", A::TNTimes, true, 3, none},      {true, A::TNPlus, true, 1, none},
        {none, A::TNPlus, true, 1, none},      {5, A::TNMinus, false, none, -5},
        {2.5, A::TNMinus, false, none, -2.5},  {"x", A::TNMinus, false, none, none},
        {5, A::TNMinus, true, 7, -2},          {1.5, A::TNTimes, true, 3, 4.5},
        {7, A::TNDivide, true, 2, 3},          {-7, A::TNDivide, true, 2, -3},
        {7, A::TNDivide, true, -2.5, -3},      {7.0, A::TNDivide, true, 2, 3.5},
        {7, A::TNArithOp(0), true, 2, none},   {kMax, A::TNPlus, true, 1, kMin},
        {kMin, A::TNMinus, true, 1, kMax},     {kMin, A::TNMinus, false, none, kMin},
        {65536, A::TNTimes, true, 65536, 0},   {70000, A::TNTimes, true, 70000, 605032704},
        {kMin, A::TNDivide, true, -1, kMin},
    };
    for (const auto& [lhs, op, hasRhs, rhs, expected] : rows) {
        SCOPED_TRACE(show(lhs) + " op " + std::to_string(op) + " " + show(rhs));
        A node(constant(lhs), op, hasRhs ? constant(rhs) : nullptr);
        EXPECT_EQ(show(node()), show(expected));
        deleteOperandsOf(node);
    }
    ProbeScope scope;
    A order(new ValueProbe("lhs"), A::TNPlus, new ValueProbe("rhs"));
    order();
    EXPECT_EQ(evaluated, (Log{"lhs", "rhs"}));
    deleteOperandsOf(order);

    // Division by zero, after conversion to the left type, raises and logs a fixed message.
    const std::string message = "ArithmeticExpr: Divison by zero.";
    const std::tuple<TNValue, bool, TNValue> zeroes[] = {
        {7, true, 0},   {7, true, 0.5},    {7, true, "x"},  {7, false, {}},
        {7.0, true, 0}, {7.0, true, -0.0}, {7.0, false, {}}};
    LogCapture log("Throw");
    for (const auto& [lhs, hasRhs, rhs] : zeroes) {
        SCOPED_TRACE(show(lhs) + " / " + show(rhs));
        log.out.str("");
        TNArithmeticExpr node(constant(lhs), TNArithmeticExpr::TNDivide,
                              hasRhs ? constant(rhs) : nullptr);
        EXPECT_EQ(raised([&] { node(); }), message);
        EXPECT_EQ(log.out.str(), "Exception throw: " + message + "\n");
        deleteOperandsOf(node);
    }
}

TEST(TNConversionExpr, ConvertsToTheTargetTypeAndIgnoresTheSource) {
    const std::tuple<TNValue, TNValueType, TNValueType, TNValue> rows[] = {
        {"TRUE", TNVString, TNVBoolean, false},  {"true", TNVString, TNVBoolean, true},
        {2.5, TNVDouble, TNVString, "2.500000"}, {-2.9, TNVString, TNVInt, -2},
        {" 42x", TNVBoolean, TNVDouble, 42.0},   {7, TNVString, TNVNone, 7},
        {"17", TNVDouble, TNVLong, "17"},
    };
    for (const auto& [value, from, to, expected] : rows) {
        SCOPED_TRACE(show(value) + " to " + std::to_string(to));
        TNConversionExpr node(constant(value), from, to);
        EXPECT_EQ(show(node()), show(expected));
        deleteOperandsOf(node);
    }
}
