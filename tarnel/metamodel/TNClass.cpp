#include "tarnel/metamodel/TNClass.h"

#include "sgx/general/CSignal2Exception.h"
#include "sgx/general/SgxException.h"
#include "sgx/persistence/SgxStringPersistence.h"
#include "sgx/persistence/StartPersistence.h"
#include "tarnel/core/TNException.h"
#include "tarnel/core/TNRecords.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNAttrDesc.h"
#include "tarnel/metamodel/TNEnumType.h"
#include "tarnel/metamodel/TNSchema.h"
#include "tarnel/metamodel/TNTaggedValues.h"
#include "tarnel/navigation/TNAssociation.h"
#include "tarnel/navigation/TNClassIdentifier.h"

#include <algorithm>
#include <memory>

TN_DEFINE_COLLECTABLE(TNClass)

namespace {

// The defaults of every class's tagged values, for the life of the process.
TNTaggedValueMap& classTaggedValueDefaults() {
    static TNTaggedValueMap defaults;
    return defaults;
}

} // namespace

TNClass::TNClass() = default;

TNClass::TNClass(SgxSimplePtr<TNSchema> schema, const SgxString& name)
    : m_name(name), m_schema(schema), m_classIdentifier(new TNClassIdentifier(name)) {}

TNClass::~TNClass() noexcept {
    try {
        CSignal2Exception guard;
        for (const auto& desc : m_attributes)
            delete desc.get();
        for (const auto& assoc : m_associations)
            delete assoc.get();
        for (const auto& assoc : m_replacedAssociations)
            delete assoc.get();
        delete m_classIdentifier.get();
    } catch (const SgxException& e) {
        SgxException::logCatch(&e);
    } catch (...) {
        const SgxException unexpected("Unexpected error deleting TNClass");
        SgxException::logCatch(&unexpected);
    }
}

bool TNClass::isEqual(const RWCollectable* other) const {
    const auto* cls = dynamic_cast<const TNClass*>(other);
    return cls != nullptr && *cls == *this;
}

int TNClass::compareTo(const RWCollectable* other) const {
    const auto* cls = dynamic_cast<const TNClass*>(other);
    if (cls == nullptr)
        return 1;
    if (m_name == cls->m_name)
        return 0;
    return m_name < cls->m_name ? -1 : 1;
}

unsigned TNClass::hash() const { return static_cast<unsigned>(std::hash<SgxString>{}(m_name)); }

SgxSimplePtr<TNAttrDesc> TNClass::addAttr(const SgxString& name, TNAttrType type,
                                          const SgxString& enumTypeName,
                                          const SgxString& originClass) {
    if (TNAttrDesc* existing = findAttr(name)) {
        // The same attribute reaching this class again (through a second parent) is accepted
        // once; a different declaration of the name is not.
        if (existing->originClass() == originClass)
            return existing;
        TNException(TNException::Create, TNException::AttrDescriptor, TNException::DuplicateName)
            .setAttr(name)
            .setClass1(m_name)
            .raise();
    }
    const SgxString& origin = originClass.empty() ? m_name : originClass;
    if (const TNClass* withInstances = instancesGainingAttr(name))
        raiseInstancesExist(*withInstances, name, {});

    if ((type & TNAttrDesc::kindMask) == TNAttrEnumeration) {
        if (!m_schema->enumExists(enumTypeName))
            TNException(TNException::Create, TNException::AttrDescriptor, TNException::NameNotFound)
                .setAttr(name)
                .setEnumType(enumTypeName)
                .raise();
        // The type must have a literal: reading the first raises for an empty type.
        static_cast<void>((*m_schema->getEnumType(enumTypeName))[0ul]);
    }

    tnReserveOneMore(m_attributes);
    auto owned =
        std::unique_ptr<TNAttrDesc>(new TNAttrDesc(this, name, type, origin, enumTypeName));
    SgxSimplePtr<TNAttrDesc> desc(owned.get());
    // insert_or_assign: a "fullyQualifiedName" entry that attrIndex made before any such
    // attribute existed is replaced by the real position.
    owned->m_position = static_cast<int32_t>(m_attributes.size());
    m_attrIndex.insert_or_assign(name, owned->m_position);
    m_attributes.push_back(desc);
    owned.release();

    // Hand the attribute down the whole subtree; its origin stays the declaring class. Children
    // are visited by position, as a descendant's addAttr never changes this list.
    for (size_t i = 0; i < m_children.size(); ++i)
        m_children[i]->addAttr(name, type, enumTypeName, origin);
    return desc;
}

