#include "rw/RWOrdered.h"

#include "sgx/general/SgxException.h"

#include <limits>
#include <unordered_set>

RW_DEFINE_COLLECTABLE(RWOrdered)

bool RWOrdered::isEqual(const RWCollectable* other) const {
    const auto* that = dynamic_cast<const RWOrdered*>(other);
    if (that == nullptr || that->entries() != entries())
        return false;
    for (size_t i = 0; i < entries(); ++i) {
        const RWCollectable* mine = m_items[i];
        const RWCollectable* theirs = that->m_items[i];
        if (mine == nullptr || theirs == nullptr ? mine != theirs : !mine->isEqual(theirs))
            return false;
    }
    return true;
}

uint32_t RWOrdered::restoreCount(RWvistream& stream) {
    uint32_t count;
    stream >> count;
    // Each element takes at least its one-byte reference tag.
    stream.checkCount(count, 1, "collection elements");
    return count;
}

void RWOrdered::restoreGuts(RWvistream& stream) {
    m_items.clear();
    const uint32_t count = restoreCount(stream);
    m_items.reserve(count);
    try {
        for (uint32_t i = 0; i < count; ++i) {
            RWCollectable* item;
            stream >> item;
            m_items.push_back(item);
        }
    } catch (...) {
        // The failed restore deletes the elements it made; holding on to them would invite a
        // caller's clearAndDestroy() to delete them again.
        m_items.clear();
        throw;
    }
}

void RWOrdered::saveGuts(RWvostream& stream) const {
    if (m_items.size() > std::numeric_limits<uint32_t>::max())
        SgxException::raise("Collection of " + std::to_string(m_items.size()) +
                            " elements is too large to store");
    stream << static_cast<uint32_t>(m_items.size());
    for (const RWCollectable* item : m_items)
        stream << item;
}

RWCollectable* RWOrdered::insert(RWCollectable* item) {
    m_items.push_back(item);
    return item;
}

RWCollectable* RWOrdered::insertAt(size_t index, RWCollectable* item) {
    if (index > m_items.size())
        SgxException::raise("Index " + std::to_string(index) + " out of range for " +
                            std::to_string(m_items.size()) + " entries");
    m_items.insert(m_items.begin() + static_cast<std::ptrdiff_t>(index), item);
    return item;
}

RWCollectable* RWOrdered::removeAt(size_t index) {
    RWCollectable* item = at(index);
    m_items.erase(m_items.begin() + static_cast<std::ptrdiff_t>(index));
    return item;
}

RWCollectable* RWOrdered::at(size_t index) const {
    if (index >= m_items.size())
        SgxException::raise("Index " + std::to_string(index) + " out of range for " +
                            std::to_string(m_items.size()) + " entries");
    return m_items[index];
}

size_t RWOrdered::index(const RWCollectable* item) const {
    for (size_t i = 0; i < m_items.size(); ++i) {
        const RWCollectable* mine = m_items[i];
        if (mine == nullptr || item == nullptr ? mine == item : mine->isEqual(item))
            return i;
    }
    return m_items.size();
}

void RWOrdered::clearAndDestroy() {
    // The same pointer may be held twice; delete it once. The vector is emptied first so that
    // an element whose destructor reaches this collection finds it empty.
    std::vector<RWCollectable*> items;
    items.swap(m_items);
    std::unordered_set<RWCollectable*> deleted;
    for (RWCollectable* item : items)
        if (item != nullptr && item != this && deleted.insert(item).second)
            delete item;
}
