// TNCollectionExpr.h: the operators that produce and transform sequences of model objects (all
// instances of a class, an association traversal, filter, flat-map, multi-key sort, duplicate
// removal, reversal), the operators yielding one object (extraction, the model's root) and the
// mapping of objects to texts.
//
// Every result is a new sequence returned by value; order is defined and duplicates are kept
// unless a node removes them. Abstractions (predicates, paths, keys, functions) rebind their
// variable for each element and leave it bound to the last element they saw. Operands are owned
// as the framework describes (TNExpr.h); prepareForDeletion() claims them in field order. What
// operands raise passes through, and the node's partial result is discarded.
#pragma once

#include "tarnel/expressions/TNExpr.h"
#include "tarnel/expressions/TNScalarExpr.h"
#include "tarnel/navigation/TNAssociationTraversal.h"

#include <cstdint>
#include <string_view>
#include <vector>

// ---------------------------------------------------------------------------------------------
// Object collections.

// Every instance of the class named by `name` (read with asString()), oldest first, in the
// schema of the object that `object` yields; empty when the schema has no such class. A null
// object raises SgxException "Null dereference".
class TARNEL_API TNAllInstancesExpr : public TNObjectCollectionExpr {
public:
    TNAllInstancesExpr() = default;
    TNAllInstancesExpr(const TNValueExprPtr& name, const TNObjectExprPtr& object)
        : m_name(name), m_object(object) {}
    // Makes a TNConstantExpr holding `name`; like every operand, it is owned once
    // prepareForDeletion() has run (and leaked if it never does).
    TNAllInstancesExpr(const SgxString& name, const TNObjectExprPtr& object);

    TNObjectSequence operator()() const override;
    // Count and visit the class's instances where they lie.
    size_t count() const override;
    void forEach(const TNObjectVisitor& visit) const override;
    void prepareForDeletion() const override;

    TN_EXPR_FIELD(TNValueExprPtr, name);
    TN_EXPR_FIELD(TNObjectExprPtr, object);

private:
    // The class named, or null; evaluates both operands.
    const TNClass* namedClass() const;
};

// What `association` gathers from the object that `object` yields (TNAssociationTraversal::
// traverse): its order, repetitions and failures.
class TARNEL_API TNAssociationExpr : public TNObjectCollectionExpr {
public:
    TNAssociationExpr() = default;
    TNAssociationExpr(const SgxCyclicPtr<TNAssociationTraversal>& association,
                      const TNObjectExprPtr& object)
        : m_association(association), m_object(object) {}

    TNObjectSequence operator()() const override;
    // Counts through TNAssociationTraversal::count, gathering no more than the walk needs.
    size_t count() const override;
    // Visits a one-step traversal's links where they lie (TNAssociationTraversal::forEach).
    void forEach(const TNObjectVisitor& visit) const override;
    void prepareForDeletion() const override;

    // --- End of public API: what follows is the library's own ---
    // forEach(visit) in two parts, for a caller that wants the links rather than a visit (an
    // extraction): linksInPlace evaluates the start object into `start` as forEach does, and
    // where the traversal has its links in place (TNAssociationTraversal::frozenLinks) sets
    // `first` and `count` (`one` holding a single link) and answers true; else false, and
    // forEachFrom(start, visit) does the rest of forEach.
    bool linksInPlace(SgxSimplePtr<TNObject>& start, SgxSimplePtr<TNObject>& one,
                      const SgxSimplePtr<TNObject>*& first, size_t& count) const;
    void forEachFrom(const SgxSimplePtr<TNObject>& start, const TNObjectVisitor& visit) const;

    TN_EXPR_FIELD(SgxCyclicPtr<TNAssociationTraversal>, association);
    TN_EXPR_FIELD(TNObjectExprPtr, object);
};

namespace tn_detail {
struct AttributeTestPlan; // internal/TNCollectionPlan.h
} // namespace tn_detail

// The elements of `collection` for which `predicate` yields a value whose asBoolean() is true,
// in order, duplicates kept.
class TARNEL_API TNFilterExpr : public TNObjectCollectionExpr {
public:
    TNFilterExpr() = default;
    TNFilterExpr(const SgxCyclicPtr<TNValueAbsExpr>& predicate,
                 const TNObjectCollectionExprPtr& collection)
        : m_predicate(predicate), m_collection(collection) {}

