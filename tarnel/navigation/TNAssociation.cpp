#include "tarnel/navigation/TNAssociation.h"

#include "rw/RWCollectableInt.h"
#include "rw/RWCollectableString.h"
#include "sgx/general/SgxException.h"
#include "sgx/persistence/SgxStringPersistence.h"
#include "tarnel/core/TNException.h"
#include "tarnel/core/TNRecords.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNClass.h"

#include <algorithm>
#include <functional>
#include <unordered_map>
#include <unordered_set>

TN_DEFINE_COLLECTABLE(TNSimpleAssociation)
TN_DEFINE_COLLECTABLE(TNCompoundAssociation)

namespace {

TNTaggedValueMap& associationTaggedValueDefaults() {
    static TNTaggedValueMap defaults;
    return defaults;
}

// A class read back from a record: null, or a TNClass.
TNClass* restoreClass(RWvistream& stream) {
    return tnRestoreReference<TNClass>(stream, "association", "TNClass");
}

// For each traversal graph that a restore gave to a compound association, the association
// holding it: a later copy read back refers to the graph again and shares the holder's record.
// An entry leaves with its holder; one whose holder has since taken another graph is ignored, so
// an entry never names a graph that is gone.
std::unordered_map<const TNAssociationTraversal*, const TNCompoundAssociation*>& graphHolders() {
    static std::unordered_map<const TNAssociationTraversal*, const TNCompoundAssociation*> holders;
    return holders;
}

// The stored size of a class reference; a null one is its one-byte nil tag.
RWspace referenceSize(const TNClass* cls) { return cls == nullptr ? 1 : cls->recursiveStoreSize(); }

} // namespace

TNAssociation::TNAssociation(const SgxString& name, SgxSimplePtr<TNClass> firstClass,
                             SgxSimplePtr<TNClass> otherClass, TNMultiplicity myMultiplicity,
                             TNMultiplicity otherMultiplicity, const SgxString& roleName,
                             const SgxString& otherRoleName, bool isDiagram, bool isDiagramItem,
                             bool isPathToModel)
    : m_firstClass(firstClass), m_otherClass(otherClass), m_myMultiplicity(myMultiplicity),
      m_otherMultiplicity(otherMultiplicity), m_roleName(roleName), m_name(name),
      m_otherRoleName(otherRoleName) {
    setFlag(diagramFlag, isDiagram);
    setFlag(diagramItemFlag, isDiagramItem);
    setFlag(pathToModelFlag, isPathToModel);
}

TNAssociation::TNAssociation(const TNAssociation& other)
    : SgxCollectable(other), m_firstClass(other.m_firstClass), m_otherClass(other.m_otherClass),
      m_myMultiplicity(other.m_myMultiplicity), m_otherMultiplicity(other.m_otherMultiplicity),
      m_roleName(other.m_roleName), m_name(other.m_name), m_otherRoleName(other.m_otherRoleName),
      m_flags(other.m_flags),
      // A copy reaches the same other class through the same role name; it sits in no class yet.
      m_reverseSlot(other.m_reverseSlot), m_reverseClass(other.m_reverseClass) {}

TNAssociation& TNAssociation::operator=(const TNAssociation& other) {
    if (this == &other)
        return *this;
    SgxCollectable::operator=(other);
    m_firstClass = other.m_firstClass;
    m_otherClass = other.m_otherClass;
    m_myMultiplicity = other.m_myMultiplicity;
    m_otherMultiplicity = other.m_otherMultiplicity;
    m_roleName = other.m_roleName;
    m_name = other.m_name;
    m_otherRoleName = other.m_otherRoleName;
    m_flags = other.m_flags;
    // Names may have changed under the class index: forget every cached position.
    m_slot = -1;
    m_reverseClass = nullptr;
    return *this;
}

TNAssociation::~TNAssociation() = default;

