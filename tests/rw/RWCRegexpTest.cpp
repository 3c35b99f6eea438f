#include "rw/RWCRegexp.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

using namespace std::string_literals;

namespace {

constexpr size_t none = RW_NPOS;

// The leftmost match of `pattern` in `subject` from `start` is at `pos` with `length` bytes, or
// there is none.
struct SearchCase {
    std::string pattern, subject;
    size_t start, pos, length;
};

// clang-format off
const SearchCase searchCases[] = {
    // Plain characters, leftmost match, empty pattern, a start past the end; NUL bytes.
    {"b", "abc", 0, 1, 1}, {"bc", "abcbc", 2, 3, 2}, {"x", "abc", 0, none, 0},
    {"", "abc", 0, 0, 0}, {"", "abc", 3, 3, 0}, {"", "", 0, 0, 0}, {"a", "abc", 4, none, 0},
    {"\0b"s, "a\0b\0"s, 0, 1, 2}, {"b.$", "a\0b\0"s, 0, 2, 2}, {"[^a-z]+", "a\0b\0"s, 2, 3, 1},
    // Characters that are special to other dialects are literal here; "+" repeats.
    {"(a|b)", "ab(a|b)", 0, 2, 5}, {"a{2}", "aa a{2}", 0, 3, 4}, {"1+1=2", "1+1=2 11=2", 0, 6, 4},
    {"a\\+b", "aab a+b", 0, 4, 3}, {"#%&/,:;<=>@_`~'\"!-", "x#%&/,:;<=>@_`~'\"!-", 0, 1, 18},
    // ".": any character but a line feed.
    {"a.c", "a\nc a\tc", 0, 4, 3}, {".", "\n\n", 0, none, 0}, {".*", "ab\ncd", 0, 0, 2},
    // Sets: members, ranges, complement (which holds the line feed), "]" first, "-" at either
    // end, escapes, a reversed range, no special characters inside.
    {"[abc]", "xxcb", 0, 2, 1}, {"[a-c]+", "xxcbad", 0, 2, 3}, {"[0-9]+", "ab12cd345", 4, 6, 3},
    {"[^a-c]", "abcd", 0, 3, 1}, {"[^a]", "a\n", 0, 1, 1}, {"[]a]+", "x]a]b", 0, 1, 3},
    {"[^]a]+", "]a]bc]", 0, 3, 2}, {"[-a]+", "x-a-", 0, 1, 3}, {"[a-]+", "x-a-", 0, 1, 3},
    {"[\\]x]+", "a]x]", 0, 1, 3}, {"[z-a]", "az-", 0, none, 0}, {"[.*]+", "ab*.c", 0, 2, 2},
    {"[$^]+", "a$^", 0, 1, 2},
    // Repetitions are greedy, give back what the rest needs and apply to one character; the
    // empty match at 0 is leftmost; "$" not last is a literal that can repeat.
    {"ab*", "abbbc", 0, 0, 4}, {"ab+", "ac abb", 0, 3, 3}, {"ab?c", "ac abc abbc", 0, 0, 2},
    {"a*", "baa", 0, 0, 0}, {"a*", "baa", 1, 1, 2}, {"a*ab", "aaab", 0, 0, 4},
    {".*c", "abcabc", 0, 0, 6}, {"\\.*", "...a", 0, 0, 3}, {"$*", "a$$", 0, 0, 0},
    {"a$+b", "a$$b", 0, 0, 4},
    // "^" first and "$" last anchor to the whole subject, also from a later start; "$" does not
    // match before a final line feed.
    {"^b", "abc", 0, none, 0}, {"^a", "aaa", 1, none, 0}, {"^", "abc", 0, 0, 0},
    {"^", "abc", 1, none, 0}, {"c$", "abcc", 0, 3, 1}, {"b$", "abc", 0, none, 0},
    {"b$", "ab\n", 0, none, 0}, {"$", "abc", 0, 3, 0}, {"$", "abc", 2, 3, 0},
    {"^$", "", 0, 0, 0}, {"^$", "a", 0, none, 0}, {"[ \t]+$", "a  b \t", 0, 4, 2},
    {"[ \t]+$", "a  b \t", 5, 5, 1},
    // "^" elsewhere and "$" elsewhere are literal.
    {"a^b", "ab a^b", 0, 3, 3}, {"^^", "^^", 0, 0, 1}, {"^^", "a^", 0, none, 0},
    {"$a", "a$a", 0, 1, 2}, {"a$b", "a$b", 0, 0, 3}, {"$$", "a$", 0, 1, 1},
    // "\" makes the next character literal (no control codes); an escaped final "$" is no anchor.
    {"\\.", "a.", 0, 1, 1}, {"\\[a]", "[a]", 0, 0, 3}, {"\\\\", "a\\b", 0, 1, 1},
    {"\\\\$", "a\\", 0, 1, 1}, {"a\\$", "a$b", 0, 0, 2}, {"\\n", "\nn", 0, 1, 1},
    // Bytes 0x80-0xff are characters like any other, in subjects, patterns and sets.
    {"\xe9", "caf\xe9", 0, 3, 1}, {".", "\xff", 0, 0, 1},
    {"[\x80-\xff]+", "ab\x80\xc3\xa9\xff", 0, 2, 4},
    {"[^\x80-\xff]+", "\xc3\xa9x\xa9", 0, 2, 1}, {"[a-\xff]+", "Z\x7f\xfe", 0, 1, 2},
};
// clang-format on

TEST(RWCRegexp, SearchesFollowTheDialect) {
    for (const SearchCase& c : searchCases) {
        SCOPED_TRACE(testing::PrintToString(c.pattern) + " in " +
                     testing::PrintToString(c.subject) + " from " + std::to_string(c.start));
        const RWCRegexp re(c.pattern);
        EXPECT_EQ(re.status(), RWCRegexp::OK);
        size_t length = 12345;
        EXPECT_EQ(re.index(c.subject, &length, c.start), c.pos);
        EXPECT_EQ(c.pos == none ? c.length : length, c.length);
    }
}

TEST(RWCRegexp, MalformedPatternsFindNothing) {
    // "]" first is a member, so "[]" and "[^]" are still open; the anchor is no character.
    const std::pair<RWCRegexp::statVal, std::vector<const char*>> groups[] = {
        {RWCRegexp::UNCLOSED_SET, {"[abc", "a[", "[]", "[^]", "[a\\]", "[a\\"}},
        {RWCRegexp::REPEAT_WITHOUT_OPERAND, {"*a", "+", "?", "^*a", "^?", "a**", "a+?"}},
        {RWCRegexp::TRAILING_BACKSLASH, {"a\\", "\\"}}};
    for (const auto& [status, patterns] : groups) {
        for (const char* pattern : patterns) {
            SCOPED_TRACE(std::string("pattern \"") + pattern + "\"");
            const RWCRegexp re(pattern);
            EXPECT_EQ(re.status(), status);
            EXPECT_EQ(re.pattern(), pattern);
            size_t length = 77;
            // Even the subjects the pattern text would match literally, and empty matches.
            EXPECT_EQ(re.index(pattern, &length), none);
            EXPECT_EQ(re.index("", &length), none);
            EXPECT_EQ(re.index("abc[]*+?\\", &length, 1), none);
            EXPECT_EQ(length, 77u);
            const RWCRegexp copy = re; // a copy is in the same state
            EXPECT_EQ(copy.status(), status);
            EXPECT_EQ(copy.index(pattern), none);
        }
    }
    // Long patterns compile up to a size limit; beyond it they are refused.
    std::string pattern;
    for (int i = 0; i < 30000; ++i)
        pattern += "a*";
    const std::string subject(100, 'a');
    size_t length = 0;
    EXPECT_EQ(RWCRegexp(pattern).index(subject, &length), 0u);
    EXPECT_EQ(length, subject.size());
    for (int i = 0; i < 300000; ++i)
        pattern += "b?";
    const RWCRegexp overlong(pattern);
    EXPECT_EQ(overlong.status(), RWCRegexp::TOO_LARGE);
    EXPECT_EQ(overlong.index(subject), none);
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
    other = RWCRegexp("\\");
    EXPECT_EQ(other.index("7"), none);
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
    for (size_t start : {size_t{0}, size_t{1}, size_t{50000}})
        EXPECT_EQ(re.index(subject, nullptr, start), none) << start;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    size_t length = 0;
    EXPECT_EQ(RWCRegexp("a*a*a*a*a*a*a*a*$").index(subject, &length), 0u);
    EXPECT_EQ(length, subject.size());
}

} // namespace
