#include "rw/RWCRegexp.h"

#include <re2/re2.h>

#include <bitset>

// The compiled form: immutable once built, shared by every copy of the regexp.
struct RWCRegexp::Compiled {
    SgxString pattern;
    statVal status = OK;
    std::unique_ptr<const re2::RE2> re; // null unless status == OK
};

namespace {

using ByteSet = std::bitset<256>;

// Longer patterns are refused as too large. Well below this, RE2 compiles every pattern of the
// dialect within its default memory budget; far above it, RE2 runs out of budget and writes
// diagnostics of its own to standard error.
constexpr size_t maxPatternLength = 65536;

unsigned char byteAt(std::string_view text, size_t i) {
    return static_cast<unsigned char>(text[i]);
}

// Appends one byte as an RE2 literal. Everything but ASCII letters and digits is written as a
// hex escape, so no byte can be read as RE2 syntax and the RE2 pattern itself stays ASCII.
void appendLiteral(std::string& out, unsigned char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) {
        out += static_cast<char>(c);
        return;
    }
    static constexpr char hex[] = "0123456789abcdef";
    out += "\\x{";
    out += hex[c >> 4];
    out += hex[c & 0xf];
    out += '}';
}

// Appends `set` as an RE2 character class of explicit byte ranges. An empty set becomes a class
// that matches nothing.
void appendClass(std::string& out, const ByteSet& set) {
    if (set.none()) {
        out += "[^\\x{00}-\\x{ff}]";
        return;
    }
    out += '[';
    for (unsigned lo = 0; lo < 256;) {
        if (!set[lo]) {
            ++lo;
            continue;
        }
        unsigned hi = lo;
        while (hi + 1 < 256 && set[hi + 1]) {
            ++hi;
        }
        appendLiteral(out, static_cast<unsigned char>(lo));
        if (hi > lo) {
            out += '-';
            appendLiteral(out, static_cast<unsigned char>(hi));
        }
        lo = hi + 1;
    }
    out += ']';
}

// Reads the set that opens at pattern[i] ("["), leaving i just past its closing "]".
// Returns false when the set is not closed.
bool readSet(std::string_view pattern, size_t& i, ByteSet& set) {
    const size_t n = pattern.size();
    size_t j = i + 1;
    const bool complement = j < n && pattern[j] == '^';
    if (complement) {
        ++j;
    }
    // Reads one member character at j (an escape stands for the character it escapes).
    auto readMember = [&](unsigned char& c) {
        if (pattern[j] == '\\') {
            if (j + 1 >= n) {
                return false;
            }
            ++j;
        }
        c = byteAt(pattern, j++);
        return true;
    };
    set.reset();
    for (bool first = true;; first = false) {
        if (j >= n) {
            return false;
        }
        if (pattern[j] == ']' && !first) {
            break;
        }
        unsigned char lo = 0;
        if (!readMember(lo)) {
            return false;
        }
        unsigned char hi = lo;
        // A "-" just before the closing "]" is a literal member, not a range.
        if (j + 1 < n && pattern[j] == '-' && pattern[j + 1] != ']') {
            ++j;
            if (!readMember(hi)) {
                return false;
            }
        }
        for (unsigned c = lo; c <= hi; ++c) { // a reversed range adds nothing
            set.set(c);
        }
    }
    if (complement) {
        set.flip();
    }
    i = j + 1;
    return true;
}

// Translates a dialect pattern into RE2 syntax, or says why it is malformed.
RWCRegexp::statVal translate(std::string_view pattern, std::string& out) {
    const size_t n = pattern.size();
    size_t i = 0;
    if (n > 0 && pattern[0] == '^') {
        out += "\\A"; // the start of the whole text, whatever position the search starts at
        i = 1;
    }
    bool repeatable = false; // the last item is a single-character expression
    while (i < n) {
        const char c = pattern[i];
        switch (c) {
        case '.':
            out += "[^\\x{0a}]";
            repeatable = true;
            ++i;
            break;
        case '[': {
            ByteSet set;
            if (!readSet(pattern, i, set)) {
                return RWCRegexp::UNCLOSED_SET;
            }
            appendClass(out, set);
            repeatable = true;
            break;
        }
        case '*':
        case '+':
        case '?':
            if (!repeatable) {
                return RWCRegexp::REPEAT_WITHOUT_OPERAND;
            }
            out += c; // RE2's plain repetitions are greedy
            repeatable = false;
            ++i;
            break;
        case '\\':
            if (i + 1 >= n) {
                return RWCRegexp::TRAILING_BACKSLASH;
            }
            appendLiteral(out, byteAt(pattern, i + 1));
            repeatable = true;
            i += 2;
            break;
        case '$':
            if (i + 1 == n) {
                out += "\\z"; // the end of the whole text, never before a final line feed
                repeatable = false;
                ++i;
                break;
            }
            [[fallthrough]];
        default:
            appendLiteral(out, byteAt(pattern, i));
            repeatable = true;
            ++i;
            break;
        }
    }
    return RWCRegexp::OK;
}

} // namespace

std::shared_ptr<const RWCRegexp::Compiled> RWCRegexp::compile(SgxString pattern) {
    auto compiled = std::make_shared<Compiled>();
    compiled->pattern = std::move(pattern);
    if (compiled->pattern.size() > maxPatternLength) {
        compiled->status = TOO_LARGE;
        return compiled;
    }
    std::string translated;
    translated.reserve(compiled->pattern.size() * 2 + 4);
    compiled->status = translate(compiled->pattern, translated);
    if (compiled->status != OK) {
        return compiled;
    }
    re2::RE2::Options options;
    options.set_encoding(re2::RE2::Options::EncodingLatin1); // every byte is one character
    options.set_never_capture(true);
    options.set_log_errors(false);
    auto re = std::make_unique<const re2::RE2>(translated, options);
    // The translation only emits valid syntax, so RE2 can refuse it only for its size.
    if (!re->ok()) {
        compiled->status = TOO_LARGE;
        return compiled;
    }
    compiled->re = std::move(re);
    return compiled;
}

RWCRegexp::RWCRegexp(const char* pattern)
    : m_compiled(compile(pattern != nullptr ? SgxString(pattern) : SgxString())) {}

RWCRegexp::RWCRegexp(const SgxString& pattern) : m_compiled(compile(pattern)) {}

RWCRegexp::RWCRegexp(const RWCRegexp&) noexcept = default;
RWCRegexp& RWCRegexp::operator=(const RWCRegexp&) noexcept = default;
RWCRegexp::~RWCRegexp() = default;

RWCRegexp::statVal RWCRegexp::status() const noexcept { return m_compiled->status; }

const SgxString& RWCRegexp::pattern() const noexcept { return m_compiled->pattern; }

size_t RWCRegexp::index(std::string_view subject, size_t* matchLength, size_t start) const {
    const re2::RE2* re = m_compiled->re.get();
    if (re == nullptr || start > subject.size()) {
        return RW_NPOS;
    }
    // The whole subject goes to RE2 with a start offset, never a substring, so that the anchors
    // keep referring to the subject's own start and end.
    const re2::StringPiece text(subject.data(), subject.size());
    re2::StringPiece match;
    if (!re->Match(text, start, text.size(), re2::RE2::UNANCHORED, &match, 1)) {
        return RW_NPOS;
    }
    if (matchLength != nullptr) {
        *matchLength = match.size();
    }
    // RE2 reports an empty match in an empty text with a null pointer.
    return match.data() == nullptr ? start : static_cast<size_t>(match.data() - text.data());
}
