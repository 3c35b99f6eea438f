#include "tarnel/navigation/TNAssociationTraversal.h"

#include "sgx/general/SgxException.h"
#include "sgx/persistence/SgxStringPersistence.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/navigation/TNAssociation.h"

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

class NestingGuard {
public:
    NestingGuard() : m_nesting(threadNesting) {
        const auto frame = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
        if (m_nesting.depth == 0) {
            m_nesting.outermostFrame = frame;
        } else {
            // The stack grows down from the outermost call.
            const uintptr_t outermost = m_nesting.outermostFrame;
            const uintptr_t used = outermost > frame ? outermost - frame : 0;
            if (m_nesting.depth >= TNAssociationTraversal::maxDepth ||
                used > TNAssociationTraversal::maxStackBytes) [[unlikely]]
                raiseTooDeep();
        }
        ++m_nesting.depth;
    }
    ~NestingGuard() { --m_nesting.depth; }
    NestingGuard(const NestingGuard&) = delete;
    NestingGuard& operator=(const NestingGuard&) = delete;

private:
    Nesting& m_nesting;
};

// Sets the thread's nesting to `depth` for a while: a walk that skips the calls of the
// node-by-node one (see Closure) restores, around what it calls out to, the nesting those calls
// would have made.
class NestingAt {
public:
    explicit NestingAt(size_t depth) : m_saved(threadNesting.depth) { threadNesting.depth = depth; }
    ~NestingAt() { threadNesting.depth = m_saved; }
    NestingAt(const NestingAt&) = delete;
    NestingAt& operator=(const NestingAt&) = delete;

private:
    size_t m_saved;
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
// root, the step and the leaves add there. One call per object reached replaces the three or
// more calls per object of the node-by-node walk, whose per-call work (the nesting guard, the
// shape tests) is here done once.
//
// The node-by-node walk calls the root for an object at nesting depth d, the step at d + 1, the
// leaves at d + 2, d + 3, ... (each sibling is called from the one before), and the root again for
// each linked object at d + 2. The closure tracks d per object and raises where that walk would,
// so the recursion limit holds alike; a compound association met on the way runs with the
// thread's nesting set to what it would be there.
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

    // What root.count(object) gives when called at nesting depth `depth`.
    size_t count(const TNObject& object, size_t depth) const {
        // The deepest call made for this object itself: its last leaf, or the step.
        if (depth + 1 + leafCount >= maxDepth)
            raiseTooDeep();
        size_t total = rootAdds;
        const TNAssociationTraversal& a = *step;
        if (a.associationOf(object) != nullptr) {
            // A frozen array of links, the common case, is walked here; the rest out of line.
            const int32_t slot = a.m_cachedSlot;
            const uintptr_t word = slot >= 0 ? object.linkWord(slot) : tn_detail::linkTagMask;
            if ((word & tn_detail::linkTagMask) == 0) [[likely]] {
                if (word != 0) {
                    const auto* links = reinterpret_cast<const SgxSimplePtr<TNObject>*>(word);
                    const size_t linked = reinterpret_cast<const uint64_t*>(word)[-1];
                    for (size_t i = 0; i < linked; ++i)
                        total += count(*links[i].get(), depth + 2);
                    if (a.m_addToResult)
                        total += linked;
                }
            } else {
                total += countOtherLinks(object, depth);
            }
        }
        for (size_t i = 0; i < leafCount; ++i) {
            const TNAssociationTraversal& leaf = *leaves[i];
            if (leaf.associationOf(object) == nullptr || !leaf.m_addToResult)
                continue;
            if (leaf.m_cachedSlot >= 0) [[likely]] {
                total += object.linkCountAt(leaf.m_cachedSlot);
            } else {
                // A compound association: its traversal runs inside the leaf's call.
                const NestingAt nesting(depth + 3 + i);
                total += object.linkCount(*leaf.m_cachedAssociation);
            }
        }
        return total;
    }

