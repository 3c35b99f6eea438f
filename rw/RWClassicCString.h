// RWClassicCString: a byte string with the regular-expression searches and edits that the
// library's string operations are built from.
//
// The object owns its bytes (an SgxString); every byte value, NUL included, is an ordinary
// character. Case conversion is ASCII only, as in the C locale, so it never depends on the
// process's locale and leaves bytes 0x80-0xff alone. Ordering is byte-wise, unsigned.
#pragma once

#include "rw/RWCRegexp.h"
#include "rw/rwtools_export.h"
#include "sgx/general/SgxString.h"

#include <compare>
#include <cstddef>
#include <string_view>
#include <utility>

class RWTOOLS_API RWClassicCString {
public:
    RWClassicCString() = default;
    // Copies the NUL-terminated `text`; a null pointer gives the empty string.
    RWClassicCString(const char* text);
    // Copies `length` bytes from `text`.
    RWClassicCString(const char* text, size_t length) : m_data(text, length) {}
    RWClassicCString(SgxString text) noexcept : m_data(std::move(text)) {}

    // The bytes, followed by a NUL that is not part of the string.
    const char* data() const noexcept { return m_data.c_str(); }
    size_t length() const noexcept { return m_data.size(); }
    bool isNull() const noexcept { return m_data.empty(); }

    // The bytes as the library's string type.
    const SgxString& str() const noexcept { return m_data; }
    operator const SgxString&() const noexcept { return m_data; }
    operator std::string_view() const noexcept { return m_data; }

    // Position of the leftmost match of `re` at or after `start`, or RW_NPOS (see
    // RWCRegexp::index); stores the match's length in *matchLength when it is not null.
    size_t index(const RWCRegexp& re, size_t* matchLength = nullptr, size_t start = 0) const {
        return re.index(m_data, matchLength, start);
    }
    // The leftmost match of `re` as a new string; empty when there is none.
    RWClassicCString operator()(const RWCRegexp& re) const;
    // The `length` bytes from `start` (fewer when the string ends first). Raises SgxException
    // "Substring out of range" when start > length().
    RWClassicCString operator()(size_t start, size_t length) const;

    RWClassicCString& append(std::string_view text) {
        m_data.append(text);
        return *this;
    }
    RWClassicCString& append(const char* text, size_t length) {
        m_data.append(text, length);
        return *this;
    }
    // Replaces the `length` bytes from `pos` (fewer when the string ends first) by `text`.
    // Raises SgxException "Substring out of range" when pos > length().
    RWClassicCString& replace(size_t pos, size_t length, std::string_view text);

    // Replaces the leftmost match of `re` by `replacement`, taken literally; no match leaves
    // the string as it is. An empty match is replaced too ("x*" by "-" in "ab" gives "-ab").
    RWClassicCString& replaceFirst(const RWCRegexp& re, std::string_view replacement);
    // Replaces every match of `re`, scanning left to right from the end of the previous match,
    // by `replacement`, taken literally. After an empty match the scan copies one byte and goes
    // on after it, so "x*" by "-" in "abc" gives "-a-b-c". An empty string stays empty.
    RWClassicCString& replaceAll(const RWCRegexp& re, std::string_view replacement);

    // ASCII letters to lower (upper) case, in place; other bytes unchanged.
    void toLower() noexcept;
    void toUpper() noexcept;

    friend bool operator==(const RWClassicCString&, const RWClassicCString&) = default;
    friend std::strong_ordering operator<=>(const RWClassicCString& a,
                                            const RWClassicCString& b) noexcept {
        // std::char_traits<char> compares as unsigned char, which is the byte order wanted.
        return a.m_data.compare(b.m_data) <=> 0;
    }

private:
    SgxString m_data;
};
