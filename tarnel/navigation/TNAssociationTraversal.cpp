#include "tarnel/navigation/TNAssociationTraversal.h"

#include "sgx/general/SgxException.h"
#include "sgx/persistence/SgxStringPersistence.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/navigation/TNAssociation.h"
#include "tarnel/navigation/internal/TNTraversalPlan.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>
#include <string>

TN_DEFINE_COLLECTABLE(TNAssociationTraversal)

namespace {

// A link read back from a record: null, or a traversal node.
TNAssociationTraversal* restoreLink(RWvistream& stream) {
    RWCollectable* read = nullptr;
    stream >> read;
    if (read == nullptr)
        return nullptr;
    auto* node = dynamic_cast<TNAssociationTraversal*>(read);
    if (node == nullptr)
        SgxException::raise("Invalid traversal link: expected TNAssociationTraversal; got " +
                            read->stringID());
    return node;
}

[[noreturn, gnu::cold]] void raiseTooDeep() {
    SgxException::raise("TNAssociationTraversal: more than " +
                        std::to_string(TNAssociationTraversal::maxDepth) +
                        " nested traversal steps or " +
                        std::to_string(TNAssociationTraversal::maxStackBytes >> 20) +
                        " MiB of stack (a cycle in the model?)");
}

// The traverse calls running on this thread, and the frame of the outermost one. Initial-exec,
// so that finding the thread's copy is one load instead of a call into the dynamic linker on
// every step; 16 bytes fit the static TLS space kept for libraries loaded after start-up.
struct Nesting {
    size_t depth = 0;
    uintptr_t outermostFrame = 0;
};
thread_local Nesting threadNesting __attribute__((tls_model("initial-exec")));

// Whether a traversal call with its frame at `frame` may nest inside those running on this
// thread (one at least): under maxDepth, and within maxStackBytes of the outermost one's frame.
inline bool mayNest(const Nesting& nesting, uintptr_t frame) {
    // The stack grows down from the outermost call.
    const uintptr_t outermost = nesting.outermostFrame;
    const uintptr_t used = outermost > frame ? outermost - frame : 0;
    return nesting.depth < TNAssociationTraversal::maxDepth &&
           used <= TNAssociationTraversal::maxStackBytes;
}

class NestingGuard {
public:
    NestingGuard() : m_nesting(threadNesting) {
        const auto frame = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
        if (m_nesting.depth == 0)
            m_nesting.outermostFrame = frame;
        else if (!mayNest(m_nesting, frame)) [[unlikely]]
            raiseTooDeep();
        ++m_nesting.depth;
    }
    ~NestingGuard() { --m_nesting.depth; }
    NestingGuard(const NestingGuard&) = delete;
    NestingGuard& operator=(const NestingGuard&) = delete;

private:
    Nesting& m_nesting;
};

// The link arrays a closure walk has still to visit, each with the nesting depth that the calls
// for its objects have in the node-by-node walk: in the caller's frame up to a few dozen, on the
// heap beyond.
class WalkStack {
public:
    // Plain data, so that the inline entries cost nothing until used.
    struct Range {
        const SgxSimplePtr<TNObject>* first; // null: the range is `single` alone
        size_t count;
        size_t depth;
        TNObject* single;
        bool uniform; // see tn_detail::linkUniformTag
    };
    void push(const Range& range) {
        if (m_size < inlineCapacity) [[likely]]
            m_inline[m_size] = range;
        else
            m_spill.push_back(range);
        ++m_size;
    }
    bool pop(Range& range) {
        if (m_size == 0)
            return false;
        if (m_size > inlineCapacity) [[unlikely]] {
            range = m_spill.back();
            m_spill.pop_back();
        } else {
            range = m_inline[m_size - 1];
        }
        --m_size;
        return true;
    }

private:
    static constexpr size_t inlineCapacity = 32;
    Range m_inline[inlineCapacity];
    size_t m_size = 0;
    std::vector<Range> m_spill;
};

} // namespace

