#include "tarnel/metamodel/TNClass.h"

#include "tarnel/metamodel/MetamodelTestSupport.h"
#include "tarnel/metamodel/TNAttrDesc.h"
#include "tarnel/metamodel/TNEnumType.h"
#include "tarnel/metamodel/TNSchema.h"
#include "tarnel/navigation/TNClassIdentifier.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<SgxString> attrNames(const SgxSimplePtr<TNClass>& cls) {
    std::vector<SgxString> names;
    for (const auto& desc : cls->attributes())
        names.push_back(desc->name());
    return names;
}

// Every attribute's index equals its position in attributes(), and operator[] finds it there.
void expectIndexesAreSlots(const SgxSimplePtr<TNClass>& cls) {
    const auto attributes = cls->attributes();
    for (size_t i = 0; i < attributes.size(); ++i) {
        const SgxString name = attributes[i]->name();
        EXPECT_EQ(TNClassTestAccess::attrIndex(*cls, name), static_cast<int32_t>(i))
            << cls->name() << "." << name;
        EXPECT_EQ(cls->findAttrIndex(name), static_cast<int32_t>(i)) << cls->name() << "." << name;
        EXPECT_EQ(&(*cls)[name], attributes[i].get()) << cls->name() << "." << name;
        EXPECT_EQ(attributes[i]->getClass(), cls) << cls->name() << "." << name;
    }
}

} // namespace

TEST(TNClass, AttributesAddedLaterReachEveryDescendant) {
    TNSchema schema;
    const auto a = schema.newClass("A");
    const auto b = schema.newClass("B");
    const auto c = schema.newClass("C");
    a->addChild(b);
    b->addChild(c);
    c->addAttr("own", TNAttrInteger, "", "");

    const auto declared = a->addAttr("name", TNAttrString, "", "");
    EXPECT_EQ(declared->getClass(), a);
    for (const auto& cls : {a, b, c}) {
        ASSERT_TRUE(cls->attributeExists("name")) << cls->name();
        const TNAttrDesc& desc = (*cls)["name"];
        EXPECT_EQ(desc.originClass(), "A") << cls->name();
        EXPECT_EQ(desc.type(), TNAttrString) << cls->name();
        expectIndexesAreSlots(cls);
    }
    // Each class holds a descriptor of its own, in arrival order.
    EXPECT_NE(&(*b)["name"], &(*c)["name"]);
    EXPECT_EQ(attrNames(c), (std::vector<SgxString>{"own", "name"}));
    EXPECT_FALSE(b->attributeExists("own"));

    // The inherited attribute arriving again with its origin returns what is there.
    EXPECT_EQ(c->addAttr("name", TNAttrString, "", "A").get(), &(*c)["name"]);
    EXPECT_EQ(c->attrCount(), 2u);
}

TEST(TNClass, AddChildHandsDownExistingAttributesInIndexOrder) {
    TNSchema schema;
    schema.newEnumType("Color")->addName("Red");
    const auto a = schema.newClass("A");
    const auto b = schema.newClass("B");
    a->addAttr("x", TNAttrReal, "", "");
    a->addAttr("color", TNAttrEnumeration, "Color", "");
    b->addAttr("z", TNAttrBoolean, "", "");

    a->addChild(b);
    EXPECT_EQ(attrNames(b), (std::vector<SgxString>{"z", "x", "color"}));
    EXPECT_EQ((*b)["color"].enumType(), schema.getEnumType("Color"));
    EXPECT_EQ((*b)["color"].originClass(), "A");
    EXPECT_EQ((*b)["z"].originClass(), "B");
    expectIndexesAreSlots(b);
    ASSERT_EQ(b->parentCount(), 1u);
    EXPECT_EQ(b->parents()[0], a);
    ASSERT_EQ(a->childCount(), 1u);
    EXPECT_EQ(a->children()[0], b);
}

TEST(TNClass, SameAttributeThroughTwoParentsArrivesOnce) {
    TNSchema schema;
    const auto top = schema.newClass("Top");
    const auto left = schema.newClass("Left");
    const auto right = schema.newClass("Right");
    const auto bottom = schema.newClass("Bottom");
    top->addAttr("id", TNAttrString, "", "");
    top->addChild(left);
    top->addChild(right);
    left->addChild(bottom);
    right->addChild(bottom);                     // "id" from Top arrives a second time
    top->addAttr("late", TNAttrInteger, "", ""); // and again, by both paths, after the fact

    EXPECT_EQ(attrNames(bottom), (std::vector<SgxString>{"id", "late"}));
    EXPECT_EQ(bottom->parentCount(), 2u);
    expectIndexesAreSlots(bottom);

    // addParent is addChild seen from the other side.
    const auto extra = schema.newClass("Extra");
    extra->addParent(left);
    EXPECT_EQ(attrNames(extra), (std::vector<SgxString>{"id", "late"}));
    EXPECT_TRUE(extra->hasParent("Left"));
}

