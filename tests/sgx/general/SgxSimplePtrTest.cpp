#include "sgx/general/SgxSimplePtr.h"

#include "GeneralTestSupport.h"

#include <gtest/gtest.h>

#include <map>

namespace {

struct Base {
    int value = 7;
};
struct Derived : Base {};

TEST(SgxSimplePtr, NullHandleRaisesOnEveryDereference) {
    SgxSimplePtr<Base> p;
    EXPECT_TRUE(p.isNull());
    EXPECT_TRUE(raisesText([&] { (void)p->value; }, "Null dereference"));
    EXPECT_TRUE(raisesText([&] { (void)*p; }, "Null dereference"));
}

TEST(SgxSimplePtr, ComparesAndOrdersByAddress) {
    Derived objects[2];
    SgxSimplePtr<Base> first(&objects[0]);
    SgxSimplePtr<Base> second = SgxSimplePtr<Derived>(&objects[1]);
    EXPECT_EQ(first->value, 7);
    EXPECT_EQ(first, SgxSimplePtr<Base>(&objects[0]));
    EXPECT_NE(first, second);
    EXPECT_TRUE(first < second);
    EXPECT_FALSE(second < first);
    std::map<SgxSimplePtr<Base>, int> byAddress{{second, 2}, {first, 1}};
    EXPECT_EQ(byAddress.begin()->first, first);
}

} // namespace
