// TNValue: the scalar variant of the library (a type tag and one payload), with the conversion and
// comparison rules that every value expression, attribute read and constant follows.
//
// Ownership: a string value owns a copy of its text, except that every empty string value points
// at one process-wide constant that is shared and never freed, so empty texts cost no allocation.
// Copies of non-empty texts are deep. No operation raises, except the allocator when a non-empty
// text is copied.
//
// Representation: one 32-bit tag and one 8-byte payload word (16 bytes in all). The payload holds
// the integer or truth value, the double itself, or the text pointer. Holding the double inline
// rather than in a block of its own saves an allocation per real value; nothing in the interface
// can tell the difference. Strings are not kept in a short-string buffer: the word is a pointer
// to exactly length + 1 owned bytes, or to the shared empty text.
#pragma once

#include "sgx/general/SgxString.h"
#include "tarnel/core/TNAttrType.h"
#include "tarnel/tarnel_export.h"

#include <cstdint>
#include <cstring>
#include <utility>

// The type tag of a TNValue. TNVLong is never held by a value; it exists for attribute values and
// for the mapping from attribute types. The underlying type is fixed so that any 32-bit tag can be
// stored: a value built with a tag outside this list behaves like TNVNone except in myType().
enum TNValueType : uint32_t {
    TNVNone = 0,
    TNVInt = 1,
    TNVDouble = 2,
    TNVString = 3,
    TNVBoolean = 4,
    TNVLong = 5
};

class TARNEL_API TNValue {
public:
    // A TNVNone value: no payload; it equals nothing and sorts before everything.
    TNValue() noexcept : m_type(TNVNone), m_int(0) {}
    // A value of type `type` with a zero payload: 0 for TNVInt and TNVBoolean, 0.0 for TNVDouble,
    // the shared empty text for TNVString; any other tag is stored alone. Explicit so that a type
    // tag is never taken for a value by accident (TNVInt is not the integer 1).
    explicit TNValue(TNValueType type) noexcept;
    // TNVInt values. Integers are 32-bit: a long keeps its low 32 bits.
    TNValue(int value) noexcept : m_type(TNVInt), m_int(value) {}
    TNValue(long value) noexcept : m_type(TNVInt), m_int(static_cast<int32_t>(value)) {}
    // A TNVDouble value.
    TNValue(double value) noexcept : m_type(TNVDouble), m_double(value) {}
    // A TNVBoolean value holding 1 or 0.
    TNValue(bool value) noexcept : m_type(TNVBoolean), m_int(value ? 1 : 0) {}
    // TNVString values holding a copy of the text (up to its first NUL, as the text is kept
    // NUL-terminated); an empty text, or a null pointer, gives the shared empty text.
    TNValue(const SgxString& text);
    TNValue(const char* text);

    // Takes the other's type and a copy of its payload; a non-empty text is copied.
    TNValue(const TNValue& other);
    // Takes the other's payload without copying; a moved-from string value keeps its type and
    // holds the empty text, any other moved-from value is left as it was.
    TNValue(TNValue&& other) noexcept : m_type(other.m_type), m_int(0) { take(other); }
    // Self-assignment does nothing. Otherwise the old payload is released and the source's copied;
    // if copying a text fails for lack of memory, the value is left unchanged.
    TNValue& operator=(const TNValue& other);
    TNValue& operator=(TNValue&& other) noexcept {
        if (this != &other) {
            cleanUp();
            m_type = other.m_type;
            take(other);
        }
        return *this;
    }
    ~TNValue() { cleanUp(); }

    // The type tag.
    TNValueType myType() const noexcept { return m_type; }

    // Converts in place to `type` by the as... rules below. Nothing happens when the value already
    // has that type, nor for TNVNone and TNVLong (the value keeps its old type and payload).
    void setType(TNValueType type);
    // Maps an attribute kind to a value type and converts to it: enumeration and integer to
    // TNVInt, real to TNVDouble, string to TNVString, boolean to TNVBoolean, long to TNVLong (so
    // nothing changes) and any other kind to TNVInt. Both setType overloads take enumerations,
    // which integers do not convert to: setType(3) does not compile; write the enumerator, or
    // static_cast a kind read from a type word to TNAttrType.
    void setType(TNAttrType type);

    // The value as a 32-bit integer. A double is truncated toward zero and the low 32 bits of the
    // integer part are kept (its residue modulo 2^32, read as signed); NaN and infinities give 0.
    // A text is read as C atol reads it (blanks, optional sign, digits; 0 when there is no number),
    // clamped to the int32_t range. Truth values give 0 or 1; TNVNone and others give 0.
    int32_t asLongInt() const noexcept;
    // The value as a double; a text is read as C atof reads it.
    double asDouble() const noexcept;
    // The value as text: an integer as "%li" formats it, a double as "%f" does (six decimals),
    // a truth value as "true" or "false", TNVNone and others as the empty string.
    SgxString asString() const;
    // Appends asString() to `text`, without making the string first: for nodes that build
    // sequences or joins of texts.
    void appendTo(SgxString& text) const;
    // The value as a truth value: an integer is true when non-zero, a double when asLongInt() is
    // non-zero (so 0.5 is false), a text only when it is exactly "true".
    bool asBoolean() const noexcept;
    bool operator!() const noexcept { return !asBoolean(); }

    // The stored text of a TNVString value, without copying (every empty one returns the same
    // shared pointer); null for any other type. Valid while the value is unchanged.
    const char* text() const noexcept { return m_type == TNVString ? m_text : nullptr; }

    // Equality decided by the left operand's type, the right operand converted to it: integers by
    // asLongInt(), doubles by asDouble() (false when either is NaN), texts by byte comparison with
    // asString(), truth values by asBoolean(). A TNVNone left operand equals nothing, not even
    // another TNVNone. Not symmetric: write the TNValue whose type should decide on the left (C++20
    // rewrites `5 == v` as `v == 5`, so there v decides).
    bool operator==(const TNValue& other) const;
    // Ordering decided by the left operand's type: TNVNone is less than everything (itself
    // included); integers and truth values compare their stored integer with asLongInt() of the
    // right; doubles with asDouble() (false when either is NaN); texts compare byte-wise with the
    // right's text, or with its asString() when the right is not a text; other types give false.
    bool operator<(const TNValue& other) const;

private:
    // Frees an owned text; leaves the tag as it is.
    void cleanUp() noexcept {
        if (m_type == TNVString && m_text != s_emptyText)
            delete[] m_text;
    }
    // Moves the payload of `other` (whose tag this value already carries) into this value.
    void take(TNValue& other) noexcept {
        copyPayload(other);
        if (m_type == TNVString)
            other.m_text = s_emptyText;
    }
    // Copies the payload word as it stands, whatever it holds (a text pointer is shared).
    void copyPayload(const TNValue& other) noexcept {
        std::memcpy(static_cast<void*>(&m_double), &other.m_double, sizeof(m_double));
    }
    // A copy of a non-empty text, or the shared empty text.
    static const char* copyText(const char* text, size_t length);

    // The shared empty text of every empty string value; never freed.
    static const char s_emptyText[1];

    TNValueType m_type;
    union {
        int32_t m_int;
        double m_double;
        const char* m_text;
    };
};