bool TNAssociation::isEqual(const RWCollectable* other) const {
    const auto* assoc = dynamic_cast<const TNAssociation*>(other);
    return assoc != nullptr && assoc->m_name == m_name;
}

int TNAssociation::compareTo(const RWCollectable* other) const {
    if (other == nullptr)
        return -1;
    if (isEqual(other))
        return 0;
    const auto* assoc = dynamic_cast<const TNAssociation*>(other);
    return assoc != nullptr && m_name < assoc->m_name ? -1 : 1;
}

unsigned TNAssociation::hash() const {
    return static_cast<unsigned>(std::hash<SgxString>{}(m_name));
}

void TNAssociation::saveGuts(RWvostream& stream) const {
    SgxCollectable::saveGuts(stream);
    sgxStringToStream(stream, m_roleName);
    sgxStringToStream(stream, m_name);
    sgxStringToStream(stream, m_otherRoleName);
    stream << m_myMultiplicity.first() << m_myMultiplicity.second() << m_otherMultiplicity.first()
           << m_otherMultiplicity.second() << static_cast<int16_t>(m_flags);
    stream << static_cast<const RWCollectable*>(m_firstClass.get());
    stream << static_cast<const RWCollectable*>(m_otherClass.get());
}

void TNAssociation::restoreGuts(RWvistream& stream) {
    SgxCollectable::restoreGuts(stream);
    sgxStringFromStream(stream, m_roleName);
    sgxStringFromStream(stream, m_name);
    sgxStringFromStream(stream, m_otherRoleName);
    int32_t counts[4] = {};
    int16_t flags = 0;
    stream >> counts[0] >> counts[1] >> counts[2] >> counts[3] >> flags;
    m_myMultiplicity = TNMultiplicity(counts[0], counts[1]);
    m_otherMultiplicity = TNMultiplicity(counts[2], counts[3]);
    m_flags = static_cast<uint16_t>(flags);
    m_firstClass = restoreClass(stream);
    m_otherClass = restoreClass(stream);
    m_slot = -1;
    m_reverseClass = nullptr;
}

RWspace TNAssociation::binaryStoreSize() const {
    // The base part is its revision byte (SgxCollectable::binaryStoreSize would measure this whole
    // record). The flags word is counted at integer size, like the four multiplicity integers.
    return sizeof(SgxCollectable::recordRevision) +
           RWCollectableString(m_roleName).binaryStoreSize() +
           RWCollectableString(m_name).binaryStoreSize() +
           RWCollectableString(m_otherRoleName).binaryStoreSize() +
           5 * RWCollectableInt(0).binaryStoreSize() + referenceSize(m_firstClass.get()) +
           referenceSize(m_otherClass.get());
}

void TNAssociation::setSecondClass(SgxSimplePtr<TNClass> cls) {
    m_otherClass = cls;
    m_reverseClass = nullptr;
}

void TNAssociation::setRoleName(const SgxString& roleName) {
    m_roleName = roleName;
    m_reverseClass = nullptr;
}

void TNAssociation::setOtherRoleName(const SgxString& otherRoleName) {
    m_otherRoleName = otherRoleName;
    m_slot = -1;
}

SgxString TNAssociation::alias() const {
    return tnAlias(m_taggedValues, associationTaggedValueDefaults(), m_name);
}

bool TNAssociation::isInherited() const {
    if (m_firstClass.isNull())
        return false;
    const auto parents = m_firstClass->parents();
    return std::any_of(parents.begin(), parents.end(), [this](const SgxSimplePtr<TNClass>& p) {
        return p->associationExists(m_roleName);
    });
}

TNValue TNAssociation::taggedValue(const SgxString& name) const {
    if (const TNValue* value =
            tnFindTaggedValue(m_taggedValues, associationTaggedValueDefaults(), name))
        return *value;
    TNException(TNException::Access, TNException::TaggedValue, TNException::NameNotFound)
        .setAssoc(m_name)
        .setAttr(name)
        .raise();
}

