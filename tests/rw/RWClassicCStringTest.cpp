#include "rw/RWClassicCString.h"
#include "rw/RWCTokenizer.h"

#include "sgx/general/SgxException.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

TEST(RWClassicCString, ReplaceFirstAndReplaceAll) {
    struct Row {
        const char* pattern;
        std::string source;
        const char* replacement;
        std::string first, all; // results of replaceFirst and replaceAll
    };
    // clang-format off
    const Row rows[] = {
        {"o", "foo", "0", "f0o", "f00"}, {"a", "aaa", "", "aa", ""},
        {"x", "abc", "-", "abc", "abc"},
        {"[0-9]+", "a1b22c333", "#", "a#b22c333", "a#b#c#"},
        // Empty matches: replaced, then one byte is copied before the scan goes on.
        {"x*", "abc", "-", "-abc", "-a-b-c"}, {"x*", "axxb", "-", "-axxb", "-a--b"},
        {"b*", "abba", "-", "-abba", "-a--a"}, {"$", "abc", "!", "abc!", "abc!"},
        // An empty source: replace-all never searches, replace-first finds the empty match.
        {"x*", "", "-", "-", ""}, {"a", "", "-", "", ""},
        // Anchors hold on the whole string while replace-all scans further on.
        {"^a", "aaa", "-", "-aa", "-aa"}, {"a$", "aaa", "-", "aa-", "aa-"},
        {"^", "ab", "-", "-ab", "-ab"},
        // The replacement is literal text, never a reference to the match.
        {"b", "abc", "\\0&$1", "a\\0&$1c", "a\\0&$1c"},
        // Whitespace trims, as two replace-first calls use them.
        {"^[ \t\f\r\n]+", "\t hello world\r\n", "", "hello world\r\n", "hello world\r\n"},
        {"[ \t\f\r\n]+$", "\t hello world\r\n", "", "\t hello world", "\t hello world"},
        {"^[ \t\f\r\n]+", "  \t \n", "", "", ""},
        // A pattern in error replaces nothing; bytes above 0x7f are copied through unchanged.
        {"[", "a[b", "-", "a[b", "a[b"}, {"\xe9", "\xe9t\xe9", "e", "et\xe9", "ete"},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.pattern) + " by " +
                     testing::PrintToString(row.replacement) + " in " +
                     testing::PrintToString(row.source));
        const RWCRegexp re(row.pattern);
        RWClassicCString first(row.source), all(row.source);
        first.replaceFirst(re, row.replacement);
        all.replaceAll(re, row.replacement);
        EXPECT_EQ(first.str(), row.first);
        EXPECT_EQ(all.str(), row.all);
    }
}

TEST(RWClassicCString, SearchSubstringsAndEdits) {
    const RWClassicCString s("ab12cd345");
    const RWCRegexp digits("[0-9]+");
    size_t length = 0;
    EXPECT_EQ(s.index(digits, &length), 2u);
    EXPECT_EQ(length, 2u);
    EXPECT_EQ(s.index(digits, &length, 4), 6u);
    EXPECT_EQ(length, 3u);
    EXPECT_EQ(s.index(digits, &length, 9), RW_NPOS);
    EXPECT_EQ(s(digits), RWClassicCString("12"));
    EXPECT_TRUE(RWClassicCString("abc")(digits).isNull());
    EXPECT_TRUE(s(RWCRegexp("x*")).isNull()); // an empty first match is an empty substring
    EXPECT_EQ(s(6, 100), "345");              // the length is cut at the end
    EXPECT_TRUE(s(9, 1).isNull());
    EXPECT_THROW(s(10, 0), SgxException);
    const RWClassicCString withNul("a\0b", 3);
    EXPECT_EQ(withNul.length(), 3u);
    EXPECT_EQ(withNul.data()[3], '\0');
    EXPECT_EQ(withNul(RWCRegexp("b")), "b");
    EXPECT_TRUE(RWClassicCString(static_cast<const char*>(nullptr)).isNull());

    RWClassicCString e("Hello, W\xc3\x89rld 42");
    e.toUpper();
    EXPECT_EQ(e.str(), "HELLO, W\xc3\x89RLD 42");
    e.toLower();
    EXPECT_EQ(e.str(), "hello, w\xc3\x89rld 42"); // only ASCII letters change case
    e.replace(0, 5, "Bye").append("!").append("?x", 1);
    EXPECT_EQ(e.str(), "Bye, w\xc3\x89rld 42!?");
    e.replace(e.length(), 0, "#");
    e.replace(4, 100, "");
    EXPECT_EQ(e.str(), "Bye,");
    EXPECT_THROW(e.replace(5, 0, "x"), SgxException);
    EXPECT_EQ(e.str(), "Bye,");
}

