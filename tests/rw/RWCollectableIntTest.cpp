#include "rw/RWCollectableInt.h"

#include "rw/RWCollectableString.h"

#include "RWTestSupport.h"

#include <gtest/gtest.h>

namespace {

TEST(RWCollectableInt, ComparesNumericallyAndPersistsAs32Bits) {
    RWCollectableInt low(-5), high(3), alsoLow(-5);
    EXPECT_LT(low.compareTo(&high), 0);
    EXPECT_GT(high.compareTo(&low), 0);
    EXPECT_TRUE(low.isEqual(&alsoLow));
    RWCollectableString text("-5");
    EXPECT_FALSE(low.isEqual(&text));

    EXPECT_EQ(storeToBytes(low), Bytes().newObject("RWCollectableInt").i32(-5).str());
    std::unique_ptr<RWCollectable> back(restoreFrom(storeToBytes(low)));
    EXPECT_EQ(static_cast<RWCollectableInt*>(back.get())->value(), -5);
}

} // namespace
