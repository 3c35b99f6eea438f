// TNScalarExpr.h: value operators computing one TNValue from other values, from the size of a
// collection or from a model object: comparison, logic, arithmetic, type conversion, constants,
// counting and attribute values.
//
// Every type rule is TNValue's: the left operand's type decides how the right one is read, and a
// type mismatch is never an error (it converts or yields TNVNone). Operands are owned as the
// framework describes (TNExpr.h); prepareForDeletion() claims them in field order. An operator
// enumeration holds 0 after default construction, which is not a valid operator.
#pragma once

#include "sgx/general/SgxInstanceId.h"
#include "tarnel/expressions/TNExpr.h"

#include <cstdint>

class TNAttrDesc;
class TNAttribute;
class TNClass;
class TNEnumType;

namespace tn_detail {
struct EnumComparison; // internal/TNCollectionPlan.h
struct ValueView;      // internal/TNPlan.h
} // namespace tn_detail

// Comparison of lhs with rhs, as TNValue::operator== and operator< compare them (lhs decides).
// Yields a TNVBoolean. rhs is evaluated before lhs. TNGreater and TNLessEqual, when the two
// values are not equal, evaluate both operands a second time (rhs first again) and decide on the
// new values, so operands with side effects or caches see two evaluations; operands that can
// have no effect are evaluated once, the result being the same. An invalid operator yields false
// after evaluating both operands.
class TARNEL_API TNRelationalExpr : public TNValueExpr {
public:
    enum TNRelOp : int32_t {
        TNEqual = 1,       // lhs == rhs
        TNNotEqual = 2,    // not (lhs == rhs)
        TNLess = 3,        // lhs < rhs
        TNGreater = 4,     // not equal and not less
        TNLessEqual = 5,   // equal, or else less
        TNGreaterEqual = 6 // not less
    };

    TNRelationalExpr() = default;
    TNRelationalExpr(const TNValueExprPtr& lhs, TNRelOp op, const TNValueExprPtr& rhs)
        : m_lhs(lhs), m_rhs(rhs), m_op(op) {}

    TNValue operator()() const override { return TNValue(test()); }
    bool test() const override;
    void prepareForDeletion() const override { tnClaimOperands(m_lhs, m_rhs); }

    TN_EXPR_FIELD(TNValueExprPtr, lhs);
    TN_EXPR_FIELD(TNValueExprPtr, rhs);
    TN_EXPR_FIELD(TNRelOp, op);

    // --- End of public API: what follows is the library's own ---
private:
    // Which operands can have no effect, derived again after any graph change.
    struct Plan {
        bool lhsEffectFree = false;
        bool rhsEffectFree = false;
        // How each operand is read (tn_detail::Route), and whether the node is an attribute
        // compared for (in)equality with a constant (TNAttrExpr::equals).
        uint8_t lhsRoute = 0;
        uint8_t rhsRoute = 0;
        bool attributeEqualsConstant = false;
        // An attribute compared with a constant by an operator that reads the attribute once
        // (its operand has no effect, or the operator evaluates once whatever the values).
        bool attributeOnce = false;
    };
    mutable tn_detail::ShapeCache<Plan> m_plan;
};

// Logic on operands read with TNValue::asBoolean(); yields a TNVBoolean. lhs is evaluated first
// and rhs only when it decides the result. TNNot ignores rhs, which may then be null. An invalid
// operator yields false.
class TARNEL_API TNBooleanExpr : public TNValueExpr {
public:
    enum TNLogOp : int32_t {
        TNAnd = 1,    // lhs and rhs
        TNOr = 2,     // lhs or rhs
        TNNot = 3,    // not lhs
        TNImplies = 4 // if lhs then rhs, else true
    };

    TNBooleanExpr() = default;
    TNBooleanExpr(const TNValueExprPtr& lhs, TNLogOp op, const TNValueExprPtr& rhs)
        : m_lhs(lhs), m_rhs(rhs), m_op(op) {}

    TNValue operator()() const override { return TNValue(test()); }
    bool test() const override;
    void prepareForDeletion() const override { tnClaimOperands(m_lhs, m_rhs); }

    TN_EXPR_FIELD(TNValueExprPtr, lhs);
    TN_EXPR_FIELD(TNValueExprPtr, rhs);
    TN_EXPR_FIELD(TNLogOp, op);
};

