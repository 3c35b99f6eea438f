#include "tarnel/core/Tarnel.h"

#include "sgx/general/SgxVersion.h"
#include "sgx/persistence/Persistence.h"

#include <gtest/gtest.h>

#include <string>

TEST(Tarnel, VersionCompatibilityRule) {
    EXPECT_EQ(Tarnel::getVersion(), SgxVersion<Tarnel>(1, 0, 1));
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
        {2, 0, 1, {2, 7, 1}, true},
        {2, 0, 1, {1, 9, 1}, false},
        {2, 0, 1, {2, 0, 0}, false},
        // The minor is a lower bound, never an exact match.
        {1, 2, 1, {1, 1, 1}, false},
        {1, 2, 1, {1, 2, 1}, true},
        {1, 2, 1, {1, 3, 1}, true},
    };
    for (const Row& r : rows)
        EXPECT_EQ(tnVersionCompatible(r.major, r.minor, r.buildKind, r.actual), r.compatible)
            << "need " << r.major << "." << r.minor << "/" << r.buildKind << ", have "
            << r.actual.getMajor() << "." << r.actual.getMinor() << "/" << r.actual.getBuildKind();
    // The libraries this build links are the ones the start-up check accepts.
    EXPECT_TRUE(tnVersionCompatible(1, 0, 1, General::getVersion()));
    EXPECT_TRUE(tnVersionCompatible(2, 0, 1, Persistence::getVersion()));
}

TEST(TarnelDeathTest, MismatchShowsTextAndExitsWithStatus1) {
    tnRequireVersion("General", 1, 0, 1, SgxVersion<General>(1, 4, 1)); // returns
    tnStartUp();                                                        // already ran: returns
    const SgxVersion<Persistence> old(1, 9, 1);
    // The whole text, with the characters an extended regular expression would read escaped.
    std::string pattern = "^";
    for (char c : versionMismatchString("Tarnel", "Persistence", 2, 0, 1, old))
        pattern += (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos ? "\\" : "") +
                   std::string(1, c);
    EXPECT_EXIT(tnRequireVersion("Persistence", 2, 0, 1, old), testing::ExitedWithCode(1),
                pattern + "\n$");
}