    // The step's part of count() for links that are not a frozen array: one link, a list still
    // being populated, or a compound association (whose traversal runs inside the step's call).
    [[gnu::noinline]] size_t countOtherLinks(const TNObject& object, size_t depth) const {
        const TNAssociationTraversal& a = *step;
        TNLinkView linked;
        {
            const NestingAt nesting(depth + 2);
            linked = a.links(object, *a.m_cachedAssociation);
        }
        size_t total = a.m_addToResult ? linked.size() : 0;
        for (const SgxSimplePtr<TNObject>& next : linked)
            total += count(*next.get(), depth + 2);
        return total;
    }
};

TNAssociationTraversal::TNAssociationTraversal(const TNAssociationTraversal& other)
    : SgxCollectable(other), SgxCyclicPtrBody(other),
      m_associationToTraverse(other.m_associationToTraverse), m_addToResult(other.m_addToResult),
      m_depthFirstEvaluation(other.m_depthFirstEvaluation), m_condition(other.m_condition),
      m_child(other.m_child), m_sibling(other.m_sibling) {}

TNAssociationTraversal::~TNAssociationTraversal() = default;

void TNAssociationTraversal::setAssociationToTraverse(const SgxString& associationToTraverse) {
    m_associationToTraverse = associationToTraverse;
    m_cachedClass = 0;
}

void TNAssociationTraversal::traverse(std::vector<SgxSimplePtr<TNObject>>& result,
                                      SgxSimplePtr<TNObject> source) const {
    // Counted per thread rather than per call chain, so that recursion through compound
    // associations (a step whose association is itself computed by a traversal) counts too.
    const NestingGuard nesting;
    std::vector<SgxSimplePtr<TNObject>> gathered;
    gatherObjectsToTraverse(gathered, source);
    const TNAssociationTraversal* child = m_child.get();
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
    if (Closure closure; closure.match(*this))
        return closure.count(*source, threadNesting.depth - 1);
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

void TNAssociationTraversal::forEach(const SgxSimplePtr<TNObject>& source,
                                     TNObjectVisitor visit) const {
    if (m_addToResult && m_condition.isNull() && m_child.isNull() && m_sibling.isNull() &&
        !m_associationToTraverse.empty()) {
        TNLinkView linked;
        {
            const NestingGuard nesting;
            const TNObject& object = *source;
            const TNAssociation* assoc = associationOf(object);
            if (assoc == nullptr)
                return;
            linked = links(object, *assoc);
        }
        for (const SgxSimplePtr<TNObject>& object : linked)
            if (!visit(object))
                return;
        return;
    }
    std::vector<SgxSimplePtr<TNObject>> gathered;
    traverse(gathered, source);
    for (const SgxSimplePtr<TNObject>& object : gathered)
        if (!visit(object))
            return;
}

const TNAssociation* TNAssociationTraversal::findAssociation(const TNObject& object) const {
    const TNClass& cls = *object.getClass();
    const int32_t index = cls.findAssocIndex(m_associationToTraverse);
    m_cachedAssociation = index < 0 ? nullptr : cls.getAssociation(m_associationToTraverse).get();
    m_cachedSlot = m_cachedAssociation != nullptr && m_cachedAssociation->isSimple()
                       ? object.linkSlot(*m_cachedAssociation)
                       : -1;
    m_cachedClass = cls.instanceId();
    return m_cachedAssociation;
}

size_t TNAssociationTraversal::linkCount(const TNObject& object, const TNAssociation& assoc) const {
    return m_cachedSlot >= 0 ? object.linkCountAt(m_cachedSlot) : object.linkCount(assoc);
}

TNLinkView TNAssociationTraversal::links(const TNObject& object, const TNAssociation& assoc) const {
    return m_cachedSlot >= 0 ? object.linksAt(m_cachedSlot) : object.links(assoc);
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
    sgxStringFromStream(stream, m_associationToTraverse);
    char addToResult = 0;
    stream >> addToResult;
    m_addToResult = addToResult != 0;
    m_child = restoreLink(stream);
    m_sibling = restoreLink(stream);
    m_cachedClass = 0;
}