TEST(RWClassicCString, OrderingIsBytewiseUnsigned) {
    using S = RWClassicCString;
    EXPECT_EQ(S("abc"), S(SgxString("abc")));
    EXPECT_NE(S("abc"), S("abC"));
    EXPECT_LT(S("B"), S("a")); // case-sensitive
    EXPECT_LT(S("ab"), S("abc"));
    EXPECT_LT(S("z"), S("\xe9")); // 0xe9 sorts after ASCII
    EXPECT_LT(S("a\0a", 3), S("a\x01", 2));
}

TEST(RWCTokenizer, SuccessiveCallsWithChangingDelimiters) {
    // A line cut by successive calls, each with its own delimiter set and expected token.
    const std::pair<std::string, std::vector<std::pair<const char*, std::string>>> cases[] = {
        // The delimiter that ends a token starts the next one when the next set does not hold it.
        // clang-format off
        {"Class: TaggedValue; name=Package; valuename=alias; value=\"P; q=1\"",
         {{":", "Class"}, {";", ": TaggedValue"}, {"=", "; name"}, {";", "=Package"},
          {"=", "; valuename"}, {";", "=alias"}, {"=", "; value"}, {"", "=\"P; q=1\""}, {"", ""}}},
        // clang-format on
        // Leading delimiters of the current set are skipped, also runs of them.
        {"::a::b", {{":", "a"}, {":", "b"}, {":", ""}}},
        {"a:;b", {{":", "a"}, {":;", "b"}}},
        {" \t one  two\n", {{" \t\n", "one"}, {" \t\n", "two"}, {" \t\n", ""}}},
        // A set with several characters stops at any of them.
        {"k=v;w", {{"=;", "k"}, {";", "=v"}, {"=", ";w"}}},
        // Nothing but delimiters, or nothing at all, gives empty tokens for good.
        {";;;", {{";", ""}, {"", ""}}},
        {"", {{":", ""}, {"", ""}}},
        // Member names after a class name, as the second tokenizer cuts them.
        {"Pkg:attr rest", {{":", "Pkg"}, {" \t\n", ":attr"}, {"", " rest"}}},
        {"Pkg:role;x", {{":", "Pkg"}, {";", ":role"}, {"", ";x"}}},
    };
    for (const auto& [text, calls] : cases) {
        RWCTokenizer next(text);
        for (size_t i = 0; i < calls.size(); ++i)
            EXPECT_EQ(next(calls[i].first).str(), calls[i].second)
                << '"' << text << "\" call " << i << " with \"" << calls[i].first << '"';
    }

    RWCTokenizer words(" a\tb\nc "); // the default set is white space
    for (const char* word : {"a", "b", "c"})
        EXPECT_EQ(words().str(), word);
    EXPECT_TRUE(words().isNull());
    // A null delimiter set is the empty set; bytes past NUL and above 0x7f are ordinary.
    RWCTokenizer bytes(RWClassicCString("\xe9\0x;y", 5));
    EXPECT_EQ(bytes(";").str(), std::string("\xe9\0x", 3));
    EXPECT_EQ(bytes(nullptr).str(), ";y");
    std::string text = "p:q";
    RWCTokenizer copy(text); // the tokenizer keeps its own copy of the text
    text = "changed";
    EXPECT_EQ(copy(":").str(), "p");
    EXPECT_EQ(copy("").str(), ":q");
    EXPECT_TRUE(RWCTokenizer(static_cast<const char*>(nullptr))("").isNull());
}

} // namespace
