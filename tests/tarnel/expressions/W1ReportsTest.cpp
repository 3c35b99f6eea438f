// The three W1 reports built from library nodes give what plain C++ computes on the same model.
#include "w1/w1_reports.h"

#include <gtest/gtest.h>

TEST(W1Reports, LibraryQueriesMatchPlainComputation) {
    constexpr size_t n = 10000;
    w1::baseline::Model plain;
    w1::generate(plain, n);
    TNSchema schema;
    w1::TarnelModel model(schema);
    w1::generate(model, n);
    w1::defineAllClasses(schema);
    schema.donePopulating();

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