// Arithmetic dispatched on lhs's type; rhs (which may be null, reading as TNVNone) is converted
// to it. An integer lhs gives a TNVInt computed in 32 bits, wrapping (a real rhs is truncated); a
// real lhs gives a TNVDouble; a text lhs concatenates the text of rhs under TNPlus; everything
// else, a truth-value lhs included, gives TNVNone. TNMinus with a null rhs negates lhs. Dividing by
// an integer 0 (rhs read with asLongInt(), so 0.5 counts) or a real 0.0 raises SgxException
// "ArithmeticExpr: Divison by zero.". The smallest integer divided by -1 wraps to itself.
class TARNEL_API TNArithmeticExpr : public TNValueExpr {
public:
    enum TNArithOp : int32_t {
        TNPlus = 1,   // sum, or concatenation of texts
        TNMinus = 2,  // difference, or negation when rhs is null
        TNTimes = 3,  // product
        TNDivide = 4, // quotient, integers truncated toward zero
    };

    TNArithmeticExpr() = default;
    TNArithmeticExpr(const TNValueExprPtr& lhs, TNArithOp op, const TNValueExprPtr& rhs)
        : m_lhs(lhs), m_rhs(rhs), m_op(op) {}

    TNValue operator()() const override;
    void prepareForDeletion() const override { tnClaimOperands(m_lhs, m_rhs); }

    TN_EXPR_FIELD(TNValueExprPtr, lhs);
    TN_EXPR_FIELD(TNValueExprPtr, rhs);
    TN_EXPR_FIELD(TNArithOp, op);

    // --- End of public API: what follows is the library's own ---
public:
    // Appends operator()().asString() to `text`, with the same evaluations and failures; a text
    // sum is appended operand by operand, no value being made of it. On a raise, `text` may
    // hold part of it.
    void appendTo(SgxString& text) const;
    // Evaluates a TNPlus sum (this node's operator must be TNPlus): appends it to `text` and
    // answers true when it is a text, else sets `number` to it and answers false.
    bool sumInto(SgxString& text, TNValue& number) const;

private:
    // The result for lhs's value `a`, evaluating rhs.
    TNValue arithmetic(const TNValue& a) const;
};

// The value of `value` converted by TNValue::setType(to): TNVNone and TNVLong leave it as it is.
// `from` is recorded for the host and takes no part in the evaluation.
class TARNEL_API TNConversionExpr : public TNValueExpr {
public:
    TNConversionExpr() = default;
    TNConversionExpr(const TNValueExprPtr& value, TNValueType from, TNValueType to)
        : m_value(value), m_from(from), m_to(to) {}

    TNValue operator()() const override;
    void prepareForDeletion() const override { tnClaimOperands(m_value); }

    TN_EXPR_FIELD(TNValueExprPtr, value);
    TN_EXPR_FIELD(TNValueType, from);
    TN_EXPR_FIELD(TNValueType, to);
};

// A constant: yields a copy of `value` (TNVNone by default).
class TARNEL_API TNConstantExpr : public TNValueExpr {
public:
    TNConstantExpr() = default;
    explicit TNConstantExpr(const TNValue& value) : m_value(value) {}
    // An integer constant; without it a literal 0 would choose the text constructor.
    explicit TNConstantExpr(int value) : m_value(value) {}
    explicit TNConstantExpr(const SgxString& text) : m_value(text) {}
    explicit TNConstantExpr(const char* text) : m_value(text) {}

    TNValue operator()() const override { return m_value; }
    void prepareForDeletion() const override {}
    // The constant itself, not a copy: for nodes that read a constant operand without evaluating
    // it (which would copy its text).
    const TNValue& constant() const noexcept { return m_value; }
    // A number naming the constant's current value among all values any constant ever held in
    // the process: never 0, equal in a copy, new after every value(). Nodes that cache what they
    // derived from a constant (a slot position, a literal index) compare stamps instead of texts.
    uint64_t stamp() const noexcept { return m_stamp; }

    TNValue value() const { return m_value; }
    void value(const TNValue& newValue) {
        m_stamp = nextStamp();
        m_value = newValue;
    }

private:
    static uint64_t nextStamp() noexcept { return SgxInstanceId::next(); }

    tn_detail::GraphField<TNValue> m_value;
    uint64_t m_stamp = nextStamp();
};

// The number of objects that `collection` yields, duplicates counted, as a TNVInt.
class TARNEL_API TNCountExpr : public TNValueExpr {
public:
    TNCountExpr() = default;
    explicit TNCountExpr(const TNObjectCollectionExprPtr& collection) : m_collection(collection) {}

    TNValue operator()() const override;
    void prepareForDeletion() const override { tnClaimOperands(m_collection); }

    TN_EXPR_FIELD(TNObjectCollectionExprPtr, collection);
};