TEST(TNClass, DuplicateAttributeFromAnotherOriginRaises) {
    TNSchema schema;
    const auto left = schema.newClass("Left");
    const auto right = schema.newClass("Right");
    const auto bottom = schema.newClass("Bottom");
    left->addAttr("label", TNAttrString, "", "");
    right->addAttr("label", TNAttrString, "", "");
    left->addChild(bottom);

    const auto e = raisedTN([&] { right->addChild(bottom); });
    ASSERT_TRUE(
        hasTriple(e, TNException::Create, TNException::AttrDescriptor, TNException::DuplicateName));
    EXPECT_EQ(e->reasonText(), "Unable to create attribute descriptor: The requested name "
                               "duplicates an existing name.\nClass name: Bottom\nAttribute "
                               "name: label");
    EXPECT_EQ((*bottom)["label"].originClass(), "Left");

    // Declaring an own attribute twice is a duplicate as well (the origin argument differs).
    const auto again = raisedTN([&] { left->addAttr("label", TNAttrString, "", ""); });
    EXPECT_TRUE(hasTriple(again, TNException::Create, TNException::AttrDescriptor,
                          TNException::DuplicateName));
    EXPECT_EQ(left->attrCount(), 1u);
}

TEST(TNClass, EnumerationAttributeNeedsAKnownTypeWithALiteral) {
    TNSchema schema;
    const auto cls = schema.newClass("Part");
    schema.newEnumType("Empty");
    schema.newEnumType("Color")->addName("Red");

    const auto unknown = raisedTN([&] { cls->addAttr("kind", TNAttrEnumeration, "Kind", ""); });
    ASSERT_TRUE(hasTriple(unknown, TNException::Create, TNException::AttrDescriptor,
                          TNException::NameNotFound));
    EXPECT_EQ(unknown->attrName(), "kind");
    EXPECT_EQ(unknown->enumTypeName(), "Kind");

    const auto empty = raisedTN([&] { cls->addAttr("kind", TNAttrEnumeration, "Empty", ""); });
    ASSERT_TRUE(
        hasTriple(empty, TNException::Access, TNException::EnumType, TNException::NameNotFound));
    EXPECT_EQ(empty->enumTypeName(), "Empty");
    EXPECT_EQ(cls->attrCount(), 0u);
    EXPECT_FALSE(cls->attributeExists("kind"));

    // Only enumeration attributes name a type; others ignore the argument.
    cls->addAttr("count", TNAttrInteger, "NoSuchType", "");
    EXPECT_TRUE(cls->addAttr("color", TNAttrEnumeration, "Color", "")->enumType() ==
                schema.getEnumType("Color"));
    EXPECT_TRUE((*cls)["count"].enumType().isNull());
}

TEST(TNClass, FullyQualifiedNameIndexIsZeroWithoutTheAttribute) {
    TNSchema schema;
    const auto bare = schema.newClass("Bare");
    EXPECT_EQ(TNClassTestAccess::attrIndex(*bare, "fullyQualifiedName"), 0);
    // The answer is recorded in the index, but no descriptor stands behind it.
    EXPECT_TRUE(bare->attributeExists("fullyQualifiedName"));
    EXPECT_EQ(bare->attrCount(), 0u);
    const auto e = raisedTN([&] { (*bare)["fullyQualifiedName"]; });
    EXPECT_TRUE(
        hasTriple(e, TNException::Access, TNException::AttrDescriptor, TNException::NameNotFound));

    // Declaring it later gives it a real position.
    bare->addAttr("first", TNAttrString, "", "");
    EXPECT_EQ(TNClassTestAccess::attrIndex(*bare, "fullyQualifiedName"), 0);
    bare->addAttr("fullyQualifiedName", TNAttrString, "", "");
    EXPECT_EQ(TNClassTestAccess::attrIndex(*bare, "fullyQualifiedName"), 1);
    EXPECT_EQ((*bare)["fullyQualifiedName"].name(), "fullyQualifiedName");
    expectIndexesAreSlots(bare);

    // Only that name has the shortcut.
    const auto other = raisedTN([&] { TNClassTestAccess::attrIndex(*bare, "fullyqualifiedname"); });
    ASSERT_TRUE(hasTriple(other, TNException::Access, TNException::AttrDescriptor,
                          TNException::NameNotFound));
    EXPECT_EQ(other->attrName(), "fullyqualifiedname");
}

