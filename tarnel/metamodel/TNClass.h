// TNClass: one metaclass of a schema, a named kind of model element with attribute descriptors,
// associations, a place in the inheritance graph, a class identifier, tagged values and the list
// of its instances.
//
// Inheritance is realised by copying: whatever a class gains (an attribute or an association) is
// handed down to every descendant at once, so each class holds the flat, complete set of its own
// and inherited members and no lookup walks up the graph. The position of an attribute or
// association in its vector is the slot index that the class's instances use; positions never
// move once given.
//
// Ownership: the schema creates and deletes classes. A class owns its attribute descriptors, its
// associations and its class identifier, and deletes them with itself. Parents, children, the
// schema and the instances are borrowed handles; instances live in the schema's memory regions.
// Not thread-safe; the const lookups may update internal caches.
#pragma once

#include "sgx/general/SgxInstanceId.h"
#include "sgx/general/SgxSimplePtr.h"
#include "sgx/general/SgxString.h"
#include "sgx/persistence/SgxCollectable.h"
#include "tarnel/core/TNAttrType.h"
#include "tarnel/core/TNCollectable.h"
#include "tarnel/core/TNValue.h"
#include "tarnel/metamodel/TNNameIndex.h"
#include "tarnel/metamodel/TNTaggedValues.h"
#include "tarnel/navigation/TNAssociation.h"
#include "tarnel/tarnel_export.h"

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

class TNAttrDesc;
class TNClassIdentifier;
class TNObject;
class TNSchema;

class TARNEL_API TNClass : public SgxCollectable {
    TN_DECLARE_COLLECTABLE(TNClass)
public:
    // A class owns its descriptors, which point back at it; classes are not copied.
    TNClass(const TNClass&) = delete;
    TNClass& operator=(const TNClass&) = delete;
    // Deletes the attribute descriptors, the associations and the class identifier. Never raises:
    // a failure is caught and logged under "Catch" (an exception that is not an SgxException as
    // "Unexpected error deleting TNClass").
    ~TNClass() noexcept override;

    // Classes are equal when their names are (names are the identity of a class).
    bool operator==(const TNClass& other) const { return m_name == other.m_name; }
    // True for a TNClass of the same name.
    bool isEqual(const RWCollectable* other) const override;
    // 0 for a class of the same name; otherwise -1 when this name sorts first (byte order) and 1
    // when it sorts after, or when `other` is not a TNClass (null included).
    int compareTo(const RWCollectable* other) const override;
    // The hash of the name, agreeing with isEqual.
    unsigned hash() const override;
    // This class among all classes ever made in the process (see SgxInstanceId): what caches of
    // per-class positions compare, since a later class may be made at this one's address.
    uint64_t instanceId() const noexcept { return m_instanceId.value(); }

    // --- Building the metamodel --------------------------------------------------------------

