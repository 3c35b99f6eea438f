// TNCompare: a persistable sort order for the host, an ordered list of sort keys; and
// TNCompareElement, one key with three flags. The library defines, copies and persists these
// records but never sorts by them: the host reads them back with elements() and gives the flags
// their meaning (ascending or descending, case sensitivity, numeric order, ...).
//
// Ownership: a sort order owns its elements by value; copies are deep, and elements() hands
// out a copy. Neither class refers to any other object.
//
// Persisted records:
//   TNCompareElement: the key (a string), then the three flags, one byte each (1 or 0; any
//   non-zero byte reads as true).
//   TNCompare: the SgxCollectable base, then one RWOrdered holding the elements in order.
//
// Identity: both classes compare by identity, never by content, and hash to 1. The element's
// isEqual is deliberately the inverse of identity (true for every other element, false for
// itself); collections that look elements up by isEqual rely on that.
#pragma once

#include "rw/RWFactoryEntry.h"
#include "sgx/general/SgxString.h"
#include "sgx/persistence/SgxCollectable.h"
#include "tarnel/core/TNCollectable.h"
#include "tarnel/tarnel_export.h"

#include <vector>

class TARNEL_API TNCompareElement : public RWCollectable {
    TN_DECLARE_COLLECTABLE(TNCompareElement)
public:
    // An empty key; the three flags false.
    TNCompareElement() = default;
    TNCompareElement(const SgxString& key, bool option1, bool option2, bool option3)
        : m_key(key), m_option1(option1), m_option2(option2), m_option3(option3) {}
    TNCompareElement(const TNCompareElement&) = default;
    TNCompareElement& operator=(const TNCompareElement&) = default;
    ~TNCompareElement() override;

    const SgxString& key() const { return m_key; }
    bool option1() const { return m_option1; }
    bool option2() const { return m_option2; }
    bool option3() const { return m_option3; }

    // 0 for this very object, 1 for any other.
    int compareTo(const RWCollectable* other) const override;
    // False for this very object, true for any other pointer.
    bool isEqual(const RWCollectable* other) const override;
    // Always 1.
    unsigned hash() const override;
    // The size of the RWCollectable base part alone, which writes nothing: 0. The key and the
    // flags are not counted.
    RWspace binaryStoreSize() const override;

    using RWCollectable::restoreGuts;
    using RWCollectable::saveGuts;
    // Writes the record above.
    void saveGuts(RWvostream& stream) const override;
    // Reads the record above; raises SgxException when the bytes run out.
    void restoreGuts(RWvistream& stream) override;

private:
    SgxString m_key;
    bool m_option1 = false;
    bool m_option2 = false;
    bool m_option3 = false;
};

class TARNEL_API TNCompare : public SgxCollectable {
    TN_DECLARE_COLLECTABLE(TNCompare)
public:
    // An empty sort order.
    TNCompare() = default;
    // A sort order of that one element.
    TNCompare(const SgxString& key, bool option1, bool option2, bool option3);
    TNCompare(const TNCompare&) = default;
    TNCompare& operator=(const TNCompare&) = default;
    ~TNCompare() override;

    // Adds an element after the others: the first element is the major key. Equal keys are kept
    // apart, not merged.
    void append(const SgxString& key, bool option1, bool option2, bool option3);
    // A copy of the elements, in the order appended.
    std::vector<TNCompareElement> elements() const { return m_elements; }

    // True only for this very object.
    bool isEqual(const RWCollectable* other) const override;
    // -1 for null or another class, 0 for this very object, otherwise -1 or 1 by the memory order
    // of the two element lists.
    int compareTo(const RWCollectable* other) const override;
    // Always 1.
    unsigned hash() const override;
    // The base part plus the store size of the helper collection saveGuts writes.
    RWspace binaryStoreSize() const override;

    using SgxCollectable::restoreGuts;
    using SgxCollectable::saveGuts;
    // Writes the record above. The helper collection is handed to registerCollectable, so the
    // enclosing StartPersistence frees it.
    void saveGuts(RWvostream& stream) const override;
    // Reads the record above and appends the elements read after those already held. Raises
    // SgxException when the collection is missing, is not an RWOrdered, or holds anything but
    // TNCompareElement (the elements are then unchanged), and whatever the stream raises. The
    // collection and the elements read are handed to registerCollectable.
    void restoreGuts(RWvistream& stream) override;

private:
    std::vector<TNCompareElement> m_elements;
};