void TNAssociation::taggedValue(const SgxString& name, const TNValue& value) {
    m_taggedValues.insert_or_assign(name, value);
}

void TNAssociation::taggedValueDefault(const SgxString& name, const TNValue& value) {
    associationTaggedValueDefaults().insert_or_assign(name, value);
}

TNSimpleAssociation::~TNSimpleAssociation() = default;

std::vector<SgxSimplePtr<TNObject>>
TNSimpleAssociation::objects(const SgxSimplePtr<TNObject>& source) const {
    return source->objects(*this);
}

SgxSimplePtr<TNObject> TNSimpleAssociation::object(const SgxSimplePtr<TNObject>& source) const {
    return source->object(*this);
}

size_t TNSimpleAssociation::count(const SgxSimplePtr<TNObject>& source) const {
    return source->linkCount(*this);
}

bool TNSimpleAssociation::isEqual(const RWCollectable* other) const { return other == this; }

int TNSimpleAssociation::compareTo(const RWCollectable* other) const {
    if (other == nullptr)
        return -1;
    const auto* self = static_cast<const RWCollectable*>(this);
    if (other == self)
        return 0;
    return std::less<const RWCollectable*>{}(self, other) ? -1 : 1;
}

unsigned TNSimpleAssociation::hash() const { return 1; }

TNCompoundAssociationData::~TNCompoundAssociationData() {
    try {
        m_traversal.takeOwnership();
    } catch (...) {
        // Claiming raises nothing for a well-formed graph; a destructor must not raise anyway.
    }
}

TNCompoundAssociation::TNCompoundAssociation() : m_data(new TNCompoundAssociationData) {}

TNCompoundAssociation::TNCompoundAssociation(const TNCompoundAssociation& other)
    : TNAssociation(other), m_data(other.m_data) {}

TNCompoundAssociation& TNCompoundAssociation::operator=(const TNCompoundAssociation& other) {
    if (this != &other) {
        forgetGraphHolder();
        TNAssociation::operator=(other);
        m_data = other.m_data;
    }
    return *this;
}

TNCompoundAssociation::~TNCompoundAssociation() { forgetGraphHolder(); }

const TNCompoundAssociation* TNCompoundAssociation::graphHolder(const TNAssociationTraversal* root) {
    if (root == nullptr)
        return nullptr;
    const auto found = graphHolders().find(root);
    if (found == graphHolders().end() || found->second->m_data->traversal().get() != root)
        return nullptr;
    return found->second;
}

void TNCompoundAssociation::forgetGraphHolder() noexcept {
    if (const auto found = graphHolders().find(m_heldRoot);
        m_heldRoot != nullptr && found != graphHolders().end() && found->second == this)
        graphHolders().erase(found);
    m_heldRoot = nullptr;
}

void TNCompoundAssociation::setAssociationTraversal(SgxSimplePtr<TNAssociationTraversal> root) {
    m_data->traversal(root.get());
}

void TNCompoundAssociation::setTraversalSource(const SgxString& source) {
    m_data->traversalSource(source);
}

SgxSimplePtr<TNAssociationTraversal> TNCompoundAssociation::associationTraversal() const {
    return m_data->traversal().get();
}

SgxString TNCompoundAssociation::traversalSource() const { return m_data->traversalSource(); }

SgxString TNCompoundAssociation::asString() const {
    return "TNCompoundAssociation { " + traversalSource() + " }";
}

std::vector<SgxSimplePtr<TNObject>>
TNCompoundAssociation::objects(const SgxSimplePtr<TNObject>& source) const {
    const TNAssociationTraversal* root = m_data->traversal().get();
    if (root == nullptr)
        SgxException::raise("Null dereference");
    std::vector<SgxSimplePtr<TNObject>> result;
    root->traverse(result, source);
    return result;
}

