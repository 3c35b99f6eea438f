// RWCTokenizer: cuts a string into tokens, each call with its own set of delimiter characters.
//
// A call skips the delimiters of its set, then returns the characters up to the next delimiter
// of that set (or to the end). The delimiter that ends a token is not consumed: it stays in
// front of the rest of the string and begins the next token unless the next call's set skips
// it. So over "a:b;c", calls with ":", ";" and "" give "a", ":b" and ";c". When nothing but
// delimiters remains, a call returns the empty string, and so does every later call.
//
// The tokenizer owns a copy of the string it cuts.
#pragma once

#include "rw/RWClassicCString.h"
#include "rw/rwtools_export.h"
#include "sgx/general/SgxString.h"

#include <cstddef>

class RWTOOLS_API RWCTokenizer {
public:
    explicit RWCTokenizer(const RWClassicCString& text) : m_text(text.str()) {}
    explicit RWCTokenizer(SgxString text) noexcept : m_text(std::move(text)) {}
    // A null pointer is the empty string.
    explicit RWCTokenizer(const char* text) : m_text(RWClassicCString(text).str()) {}

    // The next token delimited by any of the characters of the NUL-terminated `delimiters`
    // (a null pointer or "" is the empty set: the token is the rest of the string).
    RWClassicCString operator()(const char* delimiters);
    // The next token delimited by blank, tab or line feed.
    RWClassicCString operator()() { return (*this)(" \t\n"); }

private:
    SgxString m_text;
    size_t m_pos = 0; // where the next call starts; the delimiter that ended the last token
};
