// TNAssociationTraversal: one node of a traversal tree. From a source object it follows one
// association (or stays on the source), keeps the objects a condition accepts, appends them to
// the result when told to, applies its child to each kept object and its sibling to the same
// source. Compound associations answer objects() by running such a tree; TNAssociationExpr runs
// one inside an expression.
//
// Ownership: a child may point back to an ancestor, so trees are graphs linked by SgxCyclicPtrs
// that own nothing until prepareForDeletion() settles ownership (see SgxCyclicPtr.h). The holder
// of the root claims it with takeOwnership() and deletes the graph by destroying its pointer; the
// condition is shared through a counted handle and its own nodes are claimed the same way.
// Objects reached are borrowed from the model.
//
// Nodes are built once and then only read; traverse() keeps no state between calls except a
// per-node cache of where each class keeps the association (written during const traversals, so
// one tree is used by one thread at a time).
#pragma once

#include "sgx/general/SgxCountedPtr.h"
#include "sgx/general/SgxCyclicPtr.h"
#include "sgx/general/SgxSimplePtr.h"
#include "sgx/general/SgxString.h"
#include "sgx/persistence/SgxCollectable.h"
#include "tarnel/core/TNCollectable.h"
#include "tarnel/expressions/TNExpr.h"
#include "tarnel/instances/TNLinkView.h"
#include "tarnel/tarnel_export.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

class TNAssociation;
class TNClass;
class TNCompoundAssociation;
class TNObject;

namespace tn_detail {
class LinkLookAhead; // internal/TNTraversalPlan.h
} // namespace tn_detail

class TARNEL_API TNAssociationTraversal : public SgxCollectable, public SgxCyclicPtrBody {
    TN_DECLARE_COLLECTABLE(TNAssociationTraversal)
public:
    // Limits of recursion. The model has no such bound, but a cyclic tree over a cyclic model (an
    // object linked to itself) would recurse until the stack overflows. So traverse() raises
    // SgxException "TNAssociationTraversal: more than 10000 nested traversal steps or 4 MiB of
    // stack (a cycle in the model?)" when calls nest deeper than maxDepth on one thread (children,
    // siblings and the traversals of compound associations met on the way each nest one more), or
    // when they use more than maxStackBytes of stack below the outermost one (frames are larger
    // through compound associations and under sanitizers). Real models nest a few dozen deep; a
    // thread running traversals needs more than 4 MiB of stack (the Linux default is 8 MiB).
    static constexpr size_t maxDepth = 10000;
    static constexpr size_t maxStackBytes = size_t(4) << 20;

    // Stays on the source, adds nothing, breadth form, no condition, child or sibling.
    TNAssociationTraversal() = default;
    // Follows the association reached through role `associationToTraverse` (empty: the source
    // itself); `addToResult` says whether the objects gathered here join the result.
    TNAssociationTraversal(const SgxString& associationToTraverse, bool addToResult)
        : m_associationToTraverse(associationToTraverse), m_addToResult(addToResult) {}
    // Deletes nothing but what prepareForDeletion() made this node own.
    ~TNAssociationTraversal() override;

    // Appends to `result` (never clearing it) the objects this node and its descendants gather
    // from `source`, in the order of reaching, repetitions kept:
    // - gathered: the objects linked to `source` along the association (none when its class has
    //   no such association: a step that does not apply yields nothing), or `source` itself for
    //   an empty name; then only those for which the condition's asBoolean() is true;
    // - breadth form: all gathered objects (when adding), then the child applied to each;
    // - depth-first form: each gathered object (when adding) directly followed by what the child
    //   adds from it;
    // - then the sibling applied to `source`.
    // Raises SgxException when calls nest deeper than maxDepth; what the condition or the model
    // raises passes through. `result` keeps what was appended before a raise.
    void traverse(std::vector<SgxSimplePtr<TNObject>>& result, SgxSimplePtr<TNObject> source) const;
    // The number of objects traverse() would append for `source`, with the same condition
    // evaluations, limits and exceptions; a last step without a condition counts links instead
    // of gathering them, and a recursive closure without conditions (`label: [] -> ( [a] ->
    // @label; [b] )`) over frozen links of simple associations is counted in one loop.
    size_t count(const SgxSimplePtr<TNObject>& source) const;
    // Hands `visit` what traverse() would append for `source`, in order, until it answers false,
    // with the same evaluations, limits and exceptions (all of them before the first visit). A
    // single adding step without condition, child or sibling hands over the links where they
    // lie instead of copying them.
    void forEach(const SgxSimplePtr<TNObject>& source, const TNObjectVisitor& visit) const;