inline const TNAssociation* TNAssociationTraversal::associationOf(const TNObject& object) const {
    if (object.getClass()->instanceId() == m_cachedClass) [[likely]]
        return m_cachedAssociation;
    return findAssociation(object);
}

// The recursive closure `label: [] -> ( [a] -> @label; [b]; [c] ... )`, the shape of every "all
// the X at any depth" definition: a root that stays on its object, one step `a` whose child is
// the root again, and leaf steps (no child) as the step's siblings; no conditions anywhere. Its
// count is, for each object reached through `a` at any depth (the source included), what the
// root, the step and the leaves add there; the order of the visits does not matter, and with
// simple associations nothing but the recursion limit can raise. So a frozen model is counted in
// one loop over the objects, with the link slots resolved once per class, instead of three or
// more calls per object, each with its own nesting guard and shape tests.
//
// The node-by-node walk calls the root for an object at nesting depth d, the step at d + 1, the
// leaves at d + 2, d + 3, ... (each sibling is called from the one before), and the root again for
// each linked object at d + 2. The loop tracks d per object. Where that walk would raise, and
// wherever the loop meets anything but frozen links of simple associations (a list still being
// populated, a compound association, whose traversal may raise anything), it gives up, having
// changed nothing, and the node-by-node walk counts and raises as it always does.
struct TNAssociationTraversal::Closure {
    static constexpr size_t maxLeaves = 4;
    const TNAssociationTraversal* step = nullptr;
    const TNAssociationTraversal* leaves[maxLeaves] = {};
    size_t leafCount = 0;
    size_t rootAdds = 0; // what the root adds per object: 1 or 0

    // Whether `root` heads such a closure; fills in the steps.
    bool match(const TNAssociationTraversal& root) {
        if (!root.m_associationToTraverse.empty() || !root.m_condition.isNull() ||
            !root.m_sibling.isNull())
            return false;
        const TNAssociationTraversal* a = root.m_child.get();
        if (a == nullptr || a->m_associationToTraverse.empty() || !a->m_condition.isNull() ||
            a->m_child.get() != &root)
            return false;
        for (const TNAssociationTraversal* leaf = a->m_sibling.get(); leaf != nullptr;
             leaf = leaf->m_sibling.get()) {
            if (leafCount == maxLeaves || leaf->m_associationToTraverse.empty() ||
                !leaf->m_condition.isNull() || !leaf->m_child.isNull())
                return false;
            leaves[leafCount++] = leaf;
        }
        step = a;
        rootAdds = root.m_addToResult ? 1 : 0;
        return true;
    }

    // Where the steps' links lie in the objects of one class: indexes of the words before an
    // object (-1 - slot), so that a walk reads a link word without arithmetic; 0 for a step that
    // adds nothing there.
    struct Slots {
        ptrdiff_t step = 0; // the slot followed, whether or not the step adds
        ptrdiff_t leaves[maxLeaves] = {};
    };
    static ptrdiff_t wordIndex(const TNAssociation* assoc, int32_t slot) {
        return assoc != nullptr ? -1 - ptrdiff_t(slot) : 0;
    }
    mutable uint64_t lastClass = 0; // TNClass::instanceId() of lastSlots
    mutable Slots lastSlots;

    // Fills `slots` for the class of `object`; false for a compound association.
    bool resolve(const TNObject& object, Slots& slots) const {
        const TNAssociation* assoc = step->associationOf(object);
        if (assoc != nullptr && step->m_cachedSlot < 0)
            return false;
        slots.step = wordIndex(assoc, step->m_cachedSlot);
        for (size_t i = 0; i < leafCount; ++i) {
            const TNAssociationTraversal& leaf = *leaves[i];
            assoc = leaf.associationOf(object);
            if (assoc != nullptr && leaf.m_cachedSlot < 0)
                return false;
            slots.leaves[i] = leaf.m_addToResult ? wordIndex(assoc, leaf.m_cachedSlot) : 0;
        }
        return true;
    }

