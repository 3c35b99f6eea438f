#include "tarnel/query/TNQuerySyntax.h"

#include "tarnel/query/TNQuery.h"

#include <algorithm>
#include <array>

namespace tn_query {

namespace {
constexpr std::array<std::string_view, 17> keywords = {
    "let",     "in",   "if",    "then", "else", "endif", "and", "or",  "not",
    "implies", "true", "false", "null", "self", "model", "asc", "desc"};

// Lines longer than this are shown as a window around the fault.
constexpr size_t shownLine = 120;
} // namespace

bool isKeyword(std::string_view word) {
    return std::find(keywords.begin(), keywords.end(), word) != keywords.end();
}

bool isIdentifier(std::string_view name) {
    return !name.empty() && isIdentStart(name.front()) &&
           std::all_of(name.begin(), name.end(), isIdentChar) && !isKeyword(name);
}

void Failer::operator()(size_t pos, const SgxString& message) const {
    pos = std::min(pos, m_text.size());
    size_t line = 1;
    size_t lineStart = 0;
    for (size_t i = 0; i < pos; ++i)
        if (m_text[i] == '\n') {
            ++line;
            lineStart = i + 1;
        }
    size_t lineEnd = m_text.find('\n', lineStart);
    if (lineEnd == std::string_view::npos)
        lineEnd = m_text.size();
    const size_t column = pos - lineStart + 1;
    // A long line is cut to a window that holds the fault.
    size_t from = lineStart;
    if (pos - lineStart > shownLine / 2)
        from = pos - shownLine / 2;
    const size_t to = std::min(lineEnd, from + shownLine);
    SgxString source(m_text.substr(from, to - from));
    SgxString caret;
    for (size_t i = from; i < pos; ++i)
        caret += m_text[i] == '\t' ? '\t' : ' ';
    SgxException::raise(TNQueryError(line, column, source, message, caret));
}

const SgxString* nearestName(std::string_view name, const std::vector<SgxString>& known) {
    // Long names are no typing errors worth a quadratic comparison.
    constexpr size_t longest = 64;
    if (name.empty() || name.size() > longest)
        return nullptr;
    const size_t allowed = std::max<size_t>(1, name.size() / 3);
    const SgxString* best = nullptr;
    size_t bestDistance = allowed + 1;
    // Edit distance with transpositions (optimal string alignment), over three rows.
    std::vector<size_t> before, previous, row;
    for (const SgxString& candidate : known) {
        if (candidate.size() > longest || candidate == name ||
            (candidate.size() > name.size() ? candidate.size() - name.size()
                                            : name.size() - candidate.size()) > allowed)
            continue;
        const size_t m = candidate.size();
        before.assign(m + 1, 0);
        previous.resize(m + 1);
        row.resize(m + 1);
        for (size_t j = 0; j <= m; ++j)
            previous[j] = j;
        for (size_t i = 1; i <= name.size(); ++i) {
            row[0] = i;
            for (size_t j = 1; j <= m; ++j) {
                row[j] = std::min({previous[j] + 1, row[j - 1] + 1,
                                   previous[j - 1] + (name[i - 1] == candidate[j - 1] ? 0 : 1)});
                if (i > 1 && j > 1 && name[i - 1] == candidate[j - 2] &&
                    name[i - 2] == candidate[j - 1])
                    row[j] = std::min(row[j], before[j - 2] + 1);
            }
            std::swap(before, previous);
            std::swap(previous, row);
        }
        if (previous[m] < bestDistance) {
            bestDistance = previous[m];
            best = &candidate;
        }
    }
    return best;
}

TNValueType attrValueType(TNAttrType kind) {
    switch (kind) {
    case TNAttrEnumeration:
    case TNAttrString:
        return TNVString;
    case TNAttrInteger:
    case TNAttrLong:
        return TNVInt;
    case TNAttrReal:
        return TNVDouble;
    case TNAttrBoolean:
        return TNVBoolean;
    }
    return TNVNone;
}

SgxString quoteText(std::string_view text) {
    static const char hex[] = "0123456789abcdef";
    SgxString quoted = "'";
    for (const char c : text) {
        switch (c) {
        case '\\':
            quoted += "\\\\";
            break;
        case '\'':
            quoted += "\\'";
            break;
        case '\n':
            quoted += "\\n";
            break;
        case '\t':
            quoted += "\\t";
            break;
        case '\r':
            quoted += "\\r";
            break;
        case '\f':
            quoted += "\\f";
            break;
        default: {
            const auto byte = static_cast<unsigned char>(c);
            if (byte < 0x20 || byte == 0x7f) {
                quoted += "\\x";
                quoted += hex[byte >> 4];
                quoted += hex[byte & 15];
            } else {
                quoted += c;
            }
        }
        }
    }
    return quoted + "'";
}

} // namespace tn_query
