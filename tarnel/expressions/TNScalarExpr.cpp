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
    // How each operand is read, chosen once per graph change (rule 1, TNPlan.h).
    const Plan& plan = m_plan.get([&](Plan& derived) {
        const TNValueExpr* lhs = m_lhs.get();
        const TNValueExpr* rhs = m_rhs.get();
        derived.lhsEffectFree = lhs != nullptr && tn_detail::effectFree(*lhs);
        derived.rhsEffectFree = rhs != nullptr && tn_detail::effectFree(*rhs);
        derived.lhsRoute = static_cast<uint8_t>(lhs != nullptr ? tn_detail::routeOf(*lhs)
                                                               : tn_detail::Route::Evaluated);
        derived.rhsRoute = static_cast<uint8_t>(rhs != nullptr ? tn_detail::routeOf(*rhs)
                                                               : tn_detail::Route::Evaluated);
        derived.attributeEqualsConstant =
            derived.lhsRoute == static_cast<uint8_t>(tn_detail::Route::Attribute) &&
            derived.rhsRoute == static_cast<uint8_t>(tn_detail::Route::Constant);
        derived.attributeOnce =
            derived.attributeEqualsConstant &&
            (derived.lhsEffectFree || (m_op != TNGreater && m_op != TNLessEqual));
    });
    // attribute == constant, the filter of most reports: the attribute node compares from the
    // caches it keeps per class and per constant (an enumeration by its literal's index).
    // Evaluating a constant has no effect, so reading it first keeps the order of everything
    // observable.
    const TNRelOp op = m_op;
    if ((op == TNEqual || op == TNNotEqual) && plan.attributeEqualsConstant) {
        const bool equal = static_cast<const TNAttrExpr&>(*m_lhs).equals(
            static_cast<const TNConstantExpr&>(*m_rhs));
        return op == TNEqual ? equal : !equal;
    }
    if (plan.attributeOnce) {
        // An attribute ordered against a constant: the slot read in place once, numbers
        // compared as they lie.
        TNValue scratch;
        const tn_detail::ValueView left = static_cast<const TNAttrExpr&>(*m_lhs).view(scratch);
        const tn_detail::ValueView right{
            .value = &static_cast<const TNConstantExpr&>(*m_rhs).constant()};
        tn_detail::ValueView l, r;
        bool equal = false, less = false;
        if (!tn_detail::numberOf(left, l) || !tn_detail::numberOf(right, r) ||
            !tn_detail::compareNumbers(l, r, equal, less)) {
            equal = tn_detail::viewEquals(left, right);
            less = tn_detail::viewLess(left, right);
        }
        switch (op) {
        case TNEqual:
            return equal;
        case TNNotEqual:
            return !equal;
        case TNLess:
            return less;
        case TNGreaterEqual:
            return !less;
        case TNGreater:
            return !equal && !less;
        case TNLessEqual:
            return equal || less;
        }
        return false;
    }
    // Otherwise both operands are read in place (constants, bindings and attribute slots
    // without a copy).
    const auto lhsRoute = static_cast<tn_detail::Route>(plan.lhsRoute);
    const auto rhsRoute = static_cast<tn_detail::Route>(plan.rhsRoute);
    const bool lhsEffectFree = plan.lhsEffectFree;
    const bool evaluatedOnce = plan.lhsEffectFree && plan.rhsEffectFree;
    TNValue rightScratch, leftScratch;
    tn_detail::ValueView right, left;
    const auto evaluate = [&] {
        right = tn_detail::viewByRoute(rhsRoute, tnOperand(*this, m_rhs), rightScratch);
        // What lhs may change (a binding it flushes, a value a host's node sets) is copied first.
        if (!lhsEffectFree && right.value != &rightScratch) {
            if (right.value != nullptr)
                rightScratch = *right.value;
            else
                right.materialize(rightScratch);
            right = tn_detail::ValueView{.value = &rightScratch};
        }
        left = tn_detail::viewByRoute(lhsRoute, tnOperand(*this, m_lhs), leftScratch);
    };
    evaluate();
    switch (op) {
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
        if (!evaluatedOnce)
            evaluate();
        return !tn_detail::viewLess(left, right);
    case TNLessEqual:
        if (tn_detail::viewEquals(left, right))
            return true;
        if (!evaluatedOnce)
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

bool TNArithmeticExpr::sumInto(SgxString& text, TNValue& number) const {
    // The left spine of sums: this node, its lhs when that is a sum too, and so on, down to the
    // leftmost operand, which is evaluated first; the right operands follow from the innermost
    // sum outwards, as evaluating node by node takes them. A text on the left makes every sum
    // above it a text, so the texts are appended one after another where the text is built
    // instead of each sum copying the one below it (rule 5).
    constexpr size_t maxSpine = 16;
    const TNArithmeticExpr* spine[maxSpine];
    size_t depth = 0;
    const TNArithmeticExpr* innermost = this;
    spine[depth++] = this;
    while (depth < maxSpine) {
        const TNValueExpr* lhs = innermost->m_lhs.get();
        if (lhs == nullptr || !tn_detail::isExactly<TNArithmeticExpr>(*lhs))
            break;
        const auto& inner = static_cast<const TNArithmeticExpr&>(*lhs);
        if (inner.m_op != TNPlus)
            break;
        innermost = &inner;
        spine[depth++] = innermost;
    }
    TNValue leftScratch;
    const tn_detail::ValueView left =
        tn_detail::viewOf(tnOperand(*innermost, innermost->m_lhs), leftScratch);
    if (left.myType() != TNVString) {
        // Numbers stay numbers (and anything else nothing) all the way up.
        number = left.materialize(leftScratch);
        for (size_t i = depth; i-- > 0;)
            number = spine[i]->arithmetic(number);
        return false;
    }
    // Appended before anything else is evaluated, so a transient view is still what it was.
    text.append(left.textOrNull());
    for (size_t i = depth; i-- > 0;) {
        if (const TNValueExpr* rhs = spine[i]->m_rhs.get()) {
            TNValue rightScratch;
            tn_detail::appendView(tn_detail::viewOf(*rhs, rightScratch), text);
        }
    }
    return true;
}

TNValue TNArithmeticExpr::operator()() const {
    if (m_op == TNPlus) {
        SgxString sum;
        TNValue number;
        if (sumInto(sum, number))
            return TNValue(sum);
        return number;
    }
    return arithmetic(tnOperand(*this, m_lhs)());
}

void TNArithmeticExpr::appendTo(SgxString& text) const {
    TNValue number;
    if (m_op == TNPlus) {
        if (!sumInto(text, number))
            number.appendTo(text);
        return;
    }
    (*this)().appendTo(text);
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

// The object the operand yields: a plain variable's without a virtual call (it is checked the
// same way).
inline SgxSimplePtr<TNObject> TNAttrExpr::objectOperand() const {
    const TNObjectExpr& operand = tnOperand(*this, m_object);
    return tn_detail::isExactly<TNObjectVarExpr>(operand)
               ? static_cast<const TNObjectVarExpr&>(operand).TNObjectVarExpr::operator()()
               : operand();
}

tn_detail::ValueView TNAttrExpr::view(TNValue& scratch) const {
    const SgxSimplePtr<TNObject> object = objectOperand();
    return tn_detail::viewOfSlot(slotOf(*object), scratch);
}

bool TNAttrExpr::test() const {
    const SgxSimplePtr<TNObject> object = objectOperand();
    const TNAttribute& slot = slotOf(*object);
    switch (slot.type()) {
    case TNAttrInteger:
    case TNAttrLong:
    case TNAttrBoolean:
        // asBoolean() of the integer or truth value the slot word holds.
        return slot.integerInPlace() != 0;
    default: {
        TNValue scratch;
        return tn_detail::viewTruth(tn_detail::viewOfSlot(slot, scratch));
    }
    }
}

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
        !tn_detail::isExactly<TNConstantExpr>(nameNode) ||
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
    const bool constantName = tn_detail::isExactly<TNConstantExpr>(nameNode);
    const TNClass* cls = object.getClass().get();
    if (constantName && cls != nullptr && cls->instanceId() == m_cachedClass &&
        static_cast<const TNConstantExpr&>(nameNode).stamp() == m_cachedNameStamp) [[likely]]
        return object[*m_cachedDesc];
    return findSlot(object, nameNode, constantName);
}

const TNAttribute* TNAttrExpr::cachedSlot(const TNObject& object) const noexcept {
    const TNValueExpr* nameNode = m_name.get();
    const TNClass* cls = object.getClass().get();
    if (nameNode == nullptr || !tn_detail::isExactly<TNConstantExpr>(*nameNode) || cls == nullptr ||
        cls->instanceId() != m_cachedClass ||
        static_cast<const TNConstantExpr*>(nameNode)->stamp() != m_cachedNameStamp)
        return nullptr;
    try {
        return &const_cast<TNObject&>(object)[*m_cachedDesc];
    } catch (...) {
        return nullptr; // what slotOf would raise, it raises when its turn comes
    }
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
