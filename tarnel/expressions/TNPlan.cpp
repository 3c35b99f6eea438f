#include "tarnel/expressions/internal/TNPlan.h"

#include "tarnel/expressions/TNCollectionExpr.h"
#include "tarnel/expressions/TNQuantifierExpr.h"
#include "tarnel/expressions/TNScalarExpr.h"
#include "tarnel/expressions/TNStringExpr.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNEnumType.h"

#include <cstring>
#include <typeinfo>
#include <unordered_set>

namespace tn_detail {

const TNValue& ValueView::materialize(TNValue& scratch) const {
    if (value != nullptr)
        return *value;
    switch (type) {
    case TNVInt:
        scratch = TNValue(integer);
        break;
    case TNVBoolean:
        scratch = TNValue(integer != 0);
        break;
    case TNVDouble:
        scratch = TNValue(real);
        break;
    case TNVString:
        scratch = TNValue(text);
        break;
    default:
        scratch = TNValue();
        break;
    }
    return scratch;
}

ValueView viewOfSlot(const TNAttribute& slot, TNValue& scratch) {
    ValueView view;
    switch (slot.type()) {
    case TNAttrEnumeration: {
        // The literal's name where its type keeps it; a bad index or a missing type is left to
        // asString(), which raises for it.
        const TNEnumType* type = slot.attrDesc()->enumType().get();
        const char* literal =
            type != nullptr ? type->literalText(static_cast<unsigned long>(slot.integerInPlace()))
                            : nullptr;
        if (literal == nullptr) {
            scratch = TNValue(slot.asString());
            view.value = &scratch;
            return view;
        }
        view.type = TNVString;
        view.text = literal;
        return view;
    }
    case TNAttrInteger:
    case TNAttrLong:
        view.type = TNVInt;
        view.integer = slot.integerInPlace();
        return view;
    case TNAttrBoolean:
        view.type = TNVBoolean;
        view.integer = slot.integerInPlace() != 0 ? 1 : 0;
        return view;
    case TNAttrReal:
        view.type = TNVDouble;
        view.real = slot.asDouble();
        return view;
    case TNAttrString:
        view.type = TNVString;
        view.text = slot.textInPlace();
        return view;
    default:
        scratch = slot.value(); // raises for an unknown kind
        view.value = &scratch;
        return view;
    }
}

ValueView viewOf(const TNValueExpr& node, TNValue& scratch) {
    const std::type_info& type = typeid(node);
    if (type == typeid(TNConstantExpr)) {
        ValueView view;
        view.value = &static_cast<const TNConstantExpr&>(node).constant();
        return view;
    }
    if (type == typeid(TNAttrExpr)) {
        const auto& attr = static_cast<const TNAttrExpr&>(node);
        const TNObjectExprPtr operand = attr.object();
        const SgxSimplePtr<TNObject> object = tnOperand(attr, operand)();
        return viewOfSlot(attr.slotFor(object), scratch);
    }
    if (type == typeid(TNValueBindingExpr)) {
        ValueView view;
        view.value = &static_cast<const TNValueBindingExpr&>(node).resultInPlace();
        view.transient = true;
        return view;
    }
    scratch = node();
    ValueView view;
    view.value = &scratch;
    return view;
}

namespace {
// The other operand as a TNValue: in place, or made without allocating unless it is a text of
// a slot (a number compared with a text attribute).
const TNValue& asValue(const ValueView& view, TNValue& scratch) {
    return view.materialize(scratch);
}
} // namespace

bool viewEquals(const ValueView& lhs, const ValueView& rhs) {
    if (const char* left = lhs.textOrNull()) {
        if (const char* right = rhs.textOrNull())
            return std::strcmp(left, right) == 0;
        TNValue scratch;
        return std::strcmp(left, asValue(rhs, scratch).asString().c_str()) == 0;
    }
    TNValue leftScratch, rightScratch;
    return asValue(lhs, leftScratch) == asValue(rhs, rightScratch);
}

bool viewLess(const ValueView& lhs, const ValueView& rhs) {
    if (const char* left = lhs.textOrNull()) {
        if (const char* right = rhs.textOrNull())
            return std::strcmp(left, right) < 0;
        TNValue scratch;
        return std::strcmp(left, asValue(rhs, scratch).asString().c_str()) < 0;
    }
    TNValue leftScratch, rightScratch;
    return asValue(lhs, leftScratch) < asValue(rhs, rightScratch);
}

void appendView(const ValueView& view, SgxString& text) {
    if (const char* inPlace = view.textOrNull()) {
        text.append(inPlace);
        return;
    }
    TNValue scratch;
    view.materialize(scratch).appendTo(text);
}

namespace {

// The walk behind effectFree: every node reached must be of a class listed here, each of which
// evaluates its operands and nothing else. Operands are listed by the nodes themselves
// (tnVisitOperands), so the list of classes is the only thing written here.
// Association steps are left out: the association a role names is known only per object, and a
// computed one runs a traversal of its own, whose conditions may be a host's.
class EffectWalk {
public:
    bool walk(const SgxCyclicPtrBody* node) {
        if (node == nullptr) // evaluating it raises, the same way every time
            return true;
        if (!enter(node))
            return m_ok;
        bool ok = isListed(typeid(*node));
        if (ok)
            tnVisitOperands(*node, [&](const SgxCyclicPtrBody* operand) {
                ok = ok && walk(operand);
            });
        return settle(ok);
    }

private:
    // Whether to look into `node`: not when the answer is known already (a node seen, the walk
    // failed or grew past its bounds).
    bool enter(const void* node) {
        if (!m_ok)
            return false;
        if (++m_depth > maxDepth || m_seen.size() >= maxNodes) {
            m_ok = false;
            --m_depth;
            return false;
        }
        if (!m_seen.insert(node).second) {
            --m_depth;
            return false;
        }
        return true;
    }
    bool settle(bool ok) {
        --m_depth;
        m_ok = m_ok && ok;
        return m_ok;
    }

