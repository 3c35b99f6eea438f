// TNExtensionExpr.h: node classes of our own, beside the library's established ones, for what
// report authors keep needing: the declared position of an enumeration literal, set algebra on
// object collections, aggregates over numbers and the length and substrings of texts. The query
// language (tarnel/query/TNQuery.h) gives each a textual form; hosts build them like any node.
//
// They follow the framework's rules (TNExpr.h): operands are SgxCyclicPtrs owned only once
// prepareForDeletion() has claimed them in field order; each field has a getter and a setter of
// its name; what operands raise passes through.
#pragma once

#include "tarnel/expressions/TNExpr.h"

#include <cstdint>

// The index of the literal that enumeration attribute `name` (read with asString()) of the object
// that `object` yields holds, as a TNVInt: the literal's declared position, from 0. Sorting by it
// follows the enumeration's declared order, where TNAttrExpr's literal name sorts by the name.
// `object` is evaluated first; a null object raises SgxException "Null dereference", a name the
// class lacks the TNException of TNObject::operator[], an attribute that is not an enumeration
// SgxException "EnumIndexExpr: attribute <name> is not an enumeration".
class TARNEL_API TNEnumIndexExpr : public TNValueExpr {
public:
    TNEnumIndexExpr() = default;
    TNEnumIndexExpr(const TNValueExprPtr& name, const TNObjectExprPtr& object)
        : m_name(name), m_object(object) {}
    // Makes a TNConstantExpr holding `name`, owned like every operand once prepareForDeletion()
    // has run.
    TNEnumIndexExpr(const SgxString& name, const TNObjectExprPtr& object);

    TNValue operator()() const override;
    void prepareForDeletion() const override { tnClaimOperands(m_name, m_object); }

    TN_EXPR_FIELD(TNValueExprPtr, name);
    TN_EXPR_FIELD(TNObjectExprPtr, object);
};

// Set algebra on two object collections, each object once, in the order of first occurrence:
// TNUnion the objects of lhs then those of rhs; TNIntersection those of lhs that rhs holds;
// TNDifference those of lhs that rhs does not hold. Objects are compared by identity. lhs is
// evaluated first, then rhs, always; time is linear in the two sizes (a hash set of addresses).
// An operator outside the list yields an empty collection.
class TARNEL_API TNCollectionSetOpExpr : public TNObjectCollectionExpr {
public:
    enum TNCombineOp : int32_t {
        TNUnion = 1,
        TNIntersection = 2,
        TNDifference = 3,
    };

    TNCollectionSetOpExpr() = default;
    TNCollectionSetOpExpr(const TNObjectCollectionExprPtr& lhs, TNCombineOp op,
                          const TNObjectCollectionExprPtr& rhs)
        : m_lhs(lhs), m_op(op), m_rhs(rhs) {}

    TNObjectSequence operator()() const override;
    void prepareForDeletion() const override { tnClaimOperands(m_lhs, m_rhs); }

    TN_EXPR_FIELD(TNObjectCollectionExprPtr, lhs);
    TN_EXPR_FIELD(TNCombineOp, op);
    TN_EXPR_FIELD(TNObjectCollectionExprPtr, rhs);
};

// An aggregate of what `function` yields for each element of `collection`, in order. TNVNone
// values are left out (so a function may answer "nothing" for an element); what is left:
// - TNSum: TNVInt when every value is a TNVInt, summed in 32 bits wrapping as TNArithmeticExpr
//   adds; otherwise the TNVDouble sum of asDouble(). 0 (TNVInt) when nothing is left.
// - TNMin, TNMax: the least or greatest value by TNValue::operator< (of their own types, so texts
//   compare as texts), the first of equal ones; TNVNone when nothing is left.
// - TNAverage: the TNVDouble mean of asDouble(); TNVNone when nothing is left.
// An operator outside the list yields TNVNone after evaluating the collection.
class TARNEL_API TNAggregateExpr : public TNValueExpr {
public:
    enum TNAggregateOp : int32_t {
        TNSum = 1,
        TNMin = 2,
        TNMax = 3,
        TNAverage = 4,
    };

    TNAggregateExpr() = default;
    TNAggregateExpr(TNAggregateOp op, const SgxCyclicPtr<TNValueAbsExpr>& function,
                    const TNObjectCollectionExprPtr& collection)
        : m_op(op), m_function(function), m_collection(collection) {}

    TNValue operator()() const override;
    void prepareForDeletion() const override { tnClaimOperands(m_function, m_collection); }

    TN_EXPR_FIELD(TNAggregateOp, op);
    TN_EXPR_FIELD(SgxCyclicPtr<TNValueAbsExpr>, function);
    TN_EXPR_FIELD(TNObjectCollectionExprPtr, collection);
};

// The length in bytes of the text of `str` (asString()), as a TNVInt.
class TARNEL_API TNStringLengthExpr : public TNValueExpr {
public:
    TNStringLengthExpr() = default;
    explicit TNStringLengthExpr(const TNValueExprPtr& str) : m_str(str) {}

    TNValue operator()() const override;
    void prepareForDeletion() const override { tnClaimOperands(m_str); }

    TN_EXPR_FIELD(TNValueExprPtr, str);
};

// The bytes of the text of `str` from position `lower` to position `upper`, both included,
// counting from 1 (positions read with asLongInt()). Positions are clamped to the text: lower
// below 1 reads as 1, upper beyond the length as the length; an empty range gives the empty
// text. Evaluates str, lower, upper in that order.
class TARNEL_API TNSubstringExpr : public TNValueExpr {
public:
    TNSubstringExpr() = default;
    TNSubstringExpr(const TNValueExprPtr& str, const TNValueExprPtr& lower,
                    const TNValueExprPtr& upper)
        : m_str(str), m_lower(lower), m_upper(upper) {}

    TNValue operator()() const override;
    void prepareForDeletion() const override { tnClaimOperands(m_str, m_lower, m_upper); }

    TN_EXPR_FIELD(TNValueExprPtr, str);
    TN_EXPR_FIELD(TNValueExprPtr, lower);
    TN_EXPR_FIELD(TNValueExprPtr, upper);
};
