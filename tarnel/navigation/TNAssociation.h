// TNAssociation: a named, directed link kind declared on a metaclass, leading from objects of its
// first class to objects of its other class; TNSimpleAssociation, whose links are stored on the
// objects themselves; TNCompoundAssociation, whose targets are computed (not stored); and
// TNMultiplicity, the pair of integers each end carries.
//
// Ownership: classes own their associations (TNClass::addAssociation creates a simple one and its
// reverse; TNClass::addCompoundAssociation takes a compound one); an association borrows its two
// classes. clone() hands a new copy to the caller. Navigation code calls objects() and object()
// and never needs to know which kind it holds.
#pragma once

#include "sgx/general/SgxCountedPtr.h"
#include "sgx/general/SgxCyclicPtr.h"
#include "sgx/general/SgxObject.h"
#include "sgx/general/SgxSimplePtr.h"
#include "sgx/general/SgxString.h"
#include "sgx/persistence/SgxCollectable.h"
#include "tarnel/core/TNCollectable.h"
#include "tarnel/core/TNValue.h"
#include "tarnel/metamodel/TNTaggedValues.h"
#include "tarnel/navigation/TNAssociationTraversal.h"
#include "tarnel/tarnel_export.h"

#include <cstdint>
#include <vector>

class TNClass;
class TNObject;

// Two signed integers per association end, (1, 1) by default; stored, copied and persisted, never
// interpreted.
class TNMultiplicity {
public:
    constexpr TNMultiplicity(int32_t first = 1, int32_t second = 1) noexcept
        : m_first(first), m_second(second) {}
    constexpr int32_t first() const noexcept { return m_first; }
    constexpr int32_t second() const noexcept { return m_second; }
    friend constexpr bool operator==(const TNMultiplicity&, const TNMultiplicity&) = default;

private:
    int32_t m_first;
    int32_t m_second;
};

class TARNEL_API TNAssociation : public SgxCollectable {
public:
    // Empty names, multiplicities (1, 1), no flags, null classes.
    TNAssociation() = default;
    // Copy every field except the tagged values: a copy starts with none, and assignment keeps the
    // target's own. Self-assignment does nothing.
    TNAssociation(const TNAssociation& other);
    TNAssociation& operator=(const TNAssociation& other);
    ~TNAssociation() override;

    // True for a simple association, whose links are stored on the objects.
    virtual bool isSimple() const = 0;
    // Every object reached from `source`, and the single one (null when none); what they raise
    // depends on the kind.
    virtual std::vector<SgxSimplePtr<TNObject>>
    objects(const SgxSimplePtr<TNObject>& source) const = 0;
    virtual SgxSimplePtr<TNObject> object(const SgxSimplePtr<TNObject>& source) const = 0;
    // objects(source).size(), raising what objects() raises; the kinds count without building
    // the list where they can (reports that only count stay off the per-object allocations).
    virtual size_t count(const SgxSimplePtr<TNObject>& source) const {
        return objects(source).size();
    }
    // A new copy of the same kind, owned by the caller.
    virtual TNAssociation* clone() const = 0;

    // Compares the other role names only (unlike isEqual, which compares names).
    bool operator==(const TNAssociation& other) const {
        return m_otherRoleName == other.m_otherRoleName;
    }

    // Identity by name: isEqual is true for an association of the same name (false for null);
    // compareTo gives -1 for null, 0 when isEqual holds, else the byte order of the names; hash
    // is the hash of the name.
    bool isEqual(const RWCollectable* other) const override;
    int compareTo(const RWCollectable* other) const override;
    unsigned hash() const override;

    // Persisted record: the collectable base, role name, name and other role name, the two
    // multiplicities as four 32-bit integers, the flags as one 16-bit integer, then the first and
    // the other class as collectable references. Tagged values are not persisted. Restoring raises
    // SgxException when a class reference is not a TNClass, and whatever the stream raises.
    using SgxCollectable::restoreGuts;
    using SgxCollectable::saveGuts;
    void saveGuts(RWvostream& stream) const override;
    void restoreGuts(RWvistream& stream) override;
    RWspace binaryStoreSize() const override;

    SgxSimplePtr<TNClass> firstClass() const { return m_firstClass; }
    SgxSimplePtr<TNClass> otherClass() const { return m_otherClass; }
    TNMultiplicity myMultiplicity() const { return m_myMultiplicity; }
    TNMultiplicity otherMultiplicity() const { return m_otherMultiplicity; }
    SgxString name() const { return m_name; }
    SgxString roleName() const { return m_roleName; }
    SgxString otherRoleName() const { return m_otherRoleName; }
    bool isDiagram() const { return (m_flags & diagramFlag) != 0; }
    bool isDiagramItem() const { return (m_flags & diagramItemFlag) != 0; }
    bool isPathToModel() const { return (m_flags & pathToModelFlag) != 0; }
    // The whole flags word, as schema files hold it.
    uint16_t flags() const { return m_flags; }

