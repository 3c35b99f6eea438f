#include "tarnel/instances/TNObject.h"

#include "tarnel/metamodel/MetamodelTestSupport.h"
#include "tarnel/metamodel/TNSchema.h"
#include "tarnel/navigation/TNAssociation.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Objects = std::vector<SgxSimplePtr<TNObject>>;

// Package "classes" (many) <-> Class "package" (one); Element is the parent of both and holds
// name; Special is a subclass of Class that receives every association by inheritance.
struct Model {
    Model() {
        element = schema.newClass("Element");
        package = schema.newClass("Package");
        cls = schema.newClass("Class");
        special = schema.newClass("Special");
        element->addAttr("name", TNAttrString, "", "");
        element->addChild(package);
        element->addChild(cls);
        cls->addChild(special);
        classes = package->addAssociation("owns", "Class", {}, {}, "package", "classes");
    }
    SgxSimplePtr<TNObject> make(const SgxSimplePtr<TNClass>& c, const char* name) {
        const auto object = c->newObject(false);
        (*object)["name"] = name;
        return object;
    }

    TNSchema schema;
    SgxSimplePtr<TNClass> element, package, cls, special;
    SgxSimplePtr<TNAssociation> classes;
};

SgxString names(const Objects& objects) {
    SgxString text;
    for (const auto& object : objects)
        text += (text.empty() ? "" : ",") + (*object)["name"].asString();
    return text;
}

// The objects a link view shows, by name.
SgxString names(const TNLinkView& view) {
    EXPECT_EQ(static_cast<size_t>(view.end() - view.begin()), view.size());
    return names(Objects(view.begin(), view.end()));
}

} // namespace

TEST(TNObject, SlotsFollowTheClassAndUnknownAttributesRaise) {
    Model m;
    const auto bare = m.schema.newClass("Bare")->newObject(false);
    EXPECT_TRUE(bare->attributes().empty());

    const auto p = m.make(m.package, "p");
    const auto slots = p->attributes();
    ASSERT_EQ(slots.size(), 1u);
    EXPECT_EQ(slots[0].get(), &(*p)["name"]);
    EXPECT_EQ(slots[0]->attrDesc().get(), &(*m.package)["name"]);
    // A descriptor of another class finds the slot by name.
    EXPECT_EQ(&(*p)[(*m.element)["name"]], slots[0].get());
    EXPECT_EQ(&(*p)[(*m.package)["name"]], slots[0].get());

    TNObject copy = *p; // shallow
    EXPECT_EQ(&copy["name"], slots[0].get());
    EXPECT_FALSE(copy == *p);
    // A copy of a copy, and a default object assigned one, still read the original's class,
    // slots and links.
    const auto c = m.make(m.cls, "c");
    p->associate(c, *m.classes);
    TNObject empty;
    EXPECT_TRUE(empty.getClass().isNull());
    EXPECT_TRUE(empty.attributes().empty());
    empty = TNObject(copy);
    for (const TNObject* o : {&copy, &empty}) {
        EXPECT_EQ(o->getClass(), m.package);
        EXPECT_EQ(&(*o)["name"], slots[0].get());
        EXPECT_EQ(names(o->objects(*m.classes)), "c");
    }

    // Unknown attributes raise with the class name.
    const TNObject& constP = *p;
    const auto q = m.schema.newClass("Q");
    q->addAttr("size", TNAttrInteger, "", "");
    // The class records a "fullyQualifiedName" entry for slot 0 when asked for its index; the
    // object must still refuse it, since slot 0 is another attribute.
    EXPECT_EQ(TNClassTestAccess::attrIndex(*m.package, "fullyQualifiedName"), 0);
    const std::function<void()> calls[] = {
        [&] { (*p)["missing"]; },
        [&] { constP["missing"]; },
        [&] { (*p)["fullyQualifiedName"]; },
        [&] { (*p)[(*q)["size"]]; },
    };
    for (const auto& call : calls) {
        const auto e = raisedTN(call);
        ASSERT_TRUE(hasTriple(e, TNException::Access, TNException::AttrDescriptor,
                              TNException::NameNotFound));
        EXPECT_EQ(e->className1(), "Package");
    }
    // The real attribute replaces the entry (on a class without objects, which alone may gain
    // one).
    EXPECT_EQ(TNClassTestAccess::attrIndex(*q, "fullyQualifiedName"), 0);
    q->addAttr("fullyQualifiedName", TNAttrString, "", "");
    const auto r = q->newObject(false);
    (*r)["fullyQualifiedName"] = "a::b";
    EXPECT_EQ((*r)["fullyQualifiedName"].asString(), "a::b");
}