    // Whether this node is a single adding step: an association, no condition, child or sibling.
    bool isSingleStep() const noexcept {
        return m_addToResult && !m_associationToTraverse.empty() && m_condition.isNull() &&
               m_child.isNull() && m_sibling.isNull();
    }
    // Claims the condition's nodes, then the child and the sibling, so that deleting this node
    // deletes the whole graph below it once.
    void prepareForDeletion() const override;

    void setAssociationToTraverse(const SgxString& associationToTraverse);
    void setAddToResult(bool addToResult) { m_addToResult = addToResult; }
    void setDepthFirstEvaluation(bool depthFirst) { m_depthFirstEvaluation = depthFirst; }
    void setCondition(SgxCountedPtr<TNValueAbsExpr> condition) { m_condition = condition; }
    void setChild(SgxCyclicPtr<TNAssociationTraversal> child) { m_child = child; }
    void setSibling(SgxCyclicPtr<TNAssociationTraversal> sibling) { m_sibling = sibling; }

    SgxString associationToTraverse() const { return m_associationToTraverse; }
    bool addToResult() const { return m_addToResult; }
    bool depthFirstEvaluation() const { return m_depthFirstEvaluation; }
    SgxCountedPtr<TNValueAbsExpr> condition() const { return m_condition; }
    // Non-owning copies of the links.
    SgxCyclicPtr<TNAssociationTraversal> child() const { return m_child; }
    SgxCyclicPtr<TNAssociationTraversal> sibling() const { return m_sibling; }

    // Nodes are useless as keys: compareTo is always 0, isEqual always false, hash always 0.
    int compareTo(const RWCollectable* other) const override;
    bool isEqual(const RWCollectable* other) const override;
    unsigned hash() const override;
    // All ones: no size is computed for a graph that may be cyclic.
    RWspace binaryStoreSize() const override;

    // Persisted record: the collectable base, the association name, add-to-result as one char
    // (1 or 0), then the child and the sibling as collectable references (shared nodes and back
    // references survive). The condition and the depth-first flag are not persisted. Restoring
    // raises SgxException when a link is not a TNAssociationTraversal; the nodes read are owned
    // by whoever reads the root (a compound association adopts its whole graph).
    using SgxCollectable::restoreGuts;
    using SgxCollectable::saveGuts;
    void saveGuts(RWvostream& stream) const override;
    void restoreGuts(RWvistream& stream) override;

    // --- End of public API: what follows is the library's own ---
    // The objects forEach(source) would hand over, when this node is a single adding step
    // without condition, child or sibling, `source` is of the class it last followed its
    // association from, and they are a frozen array of originals of one class (or none): then
    // `first` and `count` are set (count 0 for none) and the answer is true, with the same
    // effect as forEach up to the visit, none. False, having changed nothing, in every other
    // case: other nodes, other classes, lists still being populated, single links, arrays mixing
    // classes, copies or nulls, and wherever forEach would raise (no class, too deep). For a
    // caller that handles such an array itself and leaves the rest to forEach.
    bool uniformLinks(const TNObject& source, const SgxSimplePtr<TNObject>*& first,
                      size_t& count) const;
    // The links forEach(source) would hand over in one call, where this node is a single adding
    // step and `source`'s slot for it is frozen: an array (`uniform` as forEach tells it), or the
    // one link its word holds, kept in `one` with `first` pointing at it; none (count 0) where
    // `source`'s class has no such association. True then, with the same effect as forEach up to
    // the visit, none. False, having raised nothing, in every other case (other nodes, a null
    // source, a slot not frozen, where forEach would raise for nesting too deep): forEach does
    // the rest. For a caller that wants the links rather than a visit (an extraction).
    bool frozenLinks(const SgxSimplePtr<TNObject>& source, SgxSimplePtr<TNObject>& one,
                     const SgxSimplePtr<TNObject>*& first, size_t& count, bool& uniform) const;

