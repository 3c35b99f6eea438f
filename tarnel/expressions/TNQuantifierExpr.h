// TNQuantifierExpr.h: truth values about object collections and objects: the universal and
// existential quantifiers, set comparison of two collections and identity of two objects.
//
// Each yields a TNVBoolean. Operands are owned as the framework describes (TNExpr.h);
// prepareForDeletion() claims them in field order. What operands raise passes through.
#pragma once

#include "tarnel/expressions/TNExpr.h"

#include <cstdint>

// The base of the two quantifiers: `condition` is evaluated with `boundVariable` set to each
// element of `collection` in turn, stopping as soon as the answer is known. The variable keeps
// the last element tested (and is untouched for an empty collection, for which a null variable
// is no error).
class TARNEL_API TNQuantifierExpr : public TNValueExpr {
public:
    TNQuantifierExpr() = default;
    TNQuantifierExpr(const TNObjectCollectionExprPtr& collection, const TNValueExprPtr& condition,
                     const SgxCyclicPtr<TNObjectVarExpr>& boundVariable)
        : m_collection(collection), m_condition(condition), m_boundVariable(boundVariable) {}

    void prepareForDeletion() const override;

    TN_EXPR_FIELD(TNObjectCollectionExprPtr, collection);
    TN_EXPR_FIELD(TNValueExprPtr, condition);
    TN_EXPR_FIELD(SgxCyclicPtr<TNObjectVarExpr>, boundVariable);

protected:
    // Tests the elements in order until the condition's asBoolean() differs from `whileResult`;
    // returns the last answer (`whileResult` for an empty collection).
    TNValue quantify(bool whileResult) const;

    // --- End of public API: what follows is the library's own ---
private:
    // What the condition was recognized as (a ShapeCache<SlotTestPlan>), kept while no graph
    // changes.
    mutable tn_detail::OpaqueShapeCache m_plan;
};

// True when the condition holds for every element; stops at the first element that fails it.
class TARNEL_API TNAllExpr : public TNQuantifierExpr {
public:
    using TNQuantifierExpr::TNQuantifierExpr;
    TNValue operator()() const override { return quantify(true); }
};

// True when the condition holds for some element; stops at the first element that satisfies it.
class TARNEL_API TNSomeExpr : public TNQuantifierExpr {
public:
    using TNQuantifierExpr::TNQuantifierExpr;
    TNValue operator()() const override { return quantify(false); }
};

// Compares two collections as multisets of object identities (an object listed twice on the left
// must be listed twice on the right). Both sides are always evaluated, lhs first; an operator
// outside the list yields false.
//
// The setter lhs(...) stores into rhs, as it always has: hosts rely on the left operand being
// given only through the constructor. The getters read their own fields.
class TARNEL_API TNObjectSetExpr : public TNValueExpr {
public:
    enum TNSetOp : int32_t {
        TNSetEqual = 1,     // same size, and lhs included in rhs
        TNSetNotEqual = 2,  // not TNSetEqual
        TNProperSubset = 3, // lhs smaller, and included in rhs
        TNSubset = 4        // lhs not larger, and included in rhs
    };

    TNObjectSetExpr() = default;
    TNObjectSetExpr(const TNObjectCollectionExprPtr& lhs, TNSetOp op,
                    const TNObjectCollectionExprPtr& rhs)
        : m_rhs(rhs), m_op(op), m_lhs(lhs) {}

    TNValue operator()() const override;
    void prepareForDeletion() const override;

    TNObjectCollectionExprPtr lhs() const { return m_lhs; }
    void lhs(const TNObjectCollectionExprPtr& newLhs) { m_rhs = newLhs; }
    TN_EXPR_FIELD(TNObjectCollectionExprPtr, rhs);
    TN_EXPR_FIELD(TNSetOp, op);

private:
    TNObjectCollectionExprPtr m_lhs;
};

// Identity of two objects (two nulls are the same); attribute values are not compared. lhs is
// evaluated first; an operator outside the list yields false. The setter lhs(...) stores into
// rhs, as for TNObjectSetExpr.
class TARNEL_API TNObjectEqualityExpr : public TNValueExpr {
public:
    enum TNRelOp : int32_t {
        TNEqual = 1,   // the same object
        TNNotEqual = 2 // different objects
    };

    TNObjectEqualityExpr() = default;
    TNObjectEqualityExpr(const TNObjectExprPtr& lhs, TNRelOp op, const TNObjectExprPtr& rhs)
        : m_rhs(rhs), m_op(op), m_lhs(lhs) {}

    TNValue operator()() const override;
    void prepareForDeletion() const override;

    TNObjectExprPtr lhs() const { return m_lhs; }
    void lhs(const TNObjectExprPtr& newLhs) { m_rhs = newLhs; }
    TN_EXPR_FIELD(TNObjectExprPtr, rhs);
    TN_EXPR_FIELD(TNRelOp, op);

private:
    TNObjectExprPtr m_lhs;
};
