#include "tarnel/expressions/TNScalarExpr.h"

#include "tarnel/expressions/internal/TNCollectionPlan.h"
#include "tarnel/expressions/internal/TNPlan.h"

#include "sgx/general/SgxException.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNEnumType.h"

#include <cstring>
#include <string_view>
#include <typeinfo>

namespace {

// 32-bit integer arithmetic that wraps instead of overflowing: computed on unsigned values,
// whose conversion back to int32_t is modular.
int32_t wrappingAdd(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
int32_t wrappingSub(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}
int32_t wrappingMul(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

[[noreturn, gnu::cold]] void raiseDivisionByZero() {
    // Hosts match this text, misspelling included.
    SgxException::raise("ArithmeticExpr: Divison by zero.");
}

TNValue integerArithmetic(TNArithmeticExpr::TNArithOp op, int32_t a, const TNValue& b, bool noRhs) {
    switch (op) {
    case TNArithmeticExpr::TNPlus:
        return TNValue(wrappingAdd(a, b.asLongInt()));
    case TNArithmeticExpr::TNMinus:
        return TNValue(noRhs ? wrappingSub(0, a) : wrappingSub(a, b.asLongInt()));
    case TNArithmeticExpr::TNTimes:
        return TNValue(wrappingMul(a, b.asLongInt()));
    case TNArithmeticExpr::TNDivide: {
        const int32_t divisor = b.asLongInt();
        if (divisor == 0)
            raiseDivisionByZero();
        // The one quotient that does not fit: wrap it, as the other operations do.
        if (divisor == -1)
            return TNValue(wrappingSub(0, a));
        return TNValue(a / divisor);
    }
    }
    return TNValue();
}

TNValue realArithmetic(TNArithmeticExpr::TNArithOp op, double a, const TNValue& b, bool noRhs) {
    switch (op) {
    case TNArithmeticExpr::TNPlus:
        return TNValue(a + b.asDouble());
    case TNArithmeticExpr::TNMinus:
        return TNValue(noRhs ? -a : a - b.asDouble());
    case TNArithmeticExpr::TNTimes:
        return TNValue(a * b.asDouble());
    case TNArithmeticExpr::TNDivide: {
        const double divisor = b.asDouble();
        if (divisor == 0.0)
            raiseDivisionByZero();
        return TNValue(a / divisor);
    }
    }
    return TNValue();
}

} // namespace

bool TNRelationalExpr::test() const {
    // attribute == constant, the filter of most reports: the attribute node compares from the
    // caches it keeps per class and per constant. Evaluating a constant has no effect, so reading
    // it first keeps the order of everything observable.
    const TNValueExpr* lhs = m_lhs.get();
    const TNValueExpr* rhs = m_rhs.get();
    if ((m_op == TNEqual || m_op == TNNotEqual) && lhs != nullptr && rhs != nullptr &&
        typeid(*rhs) == typeid(TNConstantExpr) && typeid(*lhs) == typeid(TNAttrExpr)) {
        const bool equal =
            static_cast<const TNAttrExpr&>(*lhs).equals(static_cast<const TNConstantExpr&>(*rhs));
        return m_op == TNEqual ? equal : !equal;
    }
    // Otherwise both operands are read in place (constants, bindings and attribute slots
    // without a copy).
    const Plan& plan = m_plan.get([&](Plan& derived) {
        derived.lhsEffectFree = m_lhs.get() != nullptr && tn_detail::effectFree(*m_lhs);
        derived.rhsEffectFree = m_rhs.get() != nullptr && tn_detail::effectFree(*m_rhs);
    });
    TNValue rightScratch, leftScratch;
    tn_detail::ValueView right, left;
    const auto evaluate = [&] {
        right = tn_detail::viewOf(tnOperand(*this, m_rhs), rightScratch);
        // What lhs may change (a binding it flushes, a value a host's node sets) is copied first.
        if (!plan.lhsEffectFree && right.value != &rightScratch) {
            if (right.value != nullptr)
                rightScratch = *right.value;
            else
                right.materialize(rightScratch);
            right = tn_detail::ValueView{.value = &rightScratch};
        }
        left = tn_detail::viewOf(tnOperand(*this, m_lhs), leftScratch);
    };
    evaluate();
    switch (m_op) {
    case TNEqual:
        return tn_detail::viewEquals(left, right);
    case TNNotEqual:
        return !tn_detail::viewEquals(left, right);
    case TNLess:
        return tn_detail::viewLess(left, right);
    case TNGreaterEqual:
        return !tn_detail::viewLess(left, right);
    case TNGreater:
        if (tn_detail::viewEquals(left, right))
            return false;
        // Decided on a second evaluation of both operands, which operands with side effects or
        // caches can observe; others would only yield the same values again.
        if (!plan.lhsEffectFree || !plan.rhsEffectFree)
            evaluate();
        return !tn_detail::viewLess(left, right);
    case TNLessEqual:
        if (tn_detail::viewEquals(left, right))
            return true;
        if (!plan.lhsEffectFree || !plan.rhsEffectFree)
            evaluate();
        return tn_detail::viewLess(left, right);
    }
    return false;
}

bool TNBooleanExpr::test() const {
    switch (m_op) {
    case TNAnd:
        return tnOperand(*this, m_lhs).test() && tnOperand(*this, m_rhs).test();
    case TNOr:
        return tnOperand(*this, m_lhs).test() || tnOperand(*this, m_rhs).test();
    case TNNot:
        return !tnOperand(*this, m_lhs).test();
    case TNImplies:
        return !tnOperand(*this, m_lhs).test() || tnOperand(*this, m_rhs).test();
    }
    return false;
}

TNValue TNArithmeticExpr::operator()() const {
    if (m_op == TNPlus) {
        // Texts are read where they lie instead of being copied into values first.
        TNValue leftScratch;
        tn_detail::ValueView left = tn_detail::viewOf(tnOperand(*this, m_lhs), leftScratch);
        // rhs may flush a binding read in place.
        if (left.transient) {
            leftScratch = *left.value;
            left = tn_detail::ValueView{.value = &leftScratch};
        }
        if (left.myType() != TNVString)
            return arithmetic(left.materialize(leftScratch));
        if (m_rhs.isNull())
            return TNValue(left.textOrNull());
        TNValue rightScratch;
        const tn_detail::ValueView right = tn_detail::viewOf(*m_rhs, rightScratch);
        SgxString sum(left.textOrNull());
        tn_detail::appendView(right, sum);
        return TNValue(sum);
    }
    return arithmetic(tnOperand(*this, m_lhs)());
}

TNValue TNArithmeticExpr::arithmetic(const TNValue& a) const {
    const bool noRhs = m_rhs.isNull();
    const TNValue b = noRhs ? TNValue() : tnOperand(*this, m_rhs)();
    switch (a.myType()) {
    case TNVInt:
        return integerArithmetic(m_op, a.asLongInt(), b, noRhs);
    case TNVDouble:
        return realArithmetic(m_op, a.asDouble(), b, noRhs);
    case TNVString:
        if (m_op == TNPlus)
            return TNValue(SgxString(a.text()).append(b.asString()));
        return TNValue();
    default:
        return TNValue();
    }
}

TNValue TNConversionExpr::operator()() const {
    TNValue result = tnOperand(*this, m_value)();
    result.setType(m_to);
    return result;
}

TNValue TNCountExpr::operator()() const {
    return TNValue(static_cast<int32_t>(tnOperand(*this, m_collection).count()));
}

TNAttrExpr::TNAttrExpr(const SgxString& name, const TNObjectExprPtr& object)
    : m_name(new TNConstantExpr(name)), m_object(object) {}

TNValue TNAttrExpr::operator()() const {
    const SgxSimplePtr<TNObject> object = tnOperand(*this, m_object)();
    const TNAttribute& slot = slotOf(*object);
    if (slot.type() == TNAttrEnumeration)
        return TNValue(slot.asString());
    return slot.value();
}

bool TNAttrExpr::equals(const TNValue& value) const {
    return equalsFor(tnOperand(*this, m_object)(), value, 0);
}

bool TNAttrExpr::equals(const TNConstantExpr& constant) const {
    return equalsOn(tnOperand(*this, m_object)(), constant);
}

bool TNAttrExpr::enumComparison(const SgxSimplePtr<TNObject>& object,
                                const TNConstantExpr& constant,
                                tn_detail::EnumComparison& comparison) const {
    // An object of the class last read, the same constant name and the same literal: the slot
    // cache and the literal cache together settle everything but the slot's value.
    const TNObject* o = object.get();
    const TNClass* cls = o != nullptr ? o->getClass().get() : nullptr;
    const TNValueExpr& nameNode = tnOperand(*this, m_name);
    if (m_literalStamp == 0 || constant.stamp() != m_literalStamp ||
        typeid(nameNode) != typeid(TNConstantExpr) ||
        static_cast<const TNConstantExpr&>(nameNode).stamp() != m_cachedNameStamp)
        return false;
    const tn_detail::EnumComparison cached = {.cls = cls,
                                              .desc = m_cachedDesc,
                                              .literal = m_literalIndex,
                                              .literalCount = m_literalCount,
                                              .classId = m_cachedClass,
                                              .typeId = m_literalType};
    if (!cached.holdsFor(cls))
        return false;
    comparison = cached;
    return true;
}

bool tn_detail::EnumComparison::holdsFor(const TNClass* objectClass) const {
    if (objectClass == nullptr || objectClass != cls || cls->instanceId() != classId ||
        desc->type() != TNAttrEnumeration)
        return false;
    const TNEnumType* type = desc->enumType().get();
    return type != nullptr && type->instanceId() == typeId && !type->check(literalCount);
}

bool TNAttrExpr::equalsOn(const SgxSimplePtr<TNObject>& object,
                          const TNConstantExpr& constant) const {
    if (tn_detail::EnumComparison comparison; enumComparison(object, constant, comparison))
        [[likely]] {
        const int64_t index = (*object)[*comparison.desc].asLongInt();
        if (index >= 0 && static_cast<size_t>(index) < comparison.literalCount)
            return index == comparison.literal;
    }
    return equalsFor(object, constant.constant(), constant.stamp());
}

bool TNAttrExpr::equalsFor(const SgxSimplePtr<TNObject>& object, const TNValue& value,
                           uint64_t stamp) const {
    const TNAttribute& slot = slotOf(*object);
    const TNAttrType type = slot.type();
    if (type == TNAttrEnumeration && value.text() != nullptr) {
        // Literal names are unique in their type, so the literal's name equals the text exactly
        // when its index is the one the text names. An index outside the type is left to
        // asString(), which raises for it.
        const TNEnumType* enumType = slot.attrDesc()->enumType().get();
        const int32_t index = slot.asLongInt();
        if (enumType != nullptr && index >= 0 &&
            enumType->check(static_cast<unsigned long>(index))) {
            return index == literalIndex(*enumType, value.text(), stamp);
        }
    }
    if (type != TNAttrEnumeration && type != TNAttrString)
        return slot.value() == value;
    // The attribute reads as a text, so the comparison is byte-wise with the other's text.
    if (const char* inPlace = slot.textInPlace()) {
        if (const char* other = value.text())
            return std::strcmp(inPlace, other) == 0;
        return value.asString() == inPlace;
    }
    const SgxString text = slot.asString();
    if (const char* other = value.text())
        return text == other;
    return text == value.asString();
}

int64_t TNAttrExpr::literalIndex(const TNEnumType& enumType, const char* text,
                                 uint64_t stamp) const {
    // A type that gained literals since may now name the text.
    const bool sameText =
        stamp != 0 ? stamp == m_literalStamp
                   : m_literalStamp == 0 && std::strcmp(text, m_literalText.c_str()) == 0;
    if (enumType.instanceId() != m_literalType || enumType.check(m_literalCount) || !sameText) {
        const std::string_view literal(text);
        m_literalIndex = enumType.check(literal) ? static_cast<int64_t>(enumType[literal]) : -1;
        m_literalCount = enumType.values().size();
        m_literalText = stamp != 0 ? SgxString() : SgxString(text);
        m_literalStamp = stamp;
        m_literalType = enumType.instanceId();
    }
    return m_literalIndex;
}

TNAttribute& TNAttrExpr::slotOf(TNObject& object) const {
    // A plain constant name is known again by its stamp, so that runs of objects of one class
    // reach their slot by position without reading the name at all.
    const TNValueExpr& nameNode = tnOperand(*this, m_name);
    const bool constantName = typeid(nameNode) == typeid(TNConstantExpr);
    const TNClass* cls = object.getClass().get();
    if (constantName && cls != nullptr && cls->instanceId() == m_cachedClass &&
        static_cast<const TNConstantExpr&>(nameNode).stamp() == m_cachedNameStamp) [[likely]]
        return object[*m_cachedDesc];
    return findSlot(object, nameNode, constantName);
}

TNAttribute& TNAttrExpr::findSlot(TNObject& object, const TNValueExpr& nameNode,
                                  bool constantName) const {
    // A constant name is read in place: evaluating it would copy its text.
    TNValue evaluated;
    const TNValue* name = &evaluated;
    uint64_t stamp = 0;
    if (constantName) {
        const auto& constant = static_cast<const TNConstantExpr&>(nameNode);
        stamp = constant.stamp();
        name = &constant.constant();
    } else {
        evaluated = nameNode();
    }
    SgxString converted;
    const char* text = name->text();
    if (text == nullptr) {
        converted = name->asString();
        text = converted.c_str();
    }
    const TNClass* cls = object.getClass().get();
    if (stamp == 0 && m_cachedNameStamp == 0 && cls != nullptr &&
        cls->instanceId() == m_cachedClass && std::strcmp(text, m_cachedName.c_str()) == 0)
        return object[*m_cachedDesc];
    TNAttribute& slot = object[std::string_view(text)];
    m_cachedDesc = slot.attrDesc().get();
    m_cachedName = stamp != 0 ? SgxString() : SgxString(text);
    m_cachedNameStamp = stamp;
    m_cachedClass = cls->instanceId();
    return slot;
}

// Out of line: a caller that knows a node's exact type may call these directly, which an
// inline definition, hidden inside the library, would not allow.
void TNAttrExpr::prepareForDeletion() const { tnClaimOperands(m_name, m_object); }
