#include "tarnel/expressions/internal/TNPlan.h"

#include "tarnel/expressions/internal/TNCollectionPlan.h"

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

ValueView viewOfOtherSlot(const TNAttribute& slot, TNValue& scratch) {
    ValueView view;
    if (slot.type() == TNAttrEnumeration) {
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
    scratch = slot.value(); // raises for an unknown kind
    view.value = &scratch;
    return view;
}

Route routeOf(const TNValueExpr& node) noexcept {
    if (isExactly<TNConstantExpr>(node))
        return Route::Constant;
    if (isExactly<TNAttrExpr>(node))
        return Route::Attribute;
    if (isExactly<TNValueBindingExpr>(node))
        return Route::Binding;
    return Route::Evaluated;
}

bool viewEqualsInGeneral(const ValueView& lhs, const ValueView& rhs) {
    if (const char* left = lhs.textOrNull()) {
        if (const char* right = rhs.textOrNull())
            return std::strcmp(left, right) == 0;
        TNValue scratch;
        return std::strcmp(left, rhs.materialize(scratch).asString().c_str()) == 0;
    }
    TNValue leftScratch, rightScratch;
    return lhs.materialize(leftScratch) == rhs.materialize(rightScratch);
}

bool viewLessInGeneral(const ValueView& lhs, const ValueView& rhs) {
    if (const char* left = lhs.textOrNull()) {
        if (const char* right = rhs.textOrNull())
            return std::strcmp(left, right) < 0;
        TNValue scratch;
        return std::strcmp(left, rhs.materialize(scratch).asString().c_str()) < 0;
    }
    TNValue leftScratch, rightScratch;
    return lhs.materialize(leftScratch) < rhs.materialize(rightScratch);
}

bool viewTruthInGeneral(const ValueView& view) {
    if (view.value == nullptr) {
        switch (view.type) {
        case TNVInt:
        case TNVBoolean:
            return view.integer != 0;
        case TNVString:
            return std::strcmp(view.text, "true") == 0;
        default:
            break;
        }
    }
    TNValue scratch;
    return view.materialize(scratch).asBoolean();
}

void appendView(const ValueView& view, SgxString& text) {
    if (const char* inPlace = view.textOrNull()) {
        text.append(inPlace);
        return;
    }
    TNValue scratch;
    view.materialize(scratch).appendTo(text);
}

void appendValue(const TNValueExpr& node, SgxString& text) {
    if (isExactly<TNArithmeticExpr>(node)) {
        static_cast<const TNArithmeticExpr&>(node).appendTo(text);
        return;
    }
    TNValue scratch;
    appendView(viewOf(node, scratch), text);
}

void recognizeSlotTest(const TNValueExpr* condition, TNObjectVarExpr* variable,
                       SlotTestPlan& plan) {
    if (condition == nullptr || variable == nullptr || !isExactly<TNObjectVarExpr>(*variable) ||
        !isExactly<TNRelationalExpr>(*condition))
        return;
    const auto& relational = static_cast<const TNRelationalExpr&>(*condition);
    const TNValueExpr* lhs = relational.lhs().get();
    const TNValueExpr* rhs = relational.rhs().get();
    const int32_t op = relational.op();
    if (op < TNRelationalExpr::TNEqual || op > TNRelationalExpr::TNGreaterEqual || lhs == nullptr ||
        rhs == nullptr || !isExactly<TNAttrExpr>(*lhs) || !isExactly<TNConstantExpr>(*rhs))
        return;
    const auto& attr = static_cast<const TNAttrExpr&>(*lhs);
    const TNValueExpr* name = attr.name().get();
    if (attr.object().get() != variable || name == nullptr || !isExactly<TNConstantExpr>(*name))
        return;
    plan.variable = variable;
    plan.attr = &attr;
    plan.constant = static_cast<const TNConstantExpr*>(rhs);
    plan.op = op;
    const TNValue& c = plan.constant->constant();
    plan.integer = c.asLongInt();
    plan.truth = c.asBoolean();
    plan.real = c.asDouble();
    plan.text = c.asString();
}

bool SlotTest::adopt(const TNClass* cls) const noexcept {
    const SlotTestPlan::Prepared& kept = m_plan.prepared;
    if (cls == nullptr || kept.classId == 0 || cls->instanceId() != kept.classId ||
        kept.desc->type() != kept.kind)
        return false;
    if (kept.kind == TNAttrEnumeration) {
        const TNEnumType* type = kept.desc->enumType().get();
        if (type == nullptr || type != kept.enumType || type->instanceId() != kept.typeId ||
            type->literalCount() != kept.literalCount)
            return false;
    }
    m_desc = kept.desc;
    m_kind = kept.kind;
    m_enumType = kept.enumType;
    m_literalCount = kept.literalCount;
    m_literal = kept.literal;
    m_class = cls;
    return true;
}

void SlotTest::prepare(const TNObject* element) noexcept {
    m_class = nullptr;
    if (element == nullptr)
        return;
    try {
        const TNAttribute& slot =
            m_plan.attr->slotFor(SgxSimplePtr<TNObject>(const_cast<TNObject*>(element)));
        SlotTestPlan::Prepared found;
        found.desc = slot.attrDesc().get();
        found.kind = slot.type();
        if (found.kind == TNAttrEnumeration) {
            const TNEnumType* type = found.desc->enumType().get();
            if (type == nullptr)
                return;
            found.enumType = type;
            found.typeId = type->instanceId();
            found.literalCount = type->literalCount();
            const std::string_view text(m_plan.text);
            found.literal = type->check(text) ? static_cast<int64_t>((*type)[text]) : -1;
        }
        const TNClass* cls = element->getClass().get();
        found.classId = cls->instanceId();
        m_plan.prepared = found;
        adopt(cls);
    } catch (...) {
        // Left unprepared: the elements of this class are evaluated node by node.
        m_class = nullptr;
    }
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
            tnVisitOperands(*node,
                            [&](const SgxCyclicPtrBody* operand) { ok = ok && walk(operand); });
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
        static const std::type_info* const listed[] = {&typeid(TNConstantExpr),
                                                       &typeid(TNAttrExpr),
                                                       &typeid(TNRelationalExpr),
                                                       &typeid(TNBooleanExpr),
                                                       &typeid(TNArithmeticExpr),
                                                       &typeid(TNConversionExpr),
                                                       &typeid(TNCountExpr),
                                                       &typeid(TNRegExpMatchExpr),
                                                       &typeid(TNRegExpFindExpr),
                                                       &typeid(TNStringManipulationExpr),
                                                       &typeid(TNClassNameExpr),
                                                       &typeid(TNUidExpr),
                                                       &typeid(TNIfValueExpr),
                                                       &typeid(TNObjectEqualityExpr),
                                                       &typeid(TNObjectSetExpr),
                                                       &typeid(TNObjectVarExpr),
                                                       &typeid(TNObjectExtractionExpr),
                                                       &typeid(TNModelExpr),
                                                       &typeid(TNIfObjectExpr),
                                                       &typeid(TNAllInstancesExpr),
                                                       &typeid(TNUniqueExpr),
                                                       &typeid(TNReverseExpr),
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
