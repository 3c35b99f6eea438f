// TNClassIdentifier: the ordered list of attribute names that together identify an object of one
// metaclass. Every TNClass creates one, named after itself; the host fills it with addAttr and
// reads it back. The library stores and persists the list but does not identify objects by it.
//
// Ownership: the class owns its identifier (TNClass::classIdentifier hands out a borrowed handle);
// the identifier owns its names. Copies are deep.
//
// Persisted record: the SgxCollectable base, the class name, then one RWOrdered of
// RWCollectableString holding the names in list order. Restoring fills only the list, not the
// position index: restored names are counted and listed, but attributeExists and operator[] do
// not see them and addAttr accepts them again until it rebuilds their positions.
#pragma once

#include "sgx/general/SgxString.h"
#include "sgx/persistence/SgxCollectable.h"
#include "tarnel/core/TNCollectable.h"
#include "tarnel/metamodel/TNNameIndex.h"
#include "tarnel/tarnel_export.h"

#include <cstdint>
#include <string_view>
#include <vector>

class TARNEL_API TNClassIdentifier : public SgxCollectable {
    TN_DECLARE_COLLECTABLE(TNClassIdentifier)
public:
    // An empty list with an empty class name.
    TNClassIdentifier() = default;
    TNClassIdentifier(const TNClassIdentifier&) = default;
    TNClassIdentifier& operator=(const TNClassIdentifier&) = default;
    ~TNClassIdentifier() override;

    // Identifiers have no identity of their own: compareTo is always 0, hash always 1, isEqual
    // always false (even for itself), and binaryStoreSize always 0.
    int compareTo(const RWCollectable* other) const override;
    unsigned hash() const override;
    bool isEqual(const RWCollectable* other) const override;
    RWspace binaryStoreSize() const override;

    // Appends `name`. Raises TNException (Create, AttrDescriptor, DuplicateName) with the name as
    // attribute and the class name + " Identifier" as class 1 when its position is already
    // recorded; the list is then unchanged.
    void addAttr(const SgxString& name);
    // Whether a position is recorded for `name` (restored names have none).
    bool attributeExists(std::string_view name) const { return m_positions.contains(name); }
    SgxString className() const { return m_className; }
    // The number of names in the list.
    uint64_t attrCount() const { return m_attributes.size(); }
    // The stored name at `name`'s position. Raises TNException (Access, AttrDescriptor,
    // NameNotFound) with the name as attribute when no position is recorded for it.
    SgxString operator[](std::string_view name) const;
    // A copy of the names in the order added.
    std::vector<SgxString> attributes() const { return m_attributes; }

    using SgxCollectable::restoreGuts;
    using SgxCollectable::saveGuts;
    // Writes the record above. The helper collection and strings are handed to
    // registerCollectable, so the enclosing StartPersistence frees them.
    void saveGuts(RWvostream& stream) const override;
    // Reads the record above, appending the names to the list. Raises SgxException when the
    // collection is missing, is not an RWOrdered, or holds anything but RWCollectableString, and
    // whatever the stream raises.
    void restoreGuts(RWvistream& stream) override;

private:
    friend class TNClass;

    // Used by TNClass's constructor.
    explicit TNClassIdentifier(const SgxString& className) : m_className(className) {}

    std::vector<SgxString> m_attributes;
    TNNameMap<int32_t> m_positions; // hashed, see TNNameIndex.h
    SgxString m_className;
};
