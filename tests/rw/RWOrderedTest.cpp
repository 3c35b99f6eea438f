#include "rw/RWOrdered.h"

#include "rw/RWCollectableInt.h"
#include "rw/RWCollectableString.h"

#include "RWTestSupport.h"

#include <gtest/gtest.h>

namespace {

TEST(RWOrdered, PositionsAndRangeChecks) {
    RWCollectableInt one(1), two(2), three(3);
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
    RWCollectableInt alsoThree(3);
    EXPECT_EQ(list.index(&alsoThree), 2u); // found by isEqual, not identity
    EXPECT_TRUE(list.contains(nullptr));
    EXPECT_TRUE(raisesWith([&] { list.at(4); }, "Index 4 out of range for 4 entries"));
    EXPECT_TRUE(raisesWith([&] { list.insertAt(5, &one); }, "Index 5 out of range"));
    EXPECT_EQ(list.removeAt(0), &one);
    EXPECT_EQ(list.entries(), 3u);
    list.clear();
    EXPECT_TRUE(list.isEmpty());
}

TEST(RWOrdered, ClearAndDestroyDeletesEachElementOnce) {
    RWOrdered list;
    TestNode* node = new TestNode("n");
    const size_t before = TestNode::live();
    list.insert(node);
    list.insert(node);
    list.insert(nullptr);
    list.insert(new TestNode("m"));
    list.insert(&list); // holding itself must not delete itself
    list.clearAndDestroy();
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(TestNode::live(), before - 1);
}

TEST(RWOrdered, PersistsElementsInOrderWithSharingAndNil) {
    RWCollectableString name("x");
    RWCollectableInt number(-9);
    RWOrdered inner;
    inner.insert(&name);
    RWOrdered outer;
    outer.insert(&inner);
    outer.insert(&number);
    outer.insert(nullptr);
    outer.insert(&name);
    const std::string bytes = storeToBytes(outer);

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

TEST(RWOrdered, FailedRestoreLeavesTheTargetEmpty) {
    RWCollectableInt number(4);
    RWOrdered source;
    source.insert(&number);
    source.insert(&number);
    std::string bytes = storeToBytes(source);
    bytes.resize(bytes.size() - 1); // cut the back-reference short

    RWOrdered target;
    RWbistream in(bytes.data(), bytes.size());
    EXPECT_THROW(target.recursiveRestoreFrom(in), SgxException);
    EXPECT_TRUE(target.isEmpty());
}

} // namespace
