#include "rw/RWvstream.h"

#include "rw/RWbstream.h"

#include "RWTestSupport.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>

namespace {

TEST(RWvstream, CountsAreCheckedAgainstTheBytesLeftWithoutOverflow) {
    const char data[16] = {};
    RWbistream in(data, sizeof data);
    in.checkCount(4, 4, "ints");
    in.checkCount(0, 1000, "ints");
    EXPECT_TRUE(raisesWith([&] { in.checkCount(5, 4, "ints"); },
                           "Count of 5 ints exceeds the 16 bytes left at byte 0"));
    // count x size wraps to 0 in 64 bits; the check must still refuse it.
    EXPECT_TRUE(raisesWith([&] { in.checkCount(uint64_t{1} << 62, 4, "ints"); }, "exceeds"));
    uint64_t skip;
    in >> skip;
    EXPECT_TRUE(raisesWith([&] { in.checkCount(3, 4, "ints"); }, "8 bytes left at byte 8"));
}

TEST(RWvstream, FailedOutputRaises) {
    std::ostringstream out;
    out.setstate(std::ios::badbit);
    RWbostream os(out);
    EXPECT_TRUE(raisesWith([&] { os << int32_t{1}; }, "Write error at byte 0"));
    RWCountingOStream counter;
    counter << SgxString("abc") << 2.0;
    EXPECT_EQ(counter.offset(), 15u);
}

} // namespace
