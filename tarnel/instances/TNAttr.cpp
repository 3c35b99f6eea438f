#include "tarnel/instances/TNAttr.h"

#include "sgx/general/SgxAssertion.h"
#include "tarnel/core/TNException.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNEnumType.h"
#include "tarnel/metamodel/TNSchema.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>

namespace {

// The source unit and lines that the consistency checks report.
constexpr const char* unitName = "TNAttr";
constexpr int32_t enumerationLine = 958;
constexpr int32_t integerLine = 973;
constexpr int32_t longLine = 977;
constexpr int32_t realLine = 982;
constexpr int32_t stringLine = 997;
constexpr int32_t booleanLine = 1011;
constexpr int32_t valueLine = 1047;

// Reads a text as C atol does (blanks, optional sign, digits), clamped to 32 bits.
int32_t parseInteger(const char* text) {
    while (std::isspace(static_cast<unsigned char>(*text)))
        ++text;
    const bool negative = *text == '-';
    if (*text == '-' || *text == '+')
        ++text;
    int64_t magnitude = 0;
    constexpr int64_t limit = int64_t{std::numeric_limits<int32_t>::max()} + 1;
    for (; *text >= '0' && *text <= '9'; ++text)
        if (magnitude <= limit)
            magnitude = magnitude * 10 + (*text - '0');
    const int64_t value = negative ? -magnitude : magnitude;
    if (value > std::numeric_limits<int32_t>::max())
        return std::numeric_limits<int32_t>::max();
    if (value < std::numeric_limits<int32_t>::min())
        return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(value);
}

SgxString formatReal(double value) {
    // "%f" of the largest double takes 317 characters.
    char buffer[512];
    const int length = std::snprintf(buffer, sizeof buffer, "%f", value);
    return SgxString(buffer, static_cast<size_t>(length));
}

} // namespace