    // The link slot that frozenLinks reads in objects of `source`'s class (TNObject::linkWord),
    // for a caller that reads the words of many such objects itself, each as frozenLinks reads
    // it; -1 where frozenLinks would read no slot of that class: other nodes, a class without
    // the association or with a computed one, and while a traversal runs on this thread (whose
    // nesting only a walk checks). Raises what finding the association raises.
    int32_t frozenSlotOf(const TNObject& source) const;
    // The word of link slot `slot` (frozenSlotOf) of `source`, as frozenLinks reads it (defined
    // in navigation/internal/TNTraversalPlan.h).
    static inline uintptr_t linkWordAt(const TNObject& source, int32_t slot) noexcept;
    // The same for a source known to be made by its class (not a copy), its header unread.
    static inline uintptr_t originalLinkWordAt(const TNObject& source, int32_t slot) noexcept;
    // Whether `object` was made by `cls` (not a copy): its slots then lie where cls's say.
    static inline bool madeBy(const TNObject& object, const TNClass& cls) noexcept;

private:
    // Reads the remembered slot and link words of the objects it loads ahead for.
    friend class tn_detail::LinkLookAhead;

    // Nodes are not copied: a copy would share the links without being part of the graph.
    TNAssociationTraversal(const TNAssociationTraversal&);

    // frozenLinks, defined where the walks are.
    bool frozenLinksHere(const SgxSimplePtr<TNObject>& source, SgxSimplePtr<TNObject>& one,
                         const SgxSimplePtr<TNObject>*& first, size_t& count, bool& uniform) const;
    // Appends to `out` the objects this node gathers from `source` (see traverse).
    void gatherObjectsToTraverse(std::vector<SgxSimplePtr<TNObject>>& out,
                                 const SgxSimplePtr<TNObject>& source) const;
    // The association of `object`'s class reached through the name, or null; remembered for the
    // last class, with its link slot.
    // (Defined inline where the walks are.)
    const TNAssociation* associationOf(const TNObject& object) const;
    const TNAssociation* findAssociation(const TNObject& object) const;
    // count() of a recursive closure, `label: [] -> ( [a] -> @label; [b]; ... )` with no
    // conditions, in one walk over the objects reached; see the source.
    struct Closure;
    // The closure this node heads, or null; recognized again only after some node of some graph
    // changed (tn_detail::graphChanges), so that counting it often costs no shape tests.
    const Closure* closure() const;
    // object.linkCount(assoc) and object.links(assoc), for the association associationOf(object)
    // just gave, through the remembered slot when the association is simple.
    size_t linkCount(const TNObject& object, const TNAssociation& assoc) const;
    TNLinkView links(const TNObject& object, const TNAssociation& assoc) const;
    // Sets `word` to the link word of `object` (live) through the remembered slot, and answers
    // whether it is a frozen array's (possibly empty): false, reading nothing past the object's
    // word, unless the object is of the remembered class and its association is simple.
    // (Defined inline where the walks are.)
    bool frozenLinkWord(const TNObject& object, uintptr_t& word) const noexcept;

    // What the walk does: each assignment counts as a change to the graph (tn_detail::GraphField).
    tn_detail::GraphField<SgxString> m_associationToTraverse;
    tn_detail::GraphField<bool> m_addToResult;
    tn_detail::GraphField<bool> m_depthFirstEvaluation;
    tn_detail::GraphField<SgxCountedPtr<TNValueAbsExpr>> m_condition;
    tn_detail::GraphField<SgxCyclicPtr<TNAssociationTraversal>> m_child;
    tn_detail::GraphField<SgxCyclicPtr<TNAssociationTraversal>> m_sibling;

    // Where the last class seen keeps the association: saves the two name lookups per object
    // that asking the class (associationExists, then objects by name) would cost. Classes and
    // their associations live as long as the schema, and an association's position never moves,
    // so the entry stays true for as long as objects of that class can be traversed. The class is
    // known by its instance id: a class made later at the same address is another.
    mutable uint64_t m_cachedClass = 0; // TNClass::instanceId()
    mutable const TNAssociation* m_cachedAssociation = nullptr;
    mutable int32_t m_cachedSlot = -1; // -1: no association, or a compound one
    mutable const TNCompoundAssociation* m_cachedCompound = nullptr; // the association, if one
    // The closure this node heads, recognized again after any graph changes.
    struct ClosureDeleter {
        void operator()(const Closure* closure) const noexcept; // where Closure is complete
    };
    mutable tn_detail::ShapeCache<std::unique_ptr<const Closure, ClosureDeleter>> m_closure;
};