    // Setters. A class indexes its associations by the other role name when they are added;
    // renaming one afterwards does not move it in that index.
    void setFirstClass(SgxSimplePtr<TNClass> cls) { m_firstClass = cls; }
    void setSecondClass(SgxSimplePtr<TNClass> cls);
    void setFirstMultiplicity(TNMultiplicity multiplicity) { m_myMultiplicity = multiplicity; }
    void setSecondMultiplicity(TNMultiplicity multiplicity) { m_otherMultiplicity = multiplicity; }
    void setName(const SgxString& name) { m_name = name; }
    void setRoleName(const SgxString& roleName);
    void setOtherRoleName(const SgxString& otherRoleName);
    // Each sets or clears only its own bit.
    void setIsDiagram(bool on) { setFlag(diagramFlag, on); }
    void setIsDiagramItem(bool on) { setFlag(diagramItemFlag, on); }
    void setIsPathToModel(bool on) { setFlag(pathToModelFlag, on); }

    // The "alias" tagged value as text (the association's own, else the default); the name when
    // that is missing or empty. Never raises.
    SgxString alias() const;
    // True when a direct parent of the first class has an association reached through this
    // association's role name.
    bool isInherited() const;

    // A copy of tagged value `name`: the association's own, else the default for all
    // associations. Raises TNException (Access, TaggedValue, NameNotFound) with the association
    // name and the tag name (attribute) when neither exists.
    TNValue taggedValue(const SgxString& name) const;
    // Sets (inserts or replaces) this association's own tagged value `name`.
    void taggedValue(const SgxString& name, const TNValue& value);
    // Sets the process-wide default of tag `name` for every association.
    static void taggedValueDefault(const SgxString& name, const TNValue& value);

protected:
    // Flags start clear; each true argument sets its bit.
    TNAssociation(const SgxString& name, SgxSimplePtr<TNClass> firstClass,
                  SgxSimplePtr<TNClass> otherClass, TNMultiplicity myMultiplicity,
                  TNMultiplicity otherMultiplicity, const SgxString& roleName,
                  const SgxString& otherRoleName, bool isDiagram, bool isDiagramItem,
                  bool isPathToModel);

private:
    friend class TNClass;
    friend class TNObject;

    static constexpr uint16_t diagramFlag = 4;
    static constexpr uint16_t diagramItemFlag = 16;
    static constexpr uint16_t pathToModelFlag = 32;

    void setFlag(uint16_t bit, bool on) {
        m_flags = on ? static_cast<uint16_t>(m_flags | bit) : static_cast<uint16_t>(m_flags & ~bit);
    }

    SgxSimplePtr<TNClass> m_firstClass;
    SgxSimplePtr<TNClass> m_otherClass;
    TNMultiplicity m_myMultiplicity;
    TNMultiplicity m_otherMultiplicity;
    SgxString m_roleName;
    SgxString m_name;
    SgxString m_otherRoleName;
    uint16_t m_flags = 0;
    TNTaggedValueMap m_taggedValues;

    // Slot caches for the objects' link operations, which run once per link on large models.
    // m_slot is this association's position in the class that holds it (set by that class); it is
    // trusted only while the class still holds this very association there, which proves the
    // class's index maps the other role name to it. The reverse cache is the position of the role
    // name in m_reverseClass, recorded only for m_reverseClass == the other class. Positions and
    // index keys never change once given, so both stay true until a setter renames a role or
    // changes the other class, which clears them. Never copied or persisted.
    mutable int32_t m_slot = -1;
    mutable int32_t m_reverseSlot = -1;
    mutable const TNClass* m_reverseClass = nullptr;
};

class TARNEL_API TNSimpleAssociation : public TNAssociation {
    TN_DECLARE_COLLECTABLE(TNSimpleAssociation)
public:
    TNSimpleAssociation(const TNSimpleAssociation&) = default;
    TNSimpleAssociation& operator=(const TNSimpleAssociation&) = default;
    ~TNSimpleAssociation() override;

    bool isSimple() const override { return true; }
    // The links of `source` along this association, oldest first (TNObject::objects), and the
    // single one (TNObject::object); they raise what those raise.
    std::vector<SgxSimplePtr<TNObject>>
    objects(const SgxSimplePtr<TNObject>& source) const override;
    SgxSimplePtr<TNObject> object(const SgxSimplePtr<TNObject>& source) const override;
    size_t count(const SgxSimplePtr<TNObject>& source) const override;
    TNAssociation* clone() const override { return new TNSimpleAssociation(*this); }

    // Identity by address: isEqual only for this very association; compareTo gives -1 for null,
    // 0 for itself, else the order of the addresses; hash is 1 for every simple association.
    bool isEqual(const RWCollectable* other) const override;
    int compareTo(const RWCollectable* other) const override;
    unsigned hash() const override;

private:
    friend class TNClass;

