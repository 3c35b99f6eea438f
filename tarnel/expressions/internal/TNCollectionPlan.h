// TNCollectionPlan.h (internal; not installed): what a filter and a map derive from the shape of
// their operands and keep from one evaluation to the next (the plans TNPlan.h lists as kept
// elsewhere), and the attribute node's prepared enumeration comparison that a filter's plan
// holds. Plans live in the nodes' OpaqueShapeCache, made by shapeCacheIn below.
#pragma once

#include "tarnel/expressions/TNExpr.h"
#include "tarnel/expressions/TNScalarExpr.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNEnumType.h"
#include "tarnel/navigation/internal/TNTraversalPlan.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

class TNAttrDesc;
class TNAttrExpr;
class TNClass;
class TNConstantExpr;
class TNFilterExpr;

namespace tn_detail {

// The ShapeCache<Plan> that `storage` holds, made when first asked for and then kept for the
// node's life. Every call for one storage names the same Plan.
template <class Plan> ShapeCache<Plan>& shapeCacheIn(OpaqueShapeCache& storage) {
    if (storage.m_cache == nullptr) [[unlikely]] {
        storage.m_cache = new ShapeCache<Plan>();
        storage.m_free = [](void* cache) noexcept { delete static_cast<ShapeCache<Plan>*>(cache); };
    }
    return *static_cast<ShapeCache<Plan>*>(storage.m_cache);
}
// The plan `storage` last derived, or null when none is current (ShapeCache::current).
template <class Plan> const Plan* currentPlanIn(const OpaqueShapeCache& storage) noexcept {
    return storage.m_cache != nullptr
               ? static_cast<const ShapeCache<Plan>*>(storage.m_cache)->current()
               : nullptr;
}

// What TNAttrExpr::equalsOn(object, constant) compares for objects of one class while the
// schema stays as it is (TNAttrExpr::enumComparison): the descriptor of an enumeration
// attribute, the index of the literal the constant names (-1 for none) and the type's literal
// count (an index outside it is left to equalsOn, which raises).
struct EnumComparison {
    const TNClass* cls = nullptr;
    const TNAttrDesc* desc = nullptr;
    int64_t literal = -1;
    size_t literalCount = 0;
    // What tells, later, that the schema still has them: the ids of the class and of the
    // enumeration type.
    uint64_t classId = 0; // cls->instanceId()
    uint64_t typeId = 0;  // TNEnumType::instanceId() of the descriptor's type

    // Whether the comparison holds for objects of `objectClass` now: the class is the one it was
    // made for (not one made at its address since), the descriptor still an enumeration of the
    // same type, and the type has gained no literal (which the constant might name). Reads
    // nothing through `cls` or `desc` unless `objectClass` is `cls`.
    bool holdsFor(const TNClass* objectClass) const;
};

// Rule 6 (TNPlan.h): a test of one attribute against a constant, attr(name, s) OP constant for
// every operator, the attribute as a truth value, attr(name, s), or a search for a literal
// pattern in it, match(constant, attr(name, s)); s is the variable x a filter
// or a quantifier binds (exactly a TNObjectVarExpr) or the object one step from it,
// First or ExactlyOne of [role] of x, and name a constant. Such a test is made only of the
// library's nodes and reads nothing but the element's link word, a slot and the constant.
struct SlotTestPlan {
    // The op of a truth test: asBoolean() of the attribute's value; of a search for the
    // plan's text, a pattern without special characters, in a text attribute.
    static constexpr int32_t truthOp = -1;
    static constexpr int32_t containsOp = -2;

