#include "rw/RWClassicCString.h"

#include "sgx/general/SgxException.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace {

struct ReplaceCase {
    const char* pattern;
    std::string source;
    const char* replacement;
    std::string first; // result of replaceFirst
    std::string all;   // result of replaceAll
};

std::ostream& operator<<(std::ostream& os, const ReplaceCase& c) {
    return os << "replace \"" << c.pattern << "\" by \"" << c.replacement << "\" in \"" << c.source
              << "\"";
}

const ReplaceCase replaceCases[] = {
    {"o", "foo", "0", "f0o", "f00"},
    {"a", "aaa", "", "aa", ""},
    {"x", "abc", "-", "abc", "abc"},
    {"[0-9]+", "a1b22c333", "#", "a#b22c333", "a#b#c#"},
    // Empty matches: replaced, then one byte is copied before the scan goes on.
    {"x*", "abc", "-", "-abc", "-a-b-c"},
    {"x*", "axxb", "-", "-axxb", "-a--b"},
    {"b*", "abba", "-", "-abba", "-a--a"},
    {"$", "abc", "!", "abc!", "abc!"},
    // An empty source: replace-all never searches, replace-first finds the empty match.
    {"x*", "", "-", "-", ""},
    {"a", "", "-", "", ""},
    // Anchors hold on the whole string while replace-all scans further on.
    {"^a", "aaa", "-", "-aa", "-aa"},
    {"a$", "aaa", "-", "aa-", "aa-"},
    {"^", "ab", "-", "-ab", "-ab"},
    // The replacement is literal text, never a reference to the match.
    {"b", "abc", "\\0&$1", "a\\0&$1c", "a\\0&$1c"},
    // Whitespace trims, as two replace-first calls use them.
    {"^[ \t\f\r\n]+", "\t hello world\r\n", "", "hello world\r\n", "hello world\r\n"},
    {"[ \t\f\r\n]+$", "\t hello world\r\n", "", "\t hello world", "\t hello world"},
    {"[ \t\f\r\n]+$", "a b c", "", "a b c", "a b c"},
    {"^[ \t\f\r\n]+", "  \t \n", "", "", ""},
    // A pattern in error replaces nothing.
    {"[", "a[b", "-", "a[b", "a[b"},
    // Bytes above 0x7f are copied through unchanged.
    {"\xe9", "\xe9t\xe9", "e", "et\xe9", "ete"},
};

TEST(RWClassicCString, ReplaceFirstAndReplaceAll) {
    for (const ReplaceCase& c : replaceCases) {
        SCOPED_TRACE(c);
        const RWCRegexp re(c.pattern);
        RWClassicCString first(c.source);
        first.replaceFirst(re, c.replacement);
        EXPECT_EQ(first.str(), c.first);
        RWClassicCString all(c.source);
        all.replaceAll(re, c.replacement);
        EXPECT_EQ(all.str(), c.all);
    }
}

TEST(RWClassicCString, SearchAndSubstrings) {
    const RWClassicCString s("ab12cd345");
    const RWCRegexp digits("[0-9]+");
    size_t length = 0;
    EXPECT_EQ(s.index(digits, &length), 2u);
    EXPECT_EQ(length, 2u);
    EXPECT_EQ(s.index(digits, &length, 4), 6u);
    EXPECT_EQ(length, 3u);
    EXPECT_EQ(s.index(digits, &length, 9), RW_NPOS);
    EXPECT_EQ(s.index(RWCRegexp("^b")), RW_NPOS);

    EXPECT_EQ(s(digits), RWClassicCString("12"));
    EXPECT_TRUE(RWClassicCString("abc")(digits).isNull());
    EXPECT_TRUE(s(RWCRegexp("x*")).isNull()); // an empty first match is an empty substring

    EXPECT_EQ(s(2, 2), "12");
    EXPECT_EQ(s(6, 100), "345"); // the length is cut at the end
    EXPECT_TRUE(s(9, 1).isNull());
    EXPECT_THROW(s(10, 0), SgxException);
}

TEST(RWClassicCString, EditsInPlace) {
    RWClassicCString s("Hello, W\xc3\x89rld 42");
    s.toUpper();
    EXPECT_EQ(s.str(), "HELLO, W\xc3\x89RLD 42");
    s.toLower();
    EXPECT_EQ(s.str(), "hello, w\xc3\x89rld 42"); // only ASCII letters change case

    s.replace(0, 5, "Bye").append("!").append("?x", 1);
    EXPECT_EQ(s.str(), "Bye, w\xc3\x89rld 42!?");
    s.replace(s.length(), 0, "#");
    s.replace(4, 100, "");
    EXPECT_EQ(s.str(), "Bye,");
    EXPECT_THROW(s.replace(5, 0, "x"), SgxException);
    EXPECT_EQ(s.str(), "Bye,");
}

TEST(RWClassicCString, ConstructionAndConversion) {
    EXPECT_TRUE(RWClassicCString(static_cast<const char*>(nullptr)).isNull());
    const RWClassicCString withNul("a\0b", 3);
    EXPECT_EQ(withNul.length(), 3u);
    EXPECT_EQ(withNul.data()[3], '\0');
    EXPECT_EQ(withNul(RWCRegexp("b")), "b");

    const SgxString text = "text";
    const RWClassicCString fromText(text);
    const SgxString& back = fromText;
    EXPECT_EQ(back, text);
    EXPECT_EQ(RWClassicCString("moved").str(), "moved");
}

TEST(RWClassicCString, OrderingIsBytewiseUnsigned) {
    EXPECT_EQ(RWClassicCString("abc"), RWClassicCString(SgxString("abc")));
    EXPECT_NE(RWClassicCString("abc"), RWClassicCString("abC"));
    EXPECT_LT(RWClassicCString("B"), RWClassicCString("a")); // case-sensitive
    EXPECT_LT(RWClassicCString("ab"), RWClassicCString("abc"));
    EXPECT_LT(RWClassicCString("z"), RWClassicCString("\xe9")); // 0xe9 sorts after ASCII
    EXPECT_LT(RWClassicCString("a\0a", 3), RWClassicCString("a\x01", 2));
}

} // namespace
