#include "tarnel/metamodel/TNSchema.h"

#include "sgx/general/SgxLogBase.h"
#include "sgx/general/SgxStatistics.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/MetamodelTestSupport.h"
#include "tarnel/metamodel/TNAttrDesc.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNEnumType.h"
#include "tarnel/navigation/TNClassIdentifier.h"

#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <sstream>
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

TEST(TNSchema, ClassesKeepCreationOrderAndNamesAreUnique) {
    TNSchema schema;
    EXPECT_EQ(schema.version(), "1.8");
    EXPECT_FALSE(schema.isFullyPopulated());
    const auto b = schema.newClass("B");
    schema.newClass("A");
    schema.newClass("C");
    EXPECT_EQ(classNames(schema), (std::vector<SgxString>{"B", "A", "C"}));

    const auto e = raisedTN([&] { schema.newClass("B"); });
    ASSERT_TRUE(hasTriple(e, TNException::Create, TNException::Class, TNException::DuplicateName));
    EXPECT_EQ(e->reasonText(), "Unable to create class: The requested name duplicates an existing "
                               "name.\nClass name: B");
    EXPECT_EQ(schema.classCount(), 3u);
    EXPECT_EQ(schema.getClass("B"), b);
    EXPECT_EQ(b->schema().get(), &schema);
}

TEST(TNSchema, LookupsAreCaseSensitive) {
    TNSchema schema;
    schema.newClass("Part");
    schema.newEnumType("Color");

    EXPECT_TRUE(schema.classExists("Part"));
    EXPECT_FALSE(schema.classExists("part"));
    EXPECT_FALSE(schema.enumExists("color"));

    const auto missingClass = raisedTN([&] { schema.getClass("part"); });
    ASSERT_TRUE(hasTriple(missingClass, TNException::Access, TNException::Class,
                          TNException::NameNotFound));
    EXPECT_EQ(missingClass->reasonText(),
              "Unable to access class: The requested name does not exist.\nClass name: part");

    const auto missingType = raisedTN([&] { schema.getEnumType("color"); });
    ASSERT_TRUE(hasTriple(missingType, TNException::Access, TNException::EnumType,
                          TNException::NameNotFound));
    EXPECT_EQ(missingType->enumTypeName(), "color");
}

TEST(TNSchema, EnumTypesKeepCreationOrderAndNamesAreUnique) {
    TNSchema schema;
    const auto size = schema.newEnumType("Size");
    schema.newEnumType("Color");
    ASSERT_EQ(schema.enumCount(), 2u);
    EXPECT_EQ(schema.enums()[0]->name(), "Size");
    EXPECT_EQ(schema.enums()[1]->name(), "Color");

    const auto e = raisedTN([&] { schema.newEnumType("Size"); });
    ASSERT_TRUE(
        hasTriple(e, TNException::Create, TNException::EnumType, TNException::DuplicateName));
    EXPECT_EQ(e->enumTypeName(), "Size");
    EXPECT_EQ(schema.enumCount(), 2u);
    EXPECT_EQ(schema.getEnumType("Size"), size);
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

TEST(TNSchema, UnpopulateDropsTheModelAndKeepsTheMetamodel) {
    TNSchema schema;
    schema.newClass("A")->addAttr("x", TNAttrInteger, "", "");
    schema.donePopulating();
    // The root is only stored and compared, never dereferenced, so any address serves.
    int stand_in = 0;
    schema.setRoot(reinterpret_cast<TNObject*>(&stand_in));
    EXPECT_FALSE(schema.rootObject().isNull());
    TNSchema::primaryMemoryRegion().allocate(32, 8);

    schema.unpopulate();
    EXPECT_FALSE(schema.isFullyPopulated());
    EXPECT_TRUE(schema.rootObject().isNull());
    EXPECT_EQ(TNSchema::primaryMemoryRegion().bytesAllocated(), 0u);
    ASSERT_TRUE(schema.classExists("A"));
    EXPECT_TRUE(schema.getClass("A")->attributeExists("x"));
    EXPECT_TRUE(schema.getClass("A")->objects().empty());
    schema.unpopulate();
}

TEST(TNSchema, ClearEmptiesEverythingAndTheSchemaStaysUsable) {
    TNSchema schema;
    schema.newEnumType("Color")->addName("Red");
    const auto a = schema.newClass("A");
    a->addAttr("color", TNAttrEnumeration, "Color", "");
    a->addChild(schema.newClass("B"));
    schema.donePopulating();
    int stand_in = 0;
    schema.setRoot(reinterpret_cast<TNObject*>(&stand_in));

    schema.clear();
    EXPECT_EQ(schema.classCount(), 0u);
    EXPECT_EQ(schema.enumCount(), 0u);
    EXPECT_FALSE(schema.classExists("A"));
    EXPECT_FALSE(schema.enumExists("Color"));
    EXPECT_FALSE(schema.isFullyPopulated());
    EXPECT_TRUE(schema.rootObject().isNull());

    EXPECT_EQ(schema.newClass("A")->attrCount(), 0u);
    EXPECT_EQ(schema.newEnumType("Color")->values().size(), 0u);
}

// Guards against classes, descriptors, class identifiers or enumeration types being leaked or
// freed twice (the sanitizer build reports either); a clean teardown logs nothing.
TEST(TNSchema, DestructionDeletesTheWholeMetamodelOnce) {
    std::ostringstream log;
    SgxException::getLog().enable("Catch");
    SgxException::getLog().setStream(&log);
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
    SgxException::getLog().enable("Catch", false);
    SgxException::getLog().setStream(&std::cerr);
    EXPECT_EQ(log.str(), "");
}

TEST(TNSchema, IdentityAndFactoryRegistration) {
    TNSchema one;
    TNSchema other;
    EXPECT_TRUE(one == one);
    EXPECT_FALSE(one == other);
    EXPECT_TRUE(one.isEqual(&one));
    EXPECT_FALSE(one.isEqual(&other));
    EXPECT_FALSE(one.isEqual(nullptr));

    for (const char* name :
         {"TNSchema", "TNClass", "TNAttrDesc", "TNEnumType", "TNClassIdentifier"}) {
        std::unique_ptr<RWCollectable> made(rwCreateFromFactory(name));
        ASSERT_NE(made, nullptr) << name;
        EXPECT_EQ(made->stringID(), name);
    }
    EXPECT_THROW(std::unique_ptr<RWCollectable>(one.copy()), SgxException);
}

TEST(TNSchema, NewObjectLooksTheClassUpFirst) {
    TNSchema schema;
    schema.newClass("A");
    const auto e = raisedTN([&] { schema.newObject("a", false); });
    EXPECT_TRUE(hasTriple(e, TNException::Access, TNException::Class, TNException::NameNotFound));
    EXPECT_TRUE(schema.getClass("A")->objects().empty());
    const auto object = schema.newObject("A", false);
    EXPECT_EQ(object->getClass(), schema.getClass("A"));
    EXPECT_EQ(schema.getClass("A")->objects(), std::vector<SgxSimplePtr<TNObject>>{object});
}