    TNSimpleAssociation() = default;
    // The flags diagram item and path to model start clear.
    TNSimpleAssociation(const SgxString& name, SgxSimplePtr<TNClass> firstClass,
                        SgxSimplePtr<TNClass> otherClass, TNMultiplicity myMultiplicity,
                        TNMultiplicity otherMultiplicity, const SgxString& roleName,
                        const SgxString& otherRoleName, bool isDiagram)
        : TNAssociation(name, firstClass, otherClass, myMultiplicity, otherMultiplicity, roleName,
                        otherRoleName, isDiagram, false, false) {}
};

// The record that a compound association shares with its copies: the traversal graph and the
// chain text it was built from. It owns the graph it holds when it is destroyed.
class TARNEL_API TNCompoundAssociationData : public SgxObject {
public:
    TNCompoundAssociationData() = default;
    TNCompoundAssociationData(const TNCompoundAssociationData&) = delete;
    TNCompoundAssociationData& operator=(const TNCompoundAssociationData&) = delete;
    // Claims the graph (its root first, so cycles back to it are freed) and deletes it.
    ~TNCompoundAssociationData() override;

    // The root of the graph (null until set) and the chain text ("<<uninitialized>>" until set).
    // Replacing the root does not free the graph held before (it may share nodes with the new
    // one): its holder keeps it.
    SgxCyclicPtr<TNAssociationTraversal> traversal() const { return m_traversal; }
    void traversal(const SgxCyclicPtr<TNAssociationTraversal>& root) { m_traversal = root; }
    SgxString traversalSource() const { return m_traversalSource; }
    void traversalSource(const SgxString& source) { m_traversalSource = source; }

private:
    SgxCyclicPtr<TNAssociationTraversal> m_traversal;
    SgxString m_traversalSource = "<<uninitialized>>";
};

// An association whose targets are computed by a traversal graph rather than stored: associating
// objects through it records nothing. Copies (copy construction, assignment, clone()) share one
// data record, so a change of source or graph through one is seen by all; identity is the source
// text. Its chain text comes with its graph: whoever defines one parses the text
// (tnParseTraversal) and hands over both.
class TARNEL_API TNCompoundAssociation : public TNAssociation {
    TN_DECLARE_COLLECTABLE(TNCompoundAssociation)
public:
    // A fresh data record: no graph, source "<<uninitialized>>".
    TNCompoundAssociation();
    TNCompoundAssociation(const TNCompoundAssociation& other);
    TNCompoundAssociation& operator=(const TNCompoundAssociation& other);
    ~TNCompoundAssociation() override;

    // Stores the root of the graph (which the shared record then owns) and the chain text.
    void setAssociationTraversal(SgxSimplePtr<TNAssociationTraversal> root);
    void setTraversalSource(const SgxString& source);
    // The shared record's graph root and chain text.
    SgxSimplePtr<TNAssociationTraversal> associationTraversal() const;
    SgxString traversalSource() const;

    bool isSimple() const override { return false; }
    // What the graph gathers from `source` (TNAssociationTraversal::traverse), order and
    // repetitions kept. Raises SgxException "Null dereference" when no graph is set; what the
    // traversal raises passes through.
    std::vector<SgxSimplePtr<TNObject>>
    objects(const SgxSimplePtr<TNObject>& source) const override;
    // The single object of objects(source). Raises TNException (Traverse, AssociationChain,
    // ManyObjectsInChain or NoObjectsInChain), its association name "TNCompoundAssociation { "
    // + the source + " }", when there are several (repetitions count) or none.
    SgxSimplePtr<TNObject> object(const SgxSimplePtr<TNObject>& source) const override;
    size_t count(const SgxSimplePtr<TNObject>& source) const override;
    TNAssociation* clone() const override { return new TNCompoundAssociation(*this); }

    // Identity by source text: isEqual for a compound association with an equal source (false
    // for null and other classes); compareTo -1 for another class (or null), 0 when isEqual
    // holds, else the byte order of the sources; hash is the hash of the source.
    bool isEqual(const RWCollectable* other) const override;
    int compareTo(const RWCollectable* other) const override;
    unsigned hash() const override;

    // Persisted record: the association record, the source text, then the graph root as a
    // collectable reference (null when unset). Restoring writes both into the shared record,
    // which then owns every node read; a link that is not a TNAssociationTraversal raises
    // SgxException. binaryStoreSize() counts the association and the source text.
    using TNAssociation::restoreGuts;
    using TNAssociation::saveGuts;
    void saveGuts(RWvostream& stream) const override;
    void restoreGuts(RWvistream& stream) override;
    RWspace binaryStoreSize() const override;

private:
    // "TNCompoundAssociation { <source> }": how exception texts name the association.
    SgxString asString() const;
    // The association a restore gave the graph rooted at `root` to, while it still holds it; null
    // otherwise. Copies read back after it share its record.
    static const TNCompoundAssociation* graphHolder(const TNAssociationTraversal* root);
    // Removes this association from the holders of restored graphs, if it is one.
    void forgetGraphHolder() noexcept;

    SgxCountedPtr<TNCompoundAssociationData> m_data;
    // The graph this association holds for copies read back after it (see graphHolder); not
    // copied.
    const TNAssociationTraversal* m_heldRoot = nullptr;
};
