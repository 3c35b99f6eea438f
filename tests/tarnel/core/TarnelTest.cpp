#include "tarnel/core/Tarnel.h"

#include "sgx/general/SgxVersion.h"
#include "sgx/persistence/Persistence.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// Escapes the characters of a fixed text that an extended regular expression would read.
std::string literalPattern(const std::string& text) {
    std::string pattern;
    for (char c : text) {
        if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos)
            pattern += '\\';
        pattern += c;
    }
    return pattern;
}

} // namespace

TEST(Tarnel, OwnVersion) { EXPECT_EQ(Tarnel::getVersion(), SgxVersion<Tarnel>(1, 0, 1)); }

TEST(Tarnel, VersionCompatibilityRule) {
    struct Row {
        int32_t major, minor, buildKind; // required
        SgxVersion<General> actual;
        bool compatible;
    };
    const Row rows[] = {
        // General as required at start-up: 1, minor at least 0, build kind 1.
        {1, 0, 1, {1, 3, 1}, true},
        {1, 0, 1, {1, 0, 1}, true},
        {1, 0, 1, {1, 0, 2}, false},
        {1, 0, 1, {2, 0, 1}, false},
        {1, 0, 1, {0, 9, 1}, false},
        // Persistence: 2, minor at least 0, build kind 1.
        {2, 0, 1, {2, 0, 1}, true},
        {2, 0, 1, {2, 7, 1}, true},
        {2, 0, 1, {1, 9, 1}, false},
        {2, 0, 1, {2, 0, 0}, false},
        // The minor is a lower bound, never an exact match.
        {1, 2, 1, {1, 1, 1}, false},
        {1, 2, 1, {1, 2, 1}, true},
        {1, 2, 1, {1, 3, 1}, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE("need " + std::to_string(row.major) + "." + std::to_string(row.minor) + "/" +
                     std::to_string(row.buildKind) + ", have " +
                     std::to_string(row.actual.getMajor()) + "." +
                     std::to_string(row.actual.getMinor()) + "/" +
                     std::to_string(row.actual.getBuildKind()));
        EXPECT_EQ(tnVersionCompatible(row.major, row.minor, row.buildKind, row.actual),
                  row.compatible);
    }
    // The libraries this build links are the ones the start-up check accepts.
    EXPECT_TRUE(tnVersionCompatible(1, 0, 1, General::getVersion()));
    EXPECT_TRUE(tnVersionCompatible(2, 0, 1, Persistence::getVersion()));
}

TEST(TarnelDeathTest, MismatchShowsTextAndExitsWithStatus1) {
    tnRequireVersion("General", 1, 0, 1, SgxVersion<General>(1, 4, 1)); // returns
    tnStartUp();                                                        // already ran: returns

    const SgxVersion<Persistence> old(1, 9, 1);
    const std::string text = versionMismatchString("Tarnel", "Persistence", 2, 0, 1, old);
    EXPECT_EXIT(tnRequireVersion("Persistence", 2, 0, 1, old), testing::ExitedWithCode(1),
                "^" + literalPattern(text) + "\n$");
}
