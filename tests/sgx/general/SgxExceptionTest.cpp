#include "sgx/general/SgxException.h"

#include "GeneralTestSupport.h"

#include <gtest/gtest.h>

namespace {

// A derived exception that assembles its text through the protected interface.
class Composed : public SgxException {
public:
    Composed(const SgxString& name, int count) {
        append(name);
        append(": ");
        append(count);
    }
};

TEST(SgxException, WhatAndShowWhyGiveTheReasonText) {
    Composed c("items", 42);
    EXPECT_EQ(c.reasonText(), "items: 42");
    const std::exception& base = c;
    EXPECT_STREQ(base.what(), "items: 42");
    testing::internal::CaptureStderr();
    c.showWhy();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "items: 42\n");
}

TEST(SgxException, RaiseWritesTheThrowLineOnlyWhenEnabled) {
    {
        LogCapture capture("Throw");
        EXPECT_TRUE(
            raisesText([] { SgxException::raise("Division by zero"); }, "Division by zero"));
        // A derived exception keeps its type and logs its own text.
        EXPECT_TRUE(raisesText<Composed>([] { SgxException::raise(Composed("n", -1)); }, "n: -1"));
        EXPECT_EQ(capture.text(), "Exception throw: Division by zero\nException throw: n: -1\n");
    }
    LogCapture otherCategory("Catch");
    EXPECT_THROW(SgxException::raise(SgxString("silent")), SgxException);
    EXPECT_EQ(otherCategory.text(), "");
}

TEST(SgxException, LogCatchWritesWithOrWithoutAnException) {
    LogCapture capture("Catch");
    SgxException e("Unexpected error deleting TNClass");
    SgxException::logCatch(&e);
    SgxException::logCatch(nullptr);
    EXPECT_EQ(capture.text(),
              "Exception catch: Unexpected error deleting TNClass\nException catch\n");
}

} // namespace