    // Sets `total` to what root.count(source) gives when called at nesting depth `depth`, or
    // answers false (see above). A whole link array is taken at a time, its objects sharing
    // their depth; the arrays of their links wait on a stack, the last one pushed taken first, so
    // that a cycle in the model reaches the recursion limit after a few steps per level, as the
    // node-by-node walk does, instead of going through its levels one by one.
    bool countFrozen(const TNObject& source, size_t depth, size_t& total) const {
        switch (leafCount) {
        case 0:
            return countFrozen<0>(source, depth, total);
        case 1:
            return countFrozen<1>(source, depth, total);
        case 2:
            return countFrozen<2>(source, depth, total);
        case 3:
            return countFrozen<3>(source, depth, total);
        default:
            return countFrozen<4>(source, depth, total);
        }
    }
    // The same for a closure with `leafTotal` leaves, known when compiling, so that the loop
    // over the leaves of each object is unrolled.
    template <size_t leafTotal>
    bool countFrozen(const TNObject& source, size_t depth, size_t& total) const {
        static_assert(leafTotal <= maxLeaves);
        using tn_detail::linkSingleTag, tn_detail::linkTagMask;
        const size_t stepAdds = step->m_addToResult ? 1 : 0;
        // The deepest call made for an object itself: its last leaf, or the step.
        const size_t deepest = 1 + leafTotal;
        // The slots of the class last resolved, in locals the walk's stores cannot reach. No
        // class goes away during the walk, so the class is known by its address here.
        const TNClass* resolvedClass = nullptr;
        ptrdiff_t stepWord = 0;
        ptrdiff_t leafWords[maxLeaves] = {};
        // Takes the slots of the class of `object`, an original; false where they cannot serve.
        const auto useClass = [&](const TNObject& object) __attribute__((always_inline)) {
            const auto* cls = reinterpret_cast<const TNClass*>(object.m_word);
            if (cls == resolvedClass) [[likely]]
                return true;
            if (cls == nullptr)
                return false;
            // The slots of the class met first in the last walk, as that walk resolved them
            // (the steps' own caches are kept by class the same way).
            Slots slots;
            if (cls->instanceId() == lastClass) {
                slots = lastSlots;
            } else {
                if (!resolve(object, slots))
                    return false;
                lastClass = cls->instanceId();
                lastSlots = slots;
            }
            resolvedClass = cls;
            stepWord = slots.step;
            std::copy_n(slots.leaves, leafTotal, leafWords);
            return true;
        };
        WalkStack pending;
        size_t sum = 0;
        size_t linkDepth = 0;
        // What an object of the resolved class adds through its leaves and its step; false
        // where the node-by-node walk must take over. Inlined into both loops below, so that
        // the slots it reads stay in registers.
        const auto visit = [&](const uintptr_t* linkWords) __attribute__((always_inline)) {
            for (size_t i = 0; i < leafTotal; ++i) {
                if (leafWords[i] == 0)
                    continue;
                const uintptr_t word = linkWords[leafWords[i]];
                if ((word & linkTagMask) == 0)
                    sum += tn_detail::linkArrayCount(word);
                else if ((word & linkSingleTag) != 0)
                    sum += 1;
                else
                    return false;
            }
            if (stepWord == 0)
                return true;
            const uintptr_t word = linkWords[stepWord];
            if (word == 0)
                return true;
            if ((word & linkTagMask) == 0) {
                const size_t linked = tn_detail::linkArrayCount(word);
                pending.push({tn_detail::linkArray(word), linked, linkDepth, nullptr,
                              (word & tn_detail::linkUniformTag) != 0});
                sum += stepAdds * linked;
                return true;
            }
            if ((word & linkSingleTag) == 0)
                return false;
            pending.push(
                {nullptr, 1, linkDepth, reinterpret_cast<TNObject*>(word & ~linkTagMask), false});
            sum += stepAdds;
            return true;
        };
        // The source first (a copy has its words in its original's block), then the arrays
        // pending, the last one pushed first.
        if (depth + deepest >= maxDepth)
            return false;
        linkDepth = depth + 2;
        sum += rootAdds;
        const TNObject& original = *source.original();
        if (!useClass(original) || !visit(reinterpret_cast<const uintptr_t*>(&original)))
            return false;
        WalkStack::Range range;
        while (pending.pop(range)) {
            if (range.depth + deepest >= maxDepth)
                return false;
            linkDepth = range.depth + 2;
            sum += rootAdds * range.count;
            const SgxSimplePtr<TNObject> single(range.single);
            const SgxSimplePtr<TNObject>* next = range.first != nullptr ? range.first : &single;
            const SgxSimplePtr<TNObject>* const end = next + range.count;
            if (range.uniform) {
                // Originals of one class: its slots hold for all, and each object's words lie
                // right before it.
                if (!useClass(*next->get()))
                    return false;
                for (; next != end; ++next)
                    if (!visit(reinterpret_cast<const uintptr_t*>(next->get())))
                        return false;
                continue;
            }
            for (; next != end; ++next) {
                // A host may have linked a copy (its original's block has the words) or, where
                // no reverse link is due, nothing at all (the node-by-node walk raises for it).
                const TNObject* linked = next->get();
                if (linked == nullptr) [[unlikely]]
                    return false;
                const TNObject* object = linked->original();
                if (!useClass(*object) || !visit(reinterpret_cast<const uintptr_t*>(object)))
                    return false;
            }
        }
        total = sum;
        return true;
    }
};