    TNObjectSequence operator()() const override;
    // Counts the elements kept without gathering them.
    size_t count() const override;
    // Visits the elements kept, every predicate evaluation done before the first visit, from
    // a sequence the node keeps for its next evaluation.
    void forEach(const TNObjectVisitor& visit) const override;
    void prepareForDeletion() const override;

    TN_EXPR_FIELD(SgxCyclicPtr<TNValueAbsExpr>, predicate);
    TN_EXPR_FIELD(TNObjectCollectionExprPtr, collection);

    // --- End of public API: what follows is the library's own ---
public:
    // Where the predicate reads the objects it tests, for look-ahead loads: how far into an
    // object lies the slot its attribute test last compared (TNObject::slotDistance), or 0.
    ptrdiff_t testedSlotDistance() const noexcept;
    // What the predicate is recognized as, recognized again after any graph change: for the
    // filter itself, and for a node that compares the filter's elements the same way.
    tn_detail::AttributeTestPlan& attributeTest() const;

private:
    // What the predicate was recognized as (a ShapeCache<AttributeTestPlan>), kept from one
    // evaluation to the next while no graph changes, so that a filter evaluated once per object
    // of a report tests its shape once.
    mutable tn_detail::OpaqueShapeCache m_plan;
    // Where forEach gathers the elements kept.
    mutable tn_detail::KeptSequence m_kept;
};

// The concatenation, in order, of what `path` yields for each element of `collection`.
class TARNEL_API TNTraverseExpr : public TNObjectCollectionExpr {
public:
    TNTraverseExpr() = default;
    TNTraverseExpr(const SgxCyclicPtr<TNObjectCollectionAbsExpr>& path,
                   const TNObjectCollectionExprPtr& collection)
        : m_path(path), m_collection(collection) {}

    TNObjectSequence operator()() const override;
    // The sum of what `path` counts for each element, no part being gathered.
    size_t count() const override;
    // Visits the concatenation once every evaluation is done, from a sequence the node keeps
    // for its next evaluation.
    void forEach(const TNObjectVisitor& visit) const override;
    void prepareForDeletion() const override;

    TN_EXPR_FIELD(SgxCyclicPtr<TNObjectCollectionAbsExpr>, path);
    TN_EXPR_FIELD(TNObjectCollectionExprPtr, collection);

private:
    // Appends to `out` what path yields for each element, each part handed over where it lies.
    void appendTo(TNObjectSequence& out) const;

    mutable tn_detail::KeptSequence m_kept;
};

// `collection` sorted by a list of keys, the first the primary one. The whole sequence is sorted
// by the first key (a before b when key(a) < key(b), or key(b) < key(a) descending, by
// TNValue::operator<); then each run of elements whose first keys are equal (TNValue::operator==,
// each element's key compared with the run's first) is sorted the same way by the remaining keys.
// Elements equal on every key come in no promised order (today: their input order). Fewer than
// two elements, or no keys, leave the sequence as it is and evaluate no key. The sort is a merge
// sort that stays within the sequence whatever the keys yield: TNVNone keys (less than
// themselves), NaN and keys that change between evaluations make the comparison inconsistent,
// which the standard library's sorts may not survive.
//
// Evaluations: each comparison evaluates the key on a, then on b, and the run walk once more per
// element; a key made only of the library's nodes that have no effect but their value (an
// attribute of its own variable, arithmetic, comparisons, constants) is evaluated once per
// element instead, with the same result and the variable left bound to the same element.
class TARNEL_API TNSortExpr : public TNObjectCollectionExpr {
public:
    struct SortKey {
        SgxCyclicPtr<TNValueAbsExpr> key; // maps an object to its sort value
        bool ascending = true;            // smaller values first
    };

    TNSortExpr() = default;

    TNObjectSequence operator()() const override;
    // Visits the sorted elements, sorted in a sequence the node keeps for its next evaluation.
    void forEach(const TNObjectVisitor& visit) const override;
    void prepareForDeletion() const override;

    // Appends a key after those already given.
    void key(const SgxCyclicPtr<TNValueAbsExpr>& key, bool ascending) {
        m_keys.update([&](std::vector<SortKey>& keys) { keys.push_back({key, ascending}); });
    }

