// TNCollectionPlan.h (internal; not installed): what a filter and a map derive from the shape of
// their operands and keep from one evaluation to the next (the plans TNPlan.h lists as kept
// elsewhere), and the attribute node's prepared enumeration comparison that a filter's plan
// holds. Plans live in the nodes' OpaqueShapeCache, made by shapeCacheIn below.
#pragma once

#include "tarnel/expressions/TNExpr.h"
#include "tarnel/expressions/TNScalarExpr.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNEnumType.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

class TNAssociationTraversal;
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

// Rule 6 (TNPlan.h): a test of one attribute of an element against a constant,
// x -> attr(name, x) OP constant for every operator, x the variable a filter or a quantifier
// binds (exactly a TNObjectVarExpr) and name a constant. Such a test is made only of the
// library's nodes and reads nothing but the element's slot and the constant.
struct SlotTestPlan {
    TNObjectVarExpr* variable = nullptr; // null: the condition is evaluated node by node
    const TNAttrExpr* attr = nullptr;
    const TNConstantExpr* constant = nullptr;
    int32_t op = 0; // TNRelationalExpr::TNRelOp
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
        : m_plan(plan), m_op(plan.op), m_integer(plan.integer), m_truth(plan.truth),
          m_real(plan.real), m_text(plan.text.c_str()) {}
    SlotTest(const SlotTest&) = delete;
    SlotTest& operator=(const SlotTest&) = delete;

    // The test's answer for `element` (1 or 0), or -1 when only the node-by-node evaluation can
    // tell. `element` is an object of the class prepared last, or any other object, or null.
    int decide(const TNObject* element) const noexcept {
        if (element == nullptr)
            return -1;
        if (const TNClass* cls = element->getClass().get(); cls != m_class || cls == nullptr)
            [[unlikely]] {
            if (!adopt(cls))
                return -1;
        }
        return decideSlot((*element)[*m_desc]);
    }
    // The slot tested in `model` when it is an object of the class prepared last, else null.
    const TNAttribute* slotIn(const TNObject& model) const noexcept {
        return m_class != nullptr && model.getClass().get() == m_class ? &model[*m_desc] : nullptr;
    }
    // The test's answer for an element of the prepared class whose slot is `slot`, or -1.
    int decideSlot(const TNAttribute& attribute) const noexcept {
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
    // How far into an object of the prepared class its slot lies (TNObject::slotDistance).
    ptrdiff_t slotDistance() const noexcept {
        return m_class != nullptr ? TNObject::slotDistance(*m_desc) : 0;
    }
    // The variable the test reads, which the caller binds.
    TNObjectVarExpr* variable() const noexcept { return m_plan.variable; }
    // Finds the slot of `element`'s class, after `element` was evaluated node by node without
    // raising (so the class has the attribute); later elements of its class are then decided.
    void prepare(const TNObject* element) noexcept;

private:
    // Takes what the plan keeps for `cls` when it still holds; false otherwise.
    bool adopt(const TNClass* cls) const noexcept;

    const SlotTestPlan& m_plan;
    // The plan's operator and constant, where the walk's stores cannot reach them.
    const int32_t m_op;
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
    bool m_ordering =
        m_plan.op != TNRelationalExpr::TNEqual && m_plan.op != TNRelationalExpr::TNNotEqual;
};

// Makes `test` from the plan `derive()` gives, when that plan recognized a slot test, the first
// time a walk reaches an element (`planned` false): after every evaluation of the collection,
// which may change the graph, and before the first test.
template <class Derive>
void planSlotTestOnce(bool& planned, std::optional<SlotTest>& test, Derive&& derive) {
    if (planned)
        return;
    planned = true;
    if (const SlotTestPlan& plan = derive(); plan.variable != nullptr)
        test.emplace(plan);
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
    // The predicate as a slot test of any operator and kind, where it is one.
    SlotTestPlan slotTest;
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
