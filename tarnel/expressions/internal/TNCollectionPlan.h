// TNCollectionPlan.h (internal; not installed): what a filter and a map derive from the shape of
// their operands and keep from one evaluation to the next (the plans TNPlan.h lists as kept
// elsewhere), and the attribute node's prepared enumeration comparison that a filter's plan
// holds. Plans live in the nodes' OpaqueShapeCache, made by shapeCacheIn below.
#pragma once

#include "tarnel/expressions/TNExpr.h"

#include <cstddef>
#include <cstdint>

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
