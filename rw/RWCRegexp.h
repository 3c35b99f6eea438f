// RWCRegexp: a compiled regular expression of the library's small pattern dialect.
//
// The dialect, and nothing more:
//   c       any character matches itself, except the special ones below
//   .       any character but a line feed
//   [...]   a set: single characters and ranges "a-z"; a leading "^" complements the set; a "]"
//           first in the set (after the "^", if any) is literal; "\" makes the next character
//           literal inside a set too; a "-" first or last is literal; a reversed range is empty
//   * + ?   after a single-character expression (a character, ".", a set or an escape): zero or
//           more, one or more, zero or one of it, greedily
//   ^       first in the pattern: anchors the match to the start of the whole subject
//   $       last in the pattern: anchors the match to the end of the whole subject
//   \c      the character c, literally
// Everything else, "^" and "$" elsewhere and "( ) | { }" included, is literal. Subjects and
// patterns are bytes: every byte value 0-255 is a character, no encoding is assumed.
//
// The anchors refer to the whole subject even when a search starts later in it, so "^a" never
// matches in a search from position 1. Matching runs in time linear in the subject for every
// pattern (the pattern is translated for RE2, which never backtracks).
//
// A malformed pattern (an unclosed set, a repetition with nothing to repeat, a trailing "\")
// leaves the object in an error state: status() says which, and every search finds nothing.
//
// The compiled form is immutable and shared: copies are cheap (one reference count) and a
// regexp can be kept and reused for any number of searches. Searches are const and may run
// concurrently on the same object.
#pragma once

#include "rw/rwtools_export.h"
#include "sgx/general/SgxString.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

// The position that searches return when they find nothing: all bits set.
inline constexpr size_t RW_NPOS = SIZE_MAX;

class RWTOOLS_API RWCRegexp {
public:
    enum statVal : int32_t {
        OK = 0,
        UNCLOSED_SET,           // a "[" without its closing "]"
        REPEAT_WITHOUT_OPERAND, // "*", "+" or "?" not after a single-character expression
        TRAILING_BACKSLASH,     // the pattern ends with an unescaped "\"
        TOO_LARGE               // the pattern is longer than 65536 bytes, or compiles too large
    };

    // Compiles `pattern`; a null pointer is the empty pattern, which matches everywhere.
    explicit RWCRegexp(const char* pattern);
    // Compiles `pattern`, all of its bytes (an embedded NUL is a literal character).
    explicit RWCRegexp(const SgxString& pattern);

    // Copies share the compiled form. There are no separate moves: a copy is as cheap, and a
    // moved-from regexp stays usable.
    RWCRegexp(const RWCRegexp&) noexcept;
    RWCRegexp& operator=(const RWCRegexp&) noexcept;
    ~RWCRegexp();

    // OK, or why the pattern could not be compiled.
    statVal status() const noexcept;
    // The pattern text as given to the constructor.
    const SgxString& pattern() const noexcept;

    // Position of the leftmost match that begins at or after `start` in `subject`, or RW_NPOS
    // when there is none (always in the error state, and when start > subject.size()). On a
    // match, stores its length in *matchLength when that pointer is not null; a match may be
    // empty, also at subject.size().
    size_t index(std::string_view subject, size_t* matchLength = nullptr, size_t start = 0) const;

private:
    struct Compiled;
    static std::shared_ptr<const Compiled> compile(SgxString pattern);

    std::shared_ptr<const Compiled> m_compiled; // never null
};
