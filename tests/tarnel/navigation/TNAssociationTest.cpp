#include "tarnel/navigation/TNAssociation.h"

#include "rw/RWTestSupport.h"
#include "rw/RWbstream.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/MetamodelTestSupport.h"
#include "tarnel/metamodel/TNSchema.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

// A declares "bs" (many B) <-> B "a"; Sub is a child of A attached before the declaration.
struct Declared {
    Declared() {
        a = schema.newClass("A");
        b = schema.newClass("B");
        sub = schema.newClass("Sub");
        a->addChild(sub);
        bs = a->addAssociation("ab", "B", {0, -1}, {1, 1}, "a", "bs");
    }
    TNSchema schema;
    SgxSimplePtr<TNClass> a, b, sub;
    SgxSimplePtr<TNAssociation> bs;
};

} // namespace

TEST(TNAssociation, AddAssociationEntersBothEndsAndCopiesToChildren) {
    Declared d;
    EXPECT_EQ(d.bs->firstClass(), d.a);
    EXPECT_EQ(d.bs->otherClass(), d.b);
    EXPECT_EQ(d.bs->myMultiplicity(), TNMultiplicity(0, -1));
    EXPECT_EQ(d.bs->roleName(), "a");
    EXPECT_EQ(d.a->getAssociation("bs"), d.bs);

    const auto reverse = d.b->getAssociation("a");
    EXPECT_EQ(reverse->firstClass(), d.b);
    EXPECT_EQ(reverse->otherClass(), d.a);
    EXPECT_EQ(reverse->myMultiplicity(), TNMultiplicity(1, 1));
    EXPECT_EQ(reverse->otherMultiplicity(), TNMultiplicity(0, -1));
    EXPECT_EQ(reverse->roleName(), "bs");
    EXPECT_EQ(reverse->name(), "ab");

    // The child has a copy of its own; its first class is still the declaring class.
    const auto inherited = d.sub->getAssociation("bs");
    EXPECT_NE(inherited, d.bs);
    EXPECT_EQ(inherited->firstClass(), d.a);
    EXPECT_TRUE(inherited->isSimple());
    EXPECT_FALSE(d.bs->isInherited());

    // Declared on the parent before the child was attached: the child does not receive it.
    const auto late = d.schema.newClass("Late");
    d.a->addChild(late);
    EXPECT_FALSE(late->associationExists("bs"));

    const auto e = raisedTN([&] { d.a->addAssociation("x", "Nope", {}, {}, "r", "o"); });
    ASSERT_TRUE(
        hasTriple(e, TNException::Create, TNException::Association, TNException::NameNotFound));
    EXPECT_EQ(e->assocName(), "x");
    EXPECT_EQ(e->className1(), "A");
    EXPECT_EQ(e->className2(), "Nope");
}

TEST(TNAssociation, InheritedEntriesAreReplacedInPlaceAndFoundThroughTheParents) {
    Declared d;
    // isInherited asks the parents for the role name: Sub's own association whose role name is
    // a role the parent A is reached through counts as inherited.
    d.schema.newClass("D");
    d.a->addAssociation("ad", "D", {}, {}, "fromA", "ds");
    const auto own = d.sub->addAssociation("sd", "D", {}, {}, "ds", "moreDs");
    EXPECT_TRUE(own->isInherited());
    EXPECT_FALSE(d.a->getAssociation("ds")->isInherited());

    const auto c = d.schema.newClass("C");
    d.schema.newClass("C2"); // without objects, so it may gain the reverse end below
    d.sub->addAssociation("own", "C", {}, {}, "sub", "other");
    const size_t position = d.sub->associationCount() - 1;
    const auto object = d.sub->newObject(false);
    const auto target = c->newObject(false);
    object->associate(target, "other");

    // A parent declaring the same far role replaces the child's own entry at its position; links
    // already made stay in that slot.
    const auto parents = d.a->addAssociation("p", "C2", {}, {}, "parentSide", "other");
    const auto replaced = d.sub->associations();
    EXPECT_EQ(replaced[position]->firstClass(), d.a);
    EXPECT_EQ(replaced[position]->name(), "p");
    EXPECT_EQ(replaced.size(), position + 1);
    EXPECT_EQ(object->objects("other").size(), 1u);

    // Declaring it again on the same class is a duplicate.
    const auto e = raisedTN([&] { d.a->addAssociation("q", "B", {}, {}, "z", "other"); });
    ASSERT_TRUE(
        hasTriple(e, TNException::Create, TNException::Association, TNException::DuplicateName));
    EXPECT_EQ(e->assocName(), "other");
    EXPECT_EQ(e->className1(), "A");
    EXPECT_EQ(e->className2(), "B");
    EXPECT_EQ(d.a->getAssociation("other"), parents);
}

