#include "tarnel/metamodel/TNEnumType.h"

#include "tarnel/metamodel/MetamodelTestSupport.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

TNEnumType rgb() {
    TNEnumType type("Color");
    type.addName("Red");
    type.addName("Green");
    type.addName("Blue");
    return type;
}

} // namespace

TEST(TNEnumType, LiteralsGetDenseIndexesInOrderOfAddition) {
    const TNEnumType type = rgb();
    EXPECT_EQ(type["Red"], 0u);
    EXPECT_EQ(type["Green"], 1u);
    EXPECT_EQ(type["Blue"], 2u);
    EXPECT_EQ(type[1ul], "Green");
    EXPECT_EQ(type.values(), (std::vector<SgxString>{"Red", "Green", "Blue"}));
    EXPECT_TRUE(type.check(2ul));
    EXPECT_FALSE(type.check(3ul));
    EXPECT_TRUE(type.check("Blue"));
    EXPECT_FALSE(type.check("blue"));
    EXPECT_FALSE(type.okToAdd("Red"));
    EXPECT_TRUE(type.okToAdd("red"));
}

TEST(TNEnumType, DuplicateLiteralNamesTheLiteral) {
    TNEnumType type = rgb();
    const auto e = raisedTN([&] { type.addName("Red"); });
    ASSERT_TRUE(
        hasTriple(e, TNException::Create, TNException::EnumType, TNException::DuplicateName));
    // The literal, not the type's name, is in the enumeration type field.
    EXPECT_EQ(e->enumTypeName(), "Red");
    EXPECT_EQ(e->enumAttrName(), "");
    EXPECT_EQ(e->reasonText(), "Unable to create enumeration type: The requested name duplicates "
                               "an existing name.\n\nEnumeration type name: Red");
    EXPECT_EQ(type.values().size(), 3u);
    type.addName("red"); // case-sensitive: a different literal
    EXPECT_EQ(type["red"], 3u);
}

TEST(TNEnumType, UnknownLiteralOrIndexRaises) {
    const TNEnumType type = rgb();
    const auto byName = raisedTN([&] { type["red"]; });
    ASSERT_TRUE(
        hasTriple(byName, TNException::Access, TNException::EnumType, TNException::NameNotFound));
    EXPECT_EQ(byName->enumTypeName(), "Color");
    EXPECT_EQ(byName->enumAttrName(), "red");

    const auto byIndex = raisedTN([&] { type[3ul]; });
    ASSERT_TRUE(
        hasTriple(byIndex, TNException::Access, TNException::EnumType, TNException::NameNotFound));
    EXPECT_EQ(byIndex->enumTypeName(), "Color");
    EXPECT_EQ(byIndex->enumAttrName(), "");
    EXPECT_EQ(byIndex->reasonText(),
              "Unable to access enumeration type: The requested name does not exist.\n"
              "\nEnumeration type name: Color");
}

TEST(TNEnumType, IdentityIsTheNameAndCopiesAreDeep) {
    TNEnumType type = rgb();
    std::unique_ptr<RWCollectable> copied(type.copy());
    auto* copy = dynamic_cast<TNEnumType*>(copied.get());
    ASSERT_NE(copy, nullptr);
    copy->addName("Black");
    EXPECT_EQ(type.values().size(), 3u);
    EXPECT_EQ((*copy)["Black"], 3u);

    EXPECT_TRUE(type.isEqual(copy));
    EXPECT_EQ(type.compareTo(copy), 0);
    EXPECT_EQ(type.hash(), copy->hash());
    const TNEnumType size("Size");
    EXPECT_EQ(type.compareTo(&size), -1);
    EXPECT_EQ(size.compareTo(&type), 1);
    EXPECT_FALSE(type.isEqual(&size));
    EXPECT_FALSE(type.isEqual(nullptr));

    type.donePopulating();
    EXPECT_EQ(type.values(), (std::vector<SgxString>{"Red", "Green", "Blue"}));
    EXPECT_EQ(type["Blue"], 2u);
}
