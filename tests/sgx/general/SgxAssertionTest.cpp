#include "sgx/general/SgxAssertion.h"

#include "GeneralTestSupport.h"

#include <gtest/gtest.h>

namespace {

TEST(SgxAssertion, RaiseRecordsConditionUnitAndLineAndLogsThem) {
    LogCapture capture("Throw");
    try {
        SgxAssertion::raise("m_attributes != 0", "TNObject", 284);
        FAIL() << "nothing raised";
    } catch (const SgxAssertion& a) {
        EXPECT_EQ(a.condition(), "m_attributes != 0");
        EXPECT_EQ(a.unit(), "TNObject");
        EXPECT_EQ(a.line(), 284);
        EXPECT_EQ(a.reasonText(), "Assertion failed: m_attributes != 0 (TNObject, line 284)");
        EXPECT_STREQ(a.what(), a.reasonText().c_str());
    }
    EXPECT_EQ(capture.text(),
              "Exception throw: Assertion failed: m_attributes != 0 (TNObject, line 284)\n");
}

} // namespace
