#include "sgx/general/SgxVersion.h"

#include <gtest/gtest.h>

namespace {

TEST(SgxVersion, GeneralVersionAndMismatchText) {
    EXPECT_EQ(General::getVersion(), SgxVersion<General>(1, 0, 1));
    const SgxString expected = "Version mismatch: Tarnel requires General 1.0 (build kind 1) or a "
                               "later minor version; found 2.3 (build kind 0)";
    EXPECT_EQ(versionMismatchString("Tarnel", "General", 1, 0, 1, 2, 3, 0), expected);
    EXPECT_EQ(versionMismatchString("Tarnel", "General", 1, 0, 1, SgxVersion<General>(2, 3, 0)),
              expected);
}

} // namespace
