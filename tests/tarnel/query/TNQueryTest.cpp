// The query language: every textual form compiles and prints back unchanged, precedence decides
// the graph, names are checked against the schema with positioned errors, limits hold, and
// printed hand-built graphs compile to graphs that evaluate alike.
#include "tarnel/query/TNQuery.h"
#include "w1/w1_reports.h"

#include "tarnel/expressions/ExprTestNodes.h"
#include "tarnel/expressions/TNExtensionExpr.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// A W1 model of about `n` objects with "All Classes" defined; its root package is `root`.
struct Model {
    explicit Model(size_t n = 200) {
        w1::generate(model, n);
        w1::defineAllClasses(schema);
        schema.donePopulating();
        root = schema.rootObject().get();
    }
    TNSchema schema;
    w1::TarnelModel model{schema};
    TNObject* root = nullptr;
};

// The result of a query as one text, for comparing any two results.
SgxString show(const TNQueryResult& r) {
    switch (r.family) {
    case TNQueryFamily::Value:
        return "value " + std::to_string(r.value.myType()) + ":" + r.value.asString();
    case TNQueryFamily::Object:
        return "object " + (r.object.isNull()
                                ? SgxString("null")
                                : r.object->getClass()->name() + (*r.object)["name"].asString());
    case TNQueryFamily::ObjectCollection: {
        SgxString text = "objects";
        for (const auto& o : r.objects)
            text += " " + (*o)["quid"].asString();
        return text;
    }
    case TNQueryFamily::StringCollection: {
        SgxString text = "texts";
        for (const auto& t : r.texts)
            text += " [" + t + "]";
        return text;
    }
    }
    return "";
}

SgxString evaluate(const TNSchema& schema, std::string_view text, TNObject* self) {
    return show(TNQuery::compile(schema, text).evaluate(self));
}

TEST(TNQuery, CanonicalFormsPrintBackUnchangedAndRecompileAlike) {
    // One line per node class's form (several per line where a form has variants).
    const char* const forms[] = {
        "1 + 2.5 * -3 - 4 / 2",
        "-2147483648",
        "1e+20 + 0.5",
        "'it\\'s \\\\ \\n\\t\\x01' + null",
        "true and not false or false implies true",
        "1 = 1 and 1 <> 2 and 1 < 2 and 2 > 1 and 1 <= 1 and 1 >= 1",
        "(1 + 2) * 3",
        "1 - (2 - 3)",
        "not (true and false)",
        "'12'.toInteger() + '1.5'.toReal() + 3.toString().size() + 1.convert(None) + "
        "2.convert(Long)",
        "'x'.toBoolean()",
        "self.name.toUpper() + self.name.toLower() + ' a '.trim()",
        "self.name.matches('^Pack') and self.name.find('[0-9]+') = '0'",
        "self.name.replaceFirst('a', 'b') + self.name.replaceAll('a', '')",
        "self.name.substring(2, 4)",
        "self.className() + self.uid()",
        "self.attribute('na' + 'me')",
        "self.visibility.index()",
        "self.apply(x | x.order + 1)",
        "let b1 = self.order in b1 + b1",
        "let b1 = self.classes in b1->size()",
        "let b1 = self.classes->first() in b1.name",
        "let b1 = self.classes->collect(x | x.name) in b1->join(',')",
        "if self.order > 0 then 'a' else 'b' endif",
        "if true then self else model endif.name",
        "if true then self.classes else self.subpackages endif->size()",
        "if true then self.classes->collect(x | x.name) else self.classes->collect(x | x.quid) "
        "endif->join('')",
        "Class.allInstances()->select(x | x.isAbstract)->size()",
        "self.allInstancesOf('Cla' + 'ss')->size()",
        "model.subpackages->collect(x | x.classes)->size()",
        "self.navigate('[All Classes]')->size()",
        "Class.allInstances()->sortedBy(x | x.isAbstract desc, x.order)->reverse()->first().name",
        "Class.allInstances()->sortedBy()->asOrderedSet()->asSet()->size()",
        "self.classes->one().name",
        "self.classes->forAll(x | x.order >= 0) and self.classes->exists(x | false)",
        "self.classes = self.classes and self.classes <> self.subpackages",
        "self.classes < self.classes or self.classes <= self.classes",
        "self = model and self <> model",
        "self.classes->union(self.subpackages)->intersection(self.classes)->difference("
        "self.subpackages)->size()",
        "Class.allInstances()->sum(x | x.order) + Class.allInstances()->min(x | x.name).size()",
        "Class.allInstances()->max(x | x.weight) + Class.allInstances()->average(x | x.order)",
        "Class.allInstances()->collect(x | x.operations->select(y | y.name <> x.name)->size())"
        "->join('+')",
        "self.classes->first().model().name",
        "Class.allInstances()->collect(x | x.name)",
        "Class.allInstances()->first()",
    };
    Model m;
    for (const char* form : forms) {
        SCOPED_TRACE(form);
        const TNQuery query = TNQuery::compile(m.schema, form);
        const SgxString printed = query.print();
        EXPECT_EQ(printed, form);
        const TNQuery again = TNQuery::compile(m.schema, printed);
        EXPECT_EQ(again.print(), printed);
        EXPECT_EQ(show(query.evaluate(m.root)), show(again.evaluate(m.root)));
    }
}

