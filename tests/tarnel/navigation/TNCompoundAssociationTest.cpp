#include "tarnel/navigation/TNAssociation.h"

#include "rw/RWOrdered.h"
#include "rw/RWTestSupport.h"
#include "rw/RWbstream.h"
#include "tarnel/metamodel/MetamodelTestSupport.h"
#include "tarnel/navigation/NavigationTestModel.h"
#include "tarnel/navigation/TNBuiltinAssociations.h"
#include "tarnel/navigation/TNTraversalParser.h"

#include <map>
#include <memory>

namespace {

// The association name a failing object() reports.
std::string chainName(const TNCompoundAssociation& assoc, TNObject* source) {
    const auto e = raisedTN([&] { assoc.object(source); });
    return e ? e->assocName() : "";
}

} // namespace

TEST(TNCompoundAssociation, SharedDataIdentityAndObject) {
    NodeModel m;
    TNObject* a = m.make("a");
    TNObject* b = m.make("b");
    m.link(a, {b});

    TNCompoundAssociation fresh;
    EXPECT_FALSE(fresh.isSimple());
    EXPECT_TRUE(raisesText([&] { fresh.objects(a); }, "Null dereference"));

    // Copies share one record: a change through the clone shows in the original.
    std::unique_ptr<TNAssociation> clone(fresh.clone());
    auto& copy = static_cast<TNCompoundAssociation&>(*clone);
    copy.setAssociationTraversal(tnParseTraversal("[next] -> [prev]"));
    EXPECT_EQ(chainName(fresh, b), "TNCompoundAssociation { <<uninitialized>> }");
    copy.setTraversalSource("[next] -> [prev]");
    EXPECT_EQ(names(fresh.objects(a)), "a");
    EXPECT_EQ(fresh.object(a).get(), a);
    TNAssociationTraversal* replaced = copy.associationTraversal().get();
    copy.setAssociationTraversal(tnParseTraversal("( [next]; [next] )"));
    release(replaced); // replacing leaves the old graph to its holder
    const auto many = raisedTN([&] { fresh.object(a); });
    EXPECT_TRUE(hasTriple(many, TNException::Traverse, TNException::AssociationChain,
                          TNException::ManyObjectsInChain));
    EXPECT_EQ(many->assocName(), "TNCompoundAssociation { [next] -> [prev] }");
    const auto none = raisedTN([&] { fresh.object(b); });
    EXPECT_TRUE(hasTriple(none, TNException::Traverse, TNException::AssociationChain,
                          TNException::NoObjectsInChain));

    // Identity by source text, whatever the names.
    TNCompoundAssociation other;
    other.setName("another");
    EXPECT_FALSE(other.isEqual(&fresh));
    other.setTraversalSource("[next] -> [prev]");
    EXPECT_TRUE(other.isEqual(&fresh));
    EXPECT_EQ(other.hash(), fresh.hash());
    EXPECT_EQ(other.compareTo(&fresh), 0);
    other.setTraversalSource("[a]");
    EXPECT_EQ(other.compareTo(&fresh), -1);
    EXPECT_EQ(fresh.compareTo(&other), 1);
    EXPECT_FALSE(fresh.isEqual(nullptr));
    EXPECT_EQ(fresh.compareTo(m.node->getAssociation("next").get()), -1);
    EXPECT_FALSE(fresh.isEqual(m.node->getAssociation("next").get()));
}

TEST(TNCompoundAssociation, PersistsSourceAndGraph) {
    TNCompoundAssociation saved;
    saved.setOtherRoleName("reach");
    saved.setTraversalSource("top: [] -> [next] -> @top");
    saved.setAssociationTraversal(tnParseTraversal("top: [] -> [next] -> @top"));
    RWCollectable* read = restoreFrom(storeToBytes(saved));
    std::unique_ptr<RWCollectable> owner(read);
    auto* restored = dynamic_cast<TNCompoundAssociation*>(read);
    ASSERT_NE(restored, nullptr);
    EXPECT_TRUE(restored->isEqual(&saved));
    EXPECT_EQ(restored->otherRoleName(), "reach");

    NodeModel m;
    TNObject* a = m.make("a");
    TNObject* b = m.make("b");
    m.link(a, {b});
    m.link(b, {m.make("c")});
    EXPECT_EQ(names(restored->objects(a)), "b c");
}

TEST(TNCompoundAssociation, GraphsSharingANodeAreRefusedWithoutLeaking) {
    // Two associations saved in one store whose graphs share a node: each graph belongs to one
    // association, so reading them back fails, and the second association's own nodes go too.
    auto* shared = new TNAssociationTraversal("next", true);
    auto* first = new TNAssociationTraversal("", false);
    first->setChild(shared);
    auto* second = new TNAssociationTraversal("prev", true);
    second->setChild(new TNAssociationTraversal("next", true));
    second->setSibling(shared);
    TNCompoundAssociation one, two;
    one.setAssociationTraversal(first);
    two.setAssociationTraversal(second);
    RWOrdered both;
    both.insert(&one);
    both.insert(&two);
    const std::string data = storeToBytes(both);
    EXPECT_TRUE(raisesWith([&] { delete restoreFrom(data); }, "claimed by two owners"));
    // `one` deletes its graph, `shared` included; the rest of the second graph is the test's.
    two.setAssociationTraversal(nullptr);
    delete second->child().get();
    delete second;
}

