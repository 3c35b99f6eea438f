#include "sgx/general/SgxLogBase.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

namespace {

TEST(SgxLogBase, EnableListParsesCommaSeparatedNames) {
    SgxLogBase log;
    log.enableList(" Throw ,,Two Words,");
    for (const char* on : {"Throw", "Two Words"})
        EXPECT_TRUE(log.isEnabled(on)) << on;
    for (const char* off : {"throw", " Throw", "Two", ""})
        EXPECT_FALSE(log.isEnabled(off)) << '"' << off << '"';
    log.enable("Throw", false);
    EXPECT_FALSE(log.isEnabled("Throw"));
}

TEST(SgxLogBase, StartUpEnablesTheCategoriesOfSgxLog) {
    setenv("SGX_LOG", "Catch,Custom", 1);
    SgxLogBase log;
    unsetenv("SGX_LOG");
    EXPECT_TRUE(log.isEnabled("Catch"));
    EXPECT_TRUE(log.isEnabled("Custom"));
}

TEST(SgxLogBase, NullStreamDiscardsLines) {
    SgxLogBase log;
    std::ostringstream out;
    log.setStream(&out);
    log.writeLine("first");
    log.setStream(nullptr);
    log.writeLine("discarded");
    log.setStream(&out);
    log.writeLine("second");
    EXPECT_EQ(out.str(), "first\nsecond\n");
}

} // namespace