// The value of attribute `name` (read with asString()) of the object that `object` yields:
// an enumeration attribute gives its literal's name as a TNVString, every other kind its
// TNAttribute::value(). `object` is evaluated first; a null object raises SgxException "Null
// dereference", a name the object's class lacks the TNException (Access, AttrDescriptor,
// NameNotFound) of TNObject::operator[].
class TARNEL_API TNAttrExpr : public TNValueExpr {
public:
    TNAttrExpr() = default;
    TNAttrExpr(const TNValueExprPtr& name, const TNObjectExprPtr& object)
        : m_name(name), m_object(object) {}
    // Makes a TNConstantExpr holding `name`, owned like every operand once prepareForDeletion()
    // has run.
    TNAttrExpr(const SgxString& name, const TNObjectExprPtr& object);

    TNValue operator()() const override;
    void prepareForDeletion() const override;
    // Whether operator()() == value (TNValue::operator==, the attribute's value deciding), with
    // the same evaluations and failures, but without building the attribute's value: a filter
    // comparing an attribute with a constant then costs no allocation per object.
    bool equals(const TNValue& value) const;
    // equals(constant.constant()), remembering what it derived from the constant by its stamp.
    bool equals(const TNConstantExpr& constant) const;

    TN_EXPR_FIELD(TNValueExprPtr, name);
    TN_EXPR_FIELD(TNObjectExprPtr, object);

    // --- End of public API: what follows is the library's own ---
public:
    // equals(constant) when the object operand yields `object`, without evaluating the operand
    // (for a filter that binds the operand's variable itself).
    bool equalsOn(const SgxSimplePtr<TNObject>& object, const TNConstantExpr& constant) const;
    // Fills `comparison` with what equalsOn(object, constant) compares for objects of `object`'s
    // class while the schema stays as it is, and answers true, when the caches that an equalsOn
    // call for `object` leaves behind settle it; false otherwise.
    bool enumComparison(const SgxSimplePtr<TNObject>& object, const TNConstantExpr& constant,
                        tn_detail::EnumComparison& comparison) const;
    // What operator()() yields, read in place where it lies (tn_detail::viewOf), with the same
    // evaluations and failures; `scratch` holds what cannot be read in place.
    tn_detail::ValueView view(TNValue& scratch) const;
    // operator()().asBoolean() without making the value.
    bool test() const override;
    // The slot operator()() reads when the object operand yields `object`, found the same way
    // (raising what operator()() raises for it), without evaluating the operand.
    const TNAttribute& slotFor(const SgxSimplePtr<TNObject>& object) const {
        return slotOf(*object);
    }
    // The slot slotFor(object) would give, where the node's cache gives it without a lookup (an
    // object of the class last read, the same constant name); null otherwise. Raises nothing:
    // for a caller that only loads ahead what a later evaluation will read.
    const TNAttribute* cachedSlot(const TNObject& object) const noexcept;

private:
    SgxSimplePtr<TNObject> objectOperand() const;
    TNAttribute& slotOf(TNObject& object) const;
    // slotOf() when the cache does not answer: finds the slot by name and remembers it.
    TNAttribute& findSlot(TNObject& object, const TNValueExpr& nameNode, bool constantName) const;
    // equals() of `object`'s attribute (the object operand having yielded it) and a value that a
    // constant with `stamp` holds, or any value when `stamp` is 0.
    bool equalsFor(const SgxSimplePtr<TNObject>& object, const TNValue& value,
                   uint64_t stamp) const;
    // The index of literal `text` in `enumType`, or -1 when it names none; remembered for the
    // last type and text asked (by the text's stamp when it has one, else by the text).
    int64_t literalIndex(const TNEnumType& enumType, const char* text, uint64_t stamp) const;

    // The descriptor of the attribute last read and the class and name it was found for (the
    // name node's stamp when the name is a constant, else its text). Runs of objects of one class
    // then reach their slot by the descriptor's position instead of a name lookup per object.
    // Descriptors live as long as their class and never move. Classes and enumeration types are
    // known by instance id: one made later at the same address (the same graph evaluated on a
    // new schema) is another.
    mutable uint64_t m_cachedClass = 0; // TNClass::instanceId()
    mutable const TNAttrDesc* m_cachedDesc = nullptr;
    mutable uint64_t m_cachedNameStamp = 0;
    mutable SgxString m_cachedName;
    mutable uint64_t m_literalType = 0; // TNEnumType::instanceId()
    mutable size_t m_literalCount = 0;
    mutable uint64_t m_literalStamp = 0;
    mutable SgxString m_literalText;
    mutable int64_t m_literalIndex = -1;
};