    TNObjectVarExpr* variable = nullptr; // null: the condition is evaluated node by node
    const TNAttrExpr* attr = nullptr;
    int32_t op = 0; // TNRelationalExpr::TNRelOp, truthOp or containsOp
    // The step whose first link (or only link, `exactlyOne`) is the object tested; null when it
    // is the element itself. A single adding step without a condition (isSingleStep).
    const TNAssociationTraversal* step = nullptr;
    bool exactlyOne = false;
    // The constant as each kind of slot compares with it (asLongInt, asBoolean, asDouble,
    // asString), read when the plan is derived: a new value is a change to the graph.
    int32_t integer = 0;
    bool truth = false;
    double real = 0.0;
    SgxString text;
    // What a walk found last for a class of elements, for the next walks to take while it still
    // holds (SlotTest::adopt): the class's id, its slot's descriptor and kind, and for an
    // enumeration its type (by id and literal count, which a new literal changes) and the index
    // of the literal the constant names (-1 for none).
    struct Prepared {
        uint64_t classId = 0; // TNClass::instanceId(); 0 for none
        const TNAttrDesc* desc = nullptr;
        TNAttrType kind = TNAttrEnumeration;
        const TNEnumType* enumType = nullptr;
        uint64_t typeId = 0;
        size_t literalCount = 0;
        int64_t literal = -1;
    };
    mutable Prepared prepared;
};

// Fills `plan` when `condition`, evaluated with `variable` bound, is such a test.
void recognizeSlotTest(const TNValueExpr* condition, TNObjectVarExpr* variable, SlotTestPlan& plan);

// What a walk over many elements uses to decide a slot test (SlotTestPlan) for each element by
// reading its slot, with the slot's position and kind found once per class (kept in the plan
// from one walk to the next while the class and its enumeration type stay as they were) and the
// constant read once per derivation; made afresh for each walk, during which nothing changes a
// class or the graph (the evaluations are the library's own). It decides as TNValue's
// comparisons of the attribute's value (an enumeration's literal name) with the constant would,
// and leaves to the node-by-node evaluation every element it cannot decide (an object of a class
// whose slot it has not found, an enumeration index outside its type, an unknown kind), which
// then raises what it raises. It binds nothing: the caller binds the variable as the
// node-by-node evaluation would.
class SlotTest {
public:
    // `plan` stays where it is during the walk (a node's plan, which only a graph change
    // derives anew).
    explicit SlotTest(const SlotTestPlan& plan)
        : m_plan(plan), m_step(plan.step), m_integer(plan.integer), m_truth(plan.truth),
          m_real(plan.real), m_text(plan.text.c_str()) {}
    SlotTest(const SlotTest&) = delete;
    SlotTest& operator=(const SlotTest&) = delete;

