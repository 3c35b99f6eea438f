#include "rw/RWClassicCString.h"

#include "sgx/general/SgxException.h"

namespace {

void checkPosition(size_t pos, size_t size) {
    if (pos > size) {
        SgxException::raise("Substring out of range");
    }
}

} // namespace

RWClassicCString::RWClassicCString(const char* text) {
    if (text != nullptr) {
        m_data = text;
    }
}

RWClassicCString RWClassicCString::operator()(const RWCRegexp& re) const {
    size_t length = 0;
    const size_t pos = index(re, &length);
    if (pos == RW_NPOS) {
        return {};
    }
    return RWClassicCString(m_data.data() + pos, length);
}

RWClassicCString RWClassicCString::operator()(size_t start, size_t length) const {
    checkPosition(start, m_data.size());
    return RWClassicCString(m_data.substr(start, length));
}

RWClassicCString& RWClassicCString::replace(size_t pos, size_t length, std::string_view text) {
    checkPosition(pos, m_data.size());
    m_data.replace(pos, length, text);
    return *this;
}

RWClassicCString& RWClassicCString::replaceFirst(const RWCRegexp& re,
                                                 std::string_view replacement) {
    size_t length = 0;
    const size_t pos = index(re, &length);
    if (pos != RW_NPOS) {
        m_data.replace(pos, length, replacement);
    }
    return *this;
}

RWClassicCString& RWClassicCString::replaceAll(const RWCRegexp& re, std::string_view replacement) {
    const size_t n = m_data.size();
    SgxString result;
    size_t p = 0;
    while (p < n) {
        size_t length = 0;
        const size_t pos = index(re, &length, p);
        if (pos == RW_NPOS) {
            result.append(m_data, p);
            break;
        }
        result.append(m_data, p, pos - p);
        result.append(replacement);
        p = pos + length;
        if (length == 0) {
            // An empty match would be found again at the same place: step over one byte.
            if (pos < n) {
                result += m_data[pos];
            }
            ++p;
        }
    }
    m_data = std::move(result);
    return *this;
}

void RWClassicCString::toLower() noexcept {
    for (char& c : m_data) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
}

void RWClassicCString::toUpper() noexcept {
    for (char& c : m_data) {
        if (c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - 'a' + 'A');
        }
    }
}
