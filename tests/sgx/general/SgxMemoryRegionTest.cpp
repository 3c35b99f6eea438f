#include "sgx/general/SgxMemoryRegion.h"

#include "GeneralTestSupport.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>

namespace {

uintptr_t address(const void* p) { return reinterpret_cast<uintptr_t>(p); }

TEST(SgxMemoryRegion, AlignsEveryRequestWithoutOverlap) {
    SgxMemoryRegion region(4096);
    EXPECT_EQ(region.blockCount(), 0u); // no memory before the first request
    uintptr_t previousEnd = 0;
    size_t requested = 0;
    for (size_t alignment : {1, 2, 8, 16, 64, 128}) {
        for (size_t bytes : {1, 3, 13}) {
            void* p = region.allocate(bytes, alignment);
            EXPECT_EQ(address(p) % alignment, 0u) << bytes << " bytes at " << alignment;
            EXPECT_GE(address(p), previousEnd) << bytes << " bytes at " << alignment;
            std::memset(p, 0xab, bytes);
            previousEnd = address(p) + bytes;
            requested += bytes;
        }
    }
    EXPECT_EQ(region.blockCount(), 1u);
    EXPECT_EQ(region.bytesAllocated(), requested);
    EXPECT_GE(region.bytesReserved(), region.blockBytes());
}

TEST(SgxMemoryRegion, OversizedRequestGetsItsOwnBlockAndSmallOnesContinue) {
    SgxMemoryRegion region(256);
    char* small = static_cast<char*>(region.allocate(16, 8));
    void* big = region.allocate(1000, 64);
    EXPECT_EQ(address(big) % 64, 0u);
    std::memset(big, 0, 1000);
    EXPECT_EQ(region.blockCount(), 2u);
    // The current block still serves small requests.
    EXPECT_EQ(region.allocate(16, 8), small + 16);
    // One that no longer fits opens a fresh standard block.
    region.allocate(250, 1);
    EXPECT_EQ(region.blockCount(), 3u);
    EXPECT_EQ(region.bytesAllocated(), 16u + 1000u + 16u + 250u);
}

TEST(SgxMemoryRegion, FactorScalesBlocksAndZeroCountsAsOne) {
    SgxMemoryRegion tripled(100, 3);
    tripled.allocate(250, 1);
    tripled.allocate(40, 1);
    EXPECT_EQ(tripled.blockCount(), 1u);

    SgxMemoryRegion zero(100, 0);
    EXPECT_EQ(zero.blockBytes(), 100u);
    zero.allocate(60, 1);
    zero.allocate(60, 1);
    EXPECT_EQ(zero.blockCount(), 2u);

    EXPECT_TRUE(raisesText([] { SgxMemoryRegion(std::numeric_limits<size_t>::max(), 2); },
                           "Memory region block size too large"));
}

TEST(SgxMemoryRegion, EdgeRequests) {
    SgxMemoryRegion region(64);
    void* a = region.allocate(0, 1);
    EXPECT_NE(a, nullptr);
    EXPECT_NE(a, region.allocate(0, 1));
    for (size_t alignment : {0, 3, 24})
        EXPECT_TRUE(raisesText([&] { region.allocate(8, alignment); },
                               "Memory region alignment is not a power of two"))
            << alignment;
    EXPECT_TRUE(raisesText([&] { region.allocate(std::numeric_limits<size_t>::max(), 8); },
                           "Memory region request too large"));
}

} // namespace
