#include "tarnel/metamodel/TNAttrDesc.h"

#include "tarnel/metamodel/MetamodelTestSupport.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNSchema.h"

#include <gtest/gtest.h>

TEST(TNAttrDesc, InheritedCopyKnowsItsHolderAndTheDeclaringClass) {
    TNSchema schema;
    const auto base = schema.newClass("Base");
    const auto derived = schema.newClass("Derived");
    base->addChild(derived);
    const auto declared = base->addAttr("size", TNAttrInteger, "", "");
    const TNAttrDesc& copied = (*derived)["size"];

    EXPECT_FALSE(declared->isInherited());
    EXPECT_TRUE(copied.isInherited());
    EXPECT_EQ(declared->originClass(), "Base");
    EXPECT_EQ(copied.originClass(), "Base");
    EXPECT_EQ(declared->getClass(), base);
    EXPECT_EQ(copied.getClass(), derived);

    derived->addAttr("mark", TNAttrString, "", "");
    EXPECT_FALSE((*derived)["mark"].isInherited());
}

TEST(TNAttrDesc, TypeWordKeepsItsUpperBits) {
    TNSchema schema;
    const auto cls = schema.newClass("A");
    const auto desc = cls->addAttr("flagged", static_cast<TNAttrType>(0x30 | TNAttrString), "", "");
    EXPECT_EQ(desc->type(), TNAttrString);
    EXPECT_EQ(desc->typeWord(), 0x33u);
    desc->setType(TNAttrInteger);
    EXPECT_EQ(desc->type(), TNAttrInteger);
    EXPECT_EQ(desc->typeWord(), 0x31u);
    // A kind of 0 in the low bits is an enumeration whatever the upper bits say.
    const auto e =
        raisedTN([&] { cls->addAttr("odd", static_cast<TNAttrType>(0x10), "Missing", ""); });
    EXPECT_TRUE(
        hasTriple(e, TNException::Create, TNException::AttrDescriptor, TNException::NameNotFound));
}

TEST(TNAttrDesc, TaggedValuesAndAliasFallBackToDefaultsThenName) {
    TNSchema schema;
    const auto cls = schema.newClass("A");
    const auto desc = cls->addAttr("length", TNAttrReal, "", "");
    const auto other = cls->addAttr("width", TNAttrReal, "", "");
    EXPECT_EQ(desc->alias(), "length");

    const auto missing = raisedTN([&] { desc->taggedValue("descTestTag"); });
    ASSERT_TRUE(hasTriple(missing, TNException::Access, TNException::TaggedValue,
                          TNException::NameNotFound));
    EXPECT_EQ(missing->attrName(), "length");
    EXPECT_EQ(missing->info(), "descTestTag");
    EXPECT_EQ(missing->className1(), "");

    TNAttrDesc::taggedValueDefault("descTestTag", TNValue(true));
    desc->taggedValue("descTestTag", TNValue(false));
    EXPECT_FALSE(desc->taggedValue("descTestTag").asBoolean());
    EXPECT_TRUE(other->taggedValue("descTestTag").asBoolean());

    desc->taggedValue("alias", TNValue("Length (mm)"));
    EXPECT_EQ(desc->alias(), "Length (mm)");
    desc->taggedValue("alias", TNValue(""));
    EXPECT_EQ(desc->alias(), "length");

    // A copy carries the tagged values with it.
    TNAttrDesc copy(*desc);
    EXPECT_EQ(copy.taggedValue("descTestTag").asBoolean(), false);
    EXPECT_EQ(copy.getClass(), cls);
}

TEST(TNAttrDesc, IdentityIsTheName) {
    TNSchema schema;
    const auto a = schema.newClass("A");
    const auto b = schema.newClass("B");
    const auto alpha = a->addAttr("alpha", TNAttrInteger, "", "");
    const auto beta = a->addAttr("beta", TNAttrInteger, "", "");
    const auto alphaElsewhere = b->addAttr("alpha", TNAttrString, "", "");

    EXPECT_TRUE(*alpha == *alphaElsewhere);
    EXPECT_TRUE(alpha->isEqual(alphaElsewhere.get()));
    EXPECT_EQ(alpha->compareTo(alphaElsewhere.get()), 0);
    EXPECT_EQ(alpha->hash(), alphaElsewhere->hash());
    EXPECT_EQ(alpha->compareTo(beta.get()), -1);
    EXPECT_EQ(beta->compareTo(alpha.get()), 1);
    EXPECT_FALSE(alpha->isEqual(nullptr));
    EXPECT_EQ(alpha->compareTo(nullptr), 1);
    EXPECT_FALSE(alpha->isEqual(a.get())); // a class of another name is not a descriptor
}