    static bool isListed(const std::type_info& type) {
        static const std::type_info* const listed[] = {
            &typeid(TNConstantExpr),      &typeid(TNAttrExpr),
            &typeid(TNRelationalExpr),    &typeid(TNBooleanExpr),
            &typeid(TNArithmeticExpr),    &typeid(TNConversionExpr),
            &typeid(TNCountExpr),         &typeid(TNRegExpMatchExpr),
            &typeid(TNRegExpFindExpr),    &typeid(TNStringManipulationExpr),
            &typeid(TNClassNameExpr),     &typeid(TNUidExpr),
            &typeid(TNIfValueExpr),       &typeid(TNObjectEqualityExpr),
            &typeid(TNObjectSetExpr),     &typeid(TNObjectVarExpr),
            &typeid(TNObjectExtractionExpr), &typeid(TNModelExpr),
            &typeid(TNIfObjectExpr),      &typeid(TNAllInstancesExpr),
            &typeid(TNUniqueExpr),        &typeid(TNReverseExpr),
            &typeid(TNIfObjectCollectionExpr)};
        for (const std::type_info* entry : listed)
            if (*entry == type)
                return true;
        return false;
    }

    static constexpr size_t maxDepth = 64;
    static constexpr size_t maxNodes = 256;
    std::unordered_set<const void*> m_seen;
    size_t m_depth = 0;
    bool m_ok = true;
};

} // namespace

bool effectFree(const TNValueExpr& node) { return EffectWalk().walk(&node); }

bool isLiteralPattern(std::string_view pattern) noexcept {
    if (!pattern.empty() && (pattern.front() == '^' || pattern.back() == '$'))
        return false;
    return pattern.find_first_of(".[]*+?\\") == std::string_view::npos;
}

} // namespace tn_detail
