// TNEnumType: a named, ordered list of literal names from which enumeration attributes draw their
// values. An instance stores a literal's index; the type translates between index and name.
//
// Ownership: enumeration types are created and owned by the schema (TNSchema::newEnumType); the
// type owns its literal names. Indexes are dense (0 to count - 1, in order of addition) and a
// literal occurs at most once; names compare exactly (case-sensitive, byte order).
#pragma once

#include "sgx/general/SgxInstanceId.h"
#include "sgx/general/SgxString.h"
#include "sgx/persistence/SgxCollectable.h"
#include "tarnel/core/TNCollectable.h"
#include "tarnel/metamodel/TNNameIndex.h"
#include "tarnel/tarnel_export.h"

#include <cstdint>
#include <string_view>
#include <vector>

class TARNEL_API TNEnumType : public SgxCollectable {
    TN_DECLARE_COLLECTABLE(TNEnumType)
public:
    // An empty, unnamed type, for restoring from a file.
    TNEnumType() = default;
    // An empty type named `name`.
    explicit TNEnumType(const SgxString& name) : m_name(name) {}
    // Copies the name and the literals.
    TNEnumType(const TNEnumType&) = default;
    ~TNEnumType() override;

    // Types are equal when their names are.
    bool operator==(const TNEnumType& other) const { return m_name == other.m_name; }
    // True for a TNEnumType of the same name.
    bool isEqual(const RWCollectable* other) const override;
    // 0 for a type of the same name; otherwise -1 when this name sorts first (byte order) and 1
    // when it sorts after, or when `other` is not a TNEnumType (null included).
    int compareTo(const RWCollectable* other) const override;
    // The hash of the name, agreeing with isEqual.
    unsigned hash() const override;
    // This type among all types ever made in the process; a copy is another type (see
    // SgxInstanceId).
    uint64_t instanceId() const noexcept { return m_instanceId.value(); }

    // Appends `literal` with the next index. Raises TNException (Create, EnumType, DuplicateName)
    // when it is already present; the exception's enumeration type field then holds the literal,
    // not this type's name. Nothing changes on failure.
    void addName(const SgxString& literal);
    // True when `literal` is not yet present.
    bool okToAdd(std::string_view literal) const { return !check(literal); }
    // The index of `literal`. Raises TNException (Access, EnumType, NameNotFound) with this
    // type's name and, as enumeration attribute, the literal when it is not present.
    unsigned long operator[](std::string_view literal) const;
    // The literal at `index`. Raises TNException (Access, EnumType, NameNotFound) with this type's
    // name when `index` is not below the number of literals.
    SgxString operator[](unsigned long index) const;
    // Whether `literal` is present.
    bool check(std::string_view literal) const { return m_literalIndex.contains(literal); }
    // Whether `index` is below the number of literals.
    bool check(unsigned long index) const { return index < m_literals.size(); }
    // The literal at `index` where this type keeps it (valid until a literal is added), or null
    // when `index` is not below the number of literals: for readers that compare it in place.
    const char* literalText(unsigned long index) const noexcept {
        return check(index) ? m_literals[index].c_str() : nullptr;
    }

    SgxString name() const { return m_name; }
    // The number of literals.
    size_t literalCount() const { return m_literals.size(); }
    // A copy of the literals in index order.
    std::vector<SgxString> values() const { return m_literals; }
    // Trims the literal vector to its size. Called by TNSchema::donePopulating.
    void donePopulating();

    // Persisted record: the collectable base, the name, then the literals in index order as one
    // RWOrdered of RWCollectableString. Restoring fills an empty type (SgxException otherwise)
    // and raises SgxException for a malformed list or a literal that occurs twice.
    using SgxCollectable::restoreGuts;
    using SgxCollectable::saveGuts;
    void saveGuts(RWvostream& stream) const override;
    void restoreGuts(RWvistream& stream) override;

private:
    // Not offered to callers: a type's identity is its name, fixed when the schema creates it.
    TNEnumType& operator=(const TNEnumType&) = default;

    // Hashed, see TNNameIndex.h; the vector gives index order.
    TNNameMap<uint32_t> m_literalIndex;
    std::vector<SgxString> m_literals;
    SgxString m_name;
    SgxInstanceId m_instanceId;
};