void TNClass::addChild(SgxSimplePtr<TNClass> child) {
    for (const auto& desc : m_attributes)
        if (const TNClass* withInstances = child->instancesGainingAttr(desc->name()))
            raiseInstancesExist(*withInstances, desc->name(), {});
    m_children.push_back(child);
    for (size_t i = 0; i < m_attributes.size(); ++i) {
        const TNAttrDesc& desc = *m_attributes[i];
        const SgxString enumTypeName =
            desc.type() == TNAttrEnumeration ? desc.enumType()->name() : SgxString();
        child->addAttr(desc.name(), desc.type(), enumTypeName, desc.originClass());
    }
    child->setParent(this);
}

void TNClass::addParent(SgxSimplePtr<TNClass> parent) { parent->addChild(this); }

void TNClass::setIsDiagram(bool isDiagram) {
    if (isDiagram)
        m_flags |= diagramFlag;
    else
        m_flags &= static_cast<uint16_t>(~diagramFlag);
}

void TNClass::donePopulating() {
    tnCompact(m_attributes);
    tnCompact(m_associations);
    tnCompact(m_objects);
    // Instances of one class lie apart in the primary region, among those of other classes, so
    // each freeze would wait for its object's memory; ask for it a few objects ahead (an object's
    // attribute slots follow it there).
    constexpr size_t ahead = 8;
    const size_t count = m_objects.size();
    for (size_t i = 0; i < count; ++i) {
        if (i + ahead < count) {
            const auto* next = reinterpret_cast<const char*>(m_objects[i + ahead].get());
            __builtin_prefetch(next);
            __builtin_prefetch(next + 64);
            __builtin_prefetch(next + 128);
        }
        m_objects[i].get()->donePopulating();
    }
}

SgxSimplePtr<TNAssociation>
TNClass::addAssociation(const SgxString& name, const SgxString& otherClassName,
                        TNMultiplicity myMultiplicity, TNMultiplicity otherMultiplicity,
                        const SgxString& roleName, const SgxString& otherRoleName) {
    if (!m_schema->classExists(otherClassName))
        TNException(TNException::Create, TNException::Association, TNException::NameNotFound)
            .setAssoc(name)
            .setClass1(m_name)
            .setClass2(otherClassName)
            .raise();
    const SgxSimplePtr<TNClass> other = m_schema->getClass(otherClassName);
    std::unique_ptr<TNAssociation> forward(new TNSimpleAssociation(
        name, this, other, myMultiplicity, otherMultiplicity, roleName, otherRoleName, false));
    std::unique_ptr<TNAssociation> reverse(new TNSimpleAssociation(
        name, other, this, otherMultiplicity, myMultiplicity, otherRoleName, roleName, false));
    if (const TNClass* withInstances = instancesGainingAssoc(otherRoleName))
        raiseInstancesExist(*withInstances, {}, otherRoleName);
    if (const TNClass* withInstances = other->instancesGainingAssoc(roleName))
        raiseInstancesExist(*withInstances, {}, roleName);
    // Each class owns its end once the end is entered, so the duplicate check comes first.
    checkNewAssociation(*forward);
    const SgxSimplePtr<TNAssociation> result = setAssociation(forward.release());
    other->checkNewAssociation(*reverse);
    other->setAssociation(reverse.release());
    return result;
}

void TNClass::addCompoundAssociation(SgxSimplePtr<TNCompoundAssociation>& assoc) {
    setAssociation(SgxSimplePtr<TNAssociation>(assoc));
}