TEST(TNAssociation, DiagramLookups) {
    Declared d;
    EXPECT_EQ(d.a->getDiagramAssociation(), nullptr);
    d.bs->setIsDiagram(true); // a miss was not cached
    EXPECT_EQ(d.a->getDiagramAssociation(), d.bs);
    d.bs->setIsDiagram(false); // a hit is
    EXPECT_EQ(d.a->getDiagramAssociation(), d.bs);

    EXPECT_EQ(d.a->getDiagramItemAssociation(), nullptr);
    d.bs->setIsDiagramItem(true);
    EXPECT_EQ(d.a->getDiagramItemAssociation(), d.bs);
    d.bs->setIsDiagramItem(false);
    EXPECT_EQ(d.a->getDiagramItemAssociation(), nullptr);
}

TEST(TNAssociation, IdentityByNameForTheBaseByAddressForSimpleOnes) {
    Declared d;
    const std::unique_ptr<TNAssociation> twin(d.bs->clone());
    EXPECT_EQ(twin->name(), d.bs->name());
    EXPECT_FALSE(twin->isEqual(d.bs.get()));
    EXPECT_TRUE(d.bs->isEqual(d.bs.get()));
    EXPECT_EQ(d.bs->compareTo(d.bs.get()), 0);
    const int order = d.bs.get() < twin.get() ? -1 : 1;
    EXPECT_EQ(d.bs->compareTo(twin.get()), order);
    EXPECT_EQ(twin->compareTo(d.bs.get()), -order);
    EXPECT_EQ(d.bs->hash(), 1u);
    EXPECT_EQ(d.bs->compareTo(nullptr), -1);
    EXPECT_TRUE(*twin == *d.bs); // operator== compares the other role names

    // The base's rules, reached through a compound association (which replaces them).
    TNCompoundAssociation x, y;
    x.setName("m");
    y.setName("m");
    EXPECT_TRUE(x.TNAssociation::isEqual(&y));
    EXPECT_EQ(x.TNAssociation::compareTo(&y), 0);
    EXPECT_EQ(x.TNAssociation::hash(), y.TNAssociation::hash());
    y.setName("n");
    y.setTraversalSource("other"); // the base's compareTo asks the compound isEqual first
    EXPECT_EQ(x.TNAssociation::compareTo(&y), -1);
    EXPECT_EQ(y.TNAssociation::compareTo(&x), 1);
    EXPECT_EQ(x.TNAssociation::compareTo(nullptr), -1);
    EXPECT_FALSE(x.TNAssociation::isEqual(nullptr));

    // Revision byte, three strings (length word and bytes), five integers counted at 4 bytes
    // (the 16-bit flags word included), two nil class references.
    x.setRoleName("r");
    x.setOtherRoleName("ot");
    EXPECT_EQ(x.TNAssociation::binaryStoreSize(), 1u + 5u + 5u + 6u + 20u + 2u);
}

TEST(TNAssociation, SavedAndRestoredKeepsFieldsAndClassesButNoTaggedValues) {
    Declared d;
    const auto self = d.a->addAssociation("loop", "A", {2, 3}, {4, 5}, "from", "to");
    self->setIsDiagramItem(true);
    self->taggedValue("alias", TNValue("x"));
    auto* restored = dynamic_cast<TNAssociation*>(restoreFrom(storeToBytes(*self)));
    ASSERT_NE(restored, nullptr);
    EXPECT_TRUE(restored->isSimple());
    EXPECT_EQ(restored->name(), "loop");
    EXPECT_EQ(restored->roleName(), "from");
    EXPECT_EQ(restored->otherRoleName(), "to");
    EXPECT_EQ(restored->myMultiplicity(), TNMultiplicity(2, 3));
    EXPECT_EQ(restored->otherMultiplicity(), TNMultiplicity(4, 5));
    EXPECT_EQ(restored->flags(), 16);
    EXPECT_EQ(restored->alias(), "loop");
    // The class is stored once: both ends come back as the same restored class, which brings
    // its schema; the association is the class's again, so the schema owns them all.
    ASSERT_NE(restored->firstClass(), nullptr);
    EXPECT_EQ(restored->firstClass(), restored->otherClass());
    EXPECT_EQ(restored->firstClass()->getAssociation("to").get(), restored);
    delete restored->firstClass()->schema().get();
}