TEST(TNQuery, PrecedenceAndAssociativityDecideTheGraph) {
    struct Case {
        const char* text;
        const char* canonical;
        const char* value;
    };
    const Case cases[] = {
        {"2 + 3 * 4", "2 + 3 * 4", "14"},
        {"(2 + 3) * 4", "(2 + 3) * 4", "20"},
        {"10 - 4 - 3", "10 - 4 - 3", "3"},
        {"10 - (4 - 3)", "10 - (4 - 3)", "9"},
        {"100 / 10 / 5", "100 / 10 / 5", "2"},
        {"- - 5", "- -5", "5"},
        {"-(2 + 3)", "-(2 + 3)", "-5"},
        {"- - 0 / 2", "-(0) / 2", "0"}, // regression: printed "-0 / 2", which reads as 0 / 2
        {"-(7)", "-(7)", "-7"},
        {"true or false and false", "true or false and false", "true"},
        {"(true or false) and false", "(true or false) and false", "false"},
        {"not true or true", "not true or true", "true"},
        {"not (true or true)", "not (true or true)", "false"},
        {"false implies false implies false", "false implies false implies false", "false"},
        {"1 + 2 = 3 and 2 * 2 = 4", "1 + 2 = 3 and 2 * 2 = 4", "true"},
        {"((1))", "1", "1"},
        {"-- a comment\n  1 +\t2 -- another", "1 + 2", "3"},
        {"(-5).toString()", "(-5).toString()", "-5"},
        {"-5.toString()", "-(5.toString())", ""}, // negation of a text: TNVNone
    };
    Model m;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const TNQuery query = TNQuery::compile(m.schema, c.text);
        EXPECT_EQ(query.print(), c.canonical);
        EXPECT_EQ(query.evaluate(m.root).value.asString(), c.value);
    }
}

