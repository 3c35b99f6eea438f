// SgxPointerIndex: a map from object addresses to 32-bit numbers, for the per-object tables of
// the persistence code (an object's number in a store or restore, the objects registered for
// clean-up). Every reference written and every object read looks one up or enters one, so the
// table is open addressing over plain slots (linear probing, no node per entry):
// std::unordered_map's node allocations and rehashes were a quarter of the time of loading a
// large schema. Not thread-safe; keys are borrowed, never dereferenced.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class SgxPointerIndex {
public:
    // How keys are placed. Scattered hashes each address on its own. ByPage gives the keys of one
    // 4 KiB page one base slot, spread over the table by the same hashing, and places them after
    // it in address order: objects made one after another then land in neighbouring slots,
    // already in cache, where scattering them costs a cache miss per entry once the table is
    // megabytes large. The price is longer runs of used slots, which lookups of absent keys walk
    // through, so ByPage suits tables that are mostly entered into and searched for keys they
    // hold (a restore's objects), Scattered those searched for keys they lack (a store's).
    enum class Placement { Scattered, ByPage };

    explicit SgxPointerIndex(Placement placement = Placement::Scattered)
        : m_byPage(placement == Placement::ByPage) {}

    const uint32_t* find(const void* key) const noexcept {
        const size_t i = locate(key);
        return i == npos ? nullptr : &m_slots[i].value;
    }
    // Enters `key`, which must be absent.
    void insert(const void* key, uint32_t value) {
        if (2 * (m_used + 1) > m_slots.size())
            rebuild();
        size_t i = slotOf(key);
        while (m_slots[i].key != nullptr && m_slots[i].key != erased())
            i = (i + 1) & (m_slots.size() - 1);
        if (m_slots[i].key == nullptr)
            ++m_used;
        m_slots[i] = Slot{key, value};
    }
    // Removes `key`; false when it is absent, else true with its value in `value`.
    bool erase(const void* key, uint32_t& value) noexcept {
        const size_t i = locate(key);
        if (i == npos)
            return false;
        value = m_slots[i].value;
        m_slots[i].key = erased();
        return true;
    }

private:
    struct Slot {
        const void* key = nullptr; // null: never used; erased(): free again
        uint32_t value = 0;
    };
    static constexpr size_t npos = ~size_t{0};
    static const void* erased() noexcept { return reinterpret_cast<const void*>(uintptr_t{1}); }
    // The slot holding `key`, or npos.
    size_t locate(const void* key) const noexcept {
        if (m_slots.empty() || key == nullptr || key == erased())
            return npos;
        for (size_t i = slotOf(key);; i = (i + 1) & (m_slots.size() - 1)) {
            if (m_slots[i].key == key)
                return i;
            if (m_slots[i].key == nullptr)
                return npos;
        }
    }
    // Fibonacci hashing (the high bits of the product) spreads aligned addresses, or for ByPage
    // the pages, over the table.
    size_t slotOf(const void* key) const noexcept {
        const auto address = reinterpret_cast<uintptr_t>(key);
        if (!m_byPage)
            return static_cast<size_t>((address * 0x9E3779B97F4A7C15ull) >> m_shift);
        // One slot per 64-byte line of the page, after the page's base.
        const auto base = static_cast<size_t>(((address >> 12) * 0x9E3779B97F4A7C15ull) >> m_shift);
        return (base + ((address >> 6) & 63)) & (m_slots.size() - 1);
    }
    void rebuild() {
        std::vector<Slot> old = std::move(m_slots);
        size_t live = 0;
        for (const Slot& slot : old)
            live += slot.key != nullptr && slot.key != erased();
        size_t size = 64;
        unsigned shift = 58;
        while (size < 4 * (live + 1)) {
            size *= 2;
            --shift;
        }
        m_slots.assign(size, Slot{});
        m_shift = shift;
        m_used = 0;
        for (const Slot& slot : old)
            if (slot.key != nullptr && slot.key != erased())
                insert(slot.key, slot.value);
    }

    std::vector<Slot> m_slots; // a power of two in size, at most half used
    size_t m_used = 0;         // slots holding a key or erased
    unsigned m_shift = 64;
    bool m_byPage;
};