// Every built-in definition, run on a model that has its classes and role names: Element
// declares the chain associations, every class derives from it.
TEST(TNBuiltinAssociations, EveryDefinitionYieldsWhatItsNamePromises) {
    TNSchema schema;
    const auto element = schema.newClass("Element");
    element->addAttr("name", TNAttrString, "", "");
    for (const char* name :
         {"Class", "UseCase", "Package", "Model", "Diagram", "Subsystem", "Module", "Role",
          "InheritanceRelationship", "DeploymentPackage", "Processor", "Device"})
        element->addChild(schema.newClass(name));
    for (const char* role :
         {"generalization", "supertype", "specialization", "subtype", "modelUCV", "modelLV",
          "useCaseA", "useCaseB", "logicalModel", "physicalModel", "supplier", "deploymentModel"})
        element->addAssociation(role, "Element", {0, -1}, {0, -1}, std::string(role) + "Of", role);
    EXPECT_EQ(tnRegisterBuiltinAssociations(schema), tnBuiltinAssociations.size());
    EXPECT_EQ(tnRegisterBuiltinAssociations(schema), 0u); // every role name is taken now

    std::map<std::string, TNObject*> o;
    auto make = [&](const char* cls, const char* name) {
        TNObject& obj = *schema.newObject(cls, false);
        obj["name"] = name;
        o[name] = &obj;
    };
    auto link = [&](const char* from, const char* role, std::initializer_list<const char*> to) {
        for (const char* target : to)
            o[from]->associate(o[target], role);
    };
    for (const char* c : {"c1", "c2", "c3"})
        make("Class", c);
    make("UseCase", "u1"), make("UseCase", "u2"), make("Model", "m1"), make("Model", "m2");
    for (const char* p : {"p0", "p1", "p2"})
        make("Package", p);
    make("InheritanceRelationship", "ir"), make("Diagram", "d"), make("Role", "r");
    make("Subsystem", "s0"), make("Subsystem", "s1"), make("Module", "mod");
    make("DeploymentPackage", "dp"), make("Processor", "cpu"), make("Device", "dev");
    link("c1", "generalization", {"ir"});
    link("c2", "specialization", {"ir"});
    link("ir", "supertype", {"u1", "c2"});
    link("ir", "subtype", {"c1", "u2"});
    link("p0", "modelUCV", {"m1"}), link("p0", "modelLV", {"m2"});
    link("d", "useCaseA", {"u1"}), link("d", "useCaseB", {"u2"});
    // p2 is reached from p0 directly and through p1: once per path.
    link("p0", "logicalModel", {"c1", "p1", "u1", "p2"});
    link("p1", "logicalModel", {"c2", "p2", "u2"});
    link("p2", "logicalModel", {"c3"});
    link("s0", "physicalModel", {"s1", "mod"});
    link("r", "supplier", {"u1", "c1"});
    link("dp", "deploymentModel", {"cpu", "dev"});

    const std::map<std::string_view, std::pair<const char*, const char*>> expected = {
        {"baseClass", {"c1", "c2"}},
        {"derivedClass", {"c2", "c1"}},
        {"model", {"p0", "m1 m2"}},
        {"useCase", {"d", "u1 u2"}},
        {"classes", {"p0", "c1"}},
        {"useCases", {"p0", "u1"}},
        {"subpackages", {"p0", "p1 p2"}},
        {"All Classes", {"p0", "c3 c2 c3 c1"}},
        {"All Use Cases", {"p0", "u2 u1"}},
        {"All Subpackages", {"p0", "p1 p2 p2"}},
        {"subsubsystems", {"s0", "s1"}},
        {"modules", {"s0", "mod"}},
        {"subclass", {"ir", "c1"}},
        {"superclass", {"ir", "c2"}},
        {"subcase", {"ir", "u2"}},
        {"supercase", {"ir", "u2"}}, // its text follows [subtype], as it always has
        {"processors", {"dp", "cpu"}},
        {"devices", {"dp", "dev"}},
    };
    for (const TNBuiltinAssociation& builtin : tnBuiltinAssociations) {
        const auto assoc =
            schema.getClass(SgxString(builtin.owner))->getAssociation(builtin.roleName);
        EXPECT_EQ(assoc->name(), builtin.name);
        EXPECT_EQ(assoc->otherClass()->name(), builtin.resultClass);
        // Role's "useCase" and "class" are checked below, Diagram's "useCase" here.
        const auto found =
            builtin.owner == "Role" ? expected.end() : expected.find(builtin.roleName);
        if (found == expected.end())
            continue;
        const auto [source, names_] = found->second;
        EXPECT_EQ(names(o[source]->objects(builtin.roleName)), names_) << builtin.name;
        // Counting walks the same graph without gathering the last step's objects.
        EXPECT_EQ(o[source]->linkCount(*assoc), o[source]->objects(builtin.roleName).size())
            << builtin.name;
    }
    EXPECT_EQ(names(o["r"]->objects("class")), "c1");
    EXPECT_EQ(names(o["r"]->objects("useCase")), "u1");
}