TEST(TNQuery, CompileErrorsSayWhereAndWhat) {
    struct Case {
        const char* text;
        size_t line;
        size_t column;
        const char* message;
    };
    const Case cases[] = {
        {"Operation.allInstances()->select(o | o.visibilty = 'public')", 1, 40,
         "unknown attribute or role 'visibilty' of class Operation; did you mean 'visibility'?"},
        {"Operaton.allInstances()", 1, 1, "unknown class 'Operaton'; did you mean 'Operation'?"},
        {"Operation.allInstances()->select(o | o.visibility = 'publc')", 1, 53,
         "unknown literal 'publc' of enumeration Visibility; did you mean 'public'?"},
        {"Visibility::privat", 1, 13, "unknown literal 'privat' of enumeration Visibility"},
        {"Visibilty::private", 1, 1, "did you mean 'Visibility'?"},
        {"Class.allInstances()->collect(c | c.operatons)", 1, 37, "did you mean 'operations'?"},
        {"self.attribute('nam')", 1, 16,
         "unknown attribute 'nam' of any class; did you mean 'name'?"},
        {"self.navigate('[clases]')", 1, 15, "unknown role 'clases' in the chain; did you mean"},
        {"self.navigate('[a')", 1, 15, "Traversal source error"},
        // Regression: the chain was checked against every class, the printed `.attributes`
        // against Package.
        {"Package.allInstances()->collect(p | p.navigate('[attributes]'))", 1, 48,
         "unknown role 'attributes' in the chain from class Package"},
        {"1 +\n  Class.allInstances()", 2, 3, "expected a value after '+', found a collection"},
        {"(1 + 2", 1, 7, "expected ')', found the end of the query"},
        {"1 2", 1, 3, "expected an operator or the end of the query, found the number 2"},
        {"1 < 2 < 3", 1, 7, "comparisons do not chain"},
        {"self.classes.name", 1, 14, "needs an object, found a collection of objects"},
        {"self.name->size()", 1, 10, "'->' applies to a collection, found a value"},
        {"self.classes.size()", 1, 13, "'.' applies to a value or an object"},
        {"self.classes->select(x | x.operations)", 1, 26, "expected a value as the body of select"},
        {"self.classes->selct(x | true)", 1, 15, "unknown operation 'selct'"},
        {"self.classes->select(true)", 1, 22, "expected a lambda 'x | ...'"},
        {"'a'.index()", 1, 5, "index() follows an enumeration attribute directly"},
        {"self.name.index()", 1, 11, "index() needs an enumeration attribute; 'name' is not one"},
        {"self.order.index()", 1, 12, "'order' is not one"},
        {"self.nmae.size()", 1, 6, "did you mean 'name'?"},
        {"let x = 1 in 2", 1, 5, "'x' is never used after 'in'"},
        {"let in = 1 in in", 1, 5, "'in' is a keyword"},
        {"if 1 then 'a' else self endif", 1, 20, "expected a value after 'else'"},
        {"y + 1", 1, 1, "unknown name 'y'"},
        {"self.classes->collect(x | xx.name)", 1, 27, "did you mean 'x'?"},
        {"2147483648", 1, 1, "integer out of the 32-bit range"},
        {"'abc", 1, 1, "this text has no closing quote"},
        {"'a\\qb'", 1, 3, "unknown escape"},
        {"'a\\x00'", 1, 3, "two hexadecimal digits"},
        {"1 # 2", 1, 3, "unexpected character '#'"},
        {"12abc", 1, 3, "expected an operator after a number"},
        {"self < model", 1, 6, "objects compare only with '=' and '<>'"},
        {"self.classes > self.classes", 1, 14, "collections compare with"},
        {"1.convert(Int)", 1, 11, "unknown value type 'Int'"},
        {"", 1, 1, "expected an expression, found the end of the query"},
    };
    Model m;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        try {
            TNQuery::compile(m.schema, c.text);
            ADD_FAILURE() << "compiled";
        } catch (const TNQueryError& e) {
            EXPECT_EQ(e.line(), c.line);
            EXPECT_EQ(e.column(), c.column);
            EXPECT_NE(e.message().find(c.message), SgxString::npos) << e.message();
            // The reason text shows the line with a caret under the column.
            const SgxString text = e.reasonText();
            const size_t caretLine = text.rfind('\n');
            ASSERT_NE(caretLine, SgxString::npos);
            EXPECT_EQ(text.size() - caretLine - 1, 2 + c.column) << text;
            EXPECT_EQ(text.back(), '^');
        }
    }
}

TEST(TNQuery, TheCaretStandsUnderTheFaultInLongAndTabbedLines) {
    Model m;
    const std::string texts[] = {std::string(300, ' ') + "1 + #", "\t1 +\t#",
                                 "1 +\n" + std::string(200, ' ') + "\t #"};
    for (const std::string& text : texts) {
        try {
            TNQuery::compile(m.schema, text);
            ADD_FAILURE() << "compiled";
        } catch (const TNQueryError& e) {
            const SgxString reason = e.reasonText();
            const SgxString caretLine = reason.substr(reason.rfind('\n') + 1);
            // The caret line repeats the tabs of the source line, so both align on any display.
            const size_t under = caretLine.size() - 1 - 2;
            ASSERT_LT(under, e.sourceLine().size()) << reason;
            EXPECT_EQ(e.sourceLine()[under], '#') << reason;
            const size_t newline = text.rfind('\n');
            const size_t lineStart = newline == std::string::npos ? 0 : newline + 1;
            EXPECT_EQ(e.column(), text.size() - lineStart) << reason;
        }
    }
}