void TNClass::checkNewAssociation(const TNAssociation& assoc) const {
    const int32_t index = findAssocIndex(assoc.m_otherRoleName);
    if (index < 0)
        return;
    const TNAssociation& existing = *m_associations[static_cast<size_t>(index)];
    if (existing.m_firstClass.get() == this && assoc.m_firstClass.get() == this)
        TNException(TNException::Create, TNException::Association, TNException::DuplicateName)
            .setAssoc(assoc.m_otherRoleName)
            .setClass1(m_name)
            .setClass2(assoc.m_otherClass.isNull() ? SgxString() : assoc.m_otherClass->m_name)
            .raise();
}

SgxSimplePtr<TNAssociation> TNClass::setAssociation(SgxSimplePtr<TNAssociation> assoc) {
    checkNewAssociation(*assoc);
    TNAssociation& entered = *assoc;
    const SgxString& key = entered.m_otherRoleName;
    const int32_t index = findAssocIndex(key);
    if (index >= 0) {
        SgxSimplePtr<TNAssociation>& existing = m_associations[static_cast<size_t>(index)];
        // The position, and with it every instance's link slot, stays.
        tnReserveOneMore(m_replacedAssociations);
        m_replacedAssociations.push_back(existing);
        existing = assoc;
        entered.m_slot = index;
    } else {
        tnReserveOneMore(m_associations);
        const auto position = static_cast<int32_t>(m_associations.size());
        m_assocIndex.emplace(key, position);
        m_associations.push_back(assoc);
        entered.m_slot = position;
    }

    // Every subclass gets a copy of its own, whose first class is still the declaring class (so
    // it never counts as a duplicate there).
    for (size_t i = 0; i < m_children.size(); ++i)
        m_children[i]->setAssociation(entered.clone());
    return assoc;
}

const TNClass* TNClass::instancesGainingAttr(std::string_view name) const {
    // A class that has the attribute already returns it or raises DuplicateName, and hands
    // nothing further down.
    if (findAttr(name) != nullptr)
        return nullptr;
    if (!m_objects.empty())
        return this;
    for (const auto& child : m_children)
        if (const TNClass* found = child->instancesGainingAttr(name))
            return found;
    return nullptr;
}

const TNClass* TNClass::instancesGainingAssoc(std::string_view otherRoleName) const {
    // Instances keep a link word for every association their class had when they were made, and
    // compound associations (which store no links) only ever join later; so a simple association
    // needs a word of its own unless it replaces a simple one.
    if (!m_objects.empty()) {
        const int32_t index = findAssocIndex(otherRoleName);
        if (index < 0 || !m_associations[static_cast<size_t>(index)]->isSimple())
            return this;
    }
    for (const auto& child : m_children)
        if (const TNClass* found = child->instancesGainingAssoc(otherRoleName))
            return found;
    return nullptr;
}

void TNClass::raiseInstancesExist(const TNClass& withInstances, std::string_view attrName,
                                  std::string_view roleName) const {
    TNException e(TNException::Modify, TNException::Class, TNException::ReferencesExist);
    e.setClass1(m_name);
    if (&withInstances != this)
        e.setClass2(withInstances.m_name);
    e.setAttr(SgxString(attrName));
    e.setAssoc(SgxString(roleName));
    e.setInfo("Objects of class " + withInstances.m_name +
              " exist, and their slots were sized when they were made: a class gains attributes "
              "and associations only while it has no objects (define the whole schema first, or "
              "unpopulate the schema).");
    e.raise();
}

SgxSimplePtr<TNAssociation> TNClass::getDiagramAssociation() const {
    if (!m_diagramAssociationFound) {
        const auto found =
            std::find_if(m_associations.begin(), m_associations.end(),
                         [](const SgxSimplePtr<TNAssociation>& a) { return a->isDiagram(); });
        if (found != m_associations.end()) {
            m_diagramAssociation = *found;
            m_diagramAssociationFound = true;
        }
    }
    return m_diagramAssociation;
}

