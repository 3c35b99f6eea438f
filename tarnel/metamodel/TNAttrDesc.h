// TNAttrDesc: the descriptor of one attribute of a metaclass (its name, its kind, the enumeration
// type of an enumeration attribute, the class that declared it and its tagged values), and
// TNAttrEvaluator, an empty polymorphic class kept in the interface.
//
// Ownership: descriptors are created only by TNClass::addAttr and owned by the class that holds
// them; every class holds its own descriptor for each attribute it has, own or inherited. The
// class and enumeration type handles are borrowed (both belong to the schema).
#pragma once

#include "sgx/general/SgxSimplePtr.h"
#include "sgx/general/SgxString.h"
#include "sgx/persistence/SgxCollectable.h"
#include "tarnel/core/TNAttrType.h"
#include "tarnel/core/TNCollectable.h"
#include "tarnel/core/TNValue.h"
#include "tarnel/metamodel/TNTaggedValues.h"
#include "tarnel/tarnel_export.h"

#include <cstdint>

class TNClass;
class TNEnumType;

class TARNEL_API TNAttrDesc : public SgxCollectable {
    TN_DECLARE_COLLECTABLE(TNAttrDesc)
public:
    // An empty descriptor (kind 0, no class, no name), for restoring from a file.
    TNAttrDesc() = default;
    // Copies every field, tagged values included; the copy borrows the same class and type.
    TNAttrDesc(const TNAttrDesc&) = default;
    TNAttrDesc& operator=(const TNAttrDesc&) = default;
    ~TNAttrDesc() override;

    // Descriptors are equal when their names are.
    bool operator==(const TNAttrDesc& other) const { return m_name == other.m_name; }
    // True for a TNAttrDesc of the same name.
    bool isEqual(const RWCollectable* other) const override;
    // 0 when isEqual holds; -1 when this name sorts before the other's (byte order); 1 otherwise,
    // also when `other` is not a descriptor (null included).
    int compareTo(const RWCollectable* other) const override;
    // The hash of the name, agreeing with isEqual.
    unsigned hash() const override;

    SgxString name() const { return m_name; }
    // The kind: the low four bits of the type word.
    TNAttrType type() const { return static_cast<TNAttrType>(m_typeWord & kindMask); }
    // Replaces the low four bits of the type word with those of `type`; the upper bits stay.
    void setType(TNAttrType type) { m_typeWord = (m_typeWord & ~kindMask) | (type & kindMask); }
    // The whole type word, upper bits included, as schema files hold it.
    uint32_t typeWord() const { return m_typeWord; }
    // The enumeration type (borrowed) of an enumeration attribute; null for other kinds.
    SgxSimplePtr<TNEnumType> enumType() const { return m_enumType; }
    // The class holding this descriptor: the declaring class or a subclass that received a copy.
    SgxSimplePtr<TNClass> getClass() const { return m_class; }
    // The name of the class that declared the attribute.
    SgxString originClass() const { return m_originClass; }
    // True when a direct parent of the holding class has an attribute of this name (the origin
    // is not consulted).
    bool isInherited() const;
    // The "alias" tagged value as text (the descriptor's own, else the descriptor default); the
    // attribute name when that is missing or empty.
    SgxString alias() const;

    // A copy of tagged value `name`: the descriptor's own, else the default for all descriptors.
    // Raises TNException (Access, TaggedValue, NameNotFound) with the attribute name and, as
    // information, the tag name when neither exists.
    TNValue taggedValue(const SgxString& name) const;
    // Sets (inserts or replaces) this descriptor's own tagged value `name`.
    void taggedValue(const SgxString& name, const TNValue& value);
    // Sets the process-wide default of tag `name` for every attribute descriptor.
    static void taggedValueDefault(const SgxString& name, const TNValue& value);

    // Persisted record: the collectable base, the name, the whole type word (32 bits), the
    // holding class and the enumeration type (nil for other kinds) as collectable references,
    // and the origin class name. Tagged values are not persisted. Restoring raises SgxException
    // when a reference is not of its type; whether the references fit a schema is checked by the
    // schema that reads the descriptor.
    using SgxCollectable::restoreGuts;
    using SgxCollectable::saveGuts;
    void saveGuts(RWvostream& stream) const override;
    void restoreGuts(RWvistream& stream) override;

private:
    friend class TNClass;
    friend class TNObject;
    friend class TNAttribute;

    static constexpr uint32_t kindMask = 0xF;

    // Used by TNClass::addAttr: stores the fields; the type word is `type` as given. For kind 0
    // the enumeration type is resolved through the class's schema, which raises TNException
    // (Access, EnumType, NameNotFound) for an unknown name.
    TNAttrDesc(SgxSimplePtr<TNClass> cls, const SgxString& name, TNAttrType type,
               const SgxString& originClass, const SgxString& enumTypeName);

    uint32_t m_typeWord = 0;
    SgxSimplePtr<TNClass> m_class;
    SgxString m_name;
    SgxSimplePtr<TNEnumType> m_enumType;
    SgxString m_originClass;
    TNTaggedValueMap m_taggedValues;
    // The descriptor's position in m_class's attributes, recorded by TNClass::addAttr (-1 when
    // not made there), so an object of that class finds the slot without a name lookup.
    int32_t m_position = -1;
    // The text last placed in the string region for a slot of this descriptor, its length and
    // the region's id (see TNAttribute::placeText). Not part of the descriptor's value.
    mutable const char* m_lastText = nullptr;
    mutable size_t m_lastTextLength = 0;
    mutable uint64_t m_lastTextRegion = 0;
};

// A fieldless polymorphic class that no operation of the library uses; hosts may derive from it.
class TARNEL_API TNAttrEvaluator {
public:
    TNAttrEvaluator() = default;
    TNAttrEvaluator(const TNAttrEvaluator&) = default;
    TNAttrEvaluator& operator=(const TNAttrEvaluator&) = default;
    virtual ~TNAttrEvaluator();
};
