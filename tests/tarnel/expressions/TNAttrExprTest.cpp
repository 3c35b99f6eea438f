// The value operators that read a model object: TNAttrExpr, TNClassNameExpr, TNUidExpr.
#include "tarnel/expressions/ExprTestNodes.h"
#include "tarnel/metamodel/MetamodelTestSupport.h"
#include "tarnel/navigation/NavigationTestModel.h"

#include <cstdint>
#include <tuple>

TEST(TNAttrExpr, AttributeClassNameUidAndEqualityAcrossClassesAndNames) {
    NodeModel m;
    m.node->addAttr("weight", TNAttrReal, "", "");
    m.node->addAttr("quid", TNAttrString, "", "");
    m.schema.newClass("Other")->addAttr("size", TNAttrString, "", "");
    TNObject* n = m.make("n", 3);
    (*n)["visibility"] = "private";
    (*n)["weight"] = 2.5;
    (*n)["quid"] = "Q-7";
    TNObject* emptyQuid = m.make("e");
    TNObject* leaf = m.make("l", 4, true); // Leaf holds copies of Node's descriptors
    TNObject* other = m.schema.newObject("Other", false).get(); // no quid attribute
    (*other)["size"] = "big";
    auto address = [](const TNObject* o) { // the uid without a quid: the address's low 32 bits
        return std::to_string(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(o)));
    };

    auto* object = new TNObjectVarExpr;
    auto* name = new ValueProbe("name");
    TNAttrExpr attr(name, object);
    TNClassNameExpr className(object);
    TNUidExpr uid(object);
    // The same node alternates classes and names: a cached slot must never leak across them.
    const std::tuple<TNObject*, const char*, TNValue, const char*, std::string> rows[] = {
        {n, "visibility", "private", "Node", "Q-7"},
        {n, "size", 3, "Node", "Q-7"},
        {leaf, "size", 4, "Leaf", address(leaf)},
        {leaf, "visibility", "public", "Leaf", address(leaf)},
        {other, "size", "big", "Other", address(other)},
        {n, "weight", 2.5, "Node", "Q-7"},
        {n, "name", "n", "Node", "Q-7"},
        {emptyQuid, "size", 0, "Node", address(emptyQuid)},
        {n, "size", 3, "Node", "Q-7"},
    };
    for (const auto& [o, attribute, value, cls, id] : rows) {
        SCOPED_TRACE(std::string(cls) + "." + attribute);
        object->object(o);
        name->script({TNValue(attribute)});
        EXPECT_EQ(show(attr()), show(value));
        EXPECT_STREQ(className().text(), cls);
        EXPECT_EQ(uid().asString(), id);
    }
    name->script({TNValue("nope")});
    EXPECT_TRUE(hasTriple(raisedTN([&] { attr(); }), TNException::Access,
                          TNException::AttrDescriptor, TNException::NameNotFound));
    object->object(nullptr);
    for (const TNValueExpr* node :
         std::initializer_list<const TNValueExpr*>{&attr, &className, &uid})
        EXPECT_EQ(raised([&] { (*node)(); }), "Null dereference");
    deleteOperandsOf(attr);

    // Equality with a constant: the fast comparison agrees with comparing the attribute's value;
    // an enumeration compares its literal's name, so not with 1.
    const std::tuple<const char*, TNValue, bool> equalities[] = {
        {"visibility", "private", true},
        {"visibility", "public", false},
        {"visibility", "nope", false},
        {"visibility", 1, false},
        {"size", "3", true},
        {"name", "n", true},
    };
    for (const auto& [attribute, value, expected] : equalities) {
        SCOPED_TRACE(attribute + (" = " + show(value)));
        auto* read = new TNAttrExpr(attribute, new TNObjectVarExpr(n));
        const TNValue plain = (*read)();
        TNRelationalExpr equal(read, TNRelationalExpr::TNEqual, constant(value));
        EXPECT_EQ(equal().asBoolean(), expected);
        EXPECT_EQ(expected, plain == value);
        deleteOperandsOf(equal);
    }
    // A literal added later is found, though the same node looked for it before.
    TNRelationalExpr equal(new TNAttrExpr("visibility", new TNObjectVarExpr(n)),
                           TNRelationalExpr::TNEqual, constant("late"));
    EXPECT_FALSE(equal().asBoolean());
    m.schema.getEnumType("Visibility")->addName("late");
    (*n)["visibility"] = "late";
    EXPECT_TRUE(equal().asBoolean());
    deleteOperandsOf(equal);
}

