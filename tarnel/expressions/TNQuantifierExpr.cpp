#include "tarnel/expressions/TNQuantifierExpr.h"

#include <algorithm>
#include <functional>

TNValue TNQuantifierExpr::quantify(bool whileResult) const {
    bool result = whileResult;
    tnOperand(*this, m_collection).forEach([&](const SgxSimplePtr<TNObject>& element) {
        tnVariable(*this, m_boundVariable).object(element);
        result = tnOperand(*this, m_condition).test();
        return result == whileResult;
    });
    return TNValue(result);
}

TNValue TNObjectSetExpr::operator()() const {
    TNObjectSequence left = tnOperand(*this, m_lhs)();
    TNObjectSequence right = tnOperand(*this, m_rhs)();
    switch (m_op) {
    case TNSetEqual:
    case TNSetNotEqual:
        if (left.size() != right.size())
            return TNValue(m_op == TNSetNotEqual);
        break;
    case TNProperSubset:
        if (left.size() >= right.size())
            return TNValue(false);
        break;
    case TNSubset:
        if (left.size() > right.size())
            return TNValue(false);
        break;
    default:
        return TNValue(false);
    }
    // Inclusion of sorted ranges counts multiplicity: each entry of lhs needs its own in rhs.
    std::sort(left.begin(), left.end(), std::less<>());
    std::sort(right.begin(), right.end(), std::less<>());
    const bool included =
        std::includes(right.begin(), right.end(), left.begin(), left.end(), std::less<>());
    return TNValue(m_op == TNSetNotEqual ? !included : included);
}

TNValue TNObjectEqualityExpr::operator()() const {
    const SgxSimplePtr<TNObject> left = tnOperand(*this, m_lhs)();
    const SgxSimplePtr<TNObject> right = tnOperand(*this, m_rhs)();
    switch (m_op) {
    case TNEqual:
        return TNValue(left == right);
    case TNNotEqual:
        return TNValue(!(left == right));
    }
    return TNValue(false);
}

// Out of line: a caller that knows a node's exact type may call these directly, which an
// inline definition, hidden inside the library, would not allow.
void TNQuantifierExpr::prepareForDeletion() const {
    tnClaimOperands(m_collection, m_condition, m_boundVariable);
}
void TNObjectSetExpr::prepareForDeletion() const { tnClaimOperands(m_lhs, m_rhs); }
void TNObjectEqualityExpr::prepareForDeletion() const { tnClaimOperands(m_lhs, m_rhs); }
