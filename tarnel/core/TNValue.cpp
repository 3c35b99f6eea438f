#include "tarnel/core/TNValue.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

const char TNValue::s_emptyText[1] = {'\0'};

namespace {

// Reads a text as C atol does (white space, optional sign, decimal digits) without its undefined
// behaviour on overflow: the result saturates to the int32_t range.
int32_t parseInt32(const char* text) noexcept {
    const char* p = text;
    while (*p == ' ' || (*p >= '\t' && *p <= '\r'))
        ++p;
    bool negative = false;
    if (*p == '+' || *p == '-')
        negative = *p++ == '-';
    constexpr int64_t limit = int64_t{1} << 31; // magnitude of INT32_MIN
    int64_t magnitude = 0;
    for (; *p >= '0' && *p <= '9'; ++p) {
        if (magnitude <= limit)
            magnitude = magnitude * 10 + (*p - '0');
    }
    if (negative)
        return magnitude >= limit ? INT32_MIN : static_cast<int32_t>(-magnitude);
    return magnitude >= limit ? INT32_MAX : static_cast<int32_t>(magnitude);
}

// Truncates toward zero and keeps the low 32 bits of the integer part, i.e. its residue modulo
// 2^32 read as two's complement. fmod is exact, so this is defined for every finite double
// (a plain cast is undefined outside the int32_t range); NaN and infinities have no integer part
// and give 0.
int32_t truncateToInt32(double value) noexcept {
    if (!std::isfinite(value))
        return 0;
    if (value > -2147483649.0 && value < 2147483648.0)
        return static_cast<int32_t>(value);
    constexpr double modulus = 4294967296.0;
    double residue = std::fmod(std::trunc(value), modulus); // in (-2^32, 2^32), integral
    if (residue < 0)
        residue += modulus;
    return static_cast<int32_t>(static_cast<uint32_t>(residue));
}

// "%f" of the largest double is 317 characters (sign, 309 digits, point, six decimals).
constexpr size_t kFormatBufferSize = 400;

} // namespace

TNValue::TNValue(TNValueType type) noexcept : m_type(type), m_int(0) {
    if (type == TNVDouble)
        m_double = 0.0;
    else if (type == TNVString)
        m_text = s_emptyText;
}

TNValue::TNValue(const SgxString& text)
    : m_type(TNVString), m_text(copyText(text.c_str(), text.size())) {}

TNValue::TNValue(const char* text)
    : m_type(TNVString), m_text(text ? copyText(text, std::strlen(text)) : s_emptyText) {}

TNValue::TNValue(const TNValue& other) : m_type(other.m_type) {
    copyPayload(other);
    if (m_type == TNVString && m_text != s_emptyText)
        m_text = copyText(m_text, std::strlen(m_text));
}

TNValue& TNValue::operator=(const TNValue& other) {
    if (this != &other)
        *this = TNValue(other); // copy first, so a failed allocation leaves this value intact
    return *this;
}

const char* TNValue::copyText(const char* text, size_t length) {
    if (length == 0)
        return s_emptyText;
    char* copy = new char[length + 1];
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

void TNValue::setType(TNValueType type) {
    if (type == m_type)
        return;
    switch (type) {
    case TNVInt:
        *this = TNValue(asLongInt());
        break;
    case TNVDouble:
        *this = TNValue(asDouble());
        break;
    case TNVString:
        *this = TNValue(asString());
        break;
    case TNVBoolean:
        *this = TNValue(asBoolean());
        break;
    default: // TNVNone, TNVLong and unknown tags: no conversion, the value stays as it is
        break;
    }
}

void TNValue::setType(TNAttrType type) {
    switch (type) {
    case TNAttrReal:
        setType(TNVDouble);
        break;
    case TNAttrString:
        setType(TNVString);
        break;
    case TNAttrBoolean:
        setType(TNVBoolean);
        break;
    case TNAttrLong:
        setType(TNVLong);
        break;
    default: // enumeration, integer and unknown kinds
        setType(TNVInt);
        break;
    }
}

int32_t TNValue::asLongInt() const noexcept {
    switch (m_type) {
    case TNVInt:
    case TNVBoolean:
        return m_int;
    case TNVDouble:
        return truncateToInt32(m_double);
    case TNVString:
        return parseInt32(m_text);
    default:
        return 0;
    }
}

double TNValue::asDouble() const noexcept {
    switch (m_type) {
    case TNVInt:
    case TNVBoolean:
        return m_int;
    case TNVDouble:
        return m_double;
    case TNVString:
        return std::atof(m_text);
    default:
        return 0.0;
    }
}

SgxString TNValue::asString() const {
    SgxString text;
    appendTo(text);
    return text;
}

void TNValue::appendTo(SgxString& text) const {
    switch (m_type) {
    case TNVInt: {
        // One digit, the commonest count, without the conversion.
        if (static_cast<uint64_t>(m_int) < 10) {
            text.push_back(static_cast<char>('0' + m_int));
            break;
        }
        // Character by character: an integer's eleven characters at most fit the inline buffer
        // of an empty string, and no call copies them.
        char buffer[16];
        const auto result = std::to_chars(buffer, buffer + sizeof buffer, m_int);
        for (const char* c = buffer; c != result.ptr; ++c)
            text.push_back(*c);
        break;
    }
    case TNVDouble: {
        char buffer[kFormatBufferSize];
        const int length = std::snprintf(buffer, sizeof buffer, "%f", m_double);
        text.append(buffer, length > 0 ? static_cast<size_t>(length) : 0);
        break;
    }
    case TNVString:
        text.append(m_text);
        break;
    case TNVBoolean:
        text.append(m_int ? "true" : "false");
        break;
    default:
        break;
    }
}

bool TNValue::asBoolean() const noexcept {
    switch (m_type) {
    case TNVInt:
    case TNVBoolean:
        return m_int != 0;
    case TNVDouble:
        return truncateToInt32(m_double) != 0;
    case TNVString:
        return std::strcmp(m_text, "true") == 0;
    default:
        return false;
    }
}

bool TNValue::operator==(const TNValue& other) const {
    switch (m_type) {
    case TNVInt:
        return m_int == other.asLongInt();
    case TNVDouble:
        return m_double == other.asDouble();
    case TNVString:
        // A text on the right is compared in place; anything else is formatted first.
        if (other.m_type == TNVString)
            return std::strcmp(m_text, other.m_text) == 0;
        return std::strcmp(m_text, other.asString().c_str()) == 0;
    case TNVBoolean:
        return (m_int != 0) == other.asBoolean();
    default:
        return false;
    }
}

bool TNValue::operator<(const TNValue& other) const {
    switch (m_type) {
    case TNVNone:
        return true;
    case TNVInt:
    case TNVBoolean:
        return m_int < other.asLongInt();
    case TNVDouble:
        return other.asDouble() > m_double;
    case TNVString:
        // Only text-to-text ordering is defined; a right operand of another type is compared by
        // its asString() so that mixed comparisons stay well-defined.
        if (other.m_type == TNVString)
            return std::strcmp(m_text, other.m_text) < 0;
        return std::strcmp(m_text, other.asString().c_str()) < 0;
    default:
        return false;
    }
}