TEST(TNObject, LinksComeBackOldestFirstInEveryState) {
    Model m;
    const auto p = m.make(m.package, "p");
    const auto empty = m.make(m.package, "empty");
    const auto a = m.make(m.cls, "A");
    const auto b = m.make(m.special, "B"); // the reverse end is an inherited copy
    const auto c = m.make(m.cls, "C");
    p->associate(a, "classes");
    p->associate(b, *m.classes);
    p->associate(c, "classes");

    for (const bool frozen : {false, true}) {
        if (frozen)
            m.schema.donePopulating();
        SCOPED_TRACE(frozen ? "frozen" : "populating");
        EXPECT_EQ(names(p->objects("classes")), "A,B,C");
        EXPECT_EQ(names(m.classes->objects(p)), "A,B,C");
        EXPECT_TRUE(empty->objects(*m.classes).empty());
        EXPECT_EQ(names(p->links(*m.classes)), "A,B,C");
        EXPECT_EQ(names(empty->links(*m.classes)), "");
        for (const auto& target : {a, b, c}) {
            EXPECT_EQ(target->object("package"), p) << (*target)["name"].asString();
            EXPECT_EQ(names(target->links(*target->getClass()->getAssociation("package"))), "p");
        }
    }
    // Links added after freezing join the end, and a second freeze keeps the order.
    const auto d = m.make(m.cls, "D");
    p->associate(d, "classes");
    a->associate(empty, "package");
    EXPECT_EQ(names(p->objects("classes")), "A,B,C,D");
    EXPECT_EQ(names(a->objects("package")), "p,empty");
    EXPECT_EQ(names(a->links(*m.cls->getAssociation("package"))), "p,empty");
    m.schema.donePopulating();
    EXPECT_EQ(names(p->objects("classes")), "A,B,C,D");
    EXPECT_EQ(names(empty->objects("classes")), "A");
}

TEST(TNObject, FrozenLinkCountsOnEitherSideOfWhatTheLinkWordHolds) {
    // A frozen slot keeps counts up to 65534 in its word and larger ones beside the array.
    Model m;
    const auto a = m.make(m.cls, "a");
    const auto b = m.make(m.cls, "b");
    const auto fits = m.make(m.package, "fits");
    const auto beside = m.make(m.package, "beside");
    for (int i = 0; i < 0xFFFE; ++i)
        fits->associate(i % 2 == 0 ? a : b, *m.classes);
    for (int i = 0; i < 0xFFFF + 1; ++i)
        beside->associate(i % 2 == 0 ? a : b, *m.classes);
    m.schema.donePopulating();
    for (const auto& [package, count] : {std::pair{fits, 0xFFFEu}, std::pair{beside, 0x10000u}}) {
        EXPECT_EQ(package->linkCount(*m.classes), count);
        const TNLinkView view = package->links(*m.classes);
        ASSERT_EQ(view.size(), count);
        EXPECT_EQ(view.begin()[0], a);
        EXPECT_EQ(view.begin()[count - 1], b);
        EXPECT_EQ(package->objects(*m.classes).size(), count);
    }
    // a's reverse links, 0x7FFF + 0x8000 of them: the one count that is the marker itself.
    EXPECT_EQ(a->linkCount(*m.cls->getAssociation("package")), 0xFFFFu);
}

TEST(TNObject, ObjectWantsAtMostOneLink) {
    Model m;
    const auto p = m.make(m.package, "p");
    const auto a = m.make(m.cls, "A");
    const auto b = m.make(m.cls, "B");
    EXPECT_EQ(p->object("classes"), nullptr);
    p->associate(a, "classes");
    EXPECT_EQ(p->object(*m.classes), a);
    p->associate(b, "classes");
    for (const bool frozen : {false, true}) {
        if (frozen)
            m.schema.donePopulating();
        for (const auto& call : std::vector<std::function<void()>>{
                 [&] { p->object("classes"); }, [&] { p->object(*m.classes); }}) {
            const auto e = raisedTN(call);
            ASSERT_TRUE(
                hasTriple(e, TNException::Access, TNException::Association, TNException::Invalid));
            EXPECT_EQ(e->reasonText(), "Unable to access association: Unknown reason.\n"
                                       "Class name: Package\nAssociation name: classes");
        }
    }
}

TEST(TNObject, ReverseLinksOnlyWhereTheOtherClassKnowsTheNearRole) {
    Model m;
    const auto p = m.make(m.package, "p");
    const auto a = m.make(m.cls, "A");
    const auto b = m.make(m.cls, "B");
    p->associate(a, "classes");
    // Renaming the near role leaves the other class without it: no reverse link from now on.
    m.classes->setRoleName("nowhere");
    p->associate(b, *m.classes);
    EXPECT_EQ(names(p->objects("classes")), "A,B");
    EXPECT_EQ(a->object("package"), p);
    EXPECT_EQ(b->object("package"), nullptr);

    // Failures record nothing: unknown role, reverse due on a null object, unrelated target.
    m.classes->setRoleName("package");
    const auto e = raisedTN([&] { p->associate(a, "nothing"); });
    EXPECT_TRUE(
        hasTriple(e, TNException::Access, TNException::Association, TNException::NameNotFound));
    EXPECT_EQ(e->className1(), "Package");
    EXPECT_EQ(e->assocName(), "nothing");
    EXPECT_THROW(p->associate(nullptr, "classes"), SgxException);
    EXPECT_THROW(p->associate(m.make(m.element, "x"), "classes"), TNException);
    EXPECT_EQ(names(p->objects("classes")), "A,B");
    EXPECT_THROW(a->objects("classes"), TNException);
}

