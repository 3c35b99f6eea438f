#include "rw/RWCTokenizer.h"

#include <string_view>

RWClassicCString RWCTokenizer::operator()(const char* delimiters) {
    const std::string_view set = delimiters != nullptr ? delimiters : "";
    // With an empty set, find_first_not_of gives m_pos itself and find_first_of finds no end:
    // the token is the rest of the string.
    const size_t begin = m_text.find_first_not_of(set.data(), m_pos, set.size());
    if (begin == SgxString::npos) {
        m_pos = m_text.size();
        return {};
    }
    size_t end = m_text.find_first_of(set.data(), begin, set.size());
    if (end == SgxString::npos) {
        end = m_text.size();
    }
    m_pos = end;
    return RWClassicCString(m_text.data() + begin, end - begin);
}
