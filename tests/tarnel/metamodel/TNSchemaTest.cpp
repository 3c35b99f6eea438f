#include "tarnel/metamodel/TNSchema.h"

#include "sgx/general/GeneralTestSupport.h"
#include "sgx/general/SgxStatistics.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/MetamodelTestSupport.h"
#include "tarnel/metamodel/TNAttrDesc.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNEnumType.h"
#include "tarnel/metamodel/TNMetamodelVersion.h"
#include "tarnel/navigation/TNClassIdentifier.h"

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

namespace {

std::vector<SgxString> classNames(const TNSchema& schema) {
    std::vector<SgxString> names;
    for (const auto& cls : schema.classes())
        names.push_back(cls->name());
    return names;
}

} // namespace

TEST(TNSchema, ClassesAndEnumTypesKeepCreationOrderAndUniqueCaseSensitiveNames) {
    TNSchema schema;
    EXPECT_EQ(schema.version(), "1.8");
    EXPECT_FALSE(schema.isFullyPopulated());
    const auto b = schema.newClass("B");
    schema.newClass("A");
    schema.newClass("C");
    EXPECT_EQ(classNames(schema), (std::vector<SgxString>{"B", "A", "C"}));
    const auto size = schema.newEnumType("Size");
    schema.newEnumType("Color");
    ASSERT_EQ(schema.enumCount(), 2u);
    EXPECT_EQ(schema.enums()[0]->name(), "Size");
    EXPECT_EQ(schema.enums()[1]->name(), "Color");
    EXPECT_FALSE(schema.classExists("b"));
    EXPECT_FALSE(schema.enumExists("color"));

    using E = TNException;
    const struct {
        std::function<void()> call;
        E::Action action;
        E::Target target;
        E::Reason reason;
        const char* text;
    } rows[] = {
        {[&] { schema.newClass("B"); }, E::Create, E::Class, E::DuplicateName,
         "Unable to create class: The requested name duplicates an existing name.\nClass name: B"},
        {[&] { schema.getClass("b"); }, E::Access, E::Class, E::NameNotFound,
         "Unable to access class: The requested name does not exist.\nClass name: b"},
        {[&] { schema.newEnumType("Size"); }, E::Create, E::EnumType, E::DuplicateName, nullptr},
        {[&] { schema.getEnumType("color"); }, E::Access, E::EnumType, E::NameNotFound, nullptr},
        {[&] { schema.newObject("a", false); }, E::Access, E::Class, E::NameNotFound, nullptr},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(&row - rows));
        const auto e = raisedTN(row.call);
        ASSERT_TRUE(hasTriple(e, row.action, row.target, row.reason));
        if (row.text) {
            EXPECT_EQ(e->reasonText(), row.text);
        }
    }
    EXPECT_EQ(schema.classCount(), 3u);
    EXPECT_EQ(schema.enumCount(), 2u);
    EXPECT_EQ(schema.getClass("B"), b);
    EXPECT_EQ(schema.getEnumType("Size"), size);
    EXPECT_EQ(b->schema().get(), &schema);
    EXPECT_TRUE(schema.getClass("A")->objects().empty());
    const auto object = schema.newObject("A", false);
    EXPECT_EQ(schema.getClass("A")->objects(), std::vector<SgxSimplePtr<TNObject>>{object});
}

TEST(TNSchema, ModelSizeScalesNewRegionsAndZeroKeepsIt) {
    TNSchema schema;
    schema.unpopulate(); // start from no regions at all
    EXPECT_EQ(TNSchema::get_ModelSize(), 1u);
    TNSchema::set_ModelSize(3);
    TNSchema::set_ModelSize(0);
    EXPECT_EQ(TNSchema::get_ModelSize(), 3u);

    EXPECT_EQ(TNSchema::primaryMemoryRegion().blockBytes(), 3u * 26214400);
    EXPECT_EQ(TNSchema::temporaryMemoryRegion().blockBytes(), 3u * 52428800);
    EXPECT_EQ(TNSchema::stringMemoryRegion().blockBytes(), 10485760u);
    EXPECT_EQ(TNSchema::doubleMemoryRegion().blockBytes(), 5242880u);

    // Regions made before a change keep their size.
    TNSchema::set_ModelSize(1);
    EXPECT_EQ(TNSchema::primaryMemoryRegion().blockBytes(), 3u * 26214400);
    schema.unpopulate();
    EXPECT_EQ(TNSchema::primaryMemoryRegion().blockBytes(), 26214400u);
    schema.unpopulate();
}