TEST(TNQuery, LimitsStopUntrustedText) {
    Model m;
    const TNQueryLimits limits;
    auto fails = [&](const std::string& text, const char* message) {
        try {
            TNQuery::compile(m.schema, text);
            ADD_FAILURE() << "compiled " << text.substr(0, 40);
        } catch (const TNQueryError& e) {
            EXPECT_NE(e.message().find(message), SgxString::npos) << e.message();
        }
    };
    fails(std::string(limits.maxTextBytes + 1, ' '), "bytes long; the limit is");
    fails(std::string(limits.maxNesting + 1, '(') + "1" + std::string(limits.maxNesting + 1, ')'),
          "constructs nest more than");
    std::string negations;
    for (size_t i = 0; i <= limits.maxNesting; ++i)
        negations += "not - ";
    fails(negations + "1", "constructs nest more than");
    std::string sum = "1";
    for (size_t i = 0; i < limits.maxGraphHeight; ++i)
        sum += "+1";
    fails(sum, "nodes high");
    std::string chain = "self.navigate('";
    for (size_t i = 0; i <= limits.maxNesting; ++i)
        chain += "[classes] -> ";
    fails(chain + "[classes]')", "steps and groups");
    // Just within the limits compiles.
    const std::string nested =
        std::string(limits.maxNesting - 1, '(') + "1" + std::string(limits.maxNesting - 1, ')');
    EXPECT_EQ(TNQuery::compile(m.schema, nested).evaluate(nullptr).value.asLongInt(), 1);
}

TEST(TNQuery, FamiliesAndInputsOfCompiledGraphs) {
    Model m;
    TNObjectVarExpr* input = nullptr;
    TNExprGraph<TNValueExpr> graph = tnCompileQuery<TNValueExpr>(m.schema, "self.name", &input);
    ASSERT_NE(input, nullptr);
    input->object(m.root);
    EXPECT_EQ(graph().asString(), "Package_0");
    EXPECT_EQ(tnCompileQuery<TNValueExpr>(m.schema, "1", &input)().asLongInt(), 1);
    EXPECT_EQ(input, nullptr); // a query that never says self has no input
    EXPECT_THROW(tnCompileQuery<TNObjectExpr>(m.schema, "1"), TNQueryError);
    // From the model's root.
    const TNQuery query = TNQuery::compile(m.schema, "self.subpackages->size()");
    EXPECT_EQ(query.evaluateOnModel(m.schema).value.asLongInt(), 10);
}

// A probe of the printer on graphs no compiler made: the worked example of a report query, built
// by hand, prints as Q1's text and recompiles to the same result.
TEST(TNQuery, HandBuiltGraphsPrintToTextThatEvaluatesAlike) {
    Model m(10000);
    const w1::Reports reports;
    SgxCyclicPtr<TNObjectVarExpr> input = new TNObjectVarExpr;
    SgxCyclicPtr<TNObjectVarExpr> x = new TNObjectVarExpr, y = new TNObjectVarExpr,
                                  z = new TNObjectVarExpr;
    auto* sorted = new TNSortExpr;
    sorted->collection(
        new TNFilterExpr(new TNValueAbsExpr(x, new TNRelationalExpr(new TNAttrExpr("visibility", x),
                                                                    TNRelationalExpr::TNEqual,
                                                                    new TNConstantExpr("public"))),
                         new TNAllInstancesExpr("Operation", input)));
    sorted->key(new TNValueAbsExpr(y, new TNAttrExpr("name", y)), true);
    const TNExprGraph<TNValueExpr> q1(new TNDelimiterExpr(
        new TNConstantExpr(", "),
        new TNMapExpr(new TNValueAbsExpr(z, new TNAttrExpr("name", z)), sorted)));
    const SgxString text = tnPrintQuery(*q1);
    EXPECT_EQ(text, "Operation.allInstances()->select(x | x.visibility = 'public')->sortedBy(x | "
                    "x.name)->collect(x | x.name)->join(', ')");
    input->object(m.root);
    EXPECT_EQ(TNQuery::compile(m.schema, text).evaluate(m.root).value.asString(),
              (*q1)().asString());
    EXPECT_EQ((*q1)().asString(), reports.q1(m.root));
}

TEST(TNQuery, PrinterRefusesWhatTheLanguageCannotSay) {
    SgxCyclicPtr<TNObjectVarExpr> a = new TNObjectVarExpr, b = new TNObjectVarExpr;
    auto refuses = [](TNValueExpr* root, const char* message) {
        const TNExprGraph<TNValueExpr> graph(root);
        try {
            tnPrintQuery(*graph);
            ADD_FAILURE() << "printed";
        } catch (const SgxException& e) {
            EXPECT_NE(e.reasonText().find(message), SgxString::npos) << e.reasonText();
        }
    };
    refuses(new TNRelationalExpr(new TNConstantExpr(1), TNRelationalExpr::TNRelOp(0),
                                 new TNConstantExpr(2)),
            "TNRelationalExpr operator 0");
    refuses(new TNCountExpr(nullptr), "operand is not set");
    refuses(new TNConstantExpr(TNValue(1.0 / 0.0)), "not finite");
    refuses(new TNObjectEqualityExpr(a, TNObjectEqualityExpr::TNEqual, b), "a second variable");
    refuses(new TNValueBindingExpr(new TNConstantExpr(1)), "outside the let");
    // A cycle: a node that is its own operand.
    auto* loop = new TNArithmeticExpr(new TNConstantExpr(1), TNArithmeticExpr::TNPlus, nullptr);
    loop->rhs(loop);
    refuses(loop, "nodes deep");
}

