// TNClass, TNAttrDesc and TNEnumType: inheritance by copying, lookups and their failures.
#include "tarnel/metamodel/TNClass.h"

#include "tarnel/metamodel/MetamodelTestSupport.h"
#include "tarnel/metamodel/TNAttrDesc.h"
#include "tarnel/metamodel/TNEnumType.h"
#include "tarnel/metamodel/TNSchema.h"

#include <functional>
#include <memory>
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
        SCOPED_TRACE(cls->name() + "." + name);
        EXPECT_EQ(TNClassTestAccess::attrIndex(*cls, name), static_cast<int32_t>(i));
        EXPECT_EQ(cls->findAttrIndex(name), static_cast<int32_t>(i));
        EXPECT_EQ(&(*cls)[name], attributes[i].get());
        EXPECT_EQ(attributes[i]->getClass(), cls);
    }
}

} // namespace

TEST(TNClass, InheritanceCopiesAttributesDownEveryLevelAndPath) {
    TNSchema schema;
    schema.newEnumType("Color")->addName("Red");
    const auto top = schema.newClass("Top");
    const auto left = schema.newClass("Left");
    const auto right = schema.newClass("Right");
    const auto bottom = schema.newClass("Bottom");
    top->addAttr("x", TNAttrReal, "", "");
    top->addAttr("color", TNAttrEnumeration, "Color", "");
    left->addAttr("z", TNAttrBoolean, "", "");
    top->addChild(left); // existing attributes arrive after the child's own, in index order
    EXPECT_EQ(attrNames(left), (std::vector<SgxString>{"z", "x", "color"}));
    EXPECT_EQ((*left)["color"].enumType(), schema.getEnumType("Color"));
    top->addChild(right);
    left->addChild(bottom);
    right->addChild(bottom); // Top's attributes arrive a second time: the same origin is accepted
    const auto declared = top->addAttr("late", TNAttrString, "", ""); // and again, by both paths
    EXPECT_EQ(attrNames(bottom), (std::vector<SgxString>{"z", "x", "color", "late"}));
    for (const auto& cls : {top, left, right, bottom}) {
        ASSERT_TRUE(cls->attributeExists("late")) << cls->name();
        const TNAttrDesc& desc = (*cls)["late"];
        EXPECT_EQ(desc.originClass(), "Top") << cls->name();
        EXPECT_EQ(desc.isInherited(), cls != top) << cls->name();
        EXPECT_EQ(desc.type(), TNAttrString) << cls->name();
        expectIndexesAreSlots(cls);
    }
    EXPECT_EQ(declared->getClass(), top);
    EXPECT_NE(&(*left)["late"], &(*bottom)["late"]); // each class holds its own copy
    EXPECT_EQ((*bottom)["z"].originClass(), "Left");
    EXPECT_FALSE(right->attributeExists("z"));
    // The inherited attribute arriving again with its origin returns what is there.
    EXPECT_EQ(bottom->addAttr("late", TNAttrString, "", "Top").get(), &(*bottom)["late"]);
    EXPECT_EQ(bottom->attrCount(), 4u);
    EXPECT_EQ(bottom->parents(), (std::vector<SgxSimplePtr<TNClass>>{left, right}));
    EXPECT_EQ(top->children(), (std::vector<SgxSimplePtr<TNClass>>{left, right}));
    EXPECT_TRUE(bottom->hasParent("Left"));
    EXPECT_FALSE(bottom->hasParent("Top")); // direct parents only
    EXPECT_FALSE(bottom->hasParent("left"));
    // addParent is addChild seen from the other side.
    const auto extra = schema.newClass("Extra");
    extra->addParent(right);
    EXPECT_EQ(attrNames(extra), (std::vector<SgxString>{"x", "color", "late"}));
}

