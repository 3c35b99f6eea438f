#include "rw/RWCollectableInt.h"
#include "rw/RWCollectableString.h"
#include "rw/RWOrdered.h"

#include "RWTestSupport.h"

#include <gtest/gtest.h>

namespace {

// Integers compare as numbers, strings as texts; neither equals an object of the other class.
TEST(RWCollectableIntAndString, CompareByValueWithinTheirClassAndStringsCopy) {
    RWCollectableInt low(-5), high(3), alsoLow(-5);
    RWCollectableString text("-5");
    EXPECT_LT(low.compareTo(&high), 0);
    EXPECT_GT(high.compareTo(&low), 0);
    EXPECT_TRUE(low.isEqual(&alsoLow));
    EXPECT_FALSE(low.isEqual(&text));

    RWCollectableString a("apple"), b("banana"), a2(SgxString("apple"));
    EXPECT_LT(a.compareTo(&b), 0);
    EXPECT_GT(b.compareTo(&a), 0);
    EXPECT_EQ(a.compareTo(&a2), 0);
    EXPECT_TRUE(a.isEqual(&a2));
    EXPECT_EQ(a.hash(), a2.hash());
    EXPECT_FALSE(a.isEqual(&high));
    EXPECT_EQ(a.binaryStoreSize(), 9u);
    EXPECT_TRUE(std::unique_ptr<RWCollectable>(a.copy())->isEqual(&a));
}

TEST(RWOrdered, PositionsRangeChecksAndClearAndDestroy) {
    RWCollectableInt one(1), two(2), three(3), alsoThree(3);
    RWOrdered list;
    EXPECT_TRUE(list.isEmpty());
    list.insert(&one);
    list.insert(&three);
    list.insertAt(1, &two);
    list.insert(nullptr);
    ASSERT_EQ(list.entries(), 4u);
    EXPECT_EQ(list[0], &one);
    EXPECT_EQ(list.at(1), &two);
    EXPECT_EQ(list.at(3), nullptr);
    EXPECT_EQ(list.index(&alsoThree), 2u); // found by isEqual, not identity
    EXPECT_TRUE(list.contains(nullptr));
    EXPECT_TRUE(raisesWith([&] { list.at(4); }, "Index 4 out of range for 4 entries"));
    EXPECT_TRUE(raisesWith([&] { list.insertAt(5, &one); }, "Index 5 out of range"));
    EXPECT_EQ(list.removeAt(0), &one);
    EXPECT_EQ(list.entries(), 3u);
    list.clear();
    EXPECT_TRUE(list.isEmpty());

    TestNode* node = new TestNode("n");
    const size_t before = TestNode::live();
    for (TestNode* entry : {node, node, static_cast<TestNode*>(nullptr), new TestNode("m")})
        list.insert(entry);
    list.insert(&list); // holding itself must not delete itself
    list.clearAndDestroy();
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(TestNode::live(), before - 1);
}

TEST(RWOrdered, PersistsElementsInOrderWithSharingAndNil) {
    RWCollectableString name("x");
    RWCollectableInt number(-9);
    RWOrdered inner, outer;
    inner.insert(&name);
    for (RWCollectable* entry :
         std::initializer_list<RWCollectable*>{&inner, &number, nullptr, &name})
        outer.insert(entry);
    std::string bytes = storeToBytes(outer);
    {
        RWOrdered restored;
        RWbistream in(bytes.data(), bytes.size());
        restored.insert(&number); // replaced, not deleted
        restored.recursiveRestoreFrom(in);
        EXPECT_TRUE(restored.isEqual(&outer));
        ASSERT_EQ(restored.entries(), 4u);
        auto* restoredInner = dynamic_cast<RWOrdered*>(restored[0]);
        ASSERT_NE(restoredInner, nullptr);
        EXPECT_EQ(restoredInner->at(0), restored[3]); // one string, shared
        EXPECT_EQ(restored[2], nullptr);
        restoredInner->clear();
        delete restoredInner;
        restored.removeAt(0);
        restored.clearAndDestroy();
    }
    // A failed restore leaves the target empty.
    bytes.resize(bytes.size() - 1);
    RWOrdered target;
    RWbistream in(bytes.data(), bytes.size());
    EXPECT_THROW(target.recursiveRestoreFrom(in), SgxException);
    EXPECT_TRUE(target.isEmpty());
}

} // namespace
