#include "sgx/general/SgxStatistics.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

TEST(SgxStatistics, CountShrinksTotalsReleasedBytes) {
    const SgxShrinkStatistics before = shrinkStatistics();
    countShrinks(10, 4, 8); // 48 bytes
    countShrinks(3, 0, 16); // 48 bytes
    countShrinks(4, 4, 8);  // nothing released
    countShrinks(2, 5, 8);  // grew
    const SgxShrinkStatistics after = shrinkStatistics();
    EXPECT_EQ(after.count - before.count, 2u);
    EXPECT_EQ(after.bytesReleased - before.bytesReleased, 96u);
    countShrinks(std::numeric_limits<size_t>::max(), 0, 2); // saturates rather than wraps
    EXPECT_EQ(shrinkStatistics().bytesReleased, std::numeric_limits<uint64_t>::max());
}

} // namespace