TEST(TNSchema, DonePopulatingTrimsFreezesAndFreesTheTemporaryRegion) {
    TNSchema schema;
    schema.newClass("A");
    schema.newClass("B");
    schema.newClass("C");
    schema.newEnumType("E"); // both vectors grew to a capacity of four
    TNSchema::temporaryMemoryRegion().allocate(64, 8);
    TNSchema::primaryMemoryRegion().allocate(64, 8);

    const SgxShrinkStatistics before = shrinkStatistics();
    schema.donePopulating();
    const SgxShrinkStatistics after = shrinkStatistics();
    EXPECT_TRUE(schema.isFullyPopulated());
    EXPECT_EQ(after.count - before.count, 2u);
    EXPECT_EQ(after.bytesReleased - before.bytesReleased, (1u + 3u) * 8u);
    EXPECT_EQ(TNSchema::temporaryMemoryRegion().bytesAllocated(), 0u); // a new region
    EXPECT_EQ(TNSchema::primaryMemoryRegion().bytesAllocated(), 64u);  // kept

    // Freezing again is harmless, also when no temporary region exists (the third call).
    schema.donePopulating();
    schema.donePopulating();
    EXPECT_TRUE(schema.isFullyPopulated());
    EXPECT_EQ(classNames(schema), (std::vector<SgxString>{"A", "B", "C"}));
    schema.unpopulate();
}

TEST(TNSchema, UnpopulateKeepsTheMetamodelAndClearEmptiesEverything) {
    TNSchema schema;
    schema.newEnumType("Color")->addName("Red");
    const auto a = schema.newClass("A");
    a->addAttr("color", TNAttrEnumeration, "Color", "");
    a->addChild(schema.newClass("B"));
    a->newObject(false);
    schema.donePopulating();
    // The root is only stored and compared, never dereferenced, so any address serves.
    int stand_in = 0;
    schema.setRoot(reinterpret_cast<TNObject*>(&stand_in));
    TNSchema::primaryMemoryRegion().allocate(32, 8);
    schema.unpopulate();
    EXPECT_FALSE(schema.isFullyPopulated());
    EXPECT_TRUE(schema.rootObject().isNull());
    EXPECT_EQ(TNSchema::primaryMemoryRegion().bytesAllocated(), 0u);
    ASSERT_TRUE(schema.classExists("A"));
    EXPECT_TRUE(schema.getClass("B")->attributeExists("color"));
    EXPECT_TRUE(schema.getClass("A")->objects().empty());

    schema.donePopulating();
    schema.setRoot(reinterpret_cast<TNObject*>(&stand_in));
    schema.clear();
    EXPECT_EQ(schema.classCount(), 0u);
    EXPECT_EQ(schema.enumCount(), 0u);
    EXPECT_FALSE(schema.classExists("A"));
    EXPECT_FALSE(schema.isFullyPopulated());
    EXPECT_TRUE(schema.rootObject().isNull());
    EXPECT_EQ(schema.newClass("A")->attrCount(), 0u);
    EXPECT_EQ(schema.newEnumType("Color")->values().size(), 0u);
    schema.unpopulate();
}

// Guards against classes, descriptors, class identifiers or enumeration types being leaked or
// freed twice (the sanitizer build reports either); a clean teardown logs nothing.
TEST(TNSchema, DestructionDeletesTheWholeMetamodelOnce) {
    LogCapture log("Catch");
    {
        auto schema = std::make_unique<TNSchema>();
        schema->newEnumType("Color")->addName("Red");
        schema->newEnumType("Size")->addName("S");
        const auto root = schema->newClass("Root");
        const auto left = schema->newClass("Left");
        const auto right = schema->newClass("Right");
        const auto leaf = schema->newClass("Leaf");
        root->addChild(left);
        root->addChild(right);
        left->addChild(leaf);
        right->addChild(leaf);
        root->addAttr("color", TNAttrEnumeration, "Color", "");
        right->addAttr("size", TNAttrEnumeration, "Size", "");
        leaf->classIdentifier()->addAttr("color");
        leaf->taggedValue("alias", TNValue("A leaf"));
        ASSERT_EQ(leaf->attrCount(), 2u);
        schema->donePopulating();
    }
    {
        // A schema cleared first, then destroyed, deletes nothing twice.
        TNSchema schema;
        schema.newClass("A")->addAttr("x", TNAttrString, "", "");
        schema.newEnumType("E");
        schema.clear();
        schema.newClass("A")->addAttr("y", TNAttrString, "", "");
    }
    EXPECT_EQ(log.out.str(), "");
}

TEST(TNSchema, IdentityAndFactoryRegistration) {
    TNSchema one, other;
    EXPECT_TRUE(one.isEqual(&one));
    EXPECT_FALSE(one.isEqual(&other));
    for (const char* name :
         {"TNSchema", "TNClass", "TNAttrDesc", "TNEnumType", "TNClassIdentifier"}) {
        std::unique_ptr<RWCollectable> made(rwCreateFromFactory(name));
        ASSERT_NE(made, nullptr) << name;
        EXPECT_EQ(made->stringID(), name);
    }
    EXPECT_THROW(std::unique_ptr<RWCollectable>(one.copy()), SgxException);
}

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

    // Without the marker class (attributes elsewhere do not count): the defaults.
    TNSchema schema;
    schema.newClass("Package")->addAttr("major_3", TNAttrString, "", "");
    const TNMetamodelVersion none(schema);
    EXPECT_EQ(none.getKind(), "<<none>>");
    EXPECT_EQ(none.getMajorVersion(), -1);
    EXPECT_EQ(none.getMinorVersion(), -1);
    EXPECT_FALSE(none.meetsRequirement("<<none>>", 0, -1));
    EXPECT_TRUE(none.meetsRequirement("<<none>>", -1, -1));
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