TNAssociationTraversal::TNAssociationTraversal(const TNAssociationTraversal& other)
    : SgxCollectable(other), SgxCyclicPtrBody(other),
      m_associationToTraverse(other.m_associationToTraverse), m_addToResult(other.m_addToResult),
      m_depthFirstEvaluation(other.m_depthFirstEvaluation), m_condition(other.m_condition),
      m_child(other.m_child), m_sibling(other.m_sibling) {}

TNAssociationTraversal::~TNAssociationTraversal() = default;

void TNAssociationTraversal::ClosureDeleter::operator()(const Closure* closure) const noexcept {
    delete closure;
}

inline const TNAssociationTraversal::Closure* TNAssociationTraversal::closure() const {
    return m_closure
        .get([&](std::unique_ptr<const Closure, ClosureDeleter>& recognized) {
            if (Closure shape; shape.match(*this))
                recognized.reset(new Closure(shape));
        })
        .get();
}

void TNAssociationTraversal::setAssociationToTraverse(const SgxString& associationToTraverse) {
    m_associationToTraverse = associationToTraverse;
    m_cachedClass = 0;
}

void TNAssociationTraversal::traverse(std::vector<SgxSimplePtr<TNObject>>& result,
                                      SgxSimplePtr<TNObject> source) const {
    // Counted per thread rather than per call chain, so that recursion through compound
    // associations (a step whose association is itself computed by a traversal) counts too.
    const NestingGuard nesting;
    const TNAssociationTraversal* child = m_child.get();
    if (child == nullptr && m_condition.isNull() && !m_associationToTraverse.empty()) {
        // A last step without a condition appends the links where they lie, gathering nothing
        // first (no vector of its own per source object).
        const TNObject& object = *source;
        if (const TNAssociation* assoc = associationOf(object); assoc != nullptr && m_addToResult) {
            const TNLinkView linked = links(object, *assoc);
            result.insert(result.end(), linked.begin(), linked.end());
        }
        if (const TNAssociationTraversal* sibling = m_sibling.get())
            sibling->traverse(result, source);
        return;
    }
    std::vector<SgxSimplePtr<TNObject>> gathered;
    gatherObjectsToTraverse(gathered, source);
    if (!m_depthFirstEvaluation || child == nullptr) {
        // A last step into an empty result hands its objects over instead of copying them.
        if (m_addToResult && child == nullptr && result.empty())
            result.swap(gathered);
        else if (m_addToResult)
            result.insert(result.end(), gathered.begin(), gathered.end());
        if (child != nullptr)
            for (const SgxSimplePtr<TNObject>& object : gathered)
                child->traverse(result, object);
    } else {
        for (const SgxSimplePtr<TNObject>& object : gathered) {
            if (m_addToResult)
                result.push_back(object);
            child->traverse(result, object);
        }
    }
    if (const TNAssociationTraversal* sibling = m_sibling.get())
        sibling->traverse(result, source);
}