TEST(TNExtensionExpr, SetOperationsKeepFirstOccurrencesAndEvaluateBothSides) {
    using Op = TNCollectionSetOpExpr;
    struct Case {
        std::vector<int> lhs;
        Op::TNCombineOp op;
        std::vector<int> rhs;
        const char* result;
    };
    const Case cases[] = {
        {{2, 0, 2, 1}, Op::TNUnion, {3, 0, 3}, "2013"},
        {{2, 0, 2, 1}, Op::TNIntersection, {1, 2}, "21"},
        {{2, 0, 2, 1}, Op::TNDifference, {1}, "20"},
        {{}, Op::TNIntersection, {1}, ""},
        {{1, 2}, Op::TNCombineOp(0), {1}, ""},
    };
    auto objects = [](const std::vector<int>& indexes) {
        TNObjectSequence sequence;
        for (int i : indexes)
            sequence.push_back(fakeObject(i));
        return sequence;
    };
    for (const Case& c : cases) {
        ProbeScope scope;
        {
            const TNExprGraph<TNObjectCollectionExpr> graph(
                new Op(new ObjectsProbe("lhs", {objects(c.lhs)}), c.op,
                       new ObjectsProbe("rhs", {objects(c.rhs)})));
            std::string result;
            for (const auto& o : graph())
                for (int i = 0; i < 8; ++i)
                    result += o.get() == fakeObject(i).get() ? std::to_string(i) : "";
            EXPECT_EQ(result, c.result) << c.op;
            EXPECT_EQ(evaluated, (Log{"lhs", "rhs"}));
        }
    }
}

TEST(TNExtensionExpr, AggregatesTextsAndEnumerationIndexes) {
    Model m;
    struct Case {
        const char* text;
        const char* result;
    };
    const Case cases[] = {
        {"Package.allInstances()->sum(x | x.order)", "value 1:6105"}, // 0 + ... + 110
        {"Package.allInstances()->sum(x | x.weight)", "value 2:3052.500000"},
        {"Package.allInstances()->sum(x | if x.order < 3 then x.order else null endif)",
         "value 1:3"},
        {"Package.allInstances()->sum(x | 2147483647)", "value 1:2147483537"}, // wraps in 32 bits
        {"Package.allInstances()->select(x | false)->sum(x | x.order)", "value 1:0"},
        {"Package.allInstances()->min(x | x.name)", "value 3:Package_0"},
        {"Package.allInstances()->max(x | x.name)", "value 3:Package_99"},
        {"Package.allInstances()->max(x | x.order)", "value 1:110"},
        {"Package.allInstances()->average(x | x.order)", "value 2:55.000000"},
        {"Package.allInstances()->select(x | false)->average(x | x.order)", "value 0:"},
        {"Package.allInstances()->select(x | false)->min(x | x.order)", "value 0:"},
        {"'hello'.size() + ''.size()", "value 1:5"},
        {"'hello'.substring(2, 3) + '|' + 'hello'.substring(-5, 99) + '|' + "
         "'hello'.substring(4, 2)",
         "value 3:el|hello|"},
        {"Operation.allInstances()->sortedBy(x | x.visibility.index() desc, x.order)"
         "->first().visibility",
         "value 3:implementation"},
        {"Operation.allInstances()->sortedBy(x | x.visibility desc, x.order)->first().visibility",
         "value 3:public"}, // by the literal's name instead
    };
    for (const Case& c : cases)
        EXPECT_EQ(evaluate(m.schema, c.text, m.root), c.result) << c.text;

    // An index of an attribute that is not an enumeration raises at evaluation.
    const TNExprGraph<TNValueExpr> graph(new TNEnumIndexExpr("name", new TNObjectVarExpr(m.root)));
    EXPECT_THROW(graph(), SgxException);
}

} // namespace