SgxSimplePtr<TNAssociation> TNClass::getDiagramItemAssociation() const {
    const auto found =
        std::find_if(m_associations.begin(), m_associations.end(),
                     [](const SgxSimplePtr<TNAssociation>& a) { return a->isDiagramItem(); });
    return found != m_associations.end() ? *found : SgxSimplePtr<TNAssociation>();
}

TNAttrDesc* TNClass::findAttr(std::string_view name) const noexcept {
    const int32_t index = findAttrIndex(name);
    if (index < 0 || static_cast<size_t>(index) >= m_attributes.size())
        return nullptr;
    TNAttrDesc* desc = m_attributes[static_cast<size_t>(index)].get();
    // A "fullyQualifiedName" entry made by attrIndex points at slot 0 whatever is there; it
    // stands for no descriptor.
    return desc->m_name == name ? desc : nullptr;
}

const TNAttrDesc& TNClass::operator[](std::string_view attrName) const {
    const TNAttrDesc* desc = findAttr(attrName);
    if (desc == nullptr)
        raiseAttrNotFound(attrName);
    return *desc;
}

TNAttrDesc& TNClass::operator[](std::string_view attrName) {
    TNAttrDesc* desc = findAttr(attrName);
    if (desc == nullptr)
        raiseAttrNotFound(attrName);
    return *desc;
}

int32_t TNClass::attrIndexMissing(std::string_view name) const {
    if (name == fullyQualifiedName) {
        m_attrIndex.emplace(name, 0);
        return 0;
    }
    raiseAttrNotFound(name);
}

void TNClass::raiseAttrNotFound(std::string_view name) const {
    TNException(TNException::Access, TNException::AttrDescriptor, TNException::NameNotFound)
        .setAttr(SgxString(name))
        .raise();
}

void TNClass::raiseAssocNotFound(std::string_view otherRoleName, bool withClass) const {
    TNException e(TNException::Access, TNException::Association, TNException::NameNotFound);
    e.setAssoc(SgxString(otherRoleName));
    if (withClass)
        e.setClass1(m_name);
    e.raise();
}

SgxSimplePtr<TNAssociation> TNClass::getAssociation(std::string_view otherRoleName) const {
    const int32_t index = findAssocIndex(otherRoleName);
    if (index < 0)
        raiseAssocNotFound(otherRoleName, true);
    return m_associations[static_cast<size_t>(index)];
}

bool TNClass::hasParent(std::string_view className) const {
    return std::any_of(
        m_parents.begin(), m_parents.end(),
        [&](const SgxSimplePtr<TNClass>& parent) { return parent->m_name == className; });
}

SgxString TNClass::alias() const {
    return tnAlias(m_taggedValues, classTaggedValueDefaults(), m_name);
}

TNValue TNClass::taggedValue(const SgxString& name) const {
    if (const TNValue* value = tnFindTaggedValue(m_taggedValues, classTaggedValueDefaults(), name))
        return *value;
    TNException(TNException::Access, TNException::TaggedValue, TNException::NameNotFound)
        .setClass1(m_name)
        .setAttr(name)
        .raise();
}

void TNClass::taggedValue(const SgxString& name, const TNValue& value) {
    m_taggedValues.insert_or_assign(name, value);
}

void TNClass::taggedValueDefault(const SgxString& name, const TNValue& value) {
    classTaggedValueDefaults().insert_or_assign(name, value);
}

SgxSimplePtr<TNObject> TNClass::newObject(bool flag) {
    const SgxSimplePtr<TNObject> object(TNObject::create(*this, flag));
    m_objects.push_back(object);
    return object;
}

