#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNSchema.h"

#include <gtest/gtest.h>

TEST(TNObjectDirectory, FirstEntryWinsAndUnpopulateEmptiesEveryTable) {
    TNSchema schema;
    const auto cls = schema.newClass("Node");
    SgxSimplePtr<TNObject> x = cls->newObject(false);
    SgxSimplePtr<TNObject> y = cls->newObject(false);
    SgxSimplePtr<TNObject> none;

    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round == 0 ? "first population" : "after unpopulate");
        EXPECT_TRUE(schema.put_object("a", x));
        EXPECT_FALSE(schema.put_object("a", y));
        EXPECT_TRUE(schema.put_object("nothing", none));
        SgxSimplePtr<TNObject> out = y;
        EXPECT_TRUE(schema.get_object("a", out));
        EXPECT_EQ(out, x);
        EXPECT_FALSE(schema.get_object("nothing", out)); // a recorded null is copied out
        EXPECT_EQ(out, nullptr);
        out = y;
        EXPECT_FALSE(schema.get_object("absent", out)); // an absent name leaves it alone
        EXPECT_EQ(out, y);

        EXPECT_TRUE(schema.put_association(x, y));
        EXPECT_FALSE(schema.put_association(x, x));
        EXPECT_TRUE(schema.get_association(x, out));
        EXPECT_EQ(out, y);
        EXPECT_FALSE(schema.get_association(y, out));
        EXPECT_EQ(out, y);

        EXPECT_EQ(schema.get_objectDirectory(x), "");
        schema.set_objectDirectory(x, "out/one");
        schema.set_objectDirectory(x, "out/two"); // unlike put_, set_ overwrites
        EXPECT_EQ(schema.get_objectDirectory(x), "out/two");

        schema.unpopulate();
        EXPECT_FALSE(schema.get_object("a", out));
        EXPECT_FALSE(schema.get_association(x, out));
        EXPECT_EQ(schema.get_objectDirectory(x), "");
        // The handles only serve as keys from here on; nothing reads through them.
    }
}