    // The test's answer for `element` (1 or 0), or -1 when only the node-by-node evaluation can
    // tell. `element` is an object of the class prepared last, or any other object, or null.
    [[gnu::always_inline]] int decide(const TNObject* element) const noexcept {
        if (m_linkedOrTruth) [[unlikely]]
            return decideLinkedOrTruth(element);
        const TNAttribute* slot = preparedSlot(element);
        return slot != nullptr ? decideComparison(*slot) : -1;
    }
    // For the elements of a uniform array (tn_detail::linkUniformTag) whose first is `model`,
    // just decided: whether decideRun can decide them, their headers unread (the test reads its
    // own slot of model's class, which it prepared, or a link whose slot it found in model's
    // class).
    bool canDecideLike(const TNObject& model) const noexcept {
        const TNClass* cls = model.getClass().get();
        return cls != nullptr && cls == (m_step != nullptr ? m_sourceClass : m_class);
    }
    // Whether every object made by `model`'s class is decided here, none being left to an
    // evaluation that might raise: the test reads the object's own slot, prepared for that
    // class, of a kind whose every value compares (not an enumeration).
    bool decidesEveryObjectOf(const TNObject& model) const noexcept {
        if (m_step != nullptr || m_class == nullptr || model.getClass().get() != m_class ||
            TNObject::slotDistance(*m_desc) == 0)
            return false;
        if (m_op == SlotTestPlan::containsOp)
            return m_kind == TNAttrString;
        switch (m_kind) {
        case TNAttrInteger:
        case TNAttrLong:
        case TNAttrBoolean:
        case TNAttrReal:
        case TNAttrString:
            return true;
        default:
            return false;
        }
    }
    // Decides first[i], first[i + 1], ... of such an array, handing each element's index and
    // answer (1 or 0) to `answer`, which tells whether to go on, and returns the index of the
    // first element it cannot decide (count when none), which the caller then evaluates node by
    // node, or the index after the element where `answer` told it to stop. Each element's slot or
    // link word is read at the same place as the model's; a linked object is decided where it
    // is an object made by the class prepared (its slot then lies at one distance from it). It
    // starts loading the elements a few places ahead, so that their waits for memory overlap.
    template <class Answer>
    size_t decideRun(const SgxSimplePtr<TNObject>* first, size_t i, size_t count,
                     Answer&& answer) const noexcept {
        constexpr size_t ahead = 16;
        const int32_t linkSlot = m_linkSlot;
        const TNClass* const cls = m_class;
        // 0: the prepared slot has no place of its own in the class's objects.
        const ptrdiff_t slotDistance = cls != nullptr ? TNObject::slotDistance(*m_desc) : 0;
        if (slotDistance == 0)
            return i;
        if (m_step == nullptr) {
            const ptrdiff_t offset = slotDistance;
            for (; i < count; ++i) {
                if (i + ahead < count)
                    __builtin_prefetch(reinterpret_cast<const char*>(first[i + ahead].get()) +
                                       offset);
                const int decided = decideSlot(*reinterpret_cast<const TNAttribute*>(
                    reinterpret_cast<const char*>(first[i].get()) + offset));
                if (decided < 0)
                    break;
                if (!answer(i, decided))
                    return i + 1;
            }
            return i;
        }
        for (; i < count; ++i) {
            if (i + ahead < count)
                __builtin_prefetch(reinterpret_cast<const uintptr_t*>(first[i + ahead].get()) - 1 -
                                   linkSlot);
            const TNObject* subject =
                linked(TNAssociationTraversal::originalLinkWordAt(*first[i], linkSlot));
            if (subject == nullptr || !TNAssociationTraversal::madeBy(*subject, *cls))
                break;
            const int decided = decideSlot(*reinterpret_cast<const TNAttribute*>(
                reinterpret_cast<const char*>(subject) + slotDistance));
            if (decided < 0)
                break;
            if (!answer(i, decided))
                return i + 1;
        }
        return i;
    }
    // The test's answer for an element of the prepared class whose slot is `slot`, or -1.
    [[gnu::always_inline]] int decideSlot(const TNAttribute& slot) const noexcept {
        return m_op < 0 ? decideOther(slot) : decideComparison(slot);
    }
    // How far into an element of the prepared class the slot tested lies (TNObject::slotDistance);
    // 0 when the slot is another object's.
    ptrdiff_t slotDistance() const noexcept {
        return m_step == nullptr && m_class != nullptr ? TNObject::slotDistance(*m_desc) : 0;
    }
    // The variable the test reads, which the caller binds.
    TNObjectVarExpr* variable() const noexcept { return m_plan.variable; }
    // Finds the slot of `element`'s class, after `element` was evaluated node by node without
    // raising (so the class has the attribute); later elements of its class are then decided.
    void prepare(const TNObject* element) noexcept;

private:
    // The slot tested in `subject` when its class is prepared (or now adopted), else null.
    [[gnu::always_inline]] const TNAttribute* preparedSlot(const TNObject* subject) const noexcept {
        if (subject == nullptr)
            return nullptr;
        if (const TNClass* cls = subject->getClass().get(); cls != m_class || cls == nullptr)
            [[unlikely]] {
            if (!adopt(cls))
                return nullptr;
        }
        return &(*subject)[*m_desc];
    }
    // decide, for a test one step away or a truth test.
    [[gnu::noinline]] int decideLinkedOrTruth(const TNObject* element) const noexcept {
        const TNAttribute* slot =
            preparedSlot(m_step != nullptr ? linkedSubject(element) : element);
        return slot != nullptr ? decideSlot(*slot) : -1;
    }
    // decideSlot of a comparison with the constant.
    [[gnu::always_inline]] int decideComparison(const TNAttribute& attribute) const noexcept {
        const TNAttribute* slot = &attribute;
        bool equal = false, less = false;
        switch (m_kind) {
        case TNAttrInteger:
        case TNAttrLong: {
            const int32_t value = slot->integerInPlace();
            equal = value == m_integer;
            less = value < m_integer;
            break;
        }
        case TNAttrBoolean: {
            const int32_t value = slot->integerInPlace() != 0 ? 1 : 0;
            equal = (value != 0) == m_truth;
            less = value < m_integer;
            break;
        }
        case TNAttrReal: {
            const double value = slot->asDouble();
            equal = value == m_real;
            less = m_real > value;
            break;
        }
        case TNAttrString: {
            const int order = std::strcmp(slot->textInPlace(), m_text);
            equal = order == 0;
            less = order < 0;
            break;
        }
        case TNAttrEnumeration: {
            // The literal's name compared with the text: equal exactly when the constant names
            // this literal (names are unique in their type).
            const auto index = static_cast<uint64_t>(static_cast<uint32_t>(slot->integerInPlace()));
            if (index >= m_literalCount)
                return -1;
            if (m_ordering) {
                const int order = std::strcmp(m_enumType->literalText(index), m_text);
                equal = order == 0;
                less = order < 0;
            } else {
                equal = static_cast<int64_t>(index) == m_literal;
            }
            break;
        }
        default:
            return -1;
        }
        switch (m_op) {
        case TNRelationalExpr::TNEqual:
            return equal ? 1 : 0;
        case TNRelationalExpr::TNNotEqual:
            return equal ? 0 : 1;
        case TNRelationalExpr::TNLess:
            return less ? 1 : 0;
        case TNRelationalExpr::TNGreaterEqual:
            return less ? 0 : 1;
        case TNRelationalExpr::TNGreater:
            return !equal && !less ? 1 : 0;
        case TNRelationalExpr::TNLessEqual:
            return equal || less ? 1 : 0;
        default:
            return 0;
        }
    }
    // Takes what the plan keeps for `cls` when it still holds; false otherwise.
    bool adopt(const TNClass* cls) const noexcept;
    // The object the step leads to from `element`, read from its link word as the extraction
    // would take it: null where only the node-by-node evaluation can tell (no link, more than
    // one for ExactlyOne, a slot not frozen, a class whose link slot is not found).
    const TNObject* linkedSubject(const TNObject* element) const noexcept {
        if (element == nullptr)
            return nullptr;
        if (const TNClass* cls = element->getClass().get(); cls != m_sourceClass || cls == nullptr)
            [[unlikely]] {
            if (!adoptSource(cls, *element))
                return nullptr;
        }
        return linked(TNAssociationTraversal::linkWordAt(*element, m_linkSlot));
    }
    // The object a First or ExactlyOne extraction takes from link word `word`, or null where only
    // the node-by-node evaluation can tell.
    const TNObject* linked(uintptr_t word) const noexcept {
        if ((word & linkTagMask) == linkSingleTag)
            return reinterpret_cast<const TNObject*>(word & ~linkTagMask);
        if ((word & linkTagMask) != 0)
            return nullptr;
        const size_t count = linkArrayCount(word);
        if (count == 0 || (count != 1 && m_plan.exactlyOne))
            return nullptr;
        return linkArray(word)[0].get();
    }
    // decideSlot of a truth test: asBoolean() of the value, which for a text or a literal's name
    // is its equality with "true" (the plan's text); of a search: whether a text attribute holds
    // the plan's text (anything else is converted node by node).
    int decideOther(const TNAttribute& slot) const noexcept {
        if (m_op == SlotTestPlan::containsOp)
            return m_kind != TNAttrString                               ? -1
                   : std::strstr(slot.textInPlace(), m_text) != nullptr ? 1
                                                                        : 0;
        switch (m_kind) {
        case TNAttrInteger:
        case TNAttrLong:
        case TNAttrBoolean:
            return slot.integerInPlace() != 0 ? 1 : 0;
        case TNAttrReal:
            return TNValue(slot.asDouble()).asBoolean() ? 1 : 0;
        case TNAttrString:
            return std::strcmp(slot.textInPlace(), m_text) == 0 ? 1 : 0;
        case TNAttrEnumeration: {
            const auto index = static_cast<uint64_t>(static_cast<uint32_t>(slot.integerInPlace()));
            if (index >= m_literalCount)
                return -1;
            return static_cast<int64_t>(index) == m_literal ? 1 : 0;
        }
        default:
            return -1;
        }
    }
    // Finds the link slot of the step in objects of `cls`, `element` being one; false where the
    // step's links cannot be read in place for it.
    bool adoptSource(const TNClass* cls, const TNObject& element) const noexcept;

