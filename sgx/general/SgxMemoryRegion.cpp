#include "sgx/general/SgxMemoryRegion.h"

#include "sgx/general/SgxException.h"

#include <new>

// Each block starts with this header, which links it to the block taken before it. Its size keeps
// the payload that follows at the alignment operator new guarantees.
struct alignas(std::max_align_t) SgxMemoryRegion::Block {
    Block* next;
};

SgxMemoryRegion::SgxMemoryRegion(size_t blockSize, size_t factor) {
    if (factor == 0)
        factor = 1;
    if (__builtin_mul_overflow(blockSize, factor, &m_blockBytes))
        SgxException::raise("Memory region block size too large");
}

SgxMemoryRegion::~SgxMemoryRegion() {
    while (m_blocks) {
        Block* next = m_blocks->next;
        ::operator delete(static_cast<void*>(m_blocks));
        m_blocks = next;
    }
}

uintptr_t SgxMemoryRegion::newBlock(size_t payload) {
    size_t total = 0;
    if (__builtin_add_overflow(payload, sizeof(Block), &total))
        SgxException::raise("Memory region request too large");
    Block* block = static_cast<Block*>(::operator new(total));
    block->next = m_blocks;
    m_blocks = block;
    m_bytesReserved += total;
    ++m_blockCount;
    return reinterpret_cast<uintptr_t>(block + 1);
}

void* SgxMemoryRegion::allocateSlow(size_t bytes, size_t alignment) {
    if (alignment == 0 || (alignment & (alignment - 1)) != 0)
        SgxException::raise("Memory region alignment is not a power of two");
    if (bytes == 0)
        return allocate(1, alignment);

    // Worst case: the block start is only aligned as operator new guarantees.
    size_t padded = 0;
    if (__builtin_add_overflow(bytes, alignment - 1, &padded))
        SgxException::raise("Memory region request too large");

    if (padded > m_blockBytes) {
        // A block of its own; the current block keeps serving small requests.
        const uintptr_t start = newBlock(padded);
        m_bytesAllocated += bytes;
        return reinterpret_cast<void*>((start + alignment - 1) & ~(alignment - 1));
    }
    // The rest of the current block is abandoned: requests are small next to a block.
    m_current = newBlock(m_blockBytes);
    m_end = m_current + m_blockBytes;
    return allocate(bytes, alignment);
}