    TN_EXPR_FIELD(std::vector<SortKey>, keys);
    TN_EXPR_FIELD(TNObjectCollectionExprPtr, collection);

private:
    void sortInPlace(TNObjectSequence& elements) const;

    // Which keys are evaluated once per element, found once per graph change.
    mutable tn_detail::OpaqueShapeCache m_plan;
    mutable tn_detail::KeptSequence m_kept;
};

// `collection` with each object once. Stable: first occurrences in their order. Not stable: in
// the order of object identity (addresses). Objects with equal attribute values are distinct.
class TARNEL_API TNUniqueExpr : public TNObjectCollectionExpr {
public:
    TNUniqueExpr() = default;
    TNUniqueExpr(const TNObjectCollectionExprPtr& collection, bool isStable)
        : m_isStable(isStable), m_collection(collection) {}

    TNObjectSequence operator()() const override;
    void prepareForDeletion() const override;

    TN_EXPR_FIELD(bool, isStable);
    TN_EXPR_FIELD(TNObjectCollectionExprPtr, collection);
};

// `collection` in reverse order.
class TARNEL_API TNReverseExpr : public TNObjectCollectionExpr {
public:
    TNReverseExpr() = default;
    explicit TNReverseExpr(const TNObjectCollectionExprPtr& collection)
        : m_collection(collection) {}

    TNObjectSequence operator()() const override;
    // Visits the elements reversed in a sequence the node keeps for its next evaluation.
    void forEach(const TNObjectVisitor& visit) const override;
    void prepareForDeletion() const override;

    TN_EXPR_FIELD(TNObjectCollectionExprPtr, collection);

private:
    mutable tn_detail::KeptSequence m_kept;
};

// ---------------------------------------------------------------------------------------------
// Single objects and texts.

// The single object of `collection` (ExactlyOne), or its first (First, and every value but 0).
// Raises SgxException "ObjectExtraction: association doesn't have exactly one object." or
// "ObjectExtraction: association doesn't have one or more objects." (logged under "Throw").
class TARNEL_API TNObjectExtractionExpr : public TNObjectExpr {
public:
    enum Choice : int32_t {
        ExactlyOne = 0, // the collection must hold exactly one object
        First = 1       // the collection must not be empty; the rest is ignored
    };

    TNObjectExtractionExpr() = default;
    explicit TNObjectExtractionExpr(const TNObjectCollectionExprPtr& collection)
        : m_collection(collection) {}

    SgxSimplePtr<TNObject> operator()() const override;
    void prepareForDeletion() const override;

    TN_EXPR_FIELD(Choice, choice);
    TN_EXPR_FIELD(TNObjectCollectionExprPtr, collection);
};

// The root object of the schema of the object that `object` yields (null when none is set). A
// null object raises SgxException "Null dereference".
class TARNEL_API TNModelExpr : public TNObjectExpr {
public:
    TNModelExpr() = default;
    explicit TNModelExpr(const TNObjectExprPtr& object) : m_object(object) {}

    SgxSimplePtr<TNObject> operator()() const override;
    void prepareForDeletion() const override;

    TN_EXPR_FIELD(TNObjectExprPtr, object);
};

// One text per element of `collection`, in order: asString() of what `function` yields for it.
class TARNEL_API TNMapExpr : public TNStringCollectionExpr {
public:
    TNMapExpr() = default;
    TNMapExpr(const SgxCyclicPtr<TNValueAbsExpr>& function,
              const TNObjectCollectionExprPtr& collection)
        : m_function(function), m_collection(collection) {}

    TNStringSequence operator()() const override;
    void prepareForDeletion() const override;

    TN_EXPR_FIELD(SgxCyclicPtr<TNValueAbsExpr>, function);
    TN_EXPR_FIELD(TNObjectCollectionExprPtr, collection);

    // --- End of public API: what follows is the library's own ---
public:
    // Appends the texts of operator()() to `joined`, `delimiter` between two, with the same
    // evaluations and failures, without a sequence of them (TNDelimiterExpr over a map). On a
    // raise, `joined` may hold part of them.
    void appendJoined(std::string_view delimiter, SgxString& joined) const;

private:
    template <class Sink> void textsInto(Sink& sink) const;
    // What the function was recognized as (a ShapeCache<MapPlan>), kept while no graph changes.
    mutable tn_detail::OpaqueShapeCache m_plan;
};
