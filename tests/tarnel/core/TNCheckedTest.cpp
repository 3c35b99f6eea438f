// The mistakes a checked build reports: wrong values for a slot, links to objects of a class that
// does not fit, unset operands and unbound variables. An unchecked build keeps the unchecked
// behaviour, which the cases check where it is defined.
#include "tarnel/core/TNChecked.h"

#include "tarnel/core/TNException.h"
#include "tarnel/expressions/TNCollectionExpr.h"
#include "tarnel/expressions/TNExpr.h"
#include "tarnel/expressions/TNScalarExpr.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNEnumType.h"
#include "tarnel/metamodel/TNSchema.h"
#include "tarnel/metamodel/MetamodelTestSupport.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <type_traits>

namespace {

struct Library {
    TNSchema schema;
    SgxSimplePtr<TNClass> book = schema.newClass("Book");
    SgxSimplePtr<TNClass> author = schema.newClass("Author");
    SgxSimplePtr<TNClass> poet = schema.newClass("Poet");
    SgxSimplePtr<TNClass> loan = schema.newClass("Loan");
    SgxSimplePtr<TNClass> member = schema.newClass("Member");
    Library() {
        auto genre = schema.newEnumType("Genre");
        for (const char* literal : {"Novel", "Poetry", "Essay"})
            genre->addName(literal);
        book->addAttr("title", TNAttrString, "", "");
        book->addAttr("year", TNAttrInteger, "", "");
        book->addAttr("price", TNAttrReal, "", "");
        book->addAttr("lent", TNAttrBoolean, "", "");
        book->addAttr("genre", TNAttrEnumeration, "Genre", "");
        book->addAttr("copies", TNAttrLong, "", "");
        author->addChild(poet);
        book->addAssociation("by", "Author", {}, {}, "books", "author");
        // A loan reaches its member's books through the role name by which an author is
        // reached from a book; a member has no such role.
        loan->addAssociation("held", "Member", {}, {}, "loans", "books");
    }
};

} // namespace

TEST(TNChecked, AssignmentsThatDoNotFitTheSlotRaiseAndLeaveItUnchanged) {
    if (!tnCheckedBuild())
        GTEST_SKIP() << "unchecked build: the caller assigns what fits";
    Library lib;
    const auto b = lib.book->newObject(false);
    TNObject& book = *b;
    book["title"] = "Dune";
    book["year"] = 1965;
    book["price"] = 9.5;
    book["lent"] = true;
    book["genre"] = "Poetry";
    book["copies"] = 3L;
    const TNAttribute other = book["year"];

    struct Case {
        const char* attr;
        std::function<void(TNAttribute&)> assign;
        TNException::Target target;
    };
    const auto slotOf = TNException::AttrDescriptor;
    const auto index = TNException::EnumAttribute;
    const Case cases[] = {
        {"title", [](TNAttribute& a) { a = 42; }, slotOf},
        {"title", [](TNAttribute& a) { a = false; }, slotOf},
        {"title", [](TNAttribute& a) { a = 2.5; }, slotOf},
        {"year", [](TNAttribute& a) { a = "nineteen"; }, slotOf},
        {"year", [](TNAttribute& a) { a = true; }, slotOf},
        {"year", [](TNAttribute& a) { a = 1.5; }, slotOf},
        {"copies", [](TNAttribute& a) { a = SgxString("3"); }, slotOf},
        {"price", [](TNAttribute& a) { a = 3; }, slotOf},
        {"price", [](TNAttribute& a) { a = "cheap"; }, slotOf},
        {"lent", [](TNAttribute& a) { a = 2; }, slotOf},
        {"lent", [](TNAttribute& a) { a = 1.0; }, slotOf},
        {"genre", [](TNAttribute& a) { a = 3; }, index},
        {"genre", [](TNAttribute& a) { a = -1L; }, index},
        {"genre", [](TNAttribute& a) { a = TNValue(7); }, index},
        {"genre", [&](TNAttribute& a) { a = other; }, index}, // 1965 from an integer slot
        {"genre", [](TNAttribute& a) { a = 0.5; }, slotOf},
        {"genre", [](TNAttribute& a) { a = true; }, slotOf},
    };
    for (const Case& k : cases) {
        TNAttribute& slot = book[k.attr];
        const TNValue before = slot.value();
        const auto e = raisedAs<TNException>([&] { k.assign(slot); });
        ASSERT_TRUE(e) << k.attr;
        EXPECT_EQ(e->getAction(), TNException::Modify) << k.attr;
        EXPECT_EQ(e->getTarget(), k.target) << e->reasonText();
        EXPECT_EQ(e->getReason(), TNException::Invalid) << e->reasonText();
        EXPECT_EQ(e->className1(), "Book") << e->reasonText();
        EXPECT_EQ(e->attrName(), k.attr) << e->reasonText();
        EXPECT_EQ(slot.value(), before) << e->reasonText();
    }
    // What fits is stored: integers for the integer kinds, 0 and 1 for a truth value, an index
    // of a literal.
    book["lent"] = 0;
    book["genre"] = 2;
    book["copies"] = 7;
    EXPECT_EQ(book["lent"].asString(), "false");
    EXPECT_EQ(book["genre"].asString(), "Essay");
    EXPECT_EQ(book["title"].asString() + book["year"].asString(), "Dune1965");
}