size_t TNAssociationTraversal::count(const SgxSimplePtr<TNObject>& source) const {
    const NestingGuard nesting;
    if (const Closure* shape = closure()) {
        if (size_t total = 0; shape->countFrozen(*source, threadNesting.depth - 1, total))
            return total;
    }
    size_t total = 0;
    const TNAssociationTraversal* child = m_child.get();
    if (m_condition.isNull()) {
        // Without a condition nothing needs gathering: the step stays on the source or walks
        // the links where they lie, and a last step only counts them.
        if (m_associationToTraverse.empty()) {
            total = m_addToResult ? 1 : 0;
            if (child != nullptr)
                total += child->count(source);
        } else {
            const TNObject& object = *source;
            if (const TNAssociation* assoc = associationOf(object)) {
                if (child == nullptr) {
                    const size_t linked = linkCount(object, *assoc);
                    total = m_addToResult ? linked : 0;
                } else {
                    const TNLinkView linked = links(object, *assoc);
                    total = m_addToResult ? linked.size() : 0;
                    for (const SgxSimplePtr<TNObject>& next : linked)
                        total += child->count(next);
                }
            }
        }
    } else {
        std::vector<SgxSimplePtr<TNObject>> gathered;
        gatherObjectsToTraverse(gathered, source);
        if (m_addToResult)
            total = gathered.size();
        if (child != nullptr)
            for (const SgxSimplePtr<TNObject>& object : gathered)
                total += child->count(object);
    }
    if (const TNAssociationTraversal* sibling = m_sibling.get())
        total += sibling->count(source);
    return total;
}

bool TNAssociationTraversal::frozenLinks(const SgxSimplePtr<TNObject>& source,
                                         SgxSimplePtr<TNObject>& one,
                                         const SgxSimplePtr<TNObject>*& first, size_t& count,
                                         bool& uniform) const {
    return frozenLinksHere(source, one, first, count, uniform);
}

int32_t TNAssociationTraversal::frozenSlotOf(const TNObject& source) const {
    if (!isSingleStep() || threadNesting.depth != 0 || source.getClass().get() == nullptr ||
        associationOf(source) == nullptr)
        return -1;
    return m_cachedSlot;
}

// Inline in forEach, which every walk of a single step calls.
[[gnu::always_inline]] inline bool TNAssociationTraversal::frozenLinksHere(
    const SgxSimplePtr<TNObject>& source, SgxSimplePtr<TNObject>& one,
    const SgxSimplePtr<TNObject>*& first, size_t& count, bool& uniform) const {
    if (!isSingleStep() || source.get() == nullptr)
        return false;
    // Nothing here nests another traversal, so the nesting is only checked, as the guard would
    // check it, not counted; where the guard would raise, forEach raises.
    if (threadNesting.depth != 0 &&
        !mayNest(threadNesting, reinterpret_cast<uintptr_t>(__builtin_frame_address(0))))
        [[unlikely]]
        return false;
    const TNObject& object = *source;
    first = nullptr;
    count = 0;
    uniform = false;
    if (associationOf(object) == nullptr)
        return true;
    if (m_cachedSlot < 0)
        return false;
    const uintptr_t word = object.linkWord(m_cachedSlot);
    if ((word & tn_detail::linkTagMask) == 0) {
        first = tn_detail::linkArray(word);
        count = tn_detail::linkArrayCount(word);
        uniform = (word & tn_detail::linkUniformTag) != 0;
        return true;
    }
    if ((word & tn_detail::linkTagMask) == tn_detail::linkSingleTag) {
        one = reinterpret_cast<TNObject*>(word & ~tn_detail::linkTagMask);
        first = &one;
        count = 1;
        return true;
    }
    return false;
}

