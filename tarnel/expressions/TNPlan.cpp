#include "tarnel/expressions/internal/TNPlan.h"

#include "tarnel/expressions/internal/TNCollectionPlan.h"

#include "tarnel/expressions/TNCollectionExpr.h"
#include "tarnel/expressions/TNQuantifierExpr.h"
#include "tarnel/expressions/TNScalarExpr.h"
#include "tarnel/expressions/TNStringExpr.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNEnumType.h"
#include "tarnel/navigation/TNAssociationTraversal.h"

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

namespace {

// The step whose first (or only) link `subject` takes from `variable`: First or ExactlyOne of
// [role] of variable, all of the library's own classes, the role a single adding step without a
// condition. Null when `subject` is something else.
const TNAssociationTraversal* linkStepTo(const TNObjectExpr& subject,
                                         const TNObjectVarExpr& variable, bool& exactlyOne) {
    if (!isExactly<TNObjectExtractionExpr>(subject))
        return nullptr;
    const auto& extraction = static_cast<const TNObjectExtractionExpr&>(subject);
    const TNObjectCollectionExpr* links = extraction.collection().get();
    if (links == nullptr || !isExactly<TNAssociationExpr>(*links))
        return nullptr;
    const auto& navigation = static_cast<const TNAssociationExpr&>(*links);
    const TNAssociationTraversal* step = navigation.association().get();
    if (navigation.object().get() != &variable || step == nullptr ||
        !isExactly<TNAssociationTraversal>(*step) || !step->isSingleStep())
        return nullptr;
    exactlyOne = extraction.choice() == TNObjectExtractionExpr::ExactlyOne;
    return step;
}

} // namespace

void recognizeSlotTest(const TNValueExpr* condition, TNObjectVarExpr* variable,
                       SlotTestPlan& plan) {
    if (condition == nullptr || variable == nullptr || !isExactly<TNObjectVarExpr>(*variable))
        return;
    const TNValueExpr* attrNode = condition;
    const TNConstantExpr* constant = nullptr;
    int32_t op = SlotTestPlan::truthOp;
    const char* pattern = nullptr;
    if (isExactly<TNRegExpMatchExpr>(*condition)) {
        // A literal pattern matches where its own characters stand (rule 4).
        const auto& match = static_cast<const TNRegExpMatchExpr&>(*condition);
        const TNValueExpr* regexp = match.regexp().get();
        if (regexp == nullptr || !isExactly<TNConstantExpr>(*regexp))
            return;
        pattern = static_cast<const TNConstantExpr*>(regexp)->constant().text();
        if (pattern == nullptr || !isLiteralPattern(pattern))
            return;
        attrNode = match.str().get();
        op = SlotTestPlan::containsOp;
    } else if (isExactly<TNRelationalExpr>(*condition)) {
        const auto& relational = static_cast<const TNRelationalExpr&>(*condition);
        const TNValueExpr* rhs = relational.rhs().get();
        attrNode = relational.lhs().get();
        op = relational.op();
        if (op < TNRelationalExpr::TNEqual || op > TNRelationalExpr::TNGreaterEqual ||
            rhs == nullptr || !isExactly<TNConstantExpr>(*rhs))
            return;
        constant = static_cast<const TNConstantExpr*>(rhs);
    }
    if (attrNode == nullptr || !isExactly<TNAttrExpr>(*attrNode))
        return;
    const auto& attr = static_cast<const TNAttrExpr&>(*attrNode);
    const TNValueExpr* name = attr.name().get();
    const TNObjectExpr* subject = attr.object().get();
    if (name == nullptr || !isExactly<TNConstantExpr>(*name) || subject == nullptr)
        return;
    bool exactlyOne = false;
    const TNAssociationTraversal* step = nullptr;
    if (subject != variable && (step = linkStepTo(*subject, *variable, exactlyOne)) == nullptr)
        return;
    plan.variable = variable;
    plan.attr = &attr;
    plan.op = op;
    plan.step = step;
    plan.exactlyOne = exactlyOne;
    if (constant == nullptr) {
        // A truth test: a number or truth value differs from 0, a text is "true" (SlotTest); a
        // search looks for the pattern's text.
        plan.text = pattern != nullptr ? pattern : "true";
        return;
    }
    const TNValue& c = constant->constant();
    plan.integer = c.asLongInt();
    plan.truth = c.asBoolean();
    plan.real = c.asDouble();
    plan.text = c.asString();
}

namespace {
// Adds the node for `condition` to `plan`, and answers its index; -1 where it is no combination
// of slot tests or has too many.
int addCompoundNode(const TNValueExpr* condition, TNObjectVarExpr* variable,
                    CompoundTestPlan& plan) {
    if (condition == nullptr)
        return -1;
    CompoundTestPlan::Node node;
    if (isExactly<TNBooleanExpr>(*condition)) {
        const auto& combined = static_cast<const TNBooleanExpr&>(*condition);
        node.op = combined.op();
        if (node.op < TNBooleanExpr::TNAnd || node.op > TNBooleanExpr::TNImplies)
            return -1;
        const int lhs = addCompoundNode(combined.lhs().get(), variable, plan);
        const int rhs = node.op == TNBooleanExpr::TNNot
                            ? 0
                            : addCompoundNode(combined.rhs().get(), variable, plan);
        if (lhs < 0 || rhs < 0)
            return -1;
        node.lhs = static_cast<uint8_t>(lhs);
        node.rhs = static_cast<uint8_t>(rhs);
    } else {
        if (plan.leafCount == CompoundTestPlan::maxLeaves)
            return -1;
        SlotTestPlan& leaf = plan.leaves[plan.leafCount];
        recognizeSlotTest(condition, variable, leaf);
        if (leaf.variable == nullptr)
            return -1;
        node.lhs = static_cast<uint8_t>(plan.leafCount++);
    }
    if (plan.nodeCount == std::size(plan.nodes))
        return -1;
    plan.nodes[plan.nodeCount] = node;
    return static_cast<int>(plan.nodeCount++);
}
} // namespace

void recognizeCompoundTest(const TNValueExpr* condition, TNObjectVarExpr* variable,
                           CompoundTestPlan& plan) {
    if (condition == nullptr || !isExactly<TNBooleanExpr>(*condition) ||
        addCompoundNode(condition, variable, plan) < 0)
        plan = CompoundTestPlan();
    else
        plan.variable = variable;
}

void recognizePredicate(const TNValueExpr* condition, TNObjectVarExpr* variable,
                        PredicatePlan& plan) {
    recognizeSlotTest(condition, variable, plan.slotTest);
    if (plan.slotTest.variable == nullptr)
        recognizeCompoundTest(condition, variable, plan.compound);
}

bool SlotTest::adoptSource(const TNClass* cls, const TNObject& element) const noexcept {
    m_sourceClass = nullptr;
    if (cls == nullptr)
        return false;
    try {
        m_linkSlot = m_plan.step->frozenSlotOf(element);
    } catch (...) {
        return false;
    }
    if (m_linkSlot < 0)
        return false;
    m_sourceClass = cls;
    return true;
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
    if (m_plan.step != nullptr)
        element = linkedSubject(element);
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
