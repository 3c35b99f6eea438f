#include "tarnel/expressions/TNQuantifierExpr.h"

#include "tarnel/expressions/internal/TNCollectionPlan.h"
#include "tarnel/expressions/internal/TNPlan.h"

#include <algorithm>
#include <functional>
#include <optional>

TNValue TNQuantifierExpr::quantify(bool whileResult) const {
    // A condition that is a slot test (rule 6, TNPlan.h) is decided from each element's slot;
    // the variable is still bound to each element in turn. The test is planned at the first
    // element, after every evaluation of the collection, which may change the graph.
    struct Visit {
        const TNQuantifierExpr& node;
        const bool whileResult;
        bool& result;
        std::optional<tn_detail::SlotTest>& test;
        std::optional<tn_detail::CompoundTest>& compound; // where test is none
        bool& planned;

        void plan() const {
            tn_detail::planPredicateOnce(
                planned, test, compound, [&]() -> const tn_detail::PredicatePlan& {
                    return tn_detail::shapeCacheIn<tn_detail::PredicatePlan>(node.m_plan)
                        .get([&](tn_detail::PredicatePlan& derived) {
                            tn_detail::recognizePredicate(node.m_condition.get(),
                                                          node.m_boundVariable.get(), derived);
                        });
                });
        }
        // Out of line, so that a walk under a single test stays small.
        [[gnu::noinline]] int decideCombined(const TNObject* element) const {
            return compound ? compound->decide(element) : -1;
        }
        [[gnu::always_inline]] bool one(const SgxSimplePtr<TNObject>& element) const {
            tnVariable(node, node.m_boundVariable).object(element);
            int answer = test ? test->decide(element.get()) : decideCombined(element.get());
            if (answer < 0) {
                answer = tnOperand(node, node.m_condition).test() ? 1 : 0;
                if (test)
                    test->prepare(element.get());
                else if (compound)
                    compound->prepare(element.get());
            }
            result = answer != 0;
            return result == whileResult;
        }
        bool operator()(const SgxSimplePtr<TNObject>& element) const {
            plan();
            return one(element);
        }
        // Binding the variable and evaluating a condition of the library's own nodes that
        // neither bind nor fill a cache change nothing a collection's own evaluations read.
        bool visitsWithoutEffect() const {
            const TNValueExpr* condition = node.m_condition.get();
            return condition != nullptr && tn_detail::effectFree(*condition);
        }
        // A uniform array (objects all made by one class) is decided after its first element
        // from the slot or link word at the same place in each, as a filter decides it.
        bool operator()(const SgxSimplePtr<TNObject>* first, size_t count, bool uniform) const {
            plan();
            size_t i = 0;
            if (test && uniform && count > 1 &&
                tn_detail::overwrittenOriginals.load(std::memory_order_relaxed) == 0) {
                if (!one(first[i++]))
                    return false;
                if (test->canDecideLike(*first[0])) {
                    bool goOn = true;
                    i = test->decideRun(first, i, count, [&](size_t, int answer) {
                        result = answer != 0;
                        return goOn = result == whileResult;
                    });
                    // Bound to the element that decided, or the last one tested.
                    tnVariable(node, node.m_boundVariable).object(first[i - 1]);
                    if (!goOn)
                        return false;
                }
            }
            for (; i < count; ++i)
                if (!one(first[i]))
                    return false;
            return true;
        }
    };
    bool result = whileResult;
    std::optional<tn_detail::SlotTest> test;
    std::optional<tn_detail::CompoundTest> compound;
    bool planned = false;
    tnOperand(*this, m_collection)
        .forEach(Visit{*this, whileResult, result, test, compound, planned});
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