void TNAssociationTraversal::forEach(const SgxSimplePtr<TNObject>& source,
                                     const TNObjectVisitor& visit) const {
    if (isSingleStep()) {
        // A frozen slot is visited where it lies: an array, or the one link its word holds (an
        // owner, a parent). Anything else through a view of it.
        SgxSimplePtr<TNObject> single;
        const SgxSimplePtr<TNObject>* first = nullptr;
        size_t count = 0;
        bool uniform = false;
        if (frozenLinksHere(source, single, first, count, uniform)) {
            if (count != 0)
                visit.each(first, count, uniform);
            return;
        }
        TNLinkView linked;
        {
            const NestingGuard nesting;
            const TNObject& object = *source;
            const TNAssociation* assoc = associationOf(object);
            if (assoc == nullptr)
                return;
            linked = links(object, *assoc);
        }
        visit.each(linked.begin(), linked.size());
        return;
    }
    std::vector<SgxSimplePtr<TNObject>> gathered;
    traverse(gathered, source);
    visit.each(gathered.data(), gathered.size());
}

inline bool TNAssociationTraversal::frozenLinkWord(const TNObject& object,
                                                   uintptr_t& word) const noexcept {
    if (m_cachedSlot < 0)
        return false;
    const TNObject& original = *object.original();
    const TNClass* cls = original.cls();
    if (cls == nullptr || cls->instanceId() != m_cachedClass)
        return false;
    word = original.linkWord(m_cachedSlot);
    return (word & tn_detail::linkTagMask) == 0;
}

bool TNAssociationTraversal::uniformLinks(const TNObject& source,
                                          const SgxSimplePtr<TNObject>*& first,
                                          size_t& count) const {
    // Only for the class last seen, whose slot is known; forEach finds another's and remembers.
    uintptr_t word = 0;
    if (!isSingleStep() || !frozenLinkWord(source, word) ||
        (threadNesting.depth != 0 &&
         !mayNest(threadNesting, reinterpret_cast<uintptr_t>(__builtin_frame_address(0)))))
        return false;
    first = tn_detail::linkArray(word);
    count = tn_detail::linkArrayCount(word);
    return (word & tn_detail::linkUniformTag) != 0 || count == 0;
}

const TNAssociation* TNAssociationTraversal::findAssociation(const TNObject& object) const {
    const TNClass& cls = *object.getClass();
    const SgxString& name = m_associationToTraverse;
    const int32_t index = cls.findAssocIndex(name);
    m_cachedAssociation = index < 0 ? nullptr : cls.getAssociation(name).get();
    m_cachedSlot = m_cachedAssociation != nullptr && m_cachedAssociation->isSimple()
                       ? object.linkSlot(*m_cachedAssociation)
                       : -1;
    m_cachedCompound = dynamic_cast<const TNCompoundAssociation*>(m_cachedAssociation);
    m_cachedClass = cls.instanceId();
    return m_cachedAssociation;
}

size_t TNAssociationTraversal::linkCount(const TNObject& object, const TNAssociation& assoc) const {
    if (m_cachedSlot >= 0)
        return object.linkCountAt(m_cachedSlot);
    // Without a slot, the association is computed: it counts for itself, except that a graph
    // heading a recursive closure is counted here, as its root's count would count it one
    // nesting level down (where that count would give up, the association counts and raises).
    if (&assoc == m_cachedCompound)
        if (const TNAssociationTraversal* root = m_cachedCompound->associationTraversal().get())
            if (const Closure* shape = root->closure())
                if (size_t total = 0; shape->countFrozen(object, threadNesting.depth, total))
                    return total;
    return assoc.count(SgxSimplePtr<TNObject>(const_cast<TNObject*>(&object)));
}

TNLinkView TNAssociationTraversal::links(const TNObject& object, const TNAssociation& assoc) const {
    return m_cachedSlot >= 0 ? object.linksAt(m_cachedSlot) : object.links(assoc);
}

tn_detail::LinkLookAhead::LinkLookAhead(const TNAssociationTraversal& step,
                                        const SgxSimplePtr<TNObject>* objects, size_t count,
                                        ptrdiff_t linkedBytes) noexcept
    : m_step(step), m_objects(objects), m_count(count), m_linkedBytes(linkedBytes) {
    // The first objects' own stage; before(i) starts it sourceAhead objects on.
    for (size_t i = 0; i < std::min(count, sourceAhead); ++i)
        __builtin_prefetch(objects[i].get());
}

