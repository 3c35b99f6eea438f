// A class gains attributes and associations only while neither it nor a descendant receiving them
// has objects: instances are sized when they are made.
#include "tarnel/metamodel/TNClass.h"

#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/MetamodelTestSupport.h"
#include "tarnel/metamodel/TNSchema.h"
#include "tarnel/navigation/TNAssociation.h"

#include <functional>
#include <vector>

namespace {

struct Catalogue {
    TNSchema schema;
    SgxSimplePtr<TNClass> work = schema.newClass("Work");
    SgxSimplePtr<TNClass> book = schema.newClass("Book");
    SgxSimplePtr<TNClass> author = schema.newClass("Author");
    SgxSimplePtr<TNClass> base = schema.newClass("Base");
    SgxSimplePtr<TNClass> bare = schema.newClass("Bare"); // no attributes to hand down
    Catalogue() {
        work->addAttr("title", TNAttrString, "", "");
        work->addChild(book);
        base->addAttr("code", TNAttrInteger, "", "");
        book->addAssociation("by", "Author", {}, {}, "books", "author");
    }
    // Member counts of every class, to tell that a refused change changed nothing.
    std::vector<size_t> shape() const {
        std::vector<size_t> counts;
        for (const auto& cls : {work, book, author, base, bare})
            for (size_t n :
                 {cls->attrCount(), cls->associationCount(), cls->childCount(), cls->parentCount()})
                counts.push_back(n);
        return counts;
    }
};

} // namespace

TEST(TNClass, GrowingAClassWithObjectsRaisesBeforeAnythingChanges) {
    Catalogue c;
    const auto dune = c.book->newObject(false);
    const auto herbert = c.author->newObject(false);
    (*dune)["title"] = "Dune";
    dune->associate(herbert, "author");
    const auto before = c.shape();

    struct Case {
        const char* what;
        std::function<void()> change;
        const char* class1;
        const char* class2; // the class with objects, when another
        const char* attr;
        const char* role;
    };
    const Case cases[] = {
        {"attribute of the class", [&] { c.book->addAttr("pages", TNAttrInteger, "", ""); }, "Book",
         "", "pages", ""},
        {"attribute of a parent", [&] { c.work->addAttr("isbn", TNAttrString, "", ""); }, "Work",
         "Book", "isbn", ""},
        {"forward end on a parent",
         [&] { c.work->addAssociation("pub", "Bare", {}, {}, "works", "publisher"); }, "Work",
         "Book", "", "publisher"},
        {"reverse end", [&] { c.bare->addAssociation("lists", "Author", {}, {}, "list", "names"); },
         "Bare", "Author", "", "list"},
        {"new parent with attributes", [&] { c.base->addChild(c.book); }, "Base", "Book", "code",
         ""},
        {"addParent", [&] { c.book->addParent(c.base); }, "Base", "Book", "code", ""},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.what);
        const auto e = raisedTN(k.change);
        ASSERT_TRUE(
            hasTriple(e, TNException::Modify, TNException::Class, TNException::ReferencesExist));
        EXPECT_EQ(e->className1(), k.class1);
        EXPECT_EQ(e->className2(), k.class2);
        EXPECT_EQ(e->attrName(), k.attr);
        EXPECT_EQ(e->assocName(), k.role);
        EXPECT_EQ(c.shape(), before);
    }
    // The objects read as before, and so do objects made afterwards.
    EXPECT_EQ((*dune)["title"].asString(), "Dune");
    EXPECT_EQ(dune->object("author").get(), herbert.get());
    EXPECT_EQ(herbert->objects("books").size(), 1u);
    const auto next = c.book->newObject(false);
    (*next)["title"] = "Emma";
    EXPECT_EQ((*dune)["title"].asString(), "Dune");

    // What gives no object a new slot is allowed: a parent without attributes, an attribute
    // already present from the same origin, an association replacing a simple one in place (in
    // Book, declared by its parent), a class without objects.
    c.bare->addChild(c.book);
    c.book->addAttr("title", TNAttrString, "", "Work");
    c.schema.newClass("Shelf");
    c.work->addAssociation("by2", "Shelf", {}, {}, "works", "author");
    c.base->addAttr("extra", TNAttrReal, "", "");
    EXPECT_EQ((*dune)["title"].asString(), "Dune");

    // Once the schema is unpopulated its classes may grow again.
    c.schema.unpopulate();
    c.work->addAttr("isbn", TNAttrString, "", "");
    const auto fresh = c.book->newObject(false);
    (*fresh)["isbn"] = "0-441-17271-7";
    (*fresh)["title"] = "Dune";
    EXPECT_EQ((*fresh)["isbn"].asString(), "0-441-17271-7");
    EXPECT_EQ((*fresh)["title"].asString(), "Dune");
}

TEST(TNClass, CompoundAssociationsJoinAClassWithObjects) {
    // Compound links are computed, so they need no word in objects already made; freezing must
    // not touch the word those objects lack (guards against writing past an object's block).
    Catalogue c;
    const auto dune = c.book->newObject(false);
    const auto herbert = c.author->newObject(false);
    dune->associate(herbert, "author");
    SgxSimplePtr<TNCompoundAssociation> writers(new TNCompoundAssociation);
    writers->setOtherRoleName("writers");
    c.book->addCompoundAssociation(writers);
    EXPECT_EQ(c.book->associationCount(), 2u);
    c.schema.donePopulating();
    EXPECT_EQ(dune->object("author").get(), herbert.get());
    // A simple association taking the compound one's position would need that word.
    const auto e =
        raisedTN([&] { c.book->addAssociation("w", "Author", {}, {}, "wrote", "writers"); });
    EXPECT_TRUE(
        hasTriple(e, TNException::Modify, TNException::Class, TNException::ReferencesExist));
}
