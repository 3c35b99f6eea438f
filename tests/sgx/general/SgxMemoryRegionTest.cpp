#include "sgx/general/SgxMemoryRegion.h"
#include "sgx/general/SgxStatistics.h"
#include "sgx/general/SgxVersion.h"

#include "GeneralTestSupport.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>

namespace {

constexpr size_t kMax = std::numeric_limits<size_t>::max();
uintptr_t address(const void* p) { return reinterpret_cast<uintptr_t>(p); }

TEST(SgxMemoryRegion, AlignsEveryRequestWithoutOverlap) {
    SgxMemoryRegion region(4096);
    EXPECT_EQ(region.blockCount(), 0u); // no memory before the first request
    uintptr_t previousEnd = 0;
    size_t requested = 0;
    for (size_t alignment : {1, 2, 8, 16, 64, 128}) {
        for (size_t bytes : {1, 3, 13}) {
            void* p = region.allocate(bytes, alignment);
            SCOPED_TRACE(std::to_string(bytes) + " bytes at " + std::to_string(alignment));
            EXPECT_EQ(address(p) % alignment, 0u);
            EXPECT_GE(address(p), previousEnd);
            std::memset(p, 0xab, bytes);
            previousEnd = address(p) + bytes;
            requested += bytes;
        }
    }
    EXPECT_EQ(region.blockCount(), 1u);
    EXPECT_EQ(region.bytesAllocated(), requested);
    EXPECT_GE(region.bytesReserved(), region.blockBytes());
    // Empty requests still get distinct addresses; bad alignments and sizes are refused.
    void* empty = region.allocate(0, 1);
    EXPECT_NE(empty, nullptr);
    EXPECT_NE(empty, region.allocate(0, 1));
    for (size_t alignment : {0, 3, 24})
        EXPECT_TRUE(raisesText([&] { region.allocate(8, alignment); },
                               "Memory region alignment is not a power of two"))
            << alignment;
    EXPECT_TRUE(raisesText([&] { region.allocate(kMax, 8); }, "Memory region request too large"));
}

TEST(SgxMemoryRegion, OversizedRequestsAndBlockFactors) {
    SgxMemoryRegion region(256);
    char* small = static_cast<char*>(region.allocate(16, 8));
    void* big = region.allocate(1000, 64); // its own block
    EXPECT_EQ(address(big) % 64, 0u);
    std::memset(big, 0, 1000);
    EXPECT_EQ(region.blockCount(), 2u);
    EXPECT_EQ(region.allocate(16, 8), small + 16); // the current block still serves small ones
    region.allocate(250, 1);                       // does not fit: a fresh standard block
    EXPECT_EQ(region.blockCount(), 3u);
    EXPECT_EQ(region.bytesAllocated(), 16u + 1000u + 16u + 250u);

    SgxMemoryRegion tripled(100, 3);
    tripled.allocate(250, 1);
    tripled.allocate(40, 1);
    EXPECT_EQ(tripled.blockCount(), 1u);
    SgxMemoryRegion zero(100, 0); // a zero factor counts as one
    EXPECT_EQ(zero.blockBytes(), 100u);
    zero.allocate(60, 1);
    zero.allocate(60, 1);
    EXPECT_EQ(zero.blockCount(), 2u);
    EXPECT_TRUE(raisesText([] { SgxMemoryRegion(kMax, 2); }, "Memory region block size too large"));
}

TEST(SgxStatistics, CountShrinksTotalsReleasedBytesAndSaturates) {
    const SgxShrinkStatistics before = shrinkStatistics();
    countShrinks(10, 4, 8); // 48 bytes
    countShrinks(3, 0, 16); // 48 bytes
    countShrinks(4, 4, 8);  // nothing released
    countShrinks(2, 5, 8);  // grew
    const SgxShrinkStatistics after = shrinkStatistics();
    EXPECT_EQ(after.count - before.count, 2u);
    EXPECT_EQ(after.bytesReleased - before.bytesReleased, 96u);
    countShrinks(kMax, 0, 2);
    EXPECT_EQ(shrinkStatistics().bytesReleased, std::numeric_limits<uint64_t>::max());
}

TEST(SgxVersion, GeneralVersionAndMismatchText) {
    EXPECT_EQ(General::getVersion(), SgxVersion<General>(1, 0, 1));
    const SgxString expected = "Version mismatch: Tarnel requires General 1.0 (build kind 1) or a "
                               "later minor version; found 2.3 (build kind 0)";
    EXPECT_EQ(versionMismatchString("Tarnel", "General", 1, 0, 1, 2, 3, 0), expected);
    EXPECT_EQ(versionMismatchString("Tarnel", "General", 1, 0, 1, SgxVersion<General>(2, 3, 0)),
              expected);
}

} // namespace