size_t TNCompoundAssociation::count(const SgxSimplePtr<TNObject>& source) const {
    const TNAssociationTraversal* root = m_data->traversal().get();
    if (root == nullptr)
        SgxException::raise("Null dereference");
    return root->count(source);
}

SgxSimplePtr<TNObject> TNCompoundAssociation::object(const SgxSimplePtr<TNObject>& source) const {
    const std::vector<SgxSimplePtr<TNObject>> found = objects(source);
    if (found.size() != 1)
        TNException(TNException::Traverse, TNException::AssociationChain,
                    found.empty() ? TNException::NoObjectsInChain : TNException::ManyObjectsInChain)
            .setAssoc(asString())
            .raise();
    return found.front();
}

bool TNCompoundAssociation::isEqual(const RWCollectable* other) const {
    if (other == nullptr || other->isA() != isA())
        return false;
    const auto* compound = dynamic_cast<const TNCompoundAssociation*>(other);
    return compound != nullptr && compound->traversalSource() == traversalSource();
}

int TNCompoundAssociation::compareTo(const RWCollectable* other) const {
    if (other == nullptr || other->isA() != isA())
        return -1;
    if (isEqual(other))
        return 0;
    const auto* compound = dynamic_cast<const TNCompoundAssociation*>(other);
    return compound != nullptr && traversalSource() < compound->traversalSource() ? -1 : 1;
}

unsigned TNCompoundAssociation::hash() const {
    return static_cast<unsigned>(std::hash<SgxString>{}(traversalSource()));
}

void TNCompoundAssociation::saveGuts(RWvostream& stream) const {
    TNAssociation::saveGuts(stream);
    sgxStringToStream(stream, traversalSource());
    stream << static_cast<const RWCollectable*>(m_data->traversal().get());
}

void TNCompoundAssociation::restoreGuts(RWvistream& stream) {
    TNAssociation::restoreGuts(stream);
    SgxString source;
    sgxStringFromStream(stream, source);
    auto* root = tnRestoreReference<TNAssociationTraversal>(stream, "compound association",
                                                            "TNAssociationTraversal");
    // A copy of an association read earlier (an inherited one: a class's copy shares the
    // record of its ancestor's) refers back to the same graph: share that record again.
    if (const TNCompoundAssociation* holder = graphHolder(root)) {
        if (holder->traversalSource() != source)
            SgxException::raise("Invalid compound association: one traversal graph for sources " +
                                holder->traversalSource() + " and " + source);
        forgetGraphHolder();
        m_data = holder->m_data;
        return;
    }
    // Every node of the graph was made by this restore; this association keeps them (through
    // its record), so none is freed with the restore's leftovers. Each is taken once, in the
    // order the links reach it.
    std::vector<const TNAssociationTraversal*> pending{root};
    std::vector<const TNAssociationTraversal*> adopted;
    std::unordered_set<const TNAssociationTraversal*> taken;
    try {
        while (!pending.empty()) {
            const TNAssociationTraversal* node = pending.back();
            pending.pop_back();
            if (node == nullptr || !taken.insert(node).second)
                continue;
            rwAdopt(node, this);
            adopted.push_back(node);
            pending.push_back(node->sibling().get());
            pending.push_back(node->child().get());
        }
    } catch (...) {
        // A node another association already keeps: the record is refused. This association
        // keeps no graph that would delete the nodes it took, so they go here, one by one (no
        // node owns another before prepareForDeletion runs).
        for (const TNAssociationTraversal* node : adopted)
            delete node;
        throw;
    }
    m_data->traversalSource(source);
    m_data->traversal(root);
    if (root != nullptr) {
        graphHolders()[root] = this;
        m_heldRoot = root;
    }
}

RWspace TNCompoundAssociation::binaryStoreSize() const {
    return TNAssociation::binaryStoreSize() +
           RWCollectableString(traversalSource()).binaryStoreSize();
}
