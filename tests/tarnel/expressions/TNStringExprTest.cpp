#include "tarnel/expressions/TNStringExpr.h"

#include "ExprTestNodes.h"
#include "tarnel/expressions/TNScalarExpr.h"

#include <gtest/gtest.h>

namespace {

using Log = std::vector<std::string>;

TNConstantExpr* constant(const TNValue& v) { return new TNConstantExpr(v); }

// Type and text, so that a TNVNone result differs from an empty text.
std::string show(const TNValue& v) { return std::to_string(v.myType()) + ":" + v.asString(); }
std::string text(const char* s) { return show(TNValue(SgxString(s))); }

} // namespace

TEST(TNRegExpMatchExpr, SearchesAnywhereAndFollowsAChangedPattern) {
    const struct {
        const char* pattern;
        TNValue subject;
        bool expected;
    } rows[] = {{"b", "abc", true},   {"^b", "abc", false}, {"c$", "abc", true},
                {"[0-9]", 123, true}, {"[a", "[a", false},  {"x*", "", true}};
    for (const auto& row : rows) {
        TNRegExpMatchExpr node(constant(row.pattern), constant(row.subject));
        EXPECT_EQ(show(node()), show(TNValue(row.expected))) << row.pattern;
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
}

TEST(TNRegExpFindExpr, YieldsTheLeftmostMatchOrTheEmptyText) {
    const struct {
        const char *pattern, *subject, *expected;
    } rows[] = {{"[0-9]+", "ab12cd345", "12"},
                {"[0-9]+", "abc", ""},
                {"x*", "abc", ""},
                {"d$", "abcd", "d"},
                {"[", "a[", ""}};
    for (const auto& row : rows) {
        TNRegExpFindExpr node(constant(row.pattern), constant(row.subject));
        EXPECT_EQ(show(node()), text(row.expected)) << row.pattern << " in " << row.subject;
        deleteOperandsOf(node);
    }
}

TEST(TNRegExpReplaceExpr, ReplacesFirstOrAllMatchesLiterally) {
    const struct {
        const char *pattern, *source, *replacement, *first, *all;
    } rows[] = {
        {"o", "foo", "0", "f0o", "f00"},
        {"a", "aaa", "", "aa", ""},
        {"z", "foo", "-", "foo", "foo"},
        {"^f", "ffo", "F", "Ffo", "Ffo"}, // the anchor holds when replace-all resumes
        {"[a-c]+", "xaby cz", "&\\0$1", "x&\\0$1y cz", "x&\\0$1y &\\0$1z"},
        {"x*", "abc", "-", "-abc", "-a-b-c"}, // empty matches: one character on, no hang
        {"b*", "abbc", "-", "-abbc", "-a--c"},
        {"x*", "", "-", "-", ""}, // an empty source: only replace-first finds the empty match
    };
    for (const auto& row : rows) {
        TNRegExpReplaceExpr node(constant(row.pattern), constant(row.source),
                                 constant(row.replacement));
        EXPECT_EQ(show(node()), text(row.first)) << row.pattern << " in " << row.source;
        node.replaceAll(true);
        EXPECT_EQ(show(node()), text(row.all)) << row.pattern << " in " << row.source;
        deleteOperandsOf(node);
    }
    ProbeScope scope;
    TNRegExpReplaceExpr order(new ValueProbe("regexp", {"1"}), new ValueProbe("source", {121}),
                              new ValueProbe("replacement", {2.5}));
    EXPECT_EQ(show(order()), text("2.50000021"));
    EXPECT_EQ(evaluated, (Log{"regexp", "source", "replacement"}));
    deleteOperandsOf(order);
}

TEST(TNStringManipulationExpr, ConvertsCaseTrimsOrLeavesTheText) {
    using S = TNStringManipulationExpr;
    const struct {
        S::TNStringOp op;
        TNValue str;
        const char* expected;
    } rows[] = {
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
    for (const auto& row : rows) {
        S node(row.op, constant(row.str));
        EXPECT_EQ(show(node()), text(row.expected)) << row.op << " on " << show(row.str);
        deleteOperandsOf(node);
    }
}

TEST(TNDelimiterExpr, JoinsBetweenConsecutiveTexts) {
    const struct {
        TNValue delimiter;
        TNStringSequence strings;
        const char* expected;
    } rows[] = {{", ", {"a", "b", "c"}, "a, b, c"},
                {", ", {"a"}, "a"},
                {", ", {}, ""},
                {"-", {"a", "", "b"}, "a--b"},
                {0, {"a", "b"}, "a0b"}};
    for (const auto& row : rows) {
        ProbeScope scope;
        TNDelimiterExpr node(new ValueProbe("delimiter", {row.delimiter}),
                             new StringsProbe("collection", {row.strings}));
        EXPECT_EQ(show(node()), text(row.expected)) << show(row.delimiter);
        EXPECT_EQ(evaluated, (Log{"delimiter", "collection"}));
        deleteOperandsOf(node);
    }
}