namespace {

std::vector<const RWCollectable*> plain(const std::vector<SgxSimplePtr<TNClass>>& classes) {
    std::vector<const RWCollectable*> objects;
    objects.reserve(classes.size());
    for (const auto& cls : classes)
        objects.push_back(cls.get());
    return objects;
}

[[noreturn]] void raiseInvalid(const SgxString& className, const SgxString& problem) {
    SgxException::raise("Invalid class " + className + ": " + problem);
}

// Takes the restored members into `items` and `index` at the positions they are read in, each
// owned by `owner` from then on. `key` names a member as the file lists it.
// The entries are of type T (tnRestoreMappedVector checked them).
template <class T, class Key>
void takeMembers(const TNClass& owner, const SgxString& className,
                 std::vector<std::pair<SgxString, RWCollectable*>> entries,
                 std::vector<SgxSimplePtr<T>>& items, TNNameMap<int32_t>& index, Key key) {
    items.reserve(entries.size());
    index.reserve(entries.size());
    for (auto& [name, object] : entries) {
        T* member = static_cast<T*>(object);
        // Owned before anything else can raise: the class deletes what it holds.
        rwAdopt(member, &owner);
        items.push_back(member);
        if (key(*member) != name)
            raiseInvalid(className, "member " + key(*member) + " listed as " + name);
        // try_emplace leaves the name alone when it is taken, for the message.
        if (!index.try_emplace(std::move(name), static_cast<int32_t>(items.size() - 1)).second)
            raiseInvalid(className, "member " + name + " listed twice");
    }
}

} // namespace

void TNClass::saveGuts(RWvostream& stream) const {
    StartPersistence guard;
    SgxCollectable::saveGuts(stream);
    sgxStringToStream(stream, m_name);
    stream << static_cast<const RWCollectable*>(m_schema.get());
    stream << static_cast<const RWCollectable*>(m_classIdentifier.get());
    tnSaveMappedVector(stream,
                       tnByName(m_attributes, [](const TNAttrDesc& d) { return d.m_name; }));
    tnSaveMappedVector(
        stream, tnByName(m_associations, [](const TNAssociation& a) { return a.m_otherRoleName; }));
    tnSaveVector(stream, plain(m_children));
    tnSaveVector(stream, plain(m_parents));
    stream << m_flags;
}

void TNClass::restoreGuts(RWvistream& stream) {
    // No guard of its own: the lists are read in place (TNRecords.h), and what their readers
    // hand to registerCollectable on a failure is freed by the enclosing guard (the schema's).
    if (!m_name.empty() || !m_attributes.empty() || !m_associations.empty() ||
        !m_classIdentifier.isNull())
        SgxException::raise("A class is restored only into an empty one");
    SgxCollectable::restoreGuts(stream);
    sgxStringFromStream(stream, m_name);
    m_schema = tnRestoreReference<TNSchema>(stream, "class", "TNSchema");
    auto* identifier = tnRestoreReference<TNClassIdentifier>(stream, "class", "TNClassIdentifier");
    rwAdopt(identifier, this);
    m_classIdentifier = identifier;

    takeMembers<TNAttrDesc>(*this, m_name,
                            tnRestoreMappedVector(stream, "TNAttrDesc", &tnIsA<TNAttrDesc>),
                            m_attributes, m_attrIndex,
                            [](const TNAttrDesc& d) -> const SgxString& { return d.m_name; });
    for (size_t i = 0; i < m_attributes.size(); ++i) {
        TNAttrDesc& desc = *m_attributes[i];
        if (desc.m_class.get() != this)
            raiseInvalid(m_name, "attribute " + desc.m_name + " is held by another class");
        if (desc.type() == TNAttrEnumeration && desc.m_enumType.isNull())
            raiseInvalid(m_name, "enumeration attribute " + desc.m_name + " has no type");
        desc.m_position = static_cast<int32_t>(i);
    }
    takeMembers<TNAssociation>(
        *this, m_name, tnRestoreMappedVector(stream, "TNAssociation", &tnIsA<TNAssociation>),
        m_associations, m_assocIndex,
        [](const TNAssociation& a) -> const SgxString& { return a.m_otherRoleName; });
    for (size_t i = 0; i < m_associations.size(); ++i)
        m_associations[i]->m_slot = static_cast<int32_t>(i);

    for (TNClass* child : tnRestoreVectorOf<TNClass>(stream, "TNClass"))
        m_children.push_back(child);
    for (TNClass* parent : tnRestoreVectorOf<TNClass>(stream, "TNClass"))
        m_parents.push_back(parent);
    stream >> m_flags;
}
