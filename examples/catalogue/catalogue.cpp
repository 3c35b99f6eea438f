// A library catalogue host: a schema of authors, books and loans, a few thousand objects made
// deterministically, and six reports built from the library's expression nodes. Run it with no
// arguments; it prints each report's result.
//
// Schema: Author (name, country, born) --books/author-- Book (title, year, genre, pages)
// --loans/book-- Loan (member, days, returned); genre is an enumeration.
#include "tarnel/tarnel.h"

#include <array>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

namespace {

constexpr size_t authorCount = 300;
constexpr size_t booksPerAuthor = 8;

constexpr std::array<const char*, 5> genres = {"fiction", "mystery", "poetry", "history",
                                               "science"};

void defineSchema(TNSchema& schema) {
    const auto genre = schema.newEnumType("Genre");
    for (const char* literal : genres)
        genre->addName(literal);

    const auto author = schema.newClass("Author");
    author->addAttr("name", TNAttrString, "", "");
    author->addAttr("country", TNAttrString, "", "");
    author->addAttr("born", TNAttrInteger, "", "");
    const auto book = schema.newClass("Book");
    book->addAttr("title", TNAttrString, "", "");
    book->addAttr("year", TNAttrInteger, "", "");
    book->addAttr("genre", TNAttrEnumeration, "Genre", "");
    book->addAttr("pages", TNAttrInteger, "", "");
    const auto loan = schema.newClass("Loan");
    loan->addAttr("member", TNAttrString, "", "");
    loan->addAttr("days", TNAttrInteger, "", "");
    loan->addAttr("returned", TNAttrBoolean, "", "");

    // An author reaches its books through "books", a book its author through "author".
    author->addAssociation("authorship", "Book", {0, -1}, {1, 1}, "author", "books");
    book->addAssociation("lending", "Loan", {0, -1}, {1, 1}, "book", "loans");
}

// Author a writes books 8a .. 8a+7; book b has b mod 4 loans; every seventh loan is still out.
void populate(TNSchema& schema) {
    static constexpr std::array<const char*, 12> given = {"Ada",   "Bruno", "Chiara", "Dmitri",
                                                          "Elena", "Farid", "Greta",  "Hugo",
                                                          "Ines",  "Jonas", "Keiko",  "Luis"};
    static constexpr std::array<const char*, 25> family = {
        "Achebe", "Berg",   "Castillo", "Dahl",     "Eriksen",   "Fontaine", "Garcia",
        "Haddad", "Ito",    "Jansen",   "Kowalski", "Lindqvist", "Moreau",   "Nakamura",
        "Okafor", "Petrov", "Quispe",   "Rossi",    "Sato",      "Tanaka",   "Umarov",
        "Varga",  "Weber",  "Xu",       "Yilmaz"};
    static constexpr std::array<const char*, 6> countries = {"Chile", "France", "Japan",
                                                             "Kenya", "Norway", "Peru"};
    static constexpr std::array<const char*, 10> adjectives = {
        "Silent", "Hidden",  "Golden", "Broken", "Distant",
        "Quiet",  "Burning", "Frozen", "Lost",   "Crimson"};
    static constexpr std::array<const char*, 24> nouns = {
        "River",  "Garden",  "Mountain", "City",    "Harbour", "Forest",  "Island",  "Letters",
        "Winter", "Orchard", "Tower",    "Shadows", "Voyage",  "Kingdom", "Bridge",  "Storm",
        "Meadow", "Lantern", "Desert",   "Compass", "Mirror",  "Promise", "Archive", "Horizon"};

    const auto authorClass = schema.getClass("Author");
    const auto bookClass = schema.getClass("Book");
    const auto loanClass = schema.getClass("Loan");
    size_t loans = 0;
    for (size_t a = 0; a < authorCount; ++a) {
        const auto author = authorClass->newObject(false);
        (*author)["name"] = std::string(given[a % 12]) + " " + family[a / 12 % 25];
        (*author)["country"] = countries[a % 6];
        (*author)["born"] = static_cast<int>(1900 + a * 37 % 100);
        for (size_t b = a * booksPerAuthor; b < (a + 1) * booksPerAuthor; ++b) {
            const auto book = bookClass->newObject(false);
            (*book)["title"] = std::string("The ") + adjectives[b % 10] + " " + nouns[b / 10 % 24];
            (*book)["year"] = static_cast<int>(1950 + b * 37 % 70);
            (*book)["genre"] = genres[b % 5];
            (*book)["pages"] = static_cast<int>(80 + b * 13 % 400);
            author->associate(book, "books");
            for (size_t i = 0; i < b % 4; ++i, ++loans) {
                const auto loan = loanClass->newObject(false);
                (*loan)["member"] = "M" + std::to_string(loans % 97);
                (*loan)["days"] = static_cast<int>(1 + loans * 5 % 30);
                (*loan)["returned"] = loans % 7 != 0;
                book->associate(loan, "loans");
            }
        }
    }
}

// --- Building blocks of the graphs ------------------------------------------------------------

using Var = SgxCyclicPtr<TNObjectVarExpr>;

TNValueExpr* attr(const char* name, const Var& x) { return new TNAttrExpr(name, x); }
TNValueExpr* text(const char* value) { return new TNConstantExpr(value); }
TNValueExpr* number(int value) { return new TNConstantExpr(value); }
TNValueExpr* plus(TNValueExpr* lhs, TNValueExpr* rhs) {
    return new TNArithmeticExpr(lhs, TNArithmeticExpr::TNPlus, rhs);
}
TNValueExpr* compare(TNValueExpr* lhs, TNRelationalExpr::TNRelOp op, TNValueExpr* rhs) {
    return new TNRelationalExpr(lhs, op, rhs);
}
// The objects reached from `from` through the role `role`.
TNObjectCollectionExpr* navigate(const char* role, const TNObjectExprPtr& from) {
    return new TNAssociationExpr(new TNAssociationTraversal(role, true), from);
}
// The elements of `collection` for which `test` (a function of x) holds.
TNObjectCollectionExpr* where(const Var& x, TNValueExpr* test, TNObjectCollectionExpr* collection) {
    return new TNFilterExpr(new TNValueAbsExpr(x, test), collection);
}
// The texts that `function` (of x) yields for the elements of `collection`, joined by `delimiter`.
TNValueExpr* joined(const char* delimiter, const Var& x, TNValueExpr* function,
                    TNObjectCollectionExpr* collection) {
    return new TNDelimiterExpr(text(delimiter),
                               new TNMapExpr(new TNValueAbsExpr(x, function), collection));
}

// The six reports as expression graphs over one input variable: any object of the catalogue
// (the graphs find their classes in its schema). Built once; freed with this object.
class Reports {
public:
    Reports() {
        // The graphs share the input variables, so one owner frees them all together, each node
        // once.
        m_author = m_owner.adopt(findAuthor());
        m_graphs = {patternCount(),           booksByGenreThenNewest(), norwegiansBornBefore1920(),
                    authorsOfLongBooksOnly(), loansOfTheAuthorsBooks(), loansStillOut()};
        for (TNValueExpr* graph : m_graphs)
            m_owner.adopt(graph);
    }
    Reports(const Reports&) = delete;
    Reports& operator=(const Reports&) = delete;