    const SlotTestPlan& m_plan;
    // The plan's step, operator and constant, where the walk's stores cannot reach them.
    const TNAssociationTraversal* const m_step;
    const int32_t m_op = m_plan.op;
    const bool m_linkedOrTruth = m_step != nullptr || m_op < 0;
    const int32_t m_integer;
    const bool m_truth;
    const double m_real;
    const char* const m_text;
    // The class prepared (null for none; no class goes away during a walk), the descriptor of
    // its slot and the slot's kind; for an enumeration, its type, literal count and the
    // constant's literal.
    mutable const TNClass* m_class = nullptr;
    mutable const TNAttrDesc* m_desc = nullptr;
    mutable TNAttrType m_kind = TNAttrEnumeration;
    mutable const TNEnumType* m_enumType = nullptr;
    mutable uint64_t m_literalCount = 0;
    mutable int64_t m_literal = -1;
    // With a step: the class of elements whose link slot was found last (null for none), and it.
    mutable const TNClass* m_sourceClass = nullptr;
    mutable int32_t m_linkSlot = -1;
    bool m_ordering = m_plan.op > TNRelationalExpr::TNNotEqual;
};

// Rule 6 for a predicate that combines slot tests of one variable with and, or, not and
// implies (TNBooleanExpr, any depth, at most maxLeaves tests): the tests and the tree over them,
// its root last. A node is a test (op 0, lhs its index) or an operator over earlier nodes.
struct CompoundTestPlan {
    static constexpr size_t maxLeaves = 8;
    struct Node {
        int32_t op = 0; // 0 for a test, else TNBooleanExpr::TNLogOp
        uint8_t lhs = 0;
        uint8_t rhs = 0;
    };
    TNObjectVarExpr* variable = nullptr; // null: the predicate is evaluated node by node
    SlotTestPlan leaves[maxLeaves];
    size_t leafCount = 0;
    Node nodes[2 * maxLeaves];
    size_t nodeCount = 0;
};

// Fills `plan` when `condition`, evaluated with `variable` bound, is such a combination of at
// least two tests.
void recognizeCompoundTest(const TNValueExpr* condition, TNObjectVarExpr* variable,
                           CompoundTestPlan& plan);

// What a walk uses to decide such a predicate for each element: each test decided as SlotTest
// decides it, combined as TNBooleanExpr combines truth values, a test being reached only where
// evaluating the operators node by node would reach it. An element any reached test leaves
// undecided is evaluated node by node (the tests before it could only give the same answers).
class CompoundTest {
public:
    explicit CompoundTest(const CompoundTestPlan& plan) : m_plan(plan) {
        for (size_t i = 0; i < plan.leafCount; ++i)
            m_leaves[i].emplace(plan.leaves[i]);
    }
    CompoundTest(const CompoundTest&) = delete;
    CompoundTest& operator=(const CompoundTest&) = delete;

