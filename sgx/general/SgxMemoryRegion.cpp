#include "sgx/general/SgxMemoryRegion.h"

#include "sgx/general/SgxException.h"

#include <new>

#include <sys/mman.h>

// Each block starts with this header, which links it to the block taken before it. Its size keeps
// the payload that follows at the alignment operator new guarantees.
struct alignas(std::max_align_t) SgxMemoryRegion::Block {
    Block* next;
    size_t bytes; // the whole block, header included
    bool mapped;  // taken with mmap (large blocks) rather than operator new
};

namespace {
// Blocks at least this large are mapped directly and marked for transparent huge pages: a model
// of millions of objects then touches its arena in 2 MiB pages instead of 4 KiB ones, which saves
// most of the page-fault work of populating it, and the block goes back to the system at once
// when the region dies.
constexpr size_t hugeBlockBytes = size_t(2) << 20;

void* mapBlock(size_t bytes) {
    void* block =
        ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED)
        throw std::bad_alloc();
#ifdef MADV_HUGEPAGE
    ::madvise(block, bytes, MADV_HUGEPAGE); // advice only: ignored where unsupported
#endif
    return block;
}
} // namespace

SgxMemoryRegion::SgxMemoryRegion(size_t blockSize, size_t factor) {
    if (factor == 0)
        factor = 1;
    if (__builtin_mul_overflow(blockSize, factor, &m_blockBytes))
        SgxException::raise("Memory region block size too large");
}

SgxMemoryRegion::~SgxMemoryRegion() {
    while (m_blocks) {
        Block* next = m_blocks->next;
        if (m_blocks->mapped)
            ::munmap(m_blocks, m_blocks->bytes);
        else
            ::operator delete(static_cast<void*>(m_blocks));
        m_blocks = next;
    }
}

uintptr_t SgxMemoryRegion::newBlock(size_t payload) {
    size_t total = 0;
    if (__builtin_add_overflow(payload, sizeof(Block), &total))
        SgxException::raise("Memory region request too large");
    const bool mapped = total >= hugeBlockBytes;
    Block* block = static_cast<Block*>(mapped ? mapBlock(total) : ::operator new(total));
    block->next = m_blocks;
    block->bytes = total;
    block->mapped = mapped;
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
