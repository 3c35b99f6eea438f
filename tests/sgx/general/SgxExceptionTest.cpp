#include "sgx/general/SgxException.h"
#include "sgx/general/SgxAssertion.h"

#include "GeneralTestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>

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
    EXPECT_STREQ(static_cast<const std::exception&>(c).what(), "items: 42");
    testing::internal::CaptureStderr();
    c.showWhy();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "items: 42\n");
}

TEST(SgxException, RaiseAndCatchWriteTheirLinesOnlyWhenEnabled) {
    {
        LogCapture capture("Throw");
        EXPECT_TRUE(
            raisesText([] { SgxException::raise("Division by zero"); }, "Division by zero"));
        // A derived exception keeps its type and logs its own text.
        EXPECT_TRUE(raisesText<Composed>([] { SgxException::raise(Composed("n", -1)); }, "n: -1"));
        EXPECT_EQ(capture.out.str(), "Exception throw: Division by zero\nException throw: n: -1\n");
    }
    LogCapture capture("Catch");
    EXPECT_THROW(SgxException::raise(SgxString("silent")), SgxException);
    SgxException e("Unexpected error deleting TNClass");
    SgxException::logCatch(&e);
    SgxException::logCatch(nullptr);
    EXPECT_EQ(capture.out.str(),
              "Exception catch: Unexpected error deleting TNClass\nException catch\n");
}

TEST(SgxAssertion, RaiseRecordsConditionUnitAndLineAndLogsThem) {
    LogCapture capture("Throw");
    const char* text = "Assertion failed: m_attributes != 0 (TNObject, line 284)";
    try {
        SgxAssertion::raise("m_attributes != 0", "TNObject", 284);
        ADD_FAILURE() << "nothing raised";
    } catch (const SgxAssertion& a) {
        EXPECT_EQ(a.condition(), "m_attributes != 0");
        EXPECT_EQ(a.unit(), "TNObject");
        EXPECT_EQ(a.line(), 284);
        EXPECT_EQ(a.reasonText(), text);
        EXPECT_STREQ(a.what(), text);
    }
    EXPECT_EQ(capture.out.str(), std::string("Exception throw: ") + text + "\n");
}

TEST(SgxLogBase, CategoriesFromListsAndEnvironmentAndANullStream) {
    SgxLogBase log;
    log.enableList(" Throw ,,Two Words,");
    for (const char* on : {"Throw", "Two Words"})
        EXPECT_TRUE(log.isEnabled(on)) << on;
    for (const char* off : {"throw", " Throw", "Two", ""})
        EXPECT_FALSE(log.isEnabled(off)) << '"' << off << '"';
    log.enable("Throw", false);
    EXPECT_FALSE(log.isEnabled("Throw"));

    std::ostringstream out;
    log.setStream(&out);
    log.writeLine("first");
    log.setStream(nullptr);
    log.writeLine("discarded");
    log.setStream(&out);
    log.writeLine("second");
    EXPECT_EQ(out.str(), "first\nsecond\n");

    setenv("SGX_LOG", "Catch,Custom", 1);
    SgxLogBase fromEnvironment;
    unsetenv("SGX_LOG");
    EXPECT_TRUE(fromEnvironment.isEnabled("Catch") && fromEnvironment.isEnabled("Custom"));
}

} // namespace
