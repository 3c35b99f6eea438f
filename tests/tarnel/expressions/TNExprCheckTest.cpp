// The check of a graph against a schema finds each kind of fault, on the class the graph reads
// it on, with its path; correct graphs, cyclic ones included, give nothing.
#include "tarnel/tarnel.h"
#include "w1/w1_reports.h"

#include <gtest/gtest.h>

namespace {

using Var = SgxCyclicPtr<TNObjectVarExpr>;

// Author --books/author-- Book --loans/book-- Loan.
void defineCatalogue(TNSchema& schema) {
    const auto author = schema.newClass("Author");
    author->addAttr("name", TNAttrString, "", "");
    const auto book = schema.newClass("Book");
    book->addAttr("title", TNAttrString, "", "");
    book->addAttr("pages", TNAttrInteger, "", "");
    schema.newClass("Loan")->addAttr("days", TNAttrInteger, "", "");
    author->addAssociation("authorship", "Book", {0, -1}, {1, 1}, "author", "books");
    book->addAssociation("lending", "Loan", {0, -1}, {1, 1}, "book", "loans");
}

TNValueExpr* attr(const char* name, const Var& x) { return new TNAttrExpr(name, x); }
TNValueExpr* text(const char* value) { return new TNConstantExpr(value); }
TNObjectCollectionExpr* chain(const char* source, const Var& from) {
    return new TNAssociationExpr(tnParseTraversal(source), from);
}

} // namespace

TEST(TNExprCheck, FindsEachKindOfFaultWithItsPathAndClass) {
    TNSchema schema;
    defineCatalogue(schema);
    Var input = new TNObjectVarExpr;
    Var a = new TNObjectVarExpr;
    Var b = new TNObjectVarExpr;
    Var stray = new TNObjectVarExpr;
    // For every author: if name matches "[A-Z" and name == <unset> then count(Auhtor) +
    // count([books] -> [author] -> [loans] of a) else count(books of a where b.name == "x") +
    // stray.name. Each name exists on some class; the faults are on the class read.
    auto* test = new TNBooleanExpr(
        new TNRegExpMatchExpr(text("[A-Z"), attr("name", a)), TNBooleanExpr::TNAnd,
        new TNRelationalExpr(attr("name", a), TNRelationalExpr::TNEqual, nullptr));
    auto* then = new TNArithmeticExpr(new TNCountExpr(new TNAllInstancesExpr("Auhtor", input)),
                                      TNArithmeticExpr::TNPlus,
                                      new TNCountExpr(chain("[books] -> [author] -> [loans]", a)));
    auto* named = new TNValueAbsExpr(
        b, new TNRelationalExpr(attr("name", b), TNRelationalExpr::TNEqual, text("x")));
    auto* otherwise =
        new TNArithmeticExpr(new TNCountExpr(new TNFilterExpr(named, chain("[books]", a))),
                             TNArithmeticExpr::TNPlus, attr("name", stray));
    TNExprGraph<TNValueExpr> graph(new TNDelimiterExpr(
        text(", "), new TNMapExpr(new TNValueAbsExpr(a, new TNIfValueExpr(test, then, otherwise)),
                                  new TNAllInstancesExpr("Author", input))));

    const SgxString body = "TNDelimiterExpr > TNMapExpr > TNValueAbsExpr > TNIfValueExpr > ";
    const struct {
        TNExprProblem::Kind kind;
        SgxString path;
        SgxString message;
    } expected[] = {
        {TNExprProblem::MalformedPattern, body + "TNBooleanExpr > TNRegExpMatchExpr",
         "malformed pattern '[A-Z'"},
        {TNExprProblem::UnsetOperand, body + "TNBooleanExpr > TNRelationalExpr",
         "operand 2 of 2 is unset"},
        {TNExprProblem::UnknownClass, body + "TNArithmeticExpr > TNCountExpr > TNAllInstancesExpr",
         "unknown class 'Auhtor'"},
        {TNExprProblem::UnknownRole,
         body + "TNArithmeticExpr > TNCountExpr > TNAssociationExpr > TNAssociationTraversal > "
                "TNAssociationTraversal > TNAssociationTraversal",
         "unknown role 'loans' of class Author"},
        {TNExprProblem::UnknownAttribute,
         body + "TNArithmeticExpr > TNCountExpr > TNFilterExpr > TNValueAbsExpr > "
                "TNRelationalExpr > TNAttrExpr",
         "unknown attribute 'name' of class Book"},
        {TNExprProblem::UnboundVariable, body + "TNArithmeticExpr > TNAttrExpr > TNObjectVarExpr",
         "variable bound by no abstraction or quantifier around it, nor a parameter"},
    };
    const std::vector<TNExprProblem> found = tnCheckExpression(schema, graph.get(), {input});
    ASSERT_EQ(found.size(), std::size(expected));
    for (size_t i = 0; i < found.size(); ++i) {
        SCOPED_TRACE(found[i].text());
        EXPECT_EQ(found[i].kind, expected[i].kind);
        EXPECT_EQ(found[i].path, expected[i].path);
        EXPECT_EQ(found[i].message, expected[i].message);
    }
    // Without the parameter, the input is unbound too, reported once though read twice.
    EXPECT_EQ(tnCheckExpression(schema, graph.get()).size(), std::size(expected) + 1);
}

TEST(TNExprCheck, CorrectAndCyclicGraphsGiveNothing) {
    // The three W1 reports, "All Classes" and its recursive chain included.
    TNSchema w1Schema;
    w1::TarnelModel model(w1Schema);
    w1::defineAllClasses(w1Schema);
    const w1::Reports reports;
    for (const TNExprProblem& problem : reports.check(w1Schema))
        ADD_FAILURE() << problem.text();

    // An If whose else branch is itself, over a chain that refers back to its first step.
    TNSchema schema;
    defineCatalogue(schema);
    Var author = new TNObjectVarExpr;
    auto* loop = new TNIfValueExpr(
        new TNCountExpr(chain("top: [] -> ( [books] -> [author] -> @top; [books] )", author)),
        attr("name", author), nullptr);
    loop->elseExpr(loop);
    const TNExprGraph<TNValueExpr> graph(loop);
    EXPECT_TRUE(tnCheckExpression(schema, graph.get(), {{author, "Author"}}).empty());
}
