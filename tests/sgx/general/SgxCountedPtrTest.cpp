#include "sgx/general/SgxCountedPtr.h"

#include "GeneralTestSupport.h"

#include <gtest/gtest.h>

namespace {

struct Counted {
    static inline int destroyed = 0;
    int value = 5;
    ~Counted() { ++destroyed; }
};

TEST(SgxCountedPtr, EmptyHandleRaisesBadDereference) {
    SgxCountedPtr<Counted> empty;
    EXPECT_TRUE(raisesText([&] { (void)empty->value; }, "Bad dereference"));
    EXPECT_TRUE(raisesText([&] { (void)*empty; }, "Bad dereference"));
}

TEST(SgxCountedPtr, CopiesShareOneObjectDeletedWithTheLastHandle) {
    Counted::destroyed = 0;
    {
        SgxCountedPtr<Counted> first(new Counted);
        {
            SgxCountedPtr<Counted> copy = first;
            copy->value = 9;
            EXPECT_EQ(first.get(), copy.get());
        }
        EXPECT_EQ(Counted::destroyed, 0);
        EXPECT_EQ((*first).value, 9);
    }
    EXPECT_EQ(Counted::destroyed, 1);
}

} // namespace