TEST(TNClass, LookupsAreCaseSensitiveAndMissingNamesRaise) {
    TNSchema schema;
    const auto cls = schema.newClass("Part");
    cls->addAttr("Name", TNAttrString, "", "");
    EXPECT_TRUE(cls->attributeExists("Name"));
    EXPECT_FALSE(cls->attributeExists("name"));
    EXPECT_EQ(cls->findAttrIndex("name"), -1);

    const auto attr = raisedTN([&] { (*cls)["name"]; });
    ASSERT_TRUE(hasTriple(attr, TNException::Access, TNException::AttrDescriptor,
                          TNException::NameNotFound));
    EXPECT_EQ(attr->attrName(), "name");

    EXPECT_FALSE(cls->associationExists("owner"));
    EXPECT_EQ(cls->findAssocIndex("owner"), -1);
    EXPECT_EQ(cls->associationCount(), 0u);
    const auto index = raisedTN([&] { TNClassTestAccess::assocIndex(*cls, "owner"); });
    ASSERT_TRUE(
        hasTriple(index, TNException::Access, TNException::Association, TNException::NameNotFound));
    EXPECT_EQ(index->assocName(), "owner");
    EXPECT_EQ(index->className1(), "");
    const auto assoc = raisedTN([&] { cls->getAssociation("owner"); });
    ASSERT_TRUE(
        hasTriple(assoc, TNException::Access, TNException::Association, TNException::NameNotFound));
    EXPECT_EQ(assoc->reasonText(), "Unable to access association: The requested name does not "
                                   "exist.\nClass name: Part\nAssociation name: owner");
}

TEST(TNClass, HasParentSeesOnlyDirectParents) {
    TNSchema schema;
    const auto grand = schema.newClass("Grand");
    const auto parent = schema.newClass("Parent");
    const auto child = schema.newClass("Child");
    grand->addChild(parent);
    parent->addChild(child);
    EXPECT_TRUE(child->hasParent("Parent"));
    EXPECT_FALSE(child->hasParent("Grand"));
    EXPECT_FALSE(child->hasParent("parent"));
}

TEST(TNClass, TaggedValuesAndAliasFallBackToDefaultsThenName) {
    TNSchema schema;
    const auto plain = schema.newClass("Plain");
    const auto named = schema.newClass("Named");
    EXPECT_EQ(plain->alias(), "Plain");

    const auto missing = raisedTN([&] { plain->taggedValue("classTestTag"); });
    ASSERT_TRUE(hasTriple(missing, TNException::Access, TNException::TaggedValue,
                          TNException::NameNotFound));
    EXPECT_EQ(missing->className1(), "Plain");
    EXPECT_EQ(missing->attrName(), "classTestTag");

    TNClass::taggedValueDefault("classTestTag", TNValue(7));
    named->taggedValue("classTestTag", TNValue("own"));
    EXPECT_EQ(plain->taggedValue("classTestTag").asLongInt(), 7);
    EXPECT_EQ(named->taggedValue("classTestTag").asString(), "own");

    named->taggedValue("alias", TNValue("Shown"));
    TNClass::taggedValueDefault("alias", TNValue("Default alias"));
    EXPECT_EQ(named->alias(), "Shown");
    EXPECT_EQ(plain->alias(), "Default alias");
    named->taggedValue("alias", TNValue(""));
    EXPECT_EQ(named->alias(), "Named"); // an empty own alias does not fall to the default
    TNClass::taggedValueDefault("alias", TNValue(""));
    EXPECT_EQ(plain->alias(), "Plain");
}

TEST(TNClass, FlagsIdentityAndClassIdentifier) {
    TNSchema schema;
    TNSchema another;
    const auto cls = schema.newClass("Diagram");
    EXPECT_FALSE(cls->isDiagram());
    cls->setIsDiagram(true);
    EXPECT_TRUE(cls->isDiagram());
    EXPECT_EQ(cls->flags(), 4u);
    cls->setIsDiagram(false);
    EXPECT_EQ(cls->flags(), 0u);

    // Classes are equal by name, also across schemas.
    const auto twin = another.newClass("Diagram");
    const auto later = another.newClass("Entity");
    EXPECT_TRUE(*cls == *twin);
    EXPECT_TRUE(cls->isEqual(twin.get()));
    EXPECT_EQ(cls->compareTo(twin.get()), 0);
    EXPECT_EQ(cls->hash(), twin->hash());
    EXPECT_FALSE(cls->isEqual(later.get()));
    EXPECT_EQ(cls->compareTo(later.get()), -1);
    EXPECT_EQ(later->compareTo(cls.get()), 1);
    EXPECT_FALSE(cls->isEqual(&schema));

    ASSERT_FALSE(cls->classIdentifier().isNull());
    EXPECT_EQ(cls->classIdentifier()->className(), "Diagram");
    EXPECT_EQ(cls->classIdentifier()->attrCount(), 0u);
}
