#include "rw/RWCTokenizer.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace {

// A line cut by successive calls, each with its own delimiter set.
struct TokenizeCase {
    std::string text;
    std::vector<std::pair<const char*, std::string>> calls; // delimiters, expected token
};

std::ostream& operator<<(std::ostream& os, const TokenizeCase& c) {
    os << "\"" << c.text << "\" cut by";
    for (const auto& call : c.calls) {
        os << " \"" << call.first << "\"";
    }
    return os;
}

const TokenizeCase tokenizeCases[] = {
    // The delimiter that ends a token starts the next one when the next set does not hold it.
    {"Class: TaggedValue; name=Package; valuename=alias; value=\"P; q=1\"",
     {{":", "Class"},
      {";", ": TaggedValue"},
      {"=", "; name"},
      {";", "=Package"},
      {"=", "; valuename"},
      {";", "=alias"},
      {"=", "; value"},
      {"", "=\"P; q=1\""},
      {"", ""}}},
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

TEST(RWCTokenizer, SuccessiveCallsWithChangingDelimiters) {
    for (const TokenizeCase& c : tokenizeCases) {
        SCOPED_TRACE(c);
        RWCTokenizer next(c.text);
        for (size_t i = 0; i < c.calls.size(); ++i) {
            SCOPED_TRACE("call " + std::to_string(i));
            EXPECT_EQ(next(c.calls[i].first).str(), c.calls[i].second);
        }
    }
}

TEST(RWCTokenizer, DefaultsAndOtherSources) {
    RWCTokenizer words(" a\tb\nc ");
    EXPECT_EQ(words().str(), "a");
    EXPECT_EQ(words().str(), "b");
    EXPECT_EQ(words().str(), "c");
    EXPECT_TRUE(words().isNull());

    // A null delimiter set is the empty set; bytes past NUL and above 0x7f are ordinary.
    RWCTokenizer bytes(RWClassicCString("\xe9\0x;y", 5));
    EXPECT_EQ(bytes(";").str(), std::string("\xe9\0x", 3));
    EXPECT_EQ(bytes(nullptr).str(), ";y");

    // The tokenizer keeps its own copy of the text.
    std::string text = "p:q";
    RWCTokenizer copy(text);
    text = "changed";
    EXPECT_EQ(copy(":").str(), "p");
    EXPECT_EQ(copy("").str(), ":q");

    RWCTokenizer fromNull(static_cast<const char*>(nullptr));
    EXPECT_TRUE(fromNull("").isNull());
}

} // namespace
