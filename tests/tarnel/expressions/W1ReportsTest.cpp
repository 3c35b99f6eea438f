// The three W1 reports built from library nodes give what plain C++ computes on the same model.
#include "w1/w1_reports.h"

#include <gtest/gtest.h>

namespace {
// The W1 model of 10,000 objects in plain C++ and in a frozen schema, with or without the
// "All Classes" compound association.
struct Models {
    explicit Models(bool allClasses) {
        w1::generate(plain, n);
        w1::TarnelModel model(schema);
        w1::generate(model, n);
        if (allClasses)
            w1::defineAllClasses(schema);
        schema.donePopulating();
    }
    static constexpr size_t n = 10000;
    w1::baseline::Model plain;
    TNSchema schema;
};
} // namespace

TEST(W1Reports, LibraryQueriesMatchPlainComputation) {
    Models models(true);
    const w1::baseline::Model& plain = models.plain;
    TNSchema& schema = models.schema;

    const w1::Reports reports;
    TNObject* any = schema.getClass("Attribute")->objects().back().get();
    const SgxString q1 = reports.q1(any);
    EXPECT_EQ(q1, w1::baseline::q1(plain));
    EXPECT_EQ(q1.rfind("Operation_0, Operation_100, Operation_1000, ", 0), 0u);
    EXPECT_EQ(reports.q2(any), w1::baseline::q2(plain));
    EXPECT_EQ(reports.q2(any), 1500); // 6,000 operations, every fourth public
    // Classes of the root package itself are not below a top package.
    EXPECT_EQ(reports.q3(any), w1::baseline::q3(plain));
    EXPECT_EQ(reports.q3(any), 1000 - 10);
}

TEST(W1Reports, ShapeReportsMatchPlainComputation) {
    Models models(false);
    const w1::baseline::Model& plain = models.plain;
    TNSchema& schema = models.schema;

    const w1::ShapeReports reports;
    TNObject* any = schema.getClass("Operation")->objects().front().get();
    // Twice each: a second evaluation runs what the first one derived.
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        EXPECT_EQ(reports.r1(any), w1::baseline::r1(plain));
        EXPECT_EQ(reports.r2(any), w1::baseline::r2(plain));
        EXPECT_EQ(reports.r3(any), w1::baseline::r3(plain));
        EXPECT_EQ(reports.r4(any), w1::baseline::r4(plain));
        EXPECT_EQ(reports.r5(any), w1::baseline::r5(plain));
        EXPECT_EQ(reports.r6(any), w1::baseline::r6(plain));
    }
    // Counts no query could reach by accident: 3,000 attributes, every tenth an entity; every
    // package has a documented class, and at this size every class is ordered below 50,000.
    EXPECT_EQ(reports.r2(any), 300);
    EXPECT_EQ(reports.r5(any), static_cast<int64_t>(w1::packageCount));
    EXPECT_EQ(reports.r3(any).rfind("Q" + std::to_string(w1::packageCount + 994 * 10), 0), 0u);
}