    // Adds attribute `name` of kind `type` and hands it down to every descendant; returns this
    // class's descriptor (owned by this class). `enumTypeName` matters only for enumeration
    // attributes (kind 0: the low four bits of `type`); `originClass` names the declaring class,
    // empty meaning this class.
    // When this class already has the attribute: returns the existing descriptor unchanged if its
    // origin equals `originClass` (the same inherited attribute arriving twice, as through two
    // parents), else raises TNException (Create, AttrDescriptor, DuplicateName) with the
    // attribute name and this class's name. An enumeration attribute whose type the schema lacks
    // raises (Create, AttrDescriptor, NameNotFound) with the attribute and enumeration type names;
    // one whose type has no literal raises the type's (Access, EnumType, NameNotFound). A failure
    // among the descendants leaves the classes already visited changed. A "fullyQualifiedName"
    // index entry made by attrIndex gives way to the real attribute's position.
    // Instances are made with one slot per attribute their class has at the time, so a class that
    // has instances (before TNSchema::unpopulate) cannot gain an attribute: when this class or a
    // descendant that would receive the attribute has any, raises TNException (Modify, Class,
    // ReferencesExist) with this class's name, the attribute name, and the name of the class with
    // instances (class 2, when it is another) before anything changes.
    SgxSimplePtr<TNAttrDesc> addAttr(const SgxString& name, TNAttrType type,
                                     const SgxString& enumTypeName, const SgxString& originClass);
    // Makes `child` a direct subclass: appends it to the children, hands it every attribute of
    // this class in index order (kind, enumeration type and origin; raising what addAttr raises),
    // then appends this class to the child's parents. Associations already present are not
    // handed down. Raises (Modify, Class, ReferencesExist) as addAttr does, before anything
    // changes, when an attribute would reach a class that has instances.
    void addChild(SgxSimplePtr<TNClass> child);
    // Exactly parent->addChild(this).
    void addParent(SgxSimplePtr<TNClass> parent);
    // Declares a simple association from this class to the class named `otherClassName`, reached
    // from here through `otherRoleName`, and its reverse on the other class (ends swapped, reached
    // there through `roleName`); both are handed down to every descendant of their class (each
    // gets its own copy at a position of its own). Returns the forward association, owned by this
    // class. Raises TNException (Create, Association, NameNotFound) with the association name,
    // this class's name and `otherClassName` when there is no such class; (Create, Association,
    // DuplicateName) with the role name and both class names when a class already declares an
    // association reached through that role name itself; an association that arrived by
    // inheritance is replaced in place instead. When only the reverse end fails, the forward one
    // stays. An end that would need a new link slot in a class that has instances (this class or
    // the other, or a descendant receiving a copy: an end replacing a simple association in place
    // needs none) raises (Modify, Class, ReferencesExist) with this class's name, the role name
    // and the class with instances (class 2, when it is another), before anything changes.
    SgxSimplePtr<TNAssociation>
    addAssociation(const SgxString& name, const SgxString& otherClassName,
                   TNMultiplicity myMultiplicity, TNMultiplicity otherMultiplicity,
                   const SgxString& roleName, const SgxString& otherRoleName);
    // Enters `assoc`, keyed by its other role name, as addAssociation enters a forward end (and
    // raising the same DuplicateName); this class owns it from then on, unless it raises. A
    // compound association stores no links, so it may be added while the class has instances.
    void addCompoundAssociation(SgxSimplePtr<TNCompoundAssociation>& assoc);
    // Sets or clears the diagram flag (bit value 4 of the flags word).
    void setIsDiagram(bool isDiagram);
    bool isDiagram() const { return (m_flags & diagramFlag) != 0; }
    // The whole flags word, as schema files hold it.
    uint16_t flags() const { return m_flags; }
    // Trims the attribute and association vectors and the instance list to their size, and (with
    // the instances) freezes every instance, oldest first. Called by TNSchema::donePopulating.
    void donePopulating();

    // --- Lookups by name (case-sensitive)
    // ---------------------------------------------------------

    // The descriptor of attribute `attrName` (owned by this class). Raises TNException (Access,
    // AttrDescriptor, NameNotFound) with the attribute name when the class has none; a
    // "fullyQualifiedName" that attrIndex entered without such an attribute is none.
    const TNAttrDesc& operator[](std::string_view attrName) const;
    TNAttrDesc& operator[](std::string_view attrName);
    // Membership of the attribute index (which includes a "fullyQualifiedName" entered by
    // attrIndex) and of the association index (keyed by the far end's role name). Never raise.
    bool attributeExists(std::string_view name) const { return m_attrIndex.contains(name); }
    bool associationExists(std::string_view otherRoleName) const {
        return m_assocIndex.contains(otherRoleName);
    }
    // The non-raising fast paths for code that runs per object: the position recorded in the
    // attribute (association) index, or -1 when there is none. A "fullyQualifiedName" entered by
    // attrIndex reads 0 even when attrCount() is 0, so check the position against attrCount()
    // before using it as a slot.
    int32_t findAttrIndex(std::string_view name) const noexcept {
        const auto found = m_attrIndex.find(name);
        return found == m_attrIndex.end() ? -1 : found->second;
    }
    int32_t findAssocIndex(std::string_view otherRoleName) const noexcept {
        const auto found = m_assocIndex.find(otherRoleName);
        return found == m_assocIndex.end() ? -1 : found->second;
    }
    // The association reached through role `otherRoleName` (borrowed). Raises TNException
    // (Access, Association, NameNotFound) with the role name and this class's name.
    SgxSimplePtr<TNAssociation> getAssociation(std::string_view otherRoleName) const;
    // The first association in index order that is a diagram association (a hit is cached; a
    // miss is not, so the next call scans again), and the first diagram item association (scanned
    // on every call); null when there is none. Borrowed.
    SgxSimplePtr<TNAssociation> getDiagramAssociation() const;
    SgxSimplePtr<TNAssociation> getDiagramItemAssociation() const;
    // True when a direct parent (not a further ancestor) is named `className`.
    bool hasParent(std::string_view className) const;

