// RWOrdered: an ordered collection of collectable pointers, itself collectable.
//
// The collection does not own its elements: destroying it or calling clear() leaves them alone;
// clearAndDestroy() deletes them. It may hold null and the same pointer more than once; copy()
// is shallow (the same element pointers).
// Persisted as a 32-bit element count, then one reference per element in order.
#pragma once

#include "rw/RWFactoryEntry.h"

#include <cstddef>
#include <vector>

class RWTOOLS_API RWOrdered : public RWCollectable {
    RW_DECLARE_COLLECTABLE(RWOrdered)

public:
    using const_iterator = std::vector<RWCollectable*>::const_iterator;

    RWOrdered() = default;

    // Equal to another RWOrdered with pairwise equal elements (isEqual; two nulls are equal).
    bool isEqual(const RWCollectable* other) const override;
    using RWCollectable::restoreGuts;
    using RWCollectable::saveGuts;
    // Replaces the contents (without deleting them) by the elements read; left empty when
    // reading fails.
    void restoreGuts(RWvistream& stream) override;
    void saveGuts(RWvostream& stream) const override;
    // Reads the element count that begins the guts, raising SgxException when that many elements
    // cannot fit in the bytes left; restoreGuts then reads one reference per element. For readers
    // of a collection in place (rwRestoreInPlace).
    static uint32_t restoreCount(RWvistream& stream);

    // Appends `item` and returns it.
    RWCollectable* insert(RWCollectable* item);
    RWCollectable* append(RWCollectable* item) { return insert(item); }
    // Inserts `item` before position `index` (<= entries()); raises SgxException otherwise.
    RWCollectable* insertAt(size_t index, RWCollectable* item);
    // Removes and returns the element at `index`; raises SgxException when out of range.
    RWCollectable* removeAt(size_t index);
    size_t entries() const { return m_items.size(); }
    bool isEmpty() const { return m_items.empty(); }
    // The element at `index`; raises SgxException "Index i out of range for n entries" when out of
    // range.
    RWCollectable* at(size_t index) const;
    RWCollectable* operator[](size_t index) const { return at(index); }
    // Position of the first element isEqual to `item`, or entries() when none.
    size_t index(const RWCollectable* item) const;
    bool contains(const RWCollectable* item) const { return index(item) != entries(); }
    // Forgets every element.
    void clear() { m_items.clear(); }
    // Deletes every distinct non-null element once, then forgets them.
    void clearAndDestroy();

    const_iterator begin() const { return m_items.begin(); }
    const_iterator end() const { return m_items.end(); }

private:
    std::vector<RWCollectable*> m_items;
};