    int decide(const TNObject* element) const noexcept {
        return decideNode(m_plan.nodeCount - 1, element);
    }
    // After `element` was evaluated node by node without raising: prepares each test for its
    // class, as far as each can be.
    void prepare(const TNObject* element) noexcept {
        for (size_t i = 0; i < m_plan.leafCount; ++i)
            m_leaves[i]->prepare(element);
    }
    TNObjectVarExpr* variable() const noexcept { return m_plan.variable; }

private:
    int decideNode(size_t n, const TNObject* element) const noexcept {
        const CompoundTestPlan::Node& node = m_plan.nodes[n];
        if (node.op == 0)
            return m_leaves[node.lhs]->decide(element);
        const int lhs = decideNode(node.lhs, element);
        switch (node.op) {
        case TNBooleanExpr::TNAnd:
            return lhs <= 0 ? lhs : decideNode(node.rhs, element);
        case TNBooleanExpr::TNOr:
            return lhs != 0 ? lhs : decideNode(node.rhs, element);
        case TNBooleanExpr::TNNot:
            return lhs < 0 ? lhs : 1 - lhs;
        default: // TNImplies
            return lhs < 0 ? lhs : lhs == 0 ? 1 : decideNode(node.rhs, element);
        }
    }

    const CompoundTestPlan& m_plan;
    std::optional<SlotTest> m_leaves[CompoundTestPlan::maxLeaves];
};

// A condition as rule 6 decides it: a single slot test, or else a combination of them.
struct PredicatePlan {
    SlotTestPlan slotTest;
    CompoundTestPlan compound;
};
// Fills `plan` as far as `condition`, evaluated with `variable` bound, is such a predicate.
void recognizePredicate(const TNValueExpr* condition, TNObjectVarExpr* variable,
                        PredicatePlan& plan);

// Makes `test` or `compound` from the plan `derive()` gives, as that plan recognized, the first
// time a walk reaches an element (`planned` false): after every evaluation of the collection,
// which may change the graph, and before the first test.
template <class Derive>
void planPredicateOnce(bool& planned, std::optional<SlotTest>& test,
                       std::optional<CompoundTest>& compound, Derive&& derive) {
    if (planned)
        return;
    planned = true;
    const PredicatePlan& plan = derive();
    if (plan.slotTest.variable != nullptr)
        test.emplace(plan.slotTest);
    else if (plan.compound.variable != nullptr)
        compound.emplace(plan.compound);
}

// A filter's predicate recognized as x -> attr(name, x) == constant (or !=), x a plain variable,
// which the filter compares itself, and the comparison it last prepared for a class of objects.
struct AttributeTestPlan {
    TNObjectVarExpr* variable = nullptr; // null: the predicate is evaluated node by node
    const TNAttrExpr* attr = nullptr;
    const TNConstantExpr* constant = nullptr;
    bool negated = false;
    EnumComparison prepared;
    // Where the slot compared lies in objects of the class last prepared for
    // (TNObject::slotDistance): what a map's look-ahead loads of each object to be tested.
    ptrdiff_t slotDistance = 0;
    // The predicate as a slot test of any operator and kind, where it is one, or else as a
    // combination of them.
    PredicatePlan predicate;
};

// What a map knows of its function from the function's shape. A function x -> count(C) (x a
// plain variable) is evaluated by binding x and counting C, without the calls through the
// abstraction and the count node. When C counts the links of one simple step from x, through
// filters, the map also knows what each element's evaluation reads first: the step's links, and
// the slot the filter nearest them tests. It starts loading these for the elements a few places
// after the one it evaluates, so that the waits for memory of several elements overlap instead
// of adding up.
struct MapPlan {
    TNObjectVarExpr* variable = nullptr;             // null: the function is evaluated as is
    const TNObjectCollectionExpr* counted = nullptr; // C
    const TNAssociationTraversal* step = nullptr;    // null: nothing is known ahead
    const TNFilterExpr* filter = nullptr;            // the filter nearest the links, if any
};

} // namespace tn_detail
