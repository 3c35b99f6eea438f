#include "tarnel/expressions/TNStringExpr.h"

#include "ExprTestNodes.h"

#include <tuple>

namespace {
std::string text(const char* s) { return show(TNValue(SgxString(s))); }
} // namespace

TEST(TNRegExpExpr, MatchFindAndReplaceFirstOrAllLiterally) {
    const std::tuple<const char*, TNValue, bool> matches[] = {
        {"b", "abc", true},   {"^b", "abc", false}, {"c$", "abc", true},
        {"[0-9]", 123, true}, {"[a", "[a", false},  {"x*", "", true}};
    for (const auto& [pattern, subject, expected] : matches) {
        SCOPED_TRACE(pattern);
        TNRegExpMatchExpr node(constant(pattern), constant(subject));
        EXPECT_EQ(show(node()), show(TNValue(expected)));
        deleteOperandsOf(node);
    }
    // Find yields the leftmost match or the empty text.
    const std::tuple<const char*, const char*, const char*> finds[] = {
        {"[0-9]+", "ab12cd345", "12"},
        {"[0-9]+", "abc", ""},
        {"x*", "abc", ""},
        {"d$", "abcd", "d"},
        {"[", "a[", ""}};
    for (const auto& [pattern, subject, expected] : finds) {
        SCOPED_TRACE(std::string(pattern) + " in " + subject);
        TNRegExpFindExpr node(constant(pattern), constant(subject));
        EXPECT_EQ(show(node()), text(expected));
        deleteOperandsOf(node);
    }
    // The compiled pattern is kept only while its text stays the same.
    ProbeScope scope;
    TNRegExpMatchExpr node(new ValueProbe("regexp", {"a", "z", "a"}),
                           new ValueProbe("str", {"abc"}));
    EXPECT_TRUE(node().asBoolean());
    EXPECT_FALSE(node().asBoolean());
    EXPECT_TRUE(node().asBoolean());
    EXPECT_EQ(evaluated.front(), "regexp");
    deleteOperandsOf(node);

    // Replace: pattern, source, replacement, replace-first result, replace-all result. The
    // replacing itself is the text class's, whose own tests cover its anchors and empty matches;
    // here the node must pick first or all by its flag and pass the replacement on literally.
    const std::tuple<const char*, const char*, const char*, const char*, const char*> rows[] = {
        {"o", "foo", "0", "f0o", "f00"},
        {"[a-c]+", "xaby cz", "&\\0$1", "x&\\0$1y cz", "x&\\0$1y &\\0$1z"},
    };
    for (const auto& [pattern, source, replacement, first, all] : rows) {
        SCOPED_TRACE(std::string(pattern) + " in " + source);
        TNRegExpReplaceExpr node(constant(pattern), constant(source), constant(replacement));
        EXPECT_EQ(show(node()), text(first));
        node.replaceAll(true);
        EXPECT_EQ(show(node()), text(all));
        deleteOperandsOf(node);
    }
    evaluated.clear();
    TNRegExpReplaceExpr order(new ValueProbe("regexp", {"1"}), new ValueProbe("source", {121}),
                              new ValueProbe("replacement", {2.5}));
    EXPECT_EQ(show(order()), text("2.50000021"));
    EXPECT_EQ(evaluated, (Log{"regexp", "source", "replacement"}));
    deleteOperandsOf(order);
}

TEST(TNStringManipulationExpr, ConvertsCaseTrimsOrLeavesTheText) {
    using S = TNStringManipulationExpr;
    const std::tuple<S::TNStringOp, TNValue, const char*> rows[] = {
        {S::TNToLower, "HeLLo 1\xC4", "hello 1\xC4"},
        {S::TNToUpper, "HeLLo z", "HELLO Z"},
        {S::TNTrim, "\t hello world\r\n", "hello world"},
        {S::TNTrim, "   ", ""},
        {S::TNTrim, "\f a \t b \n", "a \t b"},
        {S::TNTrim, "\vx\v", "\vx\v"},
        {S::TNStringOp(0), " Ab ", " Ab "},
        {S::TNStringOp(0), 12, "12"},
        {S::TNStringOp(9), true, "true"},
    };
    for (const auto& [op, str, expected] : rows) {
        SCOPED_TRACE(std::to_string(op) + " on " + show(str));
        S node(op, constant(str));
        EXPECT_EQ(show(node()), text(expected));
        deleteOperandsOf(node);
    }
}

TEST(TNDelimiterExpr, JoinsBetweenConsecutiveTexts) {
    const std::tuple<TNValue, TNStringSequence, const char*> rows[] = {
        {", ", {"a", "b", "c"}, "a, b, c"},
        {", ", {"a"}, "a"},
        {", ", {}, ""},
        {"-", {"a", "", "b"}, "a--b"},
        {0, {"a", "b"}, "a0b"}};
    for (const auto& [delimiter, strings, expected] : rows) {
        SCOPED_TRACE(show(delimiter));
        ProbeScope scope;
        TNDelimiterExpr node(new ValueProbe("delimiter", {delimiter}),
                             new StringsProbe("collection", {strings}));
        EXPECT_EQ(show(node()), text(expected));
        EXPECT_EQ(evaluated, (Log{"delimiter", "collection"}));
        deleteOperandsOf(node);
    }
}
