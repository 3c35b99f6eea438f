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
// evaluates its operands and nothing else.
class EffectWalk {
public:
    bool value(const TNValueExpr* node) {
        if (node == nullptr) // evaluating it raises, the same way every time
            return true;
        if (!enter(node))
            return m_ok;
        const std::type_info& type = typeid(*node);
        bool ok = false;
        if (type == typeid(TNConstantExpr)) {
            ok = true;
        } else if (type == typeid(TNAttrExpr)) {
            const auto& n = static_cast<const TNAttrExpr&>(*node);
            ok = value(n.name().get()) && object(n.object().get());
        } else if (type == typeid(TNRelationalExpr)) {
            const auto& n = static_cast<const TNRelationalExpr&>(*node);
            ok = value(n.lhs().get()) && value(n.rhs().get());
        } else if (type == typeid(TNBooleanExpr)) {
            const auto& n = static_cast<const TNBooleanExpr&>(*node);
            ok = value(n.lhs().get()) && value(n.rhs().get());
        } else if (type == typeid(TNArithmeticExpr)) {
            const auto& n = static_cast<const TNArithmeticExpr&>(*node);
            ok = value(n.lhs().get()) && value(n.rhs().get());
        } else if (type == typeid(TNConversionExpr)) {
            ok = value(static_cast<const TNConversionExpr&>(*node).value().get());
        } else if (type == typeid(TNCountExpr)) {
            ok = collection(static_cast<const TNCountExpr&>(*node).collection().get());
        } else if (type == typeid(TNRegExpMatchExpr) || type == typeid(TNRegExpFindExpr)) {
            const auto& n = static_cast<const TNRegExpSearchExpr&>(*node);
            ok = value(n.regexp().get()) && value(n.str().get());
        } else if (type == typeid(TNStringManipulationExpr)) {
            ok = value(static_cast<const TNStringManipulationExpr&>(*node).str().get());
        } else if (type == typeid(TNClassNameExpr)) {
            ok = object(static_cast<const TNClassNameExpr&>(*node).object().get());
        } else if (type == typeid(TNUidExpr)) {
            ok = object(static_cast<const TNUidExpr&>(*node).object().get());
        } else if (type == typeid(TNIfValueExpr)) {
            const auto& n = static_cast<const TNIfValueExpr&>(*node);
            ok =
                value(n.testExpr().get()) && value(n.thenExpr().get()) && value(n.elseExpr().get());
        } else if (type == typeid(TNObjectEqualityExpr)) {
            const auto& n = static_cast<const TNObjectEqualityExpr&>(*node);
            ok = object(n.lhs().get()) && object(n.rhs().get());
        } else if (type == typeid(TNObjectSetExpr)) {
            const auto& n = static_cast<const TNObjectSetExpr&>(*node);
            ok = collection(n.lhs().get()) && collection(n.rhs().get());
        }
        return settle(ok);
    }

    bool object(const TNObjectExpr* node) {
        if (node == nullptr)
            return true;
        if (!enter(node))
            return m_ok;
        const std::type_info& type = typeid(*node);
        bool ok = false;
        if (type == typeid(TNObjectVarExpr)) {
            ok = true;
        } else if (type == typeid(TNObjectExtractionExpr)) {
            ok = collection(static_cast<const TNObjectExtractionExpr&>(*node).collection().get());
        } else if (type == typeid(TNModelExpr)) {
            ok = object(static_cast<const TNModelExpr&>(*node).object().get());
        } else if (type == typeid(TNIfObjectExpr)) {
            const auto& n = static_cast<const TNIfObjectExpr&>(*node);
            ok = value(n.testExpr().get()) && object(n.thenExpr().get()) &&
                 object(n.elseExpr().get());
        }
        return settle(ok);
    }

    // Association steps are left out: the association a role names is known only per object,
    // and a computed one runs a traversal of its own, whose conditions may be a host's.
    bool collection(const TNObjectCollectionExpr* node) {
        if (node == nullptr)
            return true;
        if (!enter(node))
            return m_ok;
        const std::type_info& type = typeid(*node);
        bool ok = false;
        if (type == typeid(TNAllInstancesExpr)) {
            const auto& n = static_cast<const TNAllInstancesExpr&>(*node);
            ok = value(n.name().get()) && object(n.object().get());
        } else if (type == typeid(TNUniqueExpr)) {
            ok = collection(static_cast<const TNUniqueExpr&>(*node).collection().get());
        } else if (type == typeid(TNReverseExpr)) {
            ok = collection(static_cast<const TNReverseExpr&>(*node).collection().get());
        } else if (type == typeid(TNIfObjectCollectionExpr)) {
            const auto& n = static_cast<const TNIfObjectCollectionExpr&>(*node);
            ok = value(n.testExpr().get()) && collection(n.thenExpr().get()) &&
                 collection(n.elseExpr().get());
        }
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

    static constexpr size_t maxDepth = 64;
    static constexpr size_t maxNodes = 256;
    std::unordered_set<const void*> m_seen;
    size_t m_depth = 0;
    bool m_ok = true;
};

} // namespace

bool effectFree(const TNValueExpr& node) { return EffectWalk().value(&node); }

bool isLiteralPattern(std::string_view pattern) noexcept {
    if (!pattern.empty() && (pattern.front() == '^' || pattern.back() == '$'))
        return false;
    return pattern.find_first_of(".[]*+?\\") == std::string_view::npos;
}

} // namespace tn_detail
