#include "tarnel/expressions/TNExtensionExpr.h"

#include "sgx/general/SgxException.h"
#include "tarnel/expressions/TNScalarExpr.h"
#include "tarnel/instances/TNAttr.h"
#include "tarnel/instances/TNObject.h"

#include <algorithm>
#include <unordered_set>

TNEnumIndexExpr::TNEnumIndexExpr(const SgxString& name, const TNObjectExprPtr& object)
    : m_name(new TNConstantExpr(name)), m_object(object) {}

TNValue TNEnumIndexExpr::operator()() const {
    const SgxSimplePtr<TNObject> object = tnOperand(*this, m_object)();
    const SgxString name = tnOperand(*this, m_name)().asString();
    const TNAttribute& slot = (*object)[name];
    if (slot.type() != TNAttrEnumeration)
        SgxException::raise("EnumIndexExpr: attribute " + name + " is not an enumeration");
    return TNValue(slot.asLongInt());
}

TNObjectSequence TNCollectionSetOpExpr::operator()() const {
    const TNObjectSequence lhs = tnOperand(*this, m_lhs)();
    const TNObjectSequence rhs = tnOperand(*this, m_rhs)();
    std::unordered_set<const TNObject*> seen;
    seen.reserve(lhs.size() + rhs.size());
    TNObjectSequence result;
    switch (m_op) {
    case TNUnion:
        result.reserve(lhs.size() + rhs.size());
        for (const TNObjectSequence* side : {&lhs, &rhs})
            for (const SgxSimplePtr<TNObject>& object : *side)
                if (seen.insert(object.get()).second)
                    result.push_back(object);
        return result;
    case TNIntersection:
    case TNDifference: {
        std::unordered_set<const TNObject*> inRhs;
        inRhs.reserve(rhs.size());
        for (const SgxSimplePtr<TNObject>& object : rhs)
            inRhs.insert(object.get());
        const bool keepHeld = m_op == TNIntersection;
        for (const SgxSimplePtr<TNObject>& object : lhs)
            if (inRhs.contains(object.get()) == keepHeld && seen.insert(object.get()).second)
                result.push_back(object);
        return result;
    }
    }
    return result;
}

TNValue TNAggregateExpr::operator()() const {
    const TNValueAbsExpr& function = tnOperand(*this, m_function);
    const TNObjectSequence elements = tnOperand(*this, m_collection)();
    if (m_op < TNSum || m_op > TNAverage)
        return TNValue();
    TNValue best;
    bool allIntegers = true;
    uint32_t integerSum = 0; // wraps as TNArithmeticExpr's 32-bit sums do
    double realSum = 0.0;
    size_t counted = 0;
    for (const SgxSimplePtr<TNObject>& element : elements) {
        TNValue value = function(element);
        if (value.myType() == TNVNone)
            continue;
        ++counted;
        switch (m_op) {
        case TNSum:
        case TNAverage:
            if (value.myType() == TNVInt)
                integerSum += static_cast<uint32_t>(value.asLongInt());
            else
                allIntegers = false;
            realSum += value.asDouble();
            break;
        case TNMin:
            if (counted == 1 || value < best)
                best = std::move(value);
            break;
        case TNMax:
            if (counted == 1 || best < value)
                best = std::move(value);
            break;
        }
    }
    switch (m_op) {
    case TNSum:
        if (allIntegers)
            return TNValue(static_cast<int32_t>(integerSum));
        return TNValue(realSum);
    case TNAverage:
        return counted == 0 ? TNValue() : TNValue(realSum / static_cast<double>(counted));
    default:
        return best;
    }
}

TNValue TNStringLengthExpr::operator()() const {
    const TNValue value = tnOperand(*this, m_str)();
    const size_t length = value.text() != nullptr ? std::char_traits<char>::length(value.text())
                                                  : value.asString().size();
    return TNValue(static_cast<int32_t>(std::min<size_t>(length, INT32_MAX)));
}

TNValue TNSubstringExpr::operator()() const {
    const SgxString text = tnOperand(*this, m_str)().asString();
    const int64_t lower = std::max<int64_t>(1, tnOperand(*this, m_lower)().asLongInt());
    const int64_t upper = std::min<int64_t>(static_cast<int64_t>(text.size()),
                                            tnOperand(*this, m_upper)().asLongInt());
    if (lower > upper)
        return TNValue(SgxString());
    return TNValue(
        text.substr(static_cast<size_t>(lower - 1), static_cast<size_t>(upper - lower + 1)));
}
