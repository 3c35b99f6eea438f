// SgxMemoryRegion: a monotonic arena for objects that live and die together.
//
// allocate() carves raw storage from blocks of blockSize x factor bytes, taken from the system
// only when a request no longer fits (the first one on the first request); a request larger
// than a block gets a block of its own. Nothing is given back before the region is destroyed, and
// then everything is given back at once. Objects placed in a region die with it: no destructor
// runs, so a region holds only objects whose destructors do nothing that matters (or whose owners
// run them beforehand). Storage handed out stays valid and in place until the region is
// destroyed. A region is used by one thread at a time and is neither copied nor moved (storage
// handed out points into it).
#pragma once

#include "sgx/general/SgxInstanceId.h"
#include "sgx/general/sgxgeneral_export.h"

#include <cstddef>
#include <cstdint>

class SGX_GENERAL_API SgxMemoryRegion {
public:
    // A region whose blocks hold blockSize x factor bytes. A factor of 0 is taken as 1 (a factor
    // scales the model size, and 0 means "not given"); a block size of 0 gives every request a
    // block of its own. Takes no memory yet. Raises SgxException when blockSize x factor
    // overflows.
    explicit SgxMemoryRegion(size_t blockSize, size_t factor = 1);
    SgxMemoryRegion(const SgxMemoryRegion&) = delete;
    SgxMemoryRegion& operator=(const SgxMemoryRegion&) = delete;
    // Gives every block back to the system. Runs no destructor of anything placed here.
    ~SgxMemoryRegion();

    // Returns `bytes` bytes of uninitialised storage aligned to `alignment`, owned by the region
    // (valid until it is destroyed). Never null: a request of 0 bytes returns a distinct address.
    // `alignment` must be a power of two; callers pass at least the natural alignment of what
    // they place there (8 for anything holding a pointer). Raises SgxException for any other
    // alignment or a size that cannot be represented, std::bad_alloc when the system refuses a
    // block.
    void* allocate(size_t bytes, size_t alignment = alignof(std::max_align_t)) {
        // An alignment of 0 passes the power-of-two test but not the room test (its padding
        // spans the address space), so it too reaches allocateSlow, which rejects it.
        const uintptr_t current = m_current;
        const uintptr_t padding = (0 - current) & (alignment - 1);
        if (bytes != 0 && (alignment & (alignment - 1)) == 0 && padding <= m_end - current &&
            bytes <= m_end - current - padding) [[likely]] {
            m_current = current + padding + bytes;
            m_bytesAllocated += bytes;
            return reinterpret_cast<void*>(current + padding);
        }
        return allocateSlow(bytes, alignment);
    }

    // The size of a standard block: blockSize x factor (factor 0 taken as 1).
    size_t blockBytes() const noexcept { return m_blockBytes; }
    // The bytes requested through allocate() so far (alignment padding not included; a request
    // of 0 bytes counts as 1).
    size_t bytesAllocated() const noexcept { return m_bytesAllocated; }
    // The bytes taken from the system for all blocks, bookkeeping included.
    size_t bytesReserved() const noexcept { return m_bytesReserved; }
    // The number of blocks taken from the system, oversized ones included.
    size_t blockCount() const noexcept { return m_blockCount; }
    // A number no other region made in this process has, not even one made later at the same
    // address: a cache of storage handed out by a region keeps it to know whether that storage
    // is still there.
    uint64_t id() const noexcept { return m_id.value(); }

private:
    struct Block;

    void* allocateSlow(size_t bytes, size_t alignment);
    // Takes a block with room for `payload` bytes and links it into m_blocks; returns its start.
    uintptr_t newBlock(size_t payload);

    // The free part of the current block: [m_current, m_end). Both 0 before the first block.
    uintptr_t m_current = 0;
    uintptr_t m_end = 0;
    size_t m_blockBytes;
    size_t m_bytesAllocated = 0;
    size_t m_bytesReserved = 0;
    size_t m_blockCount = 0;
    Block* m_blocks = nullptr; // every block taken, newest first
    SgxInstanceId m_id;
};