    // Writes to standard error what tnCheckExpression finds in the graphs against `schema`
    // (misspelt classes, roles and attributes, bad patterns, unset operands, unbound variables);
    // answers whether it found nothing.
    bool check(const TNSchema& schema) const {
        const std::vector<TNExprParameter> parameters = {{m_input}, {m_chosenAuthor, "Author"}};
        std::vector<TNExprProblem> problems = tnCheckExpression(schema, m_author, parameters);
        for (const TNValueExpr* graph : m_graphs) {
            const std::vector<TNExprProblem> found = tnCheckExpression(schema, graph, parameters);
            problems.insert(problems.end(), found.begin(), found.end());
        }
        for (const TNExprProblem& problem : problems)
            std::cerr << "catalogue: " << problem.text() << '\n';
        return problems.empty();
    }

    // Evaluates every report on the catalogue that `anyObject` belongs to.
    void print(TNObject* anyObject) const {
        m_input->object(anyObject);
        m_chosenAuthor->object((*m_author)());
        static constexpr std::array<const char*, 6> titles = {
            "R1 books titled like \"^The [HS]i[a-z]* [A-Z][a-z]*s$\": ",
            "R2 books by Ada Berg, by genre, newest first: ",
            "R3 authors from Norway born before 1920: ",
            "R4 authors whose every book has at least 150 pages: ",
            "R5 loans of books by Ada Berg: ",
            "R6 loans still out: "};
        for (size_t i = 0; i < titles.size(); ++i)
            std::cout << titles[i] << (*m_graphs[i])().asString() << '\n';
    }

private:
    // The author named "Ada Berg" (exactly one).
    TNObjectExpr* findAuthor() {
        Var a = new TNObjectVarExpr;
        return new TNObjectExtractionExpr(
            where(a, compare(attr("name", a), TNRelationalExpr::TNEqual, text("Ada Berg")),
                  new TNAllInstancesExpr("Author", m_input)));
    }

