#include "tarnel/metamodel/TNMetamodelVersion.h"

#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNSchema.h"

#include <gtest/gtest.h>

#include <initializer_list>

namespace {

// A version read from a schema whose marker class has attributes of the given names.
TNMetamodelVersion versionOf(std::initializer_list<const char*> attributeNames) {
    TNSchema schema;
    const auto marker = schema.newClass("MetamodelVersion");
    for (const char* name : attributeNames)
        marker->addAttr(name, TNAttrString, "", "");
    return TNMetamodelVersion(schema);
}

} // namespace

TEST(TNMetamodelVersion, DecodesTheMarkerClassAndChecksRequirements) {
    const TNMetamodelVersion version = versionOf({"kind_Design", "major_3", "minor_2", "other"});
    EXPECT_EQ(version.getKind(), "Design");
    EXPECT_EQ(version.getMajorVersion(), 3);
    EXPECT_EQ(version.getMinorVersion(), 2);

    EXPECT_TRUE(version.meetsRequirement("Design", 3, 1));
    EXPECT_TRUE(version.meetsRequirement("Design", 3, 2));
    EXPECT_FALSE(version.meetsRequirement("Design", 3, 3));
    EXPECT_FALSE(version.meetsRequirement("Design", 2, 0));
    EXPECT_FALSE(version.meetsRequirement("Design", 4, 0));
    EXPECT_FALSE(version.meetsRequirement("design", 3, 0));
}

TEST(TNMetamodelVersion, NumbersReadLikeAtoiAndTheLastAttributeWins) {
    struct Case {
        std::initializer_list<const char*> names;
        int major;
        int minor;
    };
    const Case cases[] = {
        {{"major_x"}, 0, -1},                 // no digits
        {{"major_"}, 0, -1},                  // nothing after the prefix
        {{"major_7abc", "minor_ 12"}, 7, 12}, // trailing text ignored, leading blank skipped
        {{"major_-4"}, -4, -1},
        {{"major_1", "major_5"}, 5, -1},           // the later attribute wins
        {{"Major_5", "majo_6", "minor5"}, -1, -1}, // prefixes are exact and case-sensitive
        {{"major_99999999999"}, 2147483647, -1},   // clamped to 32 bits
    };
    for (const Case& c : cases) {
        const TNMetamodelVersion version = versionOf(c.names);
        SCOPED_TRACE(*c.names.begin());
        EXPECT_EQ(version.getMajorVersion(), c.major);
        EXPECT_EQ(version.getMinorVersion(), c.minor);
        EXPECT_EQ(version.getKind(), "<<none>>");
    }
    EXPECT_EQ(versionOf({"kind_"}).getKind(), "");
}

TEST(TNMetamodelVersion, SchemaWithoutMarkerYieldsTheDefaults) {
    TNSchema schema;
    schema.newClass("Package")->addAttr("major_3", TNAttrString, "", "");
    const TNMetamodelVersion version(schema);
    EXPECT_EQ(version.getKind(), "<<none>>");
    EXPECT_EQ(version.getMajorVersion(), -1);
    EXPECT_EQ(version.getMinorVersion(), -1);
    EXPECT_FALSE(version.meetsRequirement("<<none>>", 0, -1));
    EXPECT_TRUE(version.meetsRequirement("<<none>>", -1, -1));

    TNMetamodelVersion copy("Design", 1, 0);
    copy = version;
    EXPECT_EQ(copy.getKind(), "<<none>>");
    EXPECT_EQ(copy.getMajorVersion(), -1);
}