TEST(TNObject, CompoundAssociationsRecordNothing) {
    Model m;
    SgxSimplePtr<TNCompoundAssociation> derived(new TNCompoundAssociation);
    derived->setOtherRoleName("derived");
    m.package->addCompoundAssociation(derived);
    const auto p = m.make(m.package, "p");
    const uint64_t links = TNObject::statistics().links;
    p->associate(p, "derived");
    p->associate(p, *derived);
    EXPECT_EQ(TNObject::statistics().links, links);
    // Only that role exists on the class; an unknown one still raises.
    EXPECT_THROW(p->associate(p, "derivedX"), TNException);
}

TEST(TNObject, GetObjectLooksAtTheFirstEightSlotsAtMost) {
    TNSchema schema;
    const auto small = schema.newClass("Small");
    const auto wide = schema.newClass("Wide");
    for (int i = 0; i < 9; ++i)
        wide->addAttr("a" + std::to_string(i), TNAttrString, "", "");
    for (const char* name : {"x", "y", "z"})
        small->addAttr(name, TNAttrString, "", "");
    const auto s = small->newObject(false);
    (*s)["z"] = "found";
    EXPECT_TRUE(s->getObject("found"));
    EXPECT_FALSE(s->getObject("other"));
    const auto w = wide->newObject(false);
    (*w)["a7"] = "eighth";
    (*w)["a8"] = "ninth";
    EXPECT_TRUE(w->getObject("eighth"));
    EXPECT_FALSE(w->getObject("ninth"));
}

TEST(TNObject, PopulateFreezeUnpopulateAndPopulateAgain) {
    Model m;
    for (int round = 0; round < 2; ++round) {
        const auto p = m.make(m.package, "p");
        std::vector<SgxSimplePtr<TNObject>> made;
        for (int i = 0; i < 300; ++i) {
            made.push_back(m.make(m.cls, ("C" + std::to_string(i)).c_str()));
            p->associate(made.back(), *m.classes);
        }
        // A text repeated through one descriptor is placed once; the last text placed does
        // not outlive its region (the second round starts with a new one).
        const size_t before = TNSchema::stringMemoryRegion().bytesAllocated();
        const auto twin1 = m.make(m.cls, "twin");
        const auto twin2 = m.make(m.cls, "twin");
        EXPECT_EQ(TNSchema::stringMemoryRegion().bytesAllocated() - before, 5u);
        m.schema.donePopulating();
        ASSERT_EQ(p->objects(*m.classes), made);
        EXPECT_EQ((*made[299])["name"].asString(), "C299");
        EXPECT_EQ((*twin1)["name"].asString(), "twin");
        EXPECT_EQ((*twin2)["name"].asString(), "twin");
        EXPECT_EQ((*p)["name"].asString(), "p");
        EXPECT_EQ(m.cls->objects().size(), 302u);
        m.schema.unpopulate();
        EXPECT_TRUE(m.cls->objects().empty());
    }
}

TEST(TNObject, StatisticsFileIsWrittenOnceByTheFirstDestruction) {
    const std::string first = ::testing::TempDir() + "tn_objectcount_first.txt";
    const std::string second = ::testing::TempDir() + "tn_objectcount_second.txt";
    std::remove(first.c_str());
    std::remove(second.c_str());
    // A fresh process, so the totals and the once-per-process flag start from nothing.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            TNSchema schema;
            const auto node = schema.newClass("Node");
            node->addAttr("name", TNAttrString, "", "");
            node->addAttr("size", TNAttrInteger, "", "");
            node->addAssociation("tree", "Node", {}, {}, "parent", "children");
            const auto root = node->newObject(false);
            const auto a = node->newObject(false);
            const auto b = node->newObject(false);
            root->associate(a, "children");
            root->associate(b, "children");
            schema.donePopulating();
            setenv("TARNEL_OBJECTCOUNT_FILE", first.c_str(), 1);
            { TNObject scratch; }
            setenv("TARNEL_OBJECTCOUNT_FILE", second.c_str(), 1);
            { TNObject scratch; }
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
    std::ifstream in(first);
    std::stringstream text;
    text << in.rdbuf();
    // 3 objects x 2 slots x 16; 3 x 2 link slots x 8, root's two children (8 x 2 + 8) and the
    // parent of each child (8 + 8).
    EXPECT_EQ(text.str(), "Objects: 3\nAttributes: 6\nAssociations: 6\nObjects in objects: 4\n"
                          "Size of objects: 0\nSize of attributes: 96\n"
                          "Size of associations: 104\n");
    EXPECT_FALSE(std::ifstream(second).good());
}
