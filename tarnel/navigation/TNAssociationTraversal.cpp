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

} // namespace

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

const TNAssociation* TNAssociationTraversal::associationOf(const TNObject& object) const {
    const TNClass& cls = *object.getClass();
    if (cls.instanceId() != m_cachedClass) {
        const int32_t index = cls.findAssocIndex(m_associationToTraverse);
        m_cachedAssociation =
            index < 0 ? nullptr : cls.getAssociation(m_associationToTraverse).get();
        m_cachedSlot = m_cachedAssociation != nullptr && m_cachedAssociation->isSimple()
                           ? object.linkSlot(*m_cachedAssociation)
                           : -1;
        m_cachedClass = cls.instanceId();
    }
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