TEST(TNClass, FailuresRaiseTheirTripleAndChangeNothing) {
    using E = TNException;
    TNSchema schema;
    schema.newEnumType("Empty");
    const auto left = schema.newClass("Left");
    const auto right = schema.newClass("Right");
    const auto bottom = schema.newClass("Bottom");
    left->addAttr("label", TNAttrString, "", "");
    right->addAttr("label", TNAttrString, "", "");
    left->addChild(bottom);
    const struct {
        std::function<void()> call;
        E::Action action;
        E::Target target;
        E::Reason reason;
        const char* text; // the exact reason text, when given
    } rows[] = {
        // The same name from another origin.
        {[&] { right->addChild(bottom); }, E::Create, E::AttrDescriptor, E::DuplicateName,
         "Unable to create attribute descriptor: The requested name duplicates an existing "
         "name.\nClass name: Bottom\nAttribute name: label"},
        {[&] { left->addAttr("label", TNAttrString, "", ""); }, E::Create, E::AttrDescriptor,
         E::DuplicateName, nullptr},
        {[&] { left->addAttr("k", TNAttrEnumeration, "Kind", ""); }, E::Create, E::AttrDescriptor,
         E::NameNotFound, nullptr},
        // A kind of 0 in the low bits is an enumeration whatever the upper bits say.
        {[&] { left->addAttr("k", static_cast<TNAttrType>(0x10), "Kind", ""); }, E::Create,
         E::AttrDescriptor, E::NameNotFound, nullptr},
        {[&] { left->addAttr("k", TNAttrEnumeration, "Empty", ""); }, E::Access, E::EnumType,
         E::NameNotFound, nullptr},
        {[&] { (*left)["Label"]; }, E::Access, E::AttrDescriptor, E::NameNotFound, nullptr},
        {[&] { TNClassTestAccess::assocIndex(*left, "owner"); }, E::Access, E::Association,
         E::NameNotFound, nullptr},
        {[&] { left->getAssociation("owner"); }, E::Access, E::Association, E::NameNotFound,
         "Unable to access association: The requested name does not exist.\nClass name: "
         "Left\nAssociation name: owner"},
        {[&] { left->taggedValue("noSuchTag"); }, E::Access, E::TaggedValue, E::NameNotFound,
         "Unable to access tagged value: The requested name does not exist.\nClass name: "
         "Left\nAttribute name: noSuchTag"},
        {[&] { (*left)["label"].taggedValue("noSuchTag"); }, E::Access, E::TaggedValue,
         E::NameNotFound, nullptr},
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE("row " + std::to_string(i));
        const auto e = raisedTN(rows[i].call);
        ASSERT_TRUE(hasTriple(e, rows[i].action, rows[i].target, rows[i].reason));
        if (rows[i].text) {
            EXPECT_EQ(e->reasonText(), rows[i].text);
        }
    }
    EXPECT_EQ((*bottom)["label"].originClass(), "Left");
    EXPECT_EQ(left->attrCount(), 1u);
    EXPECT_FALSE(left->attributeExists("k"));
    EXPECT_EQ(left->findAttrIndex("Label"), -1);
    EXPECT_EQ(left->findAssocIndex("owner"), -1);
    // Only enumeration attributes name a type; others ignore the argument.
    EXPECT_TRUE(left->addAttr("count", TNAttrInteger, "Kind", "")->enumType().isNull());
}

TEST(TNClass, TypeWordKeepsItsUpperBits) {
    TNSchema schema;
    const auto desc = schema.newClass("A")->addAttr("f", static_cast<TNAttrType>(0x33), "", "");
    EXPECT_EQ(desc->type(), TNAttrString);
    EXPECT_EQ(desc->typeWord(), 0x33u);
    desc->setType(TNAttrInteger);
    EXPECT_EQ(desc->typeWord(), 0x31u);
}

TEST(TNClass, FullyQualifiedNameIndexIsZeroWithoutTheAttribute) {
    TNSchema schema;
    const auto bare = schema.newClass("Bare");
    EXPECT_EQ(TNClassTestAccess::attrIndex(*bare, "fullyQualifiedName"), 0);
    // The answer is recorded in the index, but no descriptor stands behind it.
    EXPECT_TRUE(bare->attributeExists("fullyQualifiedName"));
    EXPECT_EQ(bare->attrCount(), 0u);
    EXPECT_THROW((*bare)["fullyQualifiedName"], TNException);
    // Declaring it later gives it a real position; only that name has the shortcut.
    bare->addAttr("first", TNAttrString, "", "");
    EXPECT_EQ(TNClassTestAccess::attrIndex(*bare, "fullyQualifiedName"), 0);
    bare->addAttr("fullyQualifiedName", TNAttrString, "", "");
    EXPECT_EQ(TNClassTestAccess::attrIndex(*bare, "fullyQualifiedName"), 1);
    expectIndexesAreSlots(bare);
    EXPECT_THROW(TNClassTestAccess::attrIndex(*bare, "fullyqualifiedname"), TNException);
}

TEST(TNClass, TaggedValuesAndAliasFallBackToDefaultsThenName) {
    TNSchema schema;
    const auto plain = schema.newClass("Plain");
    const auto named = schema.newClass("Named");
    TNClass::taggedValueDefault("classTestTag", TNValue(7));
    named->taggedValue("classTestTag", TNValue("own"));
    EXPECT_EQ(plain->taggedValue("classTestTag").asLongInt(), 7);
    EXPECT_EQ(named->taggedValue("classTestTag").asString(), "own");
    EXPECT_EQ(plain->alias(), "Plain");
    named->taggedValue("alias", TNValue("Shown"));
    TNClass::taggedValueDefault("alias", TNValue("Default alias"));
    EXPECT_EQ(named->alias(), "Shown");
    EXPECT_EQ(plain->alias(), "Default alias");
    named->taggedValue("alias", TNValue(""));
    EXPECT_EQ(named->alias(), "Named"); // an empty own alias does not fall to the default
    TNClass::taggedValueDefault("alias", TNValue(""));
    EXPECT_EQ(plain->alias(), "Plain");

    // Descriptors keep defaults of their own, and a copy carries the tagged values.
    const auto length = plain->addAttr("length", TNAttrReal, "", "");
    const auto width = plain->addAttr("width", TNAttrReal, "", "");
    TNAttrDesc::taggedValueDefault("descTestTag", TNValue(true));
    length->taggedValue("descTestTag", TNValue(false));
    EXPECT_TRUE(width->taggedValue("descTestTag").asBoolean());
    EXPECT_FALSE(TNAttrDesc(*length).taggedValue("descTestTag").asBoolean());
    length->taggedValue("alias", TNValue("Length (mm)"));
    EXPECT_EQ(length->alias(), "Length (mm)");
    length->taggedValue("alias", TNValue(""));
    EXPECT_EQ(length->alias(), "length");
}