TEST(TNChecked, LinksToObjectsOfAClassThatDoesNotFitTheAssociation) {
    Library lib;
    const auto book = lib.book->newObject(false);
    const auto poet = lib.poet->newObject(false);
    const auto loan = lib.loan->newObject(false);     // knows the role "books", of another kind
    const auto member = lib.member->newObject(false); // does not know "books"
    book->associate(poet, "author");                  // a derived class fits
    EXPECT_EQ(poet->object("books").get(), book.get());

    for (const auto& wrong : {loan, member}) {
        const SgxString wrongClass = wrong->getClass()->name();
        SCOPED_TRACE(wrongClass);
        const size_t linked = book->objects("author").size();
        if (tnCheckedBuild()) {
            const auto e = raisedAs<TNException>([&] { book->associate(wrong, "author"); });
            ASSERT_TRUE(e);
            EXPECT_EQ(e->getAction(), TNException::Create);
            EXPECT_EQ(e->getTarget(), TNException::Association);
            EXPECT_EQ(e->getReason(), TNException::Invalid);
            EXPECT_EQ(e->className1(), "Book");
            EXPECT_EQ(e->className2(), wrongClass);
            EXPECT_EQ(e->assocName(), "author");
            EXPECT_NE(e->reasonText().find("class Author"), std::string::npos);
        } else if (wrong == member) {
            // The reverse end is looked for on the wrong class, before anything is recorded.
            const auto e = raisedAs<TNException>([&] { book->associate(wrong, "author"); });
            ASSERT_TRUE(e);
            EXPECT_EQ(e->getReason(), TNException::NameNotFound);
            EXPECT_EQ(e->assocName(), "books");
        } else {
            book->associate(wrong, "author"); // linked as the class's reverse role finds it
            EXPECT_EQ(wrong->objects("books").size(), 1u);
            continue;
        }
        EXPECT_EQ(book->objects("author").size(), linked); // nothing recorded
        if (wrong == loan) {
            EXPECT_TRUE(loan->objects("books").empty());
        }
    }
}

TEST(TNChecked, UnsetOperandsAndUnboundVariablesNameTheNode) {
    Library lib;
    const auto b = lib.book->newObject(false);
    (*b)["title"] = "Dune";
    SgxCyclicPtr<TNObjectVarExpr> x = new TNObjectVarExpr;
    auto* isDune =
        new TNRelationalExpr(new TNAttrExpr("title", x), TNRelationalExpr::TNEqual, nullptr);
    auto* predicate = new TNValueAbsExpr(x, isDune);
    auto* filter = new TNFilterExpr(nullptr, new TNAllInstancesExpr("Book", x));
    auto* noVariable = new TNValueAbsExpr(nullptr, new TNConstantExpr(1));
    auto* unbound = new TNAttrExpr("title", new TNObjectVarExpr);
    auto* boundToNull = new TNAttrExpr("title", new TNObjectVarExpr(nullptr));

    struct Case {
        const char* node;
        std::function<void()> evaluate;
        const char* text; // also what an unchecked build raises, as SgxException
    };
    const std::string star = "Null dereference of SgxCyclicPtr<T>::operator*() const";
    const std::string arrow = "Null dereference of SgxCyclicPtr<T>::operator->() const";
    x->object(b);
    const Case cases[] = {
        {"TNRelationalExpr", [&] { (*isDune)(); }, star.c_str()},
        {"TNFilterExpr", [&] { (*filter)(); }, star.c_str()},
        {"TNValueAbsExpr", [&] { (*noVariable)(b); }, arrow.c_str()},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.node);
        const auto e = raisedAs<SgxException>(k.evaluate);
        ASSERT_TRUE(e);
        EXPECT_EQ(e->reasonText(), k.text);
        if (tnCheckedBuild()) {
            const auto named = raisedAs<TNEvaluationException>(k.evaluate);
            ASSERT_TRUE(named);
            EXPECT_EQ(named->nodeClass(), k.node);
            EXPECT_EQ(named->operand(), "unset operand");
        }
    }
    // Completed, the same nodes evaluate.
    filter->predicate(predicate);
    isDune->rhs(new TNConstantExpr("Dune"));
    EXPECT_EQ((*filter)().size(), 1u);

    // A variable bound to null yields null, which the attribute node refuses as ever; one never
    // bound is reported in a checked build.
    const auto null = raisedAs<SgxException>([&] { (*boundToNull)(); });
    ASSERT_TRUE(null);
    EXPECT_EQ(null->reasonText(), "Null dereference");
    const auto e = raisedAs<SgxException>([&] { (*unbound)(); });
    ASSERT_TRUE(e);
    if (tnCheckedBuild()) {
        const auto named = raisedAs<TNEvaluationException>([&] { (*unbound)(); });
        ASSERT_TRUE(named);
        EXPECT_EQ(named->nodeClass(), "TNObjectVarExpr");
        EXPECT_EQ(named->reasonText(),
                  "Unbound variable: TNObjectVarExpr evaluated before an object was bound to it");
    } else {
        EXPECT_EQ(e->reasonText(), "Null dereference");
    }

    const auto release = [](auto* root) {
        const SgxCyclicPtr<std::remove_pointer_t<decltype(root)>> owner(root);
        owner.takeOwnership();
    };
    release(filter), release(noVariable), release(unbound), release(boundToNull);
}
