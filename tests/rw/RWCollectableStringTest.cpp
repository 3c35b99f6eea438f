#include "rw/RWCollectableString.h"

#include "rw/RWCollectableInt.h"

#include "RWTestSupport.h"

#include <gtest/gtest.h>

namespace {

TEST(RWCollectableString, ComparesByTextAndPersistsAsLengthAndBytes) {
    RWCollectableString a("apple"), b("banana"), a2(SgxString("apple"));
    EXPECT_LT(a.compareTo(&b), 0);
    EXPECT_GT(b.compareTo(&a), 0);
    EXPECT_EQ(a.compareTo(&a2), 0);
    EXPECT_TRUE(a.isEqual(&a2));
    EXPECT_EQ(a.hash(), a2.hash());
    RWCollectableInt number(1);
    EXPECT_FALSE(a.isEqual(&number));

    EXPECT_EQ(storeToBytes(a), Bytes().newObject("RWCollectableString").text("apple").str());
    std::unique_ptr<RWCollectable> copy(a.copy());
    EXPECT_TRUE(copy->isEqual(&a));
    std::unique_ptr<RWCollectable> back(restoreFrom(storeToBytes(a)));
    EXPECT_EQ(static_cast<const SgxString&>(*static_cast<RWCollectableString*>(back.get())),
              "apple");
}

} // namespace