    // R1, a filter with a pattern: count(Book where title matches the pattern).
    TNValueExpr* patternCount() {
        Var b = new TNObjectVarExpr;
        auto* matches =
            new TNRegExpMatchExpr(text("^The [HS]i[a-z]* [A-Z][a-z]*s$"), attr("title", b));
        return new TNCountExpr(where(b, matches, new TNAllInstancesExpr("Book", m_input)));
    }

    // R2, a two-key sort: the author's books by genre, then newest first, as
    // "title (genre year)" joined by " / ".
    TNValueExpr* booksByGenreThenNewest() {
        Var g = new TNObjectVarExpr;
        Var y = new TNObjectVarExpr;
        auto* sorted = new TNSortExpr;
        sorted->collection(navigate("books", m_chosenAuthor));
        sorted->key(new TNValueAbsExpr(g, attr("genre", g)), true);
        sorted->key(new TNValueAbsExpr(y, attr("year", y)), false);
        Var b = new TNObjectVarExpr;
        TNValueExpr* line =
            plus(plus(plus(plus(plus(attr("title", b), text(" (")), attr("genre", b)), text(" ")),
                      attr("year", b)),
                 text(")"));
        return joined(" / ", b, line, sorted);
    }

    // R3, a map joined to text: names of the authors from Norway born before 1920, by name.
    TNValueExpr* norwegiansBornBefore1920() {
        Var a = new TNObjectVarExpr;
        auto* test = new TNBooleanExpr(
            compare(attr("country", a), TNRelationalExpr::TNEqual, text("Norway")),
            TNBooleanExpr::TNAnd, compare(attr("born", a), TNRelationalExpr::TNLess, number(1920)));
        Var k = new TNObjectVarExpr;
        auto* byName = new TNSortExpr;
        byName->collection(where(a, test, new TNAllInstancesExpr("Author", m_input)));
        byName->key(new TNValueAbsExpr(k, attr("name", k)), true);
        Var n = new TNObjectVarExpr;
        return joined(", ", n, attr("name", n), byName);
    }

    // R4, a quantifier: count(Author where every one of its books has at least 150 pages).
    TNValueExpr* authorsOfLongBooksOnly() {
        Var a = new TNObjectVarExpr;
        Var b = new TNObjectVarExpr;
        auto* everyBookLong = new TNAllExpr(
            navigate("books", a),
            compare(attr("pages", b), TNRelationalExpr::TNGreaterEqual, number(150)), b);
        return new TNCountExpr(where(a, everyBookLong, new TNAllInstancesExpr("Author", m_input)));
    }

    // R5, a navigation along two associations: from the author through "books", then from
    // each book through "loans", in one traversal; the count, then the members of the loans
    // not returned.
    TNValueExpr* loansOfTheAuthorsBooks() {
        auto* books = new TNAssociationTraversal("books", false);
        books->setChild(new TNAssociationTraversal("loans", true));
        auto loans = [&] { return new TNAssociationExpr(books, m_chosenAuthor); };
        Var l = new TNObjectVarExpr;
        auto* out = where(l, new TNBooleanExpr(attr("returned", l), TNBooleanExpr::TNNot, nullptr),
                          loans());
        Var m = new TNObjectVarExpr;
        // A count is an integer, and adding to an integer adds numbers: make it a text first.
        auto* count = new TNConversionExpr(new TNCountExpr(loans()), TNVInt, TNVString);
        return plus(plus(count, text(" loans, still held by ")),
                    joined(", ", m, attr("member", m), out));
    }

    // R6, a count: the loans of the whole catalogue not yet returned.
    TNValueExpr* loansStillOut() {
        Var l = new TNObjectVarExpr;
        return new TNCountExpr(
            where(l, new TNBooleanExpr(attr("returned", l), TNBooleanExpr::TNNot, nullptr),
                  new TNAllInstancesExpr("Loan", m_input)));
    }

    Var m_input = new TNObjectVarExpr;
    Var m_chosenAuthor = new TNObjectVarExpr;
    TNExprOwner m_owner;
    TNObjectExpr* m_author = nullptr;
    std::array<TNValueExpr*, 6> m_graphs{};
};

} // namespace

int main() {
    try {
        TNSchema schema;
        defineSchema(schema);
        populate(schema);
        schema.donePopulating();
        const size_t objects = schema.getClass("Author")->objects().size() +
                               schema.getClass("Book")->objects().size() +
                               schema.getClass("Loan")->objects().size();
        std::cout << "Catalogue: " << objects << " objects\n";
        {
            const Reports reports;
            if (!reports.check(schema))
                return 1;
            reports.print(schema.getClass("Author")->objects().front().get());
        }
        schema.unpopulate();
        return 0;
    } catch (const SgxException& e) {
        std::cerr << "catalogue: " << e.reasonText() << '\n';
        return 1;
    }
}