    // --- Properties ------------------------------------------------------------------------------

    SgxString name() const { return m_name; }
    // The "alias" tagged value as text (the class's own, else the class default); the name when
    // that is missing or empty.
    SgxString alias() const;
    size_t attrCount() const { return m_attributes.size(); }
    size_t associationCount() const { return m_associations.size(); }
    size_t childCount() const { return m_children.size(); }
    size_t parentCount() const { return m_parents.size(); }
    // Copies of the handles: attributes and associations in index order, children and parents in
    // the order they were attached, instances oldest first. All borrowed.
    std::vector<SgxSimplePtr<TNAttrDesc>> attributes() const { return m_attributes; }
    std::vector<SgxSimplePtr<TNAssociation>> associations() const { return m_associations; }
    std::vector<SgxSimplePtr<TNClass>> children() const { return m_children; }
    std::vector<SgxSimplePtr<TNClass>> parents() const { return m_parents; }
    std::vector<SgxSimplePtr<TNObject>> objects() const { return m_objects; }
    // The instances themselves, oldest first, for walks that copy nothing: the vector grows as
    // objects are made and empties at unpopulate, so index it against its current size.
    const std::vector<SgxSimplePtr<TNObject>>& instances() const noexcept { return m_objects; }
    SgxSimplePtr<TNSchema> schema() const { return m_schema; }
    // The class identifier, owned by this class (null only for a class made for restoring).
    SgxSimplePtr<TNClassIdentifier> classIdentifier() const { return m_classIdentifier; }

    // --- Tagged values ---------------------------------------------------------------------------

    // A copy of tagged value `name`: the class's own, else the default for all classes. Raises
    // TNException (Access, TaggedValue, NameNotFound) with this class's name (class 1) and the tag
    // name (attribute) when neither exists. Parents' values are not consulted.
    TNValue taggedValue(const SgxString& name) const;
    // Sets (inserts or replaces) this class's own tagged value `name`.
    void taggedValue(const SgxString& name, const TNValue& value);
    // Sets the process-wide default of tag `name` for every class.
    static void taggedValueDefault(const SgxString& name, const TNValue& value);

    // --- Persistence ---------------------------------------------------------------------------

    // Persisted record: the collectable base, the name, the schema and the class identifier as
    // collectable references, the attribute descriptors as a string-mapped vector in name order,
    // the associations as a string-mapped vector in order of their other role names, the
    // children and the parents as plain vectors (in the order they were attached), and the flags
    // word (16 bits). Tagged values and instances are not persisted. Restoring fills a class made
    // for restoring (SgxException otherwise): descriptors and associations take their positions in
    // the order read. It raises SgxException for a malformed record, a name listed under another
    // key or twice, or a descriptor held by another class; whether the references fit a schema is
    // checked by the schema that reads the class.
    using SgxCollectable::restoreGuts;
    using SgxCollectable::saveGuts;
    void saveGuts(RWvostream& stream) const override;
    void restoreGuts(RWvistream& stream) override;
    // Whoever reads a reference to a class keeps only the pointer while a restore runs, so a
    // store may write a class's guts after the reference (which keeps files of classes that
    // refer to one another through their associations shallow).
    bool canDeferGuts() const override { return true; }

    // --- Instances -------------------------------------------------------------------------------

    // A new instance of this class, placed in the schema's primary memory region, appended to the
    // instance list and returned (borrowed: the region owns it). `flag` is passed through to the
    // object, which does not use it.
    SgxSimplePtr<TNObject> newObject(bool flag);

private:
    friend class TNSchema;
    friend class TNObject;
    friend class TNAttribute;
    // Test-only access to the private lookups; defined only by the tests.
    friend struct TNClassTestAccess;

    static constexpr uint16_t diagramFlag = 4;
    static constexpr std::string_view fullyQualifiedName = "fullyQualifiedName";

    // For restoring from a file: no schema, no name, no class identifier.
    TNClass();
    // Used by TNSchema::newClass: records schema and name and creates the class identifier.
    TNClass(SgxSimplePtr<TNSchema> schema, const SgxString& name);