TEST(TNAttrExpr, ConstantsChangedInPlaceAreReadAgain) {
    // The node remembers what it derived from a constant operand (the slot of a name, the index
    // of a literal); a new value set on the same constant node must not be answered from that.
    NodeModel m;
    TNObject* n = m.make("n", 3);
    (*n)["visibility"] = "private";
    auto* name = new TNConstantExpr("name");
    auto* literal = new TNConstantExpr("private");
    auto* attr = new TNAttrExpr(name, new TNObjectVarExpr(n));
    TNRelationalExpr equal(new TNAttrExpr("visibility", new TNObjectVarExpr(n)),
                           TNRelationalExpr::TNEqual, literal);
    EXPECT_EQ(show((*attr)()), show(TNValue("n")));
    EXPECT_TRUE(equal.test());
    name->value(TNValue("size"));
    literal->value(TNValue("public"));
    EXPECT_EQ(show((*attr)()), show(TNValue(3)));
    EXPECT_FALSE(equal.test());
    // A copy holds the same value, so what was derived from either serves both.
    TNConstantExpr copy(*literal);
    EXPECT_EQ(copy.stamp(), literal->stamp());
    copy.value(TNValue("private"));
    EXPECT_NE(copy.stamp(), literal->stamp());
    deleteOperandsOf(*attr);
    delete attr;
    deleteOperandsOf(equal);
}

TEST(TNAttrExpr, OneGraphReadsSuccessiveSchemas) {
    // A graph outlives the schemas it reads. Each round's class and enumeration type are likely
    // made where the last round's were freed, with the attributes and literals in another order:
    // nothing remembered about the old ones may answer for them.
    auto* object = new TNObjectVarExpr;
    TNRelationalExpr isPublic(new TNAttrExpr("visibility", object), TNRelationalExpr::TNEqual,
                              constant("public"));
    auto* size = new TNAttrExpr("size", object);
    auto* selfLinks = new TNAssociationTraversal("b", true);
    for (int round = 0; round < 8; ++round) {
        SCOPED_TRACE(round);
        const bool flip = round % 2 == 1;
        TNSchema schema;
        const auto visibility = schema.newEnumType("Visibility");
        visibility->addName(flip ? "private" : "public");
        visibility->addName(flip ? "public" : "private");
        const auto node = schema.newClass("Node");
        node->addAttr(flip ? "size" : "visibility", flip ? TNAttrInteger : TNAttrEnumeration,
                      flip ? "" : "Visibility", "");
        node->addAttr(flip ? "visibility" : "size", flip ? TNAttrEnumeration : TNAttrInteger,
                      flip ? "Visibility" : "", "");
        for (const char* role : {flip ? "b" : "a", flip ? "a" : "b"})
            node->addAssociation(role, "Node", {0, -1}, {0, -1}, std::string(role) + "-back", role);
        TNObject& o = *node->newObject(false);
        o["visibility"] = round % 4 < 2 ? "public" : "private";
        o["size"] = round;
        for (int i = 0; i <= round; ++i)
            o.associate(&o, "b");
        object->object(&o);
        EXPECT_EQ(isPublic.test(), round % 4 < 2);
        EXPECT_EQ((*size)().asLongInt(), round);
        EXPECT_EQ(selfLinks->count(&o), static_cast<size_t>(round + 1));
    }
    deleteOperandsOf(isPublic); // the variable with it
    delete size->name().get();
    delete size;
    delete selfLinks;
}