const char* TNAttribute::copyText(const char* text, size_t length) {
    auto* copy = static_cast<char*>(TNSchema::stringMemoryRegion().allocate(length + 1, 1));
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

const char* TNAttribute::placeText(const char* text, size_t length) const {
    const TNAttrDesc& desc = *m_desc;
    SgxMemoryRegion& region = TNSchema::stringMemoryRegion();
    // The region check comes first: the last text is gone once its region is. Texts of one
    // attribute that differ (numbered names) mostly differ in their last byte, which is
    // compared before calling memcmp.
    if (desc.m_lastTextLength == length && desc.m_lastTextRegion == region.id() &&
        desc.m_lastText[length - 1] == text[length - 1] &&
        std::memcmp(desc.m_lastText, text, length) == 0)
        return desc.m_lastText;
    const char* copy = copyText(text, length);
    desc.m_lastText = copy;
    desc.m_lastTextLength = length;
    desc.m_lastTextRegion = region.id();
    return copy;
}

namespace {

const char* kindName(TNAttrType kind) {
    static const char* const names[] = {"an enumeration", "an integer", "a real",
                                        "a string",       "a boolean",  "a long"};
    return kind < std::size(names) ? names[kind] : "an unknown kind";
}

} // namespace

void TNAttribute::checkAssignment(Assigned given, int32_t integer) const {
    switch (type()) {
    case TNAttrInteger:
    case TNAttrLong:
        if (given == AssignedInteger)
            return;
        break;
    case TNAttrBoolean:
        if (given == AssignedBoolean ||
            (given == AssignedInteger && (integer == 0 || integer == 1)))
            return;
        break;
    case TNAttrReal:
        if (given == AssignedReal)
            return;
        break;
    case TNAttrString:
        if (given == AssignedText)
            return;
        break;
    case TNAttrEnumeration: {
        if (given == AssignedText)
            return;
        if (given != AssignedInteger)
            break;
        const TNEnumType& enumType = *m_desc->enumType();
        if (integer >= 0 && enumType.check(static_cast<unsigned long>(integer)))
            return;
        TNException(TNException::Modify, TNException::EnumAttribute, TNException::Invalid)
            .setClass1(m_desc->getClass().isNull() ? SgxString() : m_desc->getClass()->name())
            .setAttr(m_desc->name())
            .setEnumType(enumType.name())
            .setInfo("Index " + std::to_string(integer) + " is not the index of a literal of " +
                     enumType.name() + ", which has " + std::to_string(enumType.literalCount()) +
                     " literals.")
            .raise();
    }
    default:
        break;
    }
    static const char* const givenNames[] = {"An integer", "A bool", "A real", "A text"};
    raiseWrongAssignment(givenNames[given]);
}

void TNAttribute::raiseWrongAssignment(const char* given) const {
    const SgxString className =
        m_desc->getClass().isNull() ? SgxString() : m_desc->getClass()->name();
    TNException(TNException::Modify, TNException::AttrDescriptor, TNException::Invalid)
        .setClass1(className)
        .setAttr(m_desc->name())
        .setInfo(SgxString(given) + " cannot be assigned to attribute " + m_desc->name() +
                 " of class " + className + ", which holds " + kindName(type()) + ".")
        .raise();
}

void TNAttribute::assignLiteral(const char* text, size_t length) {
    const auto index = (*m_desc->enumType())[std::string_view(text, length)];
    setInt(static_cast<int32_t>(index));
}

void TNAttribute::copyValue(const TNAttribute& other) {
    const TNAttrType from = other.type();
    switch (type()) {
    case TNAttrString:
        if (from == TNAttrString)
            m_word = other.m_word == 0 ? 0
                                       : reinterpret_cast<uintptr_t>(copyText(
                                             other.textOrNull(), std::strlen(other.textOrNull())));
        else
            *this = other.asString();
        break;
    case TNAttrReal:
        if (from == TNAttrReal)
            m_word = other.m_word;
        else
            *this = other.asDouble();
        break;
    default: {
        const int32_t integer = isIntegerKind(from) ? other.intValue() : other.asLongInt();
        if constexpr (checkedAssignments)
            if (type() == TNAttrEnumeration)
                checkAssignment(AssignedInteger, integer);
        setInt(integer);
        break;
    }
    }
}

void TNAttribute::copyValue(const TNValue& value) {
    const TNValueType rhsType = value.myType();
    switch (type()) {
    case TNAttrEnumeration:
        if (rhsType != TNVInt && rhsType != TNVString)
            SgxAssertion::raise("rhsType == TNVInt || rhsType == TNVString", unitName,
                                enumerationLine);
        if (rhsType == TNVInt) {
            if constexpr (checkedAssignments)
                checkAssignment(AssignedInteger, value.asLongInt());
            setInt(value.asLongInt());
        } else
            assignLiteral(value.text(), std::strlen(value.text()));
        break;
    case TNAttrInteger:
        if (rhsType != TNVInt)
            SgxAssertion::raise("rhsType == TNVInt", unitName, integerLine);
        setInt(value.asLongInt());
        break;
    case TNAttrLong:
        if (rhsType != TNVLong)
            SgxAssertion::raise("rhsType == TNVLong", unitName, longLine);
        setInt(value.asLongInt());
        break;
    case TNAttrReal:
        if (rhsType != TNVDouble)
            SgxAssertion::raise("rhsType == TNVDouble", unitName, realLine);
        *this = value.asDouble();
        break;
    case TNAttrString: {
        if (rhsType != TNVString)
            SgxAssertion::raise("rhsType == TNVString", unitName, stringLine);
        const char* text = value.text();
        const size_t length = std::strlen(text);
        m_word = length == 0 ? 0 : reinterpret_cast<uintptr_t>(placeText(text, length));
        break;
    }
    case TNAttrBoolean:
        if (rhsType != TNVBoolean)
            SgxAssertion::raise("rhsType == TNVBoolean", unitName, booleanLine);
        setInt(value.asLongInt());
        break;
    default:
        break;
    }
}

TNValue TNAttribute::value() const {
    switch (type()) {
    case TNAttrEnumeration:
    case TNAttrInteger:
    case TNAttrLong:
        return TNValue(intValue());
    case TNAttrReal:
        return TNValue(realValue());
    case TNAttrString:
        return TNValue(text());
    case TNAttrBoolean:
        return TNValue(intValue() != 0);
    default:
        SgxAssertion::raise("false", unitName, valueLine);
    }
}

bool TNAttribute::operator==(const TNValue& value) const {
    const TNValueType rhsType = value.myType();
    switch (type()) {
    case TNAttrEnumeration: {
        if (rhsType == TNVInt)
            return intValue() == value.asLongInt();
        if (rhsType != TNVString)
            return false;
        const TNEnumType& enumType = *m_desc->enumType();
        const auto index = static_cast<unsigned long>(intValue());
        return intValue() >= 0 && enumType.check(index) && enumType[index] == value.text();
    }
    case TNAttrInteger:
        return rhsType == TNVInt && intValue() == value.asLongInt();
    case TNAttrReal:
        return rhsType == TNVDouble && realValue() == value.asDouble();
    case TNAttrString:
        return rhsType == TNVString && std::strcmp(text(), value.text()) == 0;
    case TNAttrBoolean:
        return rhsType == TNVBoolean && intValue() == value.asLongInt();
    case TNAttrLong:
        return rhsType == TNVLong && intValue() == value.asLongInt();
    default:
        return false;
    }
}

bool TNAttribute::operator<(const TNValue& value) const {
    switch (type()) {
    case TNAttrEnumeration: {
        const TNValueType rhsType = value.myType();
        if (rhsType == TNVInt)
            return intValue() < value.asLongInt();
        if (rhsType != TNVString)
            return false;
        // A name the type does not know orders nothing (comparisons never raise).
        const TNEnumType& enumType = *m_desc->enumType();
        if (!enumType.check(std::string_view(value.text())))
            return false;
        return static_cast<int64_t>(intValue()) <
               static_cast<int64_t>(enumType[std::string_view(value.text())]);
    }
    case TNAttrInteger:
    case TNAttrBoolean:
    case TNAttrLong:
        return intValue() < value.asLongInt();
    case TNAttrReal:
        return value.asDouble() > realValue();
    case TNAttrString: {
        const char* rhs = value.text();
        if (rhs != nullptr)
            return std::strcmp(text(), rhs) < 0;
        return std::strcmp(text(), value.asString().c_str()) < 0;
    }
    default:
        return false;
    }
}

bool TNAttribute::operator==(const TNAttribute& other) const {
    const TNAttrType kind = type();
    if (kind != other.type() || kind > TNAttrLong)
        return false;
    switch (kind) {
    case TNAttrReal:
        return realValue() == other.realValue();
    case TNAttrString:
        return std::strcmp(text(), other.text()) == 0;
    default:
        return intValue() == other.intValue();
    }
}

int32_t TNAttribute::convertedLongInt() const {
    switch (type()) {
    case TNAttrReal:
        return TNValue(realValue()).asLongInt();
    case TNAttrString:
        return parseInteger(text());
    default:
        return 0;
    }
}

bool TNAttribute::asBoolean() const {
    const TNAttrType kind = type();
    if (isIntegerKind(kind))
        return intValue() != 0;
    switch (kind) {
    case TNAttrReal: {
        const double value = realValue();
        return value == value && value != 0.0; // false for NaN
    }
    case TNAttrString:
        return std::strcmp(text(), "true") == 0;
    default:
        return false;
    }
}

double TNAttribute::asDouble() const {
    const TNAttrType kind = type();
    if (isIntegerKind(kind))
        return intValue();
    switch (kind) {
    case TNAttrReal:
        return realValue();
    case TNAttrString:
        return m_word == 0 ? 0.0 : std::atof(textOrNull());
    default:
        return 0.0;
    }
}

SgxString TNAttribute::asString() const {
    switch (type()) {
    case TNAttrEnumeration:
        return (*m_desc->enumType())[static_cast<unsigned long>(intValue())];
    case TNAttrInteger:
    case TNAttrLong:
        // "%ld" and "%d" of a 32-bit integer read alike.
        return std::to_string(intValue());
    case TNAttrReal:
        return m_word == 0 ? SgxString("0.0") : formatReal(realValue());
    case TNAttrString:
        return text();
    case TNAttrBoolean:
        return intValue() != 0 ? "true" : "false";
    default:
        return SgxString();
    }
}
