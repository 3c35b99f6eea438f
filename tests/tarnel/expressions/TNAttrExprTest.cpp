// The value operators that read a model object: TNAttrExpr, TNClassNameExpr, TNUidExpr.
#include "tarnel/expressions/ExprTestNodes.h"
#include "tarnel/metamodel/MetamodelTestSupport.h"
#include "tarnel/navigation/NavigationTestModel.h"

#include <cstdint>

TEST(TNAttrExpr, ValuesByKindAcrossClassesAndNames) {
    NodeModel m;
    m.node->addAttr("weight", TNAttrReal, "", "");
    m.schema.newClass("Other")->addAttr("size", TNAttrString, "", "");
    TNObject* n = m.make("n", 3);
    (*n)["visibility"] = "private";
    (*n)["weight"] = 2.5;
    TNObject* leaf = m.make("l", 4, true); // Leaf holds copies of Node's descriptors
    TNObject& other = *m.schema.newObject("Other", false);
    other["size"] = "big";

    auto* object = new TNObjectVarExpr;
    auto* name = new ValueProbe("name");
    TNAttrExpr attr(name, object);
    // The same node alternates classes and names: a cached slot must never leak across them.
    const struct {
        TNObject* object;
        const char* name;
        TNValue expected;
    } cases[] = {
        {n, "visibility", TNValue("private")},
        {n, "size", TNValue(3)},
        {leaf, "size", TNValue(4)},
        {leaf, "visibility", TNValue("public")},
        {&other, "size", TNValue("big")},
        {n, "weight", TNValue(2.5)},
        {n, "name", TNValue("n")},
        {n, "size", TNValue(3)},
    };
    for (const auto& c : cases) {
        object->object(c.object);
        name->script({TNValue(c.name)});
        const TNValue got = attr();
        EXPECT_EQ(got.myType(), c.expected.myType()) << c.name;
        EXPECT_TRUE(got == c.expected) << c.name << ": " << got.asString();
    }
    name->script({TNValue("nope")});
    EXPECT_TRUE(hasTriple(raisedTN([&] { attr(); }), TNException::Access,
                          TNException::AttrDescriptor, TNException::NameNotFound));
    object->object(nullptr);
    EXPECT_EQ(raised([&] { attr(); }), "Null dereference");
    deleteOperandsOf(attr);
}

TEST(TNAttrExpr, EqualityWithAConstantAsTheValuesCompare) {
    NodeModel m;
    TNObject* n = m.make("n", 3);
    (*n)["visibility"] = "private";
    // The fast comparison agrees with comparing the attribute's value.
    auto test = [&](const char* attribute, const TNValue& constant) {
        auto* attr = new TNAttrExpr(attribute, new TNObjectVarExpr(n));
        const TNValue value = (*attr)();
        TNRelationalExpr equal(attr, TNRelationalExpr::TNEqual, new TNConstantExpr(constant));
        const bool result = equal().asBoolean();
        EXPECT_EQ(result, value == constant) << attribute;
        deleteOperandsOf(equal);
        return result;
    };
    EXPECT_TRUE(test("visibility", TNValue("private")));
    EXPECT_FALSE(test("visibility", TNValue("public")));
    EXPECT_FALSE(test("visibility", TNValue("nope")));
    EXPECT_FALSE(test("visibility", TNValue(1))); // the literal's name against "1"
    EXPECT_TRUE(test("size", TNValue("3")));
    EXPECT_TRUE(test("name", TNValue("n")));
    // A literal added later is found, though the same node looked for it before.
    SgxCyclicPtr<TNObjectVarExpr> y = new TNObjectVarExpr(n);
    TNRelationalExpr equal(new TNAttrExpr("visibility", y), TNRelationalExpr::TNEqual,
                           new TNConstantExpr("late"));
    EXPECT_FALSE(equal().asBoolean());
    m.schema.getEnumType("Visibility")->addName("late");
    (*n)["visibility"] = "late";
    EXPECT_TRUE(equal().asBoolean());
    deleteOperandsOf(equal);
}

TEST(TNClassNameExpr, TheObjectsClass) {
    NodeModel m;
    auto* object = new TNObjectVarExpr(m.make("l", 0, true));
    TNClassNameExpr className(object);
    EXPECT_STREQ(className().text(), "Leaf");
    object->object(nullptr);
    EXPECT_EQ(raised([&] { className(); }), "Null dereference");
    deleteOperandsOf(className);
}

TEST(TNUidExpr, QuidOrTheAddressLow32Bits) {
    NodeModel m;
    m.node->addAttr("quid", TNAttrString, "", "");
    TNObject* withQuid = m.make("q");
    (*withQuid)["quid"] = "Q-7";
    TNObject* emptyQuid = m.make("e");
    TNObject& noQuid = *m.schema.newClass("Bare")->newObject(false);
    auto address = [](const TNObject* o) {
        return std::to_string(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(o)));
    };
    auto* object = new TNObjectVarExpr;
    TNUidExpr uid(object);
    for (const auto& [o, expected] : {std::pair<TNObject*, std::string>{withQuid, "Q-7"},
                                      {emptyQuid, address(emptyQuid)},
                                      {&noQuid, address(&noQuid)}}) {
        object->object(o);
        EXPECT_EQ(uid().asString(), expected);
    }
    object->object(nullptr);
    EXPECT_EQ(raised([&] { uid(); }), "Null dereference");
    deleteOperandsOf(uid);
}