TEST(TNClass, ClassesDescriptorsAndEnumTypesAreEqualByName) {
    TNSchema schema, another;
    const auto a = schema.newClass("A");
    const auto alpha = a->addAttr("alpha", TNAttrInteger, "", "");
    const auto twinA = another.newClass("A");
    const auto b = another.newClass("B");
    const TNEnumType color("Color"), color2("Color"), size("Size");
    const std::unique_ptr<RWCollectable> alpha2(alpha->copy());
    static_cast<TNAttrDesc&>(*alpha2).setType(TNAttrString);
    const auto beta = b->addAttr("beta", TNAttrInteger, "", "");
    // (x, its namesake, a later name): equal, 0 and the same hash; then -1 and 1.
    const std::tuple<const RWCollectable*, const RWCollectable*, const RWCollectable*> rows[] = {
        {a.get(), twinA.get(), b.get()},
        {alpha.get(), alpha2.get(), beta.get()},
        {&color, &color2, &size}};
    for (const auto& [x, same, later] : rows) {
        SCOPED_TRACE(x->stringID());
        EXPECT_TRUE(x->isEqual(same));
        EXPECT_EQ(x->compareTo(same), 0);
        EXPECT_EQ(x->hash(), same->hash());
        EXPECT_FALSE(x->isEqual(later));
        EXPECT_EQ(x->compareTo(later), -1);
        EXPECT_EQ(later->compareTo(x), 1);
        EXPECT_FALSE(x->isEqual(nullptr));
    }
    EXPECT_FALSE(alpha->isEqual(a.get())); // a class of another name is not a descriptor
    a->setIsDiagram(true);
    EXPECT_EQ(a->flags(), 4u);
    a->setIsDiagram(false);
    EXPECT_FALSE(a->isDiagram());
}

TEST(TNEnumType, LiteralsDuplicatesUnknownsAndDeepCopies) {
    TNEnumType type("Color");
    for (const char* literal : {"Red", "Green", "Blue"})
        type.addName(literal);
    EXPECT_EQ(type["Blue"], 2u);
    EXPECT_EQ(type[1ul], "Green");
    EXPECT_TRUE(type.check(2ul));
    EXPECT_FALSE(type.check(3ul));
    EXPECT_TRUE(type.check("Blue"));
    EXPECT_FALSE(type.check("blue"));
    EXPECT_FALSE(type.okToAdd("Red"));

    const auto duplicate = raisedTN([&] { type.addName("Red"); });
    ASSERT_TRUE(hasTriple(duplicate, TNException::Create, TNException::EnumType,
                          TNException::DuplicateName));
    // The literal, not the type's name, is in the enumeration type field.
    EXPECT_EQ(duplicate->reasonText(),
              "Unable to create enumeration type: The requested name "
              "duplicates an existing name.\n\nEnumeration type name: Red");
    const auto byName = raisedTN([&] { type["red"]; });
    ASSERT_TRUE(
        hasTriple(byName, TNException::Access, TNException::EnumType, TNException::NameNotFound));
    EXPECT_EQ(byName->enumTypeName(), "Color");
    EXPECT_EQ(byName->enumAttrName(), "red");
    const auto byIndex = raisedTN([&] { type[3ul]; });
    ASSERT_TRUE(
        hasTriple(byIndex, TNException::Access, TNException::EnumType, TNException::NameNotFound));
    EXPECT_EQ(byIndex->reasonText(), "Unable to access enumeration type: The requested name does "
                                     "not exist.\n\nEnumeration type name: Color");
    type.addName("red"); // case-sensitive: a different literal
    EXPECT_EQ(type["red"], 3u);

    std::unique_ptr<RWCollectable> copied(type.copy());
    static_cast<TNEnumType&>(*copied).addName("Black");
    EXPECT_EQ(type.values(), (std::vector<SgxString>{"Red", "Green", "Blue", "red"}));
    type.donePopulating();
    EXPECT_EQ(type["red"], 3u);
}