    // The position of attribute `name`. Raises TNException (Access, AttrDescriptor, NameNotFound)
    // with the attribute name when there is none, except for "fullyQualifiedName": instances look
    // it up on every object without a check, so a class lacking it answers 0 and records that
    // answer in the attribute index (from then on attributeExists sees the name).
    int32_t attrIndex(std::string_view name) const {
        const int32_t index = findAttrIndex(name);
        return index >= 0 ? index : attrIndexMissing(name);
    }
    // The position of the association reached through `otherRoleName`. Raises TNException
    // (Access, Association, NameNotFound) with the role name when there is none.
    int32_t assocIndex(std::string_view otherRoleName) const {
        const int32_t index = findAssocIndex(otherRoleName);
        if (index < 0) [[unlikely]]
            raiseAssocNotFound(otherRoleName, false);
        return index;
    }
    // Raises the DuplicateName of addAssociation when this class declares an association reached
    // through `assoc`'s other role name and `assoc` is declared here too.
    void checkNewAssociation(const TNAssociation& assoc) const;
    // Enters `assoc` under its other role name, replacing an inherited entry in place, and hands
    // a clone to every child. Raises what checkNewAssociation raises, and then nothing has
    // changed and the caller keeps `assoc`; once entered, this class owns it.
    SgxSimplePtr<TNAssociation> setAssociation(SgxSimplePtr<TNAssociation> assoc);
    // Forgets every instance (their memory goes with the regions). Used by TNSchema::unpopulate.
    void cleanUpObjects() { m_objects.clear(); }
    // Appends `parent` to the parents list only.
    void setParent(SgxSimplePtr<TNClass> parent) { m_parents.push_back(parent); }

    int32_t attrIndexMissing(std::string_view name) const;
    // The first class that has instances among those that addAttr(name) on this class would give
    // a new slot (this class and the descendants it hands the attribute down to), or null.
    const TNClass* instancesGainingAttr(std::string_view name) const;
    // The same for a simple association entered here under `otherRoleName` (descendants receive
    // copies), which needs a link slot unless it replaces a simple association in place.
    const TNClass* instancesGainingAssoc(std::string_view otherRoleName) const;
    // Raises the ReferencesExist of a change of this class that would give a new slot to the
    // instances of `withInstances`, naming the attribute or the role.
    [[noreturn]] void raiseInstancesExist(const TNClass& withInstances, std::string_view attrName,
                                          std::string_view roleName) const;
    // The descriptor named `name`, or null when there is none (a "fullyQualifiedName" entry made
    // by attrIndex is not backed by a descriptor of that name).
    TNAttrDesc* findAttr(std::string_view name) const noexcept;
    [[noreturn]] void raiseAttrNotFound(std::string_view name) const;
    [[noreturn]] void raiseAssocNotFound(std::string_view otherRoleName, bool withClass) const;

    // Positions are indexes into the vectors; the indexes are hashed (see TNNameIndex.h). Name
    // order, where a schema file needs it, is made by sorting when the file is written. The
    // attribute index is mutable for the "fullyQualifiedName" entry that attrIndex records.
    std::vector<SgxSimplePtr<TNAttrDesc>> m_attributes; // owned
    mutable TNNameMap<int32_t> m_attrIndex;
    // Owned. The index is keyed by the far end's role name; replacing an inherited association
    // keeps its position, so instances' link slots never move.
    std::vector<SgxSimplePtr<TNAssociation>> m_associations;
    TNNameMap<int32_t> m_assocIndex;
    std::vector<SgxSimplePtr<TNClass>> m_children;
    std::vector<SgxSimplePtr<TNClass>> m_parents;
    std::vector<SgxSimplePtr<TNObject>> m_objects;
    SgxString m_name;
    SgxSimplePtr<TNSchema> m_schema;
    SgxSimplePtr<TNClassIdentifier> m_classIdentifier; // owned
    uint16_t m_flags = 0;
    // The cache of getDiagramAssociation, written by that const query.
    mutable bool m_diagramAssociationFound = false;
    mutable SgxSimplePtr<TNAssociation> m_diagramAssociation;
    TNTaggedValueMap m_taggedValues;
    // Associations replaced in place (owned): handles handed out for them stay valid while the
    // class lives.
    std::vector<SgxSimplePtr<TNAssociation>> m_replacedAssociations;
    SgxInstanceId m_instanceId;
};
