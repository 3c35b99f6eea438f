#include "rw/RWCRegexp.h"

#include <gtest/gtest.h>

#include <chrono>
#include <ostream>
#include <string>

namespace {

// One search: the leftmost match of `pattern` in `subject` from `start` is at `pos` with
// `length` bytes, or there is none (pos == RW_NPOS).
struct SearchCase {
    std::string pattern;
    std::string subject;
    size_t start;
    size_t pos;
    size_t length;
};

std::string printable(const std::string& text) {
    std::string out;
    for (unsigned char c : text) {
        if (c >= 0x20 && c < 0x7f && c != '\\') {
            out += static_cast<char>(c);
        } else {
            static constexpr char hex[] = "0123456789abcdef";
            out += "\\x";
            out += hex[c >> 4];
            out += hex[c & 0xf];
        }
    }
    return out;
}

std::ostream& operator<<(std::ostream& os, const SearchCase& c) {
    os << "pattern \"" << printable(c.pattern) << "\" in \"" << printable(c.subject) << "\" from "
       << c.start << ": ";
    if (c.pos == RW_NPOS) {
        return os << "no match";
    }
    return os << "match at " << c.pos << " of length " << c.length;
}

constexpr size_t none = RW_NPOS;

const SearchCase searchCases[] = {
    // Plain characters, leftmost match, empty pattern.
    {"b", "abc", 0, 1, 1},
    {"bc", "abcbc", 2, 3, 2},
    {"x", "abc", 0, none, 0},
    {"", "abc", 0, 0, 0},
    {"", "abc", 3, 3, 0},
    {"", "", 0, 0, 0},
    {"a", "abc", 4, none, 0},
    // Characters that are special to other dialects are literal here.
    {"(a|b)", "ab(a|b)", 0, 2, 5},
    {"a{2}", "aa a{2}", 0, 3, 4},
    {"1+1=2", "1+1=2 11=2", 0, 6, 4}, // "+" repeats: the text "1+1=2" does not match
    {"a\\+b", "aab a+b", 0, 4, 3},
    {"#%&/,:;<=>@_`~'\"!-", "x#%&/,:;<=>@_`~'\"!-", 0, 1, 18},
    // ".": any character but a line feed.
    {"a.c", "abc", 0, 0, 3},
    {"a.c", "a\nc a\tc", 0, 4, 3},
    {".", "\n\n", 0, none, 0},
    {".*", "ab\ncd", 0, 0, 2},
    // Sets: members, ranges, complement, "]" first, "-" at either end, escapes, reversed range.
    {"[abc]", "xxcb", 0, 2, 1},
    {"[a-c]+", "xxcbad", 0, 2, 3},
    {"[0-9]+", "ab12cd345", 4, 6, 3},
    {"[^a-c]", "abcd", 0, 3, 1},
    {"[^a]", "a\n", 0, 1, 1}, // a complemented set does include the line feed
    {"[]a]+", "x]a]b", 0, 1, 3},
    {"[^]a]+", "]a]bc]", 0, 3, 2},
    {"[-a]+", "x-a-", 0, 1, 3},
    {"[a-]+", "x-a-", 0, 1, 3},
    {"[\\]x]+", "a]x]", 0, 1, 3},
    {"[z-a]", "az-", 0, none, 0},
    {"[.*]+", "ab*.c", 0, 2, 2}, // no special characters inside a set
    {"[$^]+", "a$^", 0, 1, 2},
    // Repetitions are greedy and apply to one single-character expression.
    {"ab*", "abbbc", 0, 0, 4},
    {"ab+", "ac abb", 0, 3, 3},
    {"ab?c", "ac abc abbc", 0, 0, 2},
    {"a*", "baa", 0, 0, 0}, // the empty match at 0 is leftmost
    {"a*", "baa", 1, 1, 2},
    {"a*ab", "aaab", 0, 0, 4}, // greedy, but gives back what the rest needs
    {".*c", "abcabc", 0, 0, 6},
    {"\\.*", "...a", 0, 0, 3},
    {"$*", "a$$", 0, 0, 0}, // "$" not last is a literal that can repeat
    {"a$+b", "a$$b", 0, 0, 4},
    // "^" first and "$" last anchor to the whole subject, also from a later start.
    {"^b", "abc", 0, none, 0},
    {"^a", "aaa", 1, none, 0},
    {"^", "abc", 0, 0, 0},
    {"^", "abc", 1, none, 0},
    {"c$", "abcc", 0, 3, 1},
    {"b$", "abc", 0, none, 0},
    {"b$", "ab\n", 0, none, 0}, // no match before a final line feed
    {"$", "abc", 0, 3, 0},
    {"$", "abc", 2, 3, 0},
    {"^$", "", 0, 0, 0},
    {"^$", "a", 0, none, 0},
    {"^abc$", "abcd", 0, none, 0},
    {"[ \t]+$", "a  b \t", 0, 4, 2},
    {"[ \t]+$", "a  b \t", 5, 5, 1},
    // "^" elsewhere and "$" elsewhere are literal.
    {"a^b", "ab a^b", 0, 3, 3},
    {"^^", "^^", 0, 0, 1},
    {"^^", "a^", 0, none, 0},
    {"$a", "a$a", 0, 1, 2},
    {"a$b", "a$b", 0, 0, 3},
    {"$$", "a$", 0, 1, 1},
    // "\" makes the next character literal; an escaped "$" at the end is no anchor.
    {"\\.", "a.", 0, 1, 1},
    {"\\[a]", "[a]", 0, 0, 3},
    {"\\\\", "a\\b", 0, 1, 1},
    {"\\\\$", "a\\", 0, 1, 1},
    {"a\\$", "a$b", 0, 0, 2},
    {"\\n", "\nn", 0, 1, 1}, // an escape gives the character itself, no control codes
    // Bytes 0x80-0xff are characters like any other, in subjects, patterns and sets.
    {"\xe9", "caf\xe9", 0, 3, 1},
    {".", "\xff", 0, 0, 1},
    {"[\x80-\xff]+", "ab\x80\xc3\xa9\xff", 0, 2, 4},
    {"[^\x80-\xff]+", "\xc3\xa9x\xa9", 0, 2, 1},
    {"[a-\xff]+", "Z\x7f\xfe", 0, 1, 2},
};

TEST(RWCRegexp, SearchesFollowTheDialect) {
    for (const SearchCase& c : searchCases) {
        SCOPED_TRACE(c);
        const RWCRegexp re(c.pattern);
        ASSERT_EQ(re.status(), RWCRegexp::OK);
        size_t length = 12345;
        const size_t pos = re.index(c.subject, &length, c.start);
        EXPECT_EQ(pos, c.pos);
        if (c.pos != none) {
            EXPECT_EQ(length, c.length);
        }
    }
}

TEST(RWCRegexp, SubjectsMayHoldNulBytes) {
    const std::string subject("a\0b\0", 4);
    const RWCRegexp re(std::string("\0b", 2));
    size_t length = 0;
    EXPECT_EQ(re.index(subject, &length), 1u);
    EXPECT_EQ(length, 2u);
    EXPECT_EQ(RWCRegexp("b.$").index(subject, &length), 2u);
    EXPECT_EQ(RWCRegexp("[^a-z]+").index(subject, &length, 2), 3u);
    EXPECT_EQ(length, 1u);
}

TEST(RWCRegexp, MalformedPatternsFindNothing) {
    struct Malformed {
        const char* pattern;
        RWCRegexp::statVal status;
    };
    const Malformed cases[] = {
        {"[abc", RWCRegexp::UNCLOSED_SET},
        {"a[", RWCRegexp::UNCLOSED_SET},
        {"[]", RWCRegexp::UNCLOSED_SET}, // "]" first is a member, so the set is still open
        {"[^]", RWCRegexp::UNCLOSED_SET},
        {"[a\\]", RWCRegexp::UNCLOSED_SET},
        {"[a\\", RWCRegexp::UNCLOSED_SET},
        {"*a", RWCRegexp::REPEAT_WITHOUT_OPERAND},
        {"+", RWCRegexp::REPEAT_WITHOUT_OPERAND},
        {"?", RWCRegexp::REPEAT_WITHOUT_OPERAND},
        {"^*a", RWCRegexp::REPEAT_WITHOUT_OPERAND}, // the anchor is no character
        {"^?", RWCRegexp::REPEAT_WITHOUT_OPERAND},
        {"a**", RWCRegexp::REPEAT_WITHOUT_OPERAND},
        {"a+?", RWCRegexp::REPEAT_WITHOUT_OPERAND},
        {"a\\", RWCRegexp::TRAILING_BACKSLASH},
        {"\\", RWCRegexp::TRAILING_BACKSLASH},
    };
    for (const Malformed& c : cases) {
        SCOPED_TRACE(std::string("pattern \"") + c.pattern + "\"");
        const RWCRegexp re(c.pattern);
        EXPECT_EQ(re.status(), c.status);
        EXPECT_EQ(re.pattern(), c.pattern);
        size_t length = 77;
        // Even the subjects the pattern text would match literally, and empty matches.
        EXPECT_EQ(re.index(c.pattern, &length), RW_NPOS);
        EXPECT_EQ(re.index("", &length), RW_NPOS);
        EXPECT_EQ(re.index("abc[]*+?\\", &length, 1), RW_NPOS);
        EXPECT_EQ(length, 77u);
        // A copy is in the same state.
        const RWCRegexp copy = re;
        EXPECT_EQ(copy.status(), c.status);
        EXPECT_EQ(copy.index(c.pattern), RW_NPOS);
    }
}

TEST(RWCRegexp, OverlongPatternsAreRefused) {
    std::string pattern;
    for (int i = 0; i < 30000; ++i) {
        pattern += "a*";
    }
    const std::string subject(100, 'a');
    size_t length = 0;
    EXPECT_EQ(RWCRegexp(pattern).index(subject, &length), 0u);
    EXPECT_EQ(length, subject.size());
    for (int i = 0; i < 300000; ++i) {
        pattern += "b?";
    }
    const RWCRegexp overlong(pattern);
    EXPECT_EQ(overlong.status(), RWCRegexp::TOO_LARGE);
    EXPECT_EQ(overlong.index(subject), RW_NPOS);
}

TEST(RWCRegexp, CopiesAssignmentsAndNullSearchAlike) {
    RWCRegexp re("[0-9]+");
    RWCRegexp other("^x");
    other = re;
    RWCRegexp moved = std::move(re);
    for (const RWCRegexp* r : {&other, &moved, &re}) {
        size_t length = 0;
        EXPECT_EQ(r->status(), RWCRegexp::OK);
        EXPECT_EQ(r->index("ab123", &length), 2u);
        EXPECT_EQ(length, 3u);
    }
    // An error state is overwritten by assignment, and a good state by an error state.
    RWCRegexp bad("[");
    bad = other;
    EXPECT_EQ(bad.index("7"), 0u);
    other = RWCRegexp("\\");
    EXPECT_EQ(other.index("7"), RW_NPOS);
    EXPECT_EQ(bad.index("7"), 0u);

    const RWCRegexp null(static_cast<const char*>(nullptr)); // the empty pattern
    EXPECT_EQ(null.status(), RWCRegexp::OK);
    EXPECT_EQ(null.index("abc", nullptr, 2), 2u);
}

// Guards against a backtracking matcher: this pattern takes exponential time in one.
TEST(RWCRegexp, NestedRepetitionsStayLinear) {
    const std::string subject(100000, 'a');
    const RWCRegexp re("a*a*a*a*a*a*a*a*c");
    const auto begin = std::chrono::steady_clock::now();
    size_t found = 0;
    for (size_t start : {size_t{0}, size_t{1}, size_t{50000}}) {
        found += re.index(subject, nullptr, start) == RW_NPOS ? 0 : 1;
    }
    const auto elapsed = std::chrono::steady_clock::now() - begin;
    EXPECT_EQ(found, 0u);
    EXPECT_LT(elapsed, std::chrono::seconds(1));

    size_t length = 0;
    EXPECT_EQ(RWCRegexp("a*a*a*a*a*a*a*a*$").index(subject, &length), 0u);
    EXPECT_EQ(length, subject.size());
}

} // namespace