void tn_detail::LinkLookAhead::before(size_t i) noexcept {
    const int32_t slot = m_step.m_cachedSlot;
    if (slot < 0)
        return; // no simple association followed yet: nothing is known of where links lie
    if (i + sourceAhead < m_count) {
        // Addresses only: a copy, or an object of another class, has something else there, and
        // a prefetch of any address is harmless.
        const auto* words = reinterpret_cast<const uintptr_t*>(m_objects[i + sourceAhead].get());
        __builtin_prefetch(words);
        __builtin_prefetch(words - 1 - slot);
    }
    if (m_linkedBytes < 0)
        return;
    if (i + linksAhead < m_count) {
        // The object's word and link word, loaded by the first stage, now read.
        Links& found = m_ring[(i + linksAhead) % ringSize];
        found = Links();
        uintptr_t word = 0;
        if (const TNObject* object = m_objects[i + linksAhead].get();
            object != nullptr && m_step.frozenLinkWord(*object, word)) {
            found.first = tn_detail::linkArray(word);
            found.count = tn_detail::linkArrayCount(word);
            __builtin_prefetch(found.first);
        }
    }
    if (i + linkedAhead < m_count) {
        // The array, loaded by the second stage: its first sixteen objects, more than most
        // arrays hold.
        const Links& found = m_ring[(i + linkedAhead) % ringSize];
        for (size_t k = 0; k < std::min<size_t>(found.count, 16); ++k)
            __builtin_prefetch(reinterpret_cast<const char*>(found.first[k].get()) + m_linkedBytes);
    }
}

void TNAssociationTraversal::gatherObjectsToTraverse(std::vector<SgxSimplePtr<TNObject>>& out,
                                                     const SgxSimplePtr<TNObject>& source) const {
    const size_t first = out.size();
    if (m_associationToTraverse.empty()) {
        out.push_back(source);
    } else {
        const TNObject& object = *source;
        const TNAssociation* assoc = associationOf(object);
        if (assoc == nullptr)
            return;
        const TNLinkView linked = links(object, *assoc);
        out.insert(out.end(), linked.begin(), linked.end());
    }
    if (m_condition.isNull())
        return;
    // Filters in place, keeping the order.
    const TNValueAbsExpr& condition = *m_condition;
    size_t kept = first;
    for (size_t i = first; i < out.size(); ++i)
        if (condition.test(out[i]))
            out[kept++] = out[i];
    out.resize(kept);
}

void TNAssociationTraversal::prepareForDeletion() const {
    if (const TNValueAbsExpr* condition = m_condition.get()) {
        condition->becomeOwned();
        condition->prepareForDeletion();
    }
    tnClaimOperands(m_child, m_sibling);
}

int TNAssociationTraversal::compareTo(const RWCollectable* /*other*/) const { return 0; }

bool TNAssociationTraversal::isEqual(const RWCollectable* /*other*/) const { return false; }

unsigned TNAssociationTraversal::hash() const { return 0; }

RWspace TNAssociationTraversal::binaryStoreSize() const {
    return std::numeric_limits<RWspace>::max();
}

void TNAssociationTraversal::saveGuts(RWvostream& stream) const {
    SgxCollectable::saveGuts(stream);
    sgxStringToStream(stream, m_associationToTraverse);
    stream << static_cast<char>(m_addToResult ? 1 : 0);
    stream << static_cast<const RWCollectable*>(m_child.get());
    stream << static_cast<const RWCollectable*>(m_sibling.get());
}

void TNAssociationTraversal::restoreGuts(RWvistream& stream) {
    SgxCollectable::restoreGuts(stream);
    SgxString associationToTraverse;
    sgxStringFromStream(stream, associationToTraverse);
    m_associationToTraverse = associationToTraverse;
    char addToResult = 0;
    stream >> addToResult;
    m_addToResult = addToResult != 0;
    m_child = restoreLink(stream);
    m_sibling = restoreLink(stream);
    m_cachedClass = 0;
}
