#include "tarnel/expressions/TNScalarExpr.h"

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

TNValue TNRelationalExpr::operator()() const {
    // attribute == constant, the filter of most reports: neither value is copied. Evaluating a
    // constant has no effect, so reading it first keeps the order of everything observable.
    const TNValueExpr* lhs = m_lhs.get();
    const TNValueExpr* rhs = m_rhs.get();
    if ((m_op == TNEqual || m_op == TNNotEqual) && lhs != nullptr && rhs != nullptr &&
        typeid(*rhs) == typeid(TNConstantExpr) && typeid(*lhs) == typeid(TNAttrExpr)) {
        const bool equal = static_cast<const TNAttrExpr&>(*lhs).equals(
            static_cast<const TNConstantExpr&>(*rhs).constant());
        return TNValue(m_op == TNEqual ? equal : !equal);
    }
    TNValue right = (*m_rhs)();
    TNValue left = (*m_lhs)();
    switch (m_op) {
    case TNEqual:
        return TNValue(left == right);
    case TNNotEqual:
        return TNValue(!(left == right));
    case TNLess:
        return TNValue(left < right);
    case TNGreaterEqual:
        return TNValue(!(left < right));
    case TNGreater:
        if (left == right)
            return TNValue(false);
        // Decided on a second evaluation of both operands, which operands with side effects or
        // caches can observe.
        right = (*m_rhs)();
        left = (*m_lhs)();
        return TNValue(!(left < right));
    case TNLessEqual:
        if (left == right)
            return TNValue(true);
        right = (*m_rhs)();
        left = (*m_lhs)();
        return TNValue(left < right);
    }
    return TNValue(false);
}

TNValue TNBooleanExpr::operator()() const {
    switch (m_op) {
    case TNAnd:
        return TNValue((*m_lhs)().asBoolean() && (*m_rhs)().asBoolean());
    case TNOr:
        return TNValue((*m_lhs)().asBoolean() || (*m_rhs)().asBoolean());
    case TNNot:
        return TNValue(!(*m_lhs)().asBoolean());
    case TNImplies:
        return TNValue(!(*m_lhs)().asBoolean() || (*m_rhs)().asBoolean());
    }
    return TNValue(false);
}

TNValue TNArithmeticExpr::operator()() const {
    const TNValue a = (*m_lhs)();
    const bool noRhs = m_rhs.isNull();
    const TNValue b = noRhs ? TNValue() : (*m_rhs)();
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
    TNValue result = (*m_value)();
    result.setType(m_to);
    return result;
}

TNValue TNCountExpr::operator()() const {
    return TNValue(static_cast<int32_t>((*m_collection).count()));
}

TNAttrExpr::TNAttrExpr(const SgxString& name, const TNObjectExprPtr& object)
    : m_name(new TNConstantExpr(name)), m_object(object) {}

TNValue TNAttrExpr::operator()() const {
    const SgxSimplePtr<TNObject> object = (*m_object)();
    const TNAttribute& slot = slotOf(*object);
    if (slot.type() == TNAttrEnumeration)
        return TNValue(slot.asString());
    return slot.value();
}

bool TNAttrExpr::equals(const TNValue& value) const {
    const SgxSimplePtr<TNObject> object = (*m_object)();
    const TNAttribute& slot = slotOf(*object);
    const TNAttrType type = slot.type();
    if (type == TNAttrEnumeration && value.text() != nullptr) {
        // Literal names are unique in their type, so the literal's name equals the text exactly
        // when its index is the one the text names. An index outside the type is left to
        // asString(), which raises for it.
        const TNEnumType* enumType = slot.attrDesc()->enumType().get();
        const int32_t index = slot.asLongInt();
        if (enumType != nullptr && index >= 0 && enumType->check(static_cast<unsigned long>(index)))
            return index == literalIndex(*enumType, value.text());
    }
    if (type != TNAttrEnumeration && type != TNAttrString)
        return slot.value() == value;
    // The attribute reads as a text, so the comparison is byte-wise with the other's text.
    const SgxString text = slot.asString();
    if (const char* other = value.text())
        return text == other;
    return text == value.asString();
}

int64_t TNAttrExpr::literalIndex(const TNEnumType& enumType, const char* text) const {
    // A type that gained literals since may now name the text.
    if (&enumType != m_literalType || enumType.check(m_literalCount) ||
        std::strcmp(text, m_literalText.c_str()) != 0) {
        const std::string_view literal(text);
        m_literalIndex = enumType.check(literal) ? static_cast<int64_t>(enumType[literal]) : -1;
        m_literalCount = enumType.values().size();
        m_literalText = text;
        m_literalType = &enumType;
    }
    return m_literalIndex;
}

TNAttribute& TNAttrExpr::slotOf(TNObject& object) const {
    // A plain constant name is read in place: evaluating it would copy its text per object.
    const TNValueExpr& nameNode = *m_name;
    TNValue evaluated;
    const TNValue* name = &evaluated;
    if (typeid(nameNode) == typeid(TNConstantExpr))
        name = &static_cast<const TNConstantExpr&>(nameNode).constant();
    else
        evaluated = nameNode();
    SgxString converted;
    const char* text = name->text();
    if (text == nullptr) {
        converted = name->asString();
        text = converted.c_str();
    }
    const TNClass* cls = object.getClass().get();
    if (cls == m_cachedClass && std::strcmp(text, m_cachedName.c_str()) == 0) [[likely]]
        return object[*m_cachedDesc];
    TNAttribute& slot = object[std::string_view(text)];
    m_cachedDesc = slot.attrDesc().get();
    m_cachedName = text;
    m_cachedClass = cls;
    return slot;
}

// Out of line: a caller that knows a node's exact type may call these directly, which an
// inline definition, hidden inside the library, would not allow.
void TNAttrExpr::prepareForDeletion() const { tnClaimOperands(m_name, m_object); }
