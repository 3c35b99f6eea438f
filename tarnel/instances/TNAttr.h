// TNAttribute: one attribute value slot of a model object, read according to its descriptor
// (TNAttrDesc). Slots exist by the million: two words, no virtual functions, nothing for a
// destructor to do.
//
// The value word holds, by the descriptor's kind: the literal index (enumeration), the signed
// 32-bit integer (integer, boolean as 0 or 1, long), the real itself, or a pointer to a
// NUL-terminated text. 0.0 and the empty text are stored as an all-zero word and cost nothing.
//
// Representation: a real is held in the word itself rather than in an 8-byte block of a memory
// region that the word points to. The zero word reads as 0.0 exactly as a null block pointer did,
// every assignment turns 0.0 and -0.0 into that zero word, and no operation hands out the block,
// so nothing a caller can do tells the difference; it saves a block and a pointer chase per real.
//
// Ownership: texts belong to the schema's string region and are never freed by a slot.
//
// Representation: a text is copied straight into the string region when it is assigned, rather
// than into the temporary region first and into the string region when the model is frozen.
// Either way the frozen model holds each text once, densely, in the string region, and no text
// depends on the temporary region, which is released after population; copying once instead of
// twice takes the texts out of freezing altogether. The one difference is that a text replaced
// by another stays in the string region until the model is unpopulated.
#pragma once

#include "sgx/general/SgxSimplePtr.h"
#include "sgx/general/SgxString.h"
#include "tarnel/core/TNAttrType.h"
#include "tarnel/core/TNValue.h"
#include "tarnel/metamodel/TNAttrDesc.h"
#include "tarnel/tarnel_config.h"
#include "tarnel/tarnel_export.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

class TARNEL_API TNAttribute {
public:
    // No descriptor; the value word is left as it is. Only a target of initialize().
    TNAttribute() noexcept {}
    // Takes the other's descriptor, then its value (texts are copied into the temporary region).
    TNAttribute(const TNAttribute& other) : m_desc(other.m_desc) { copyValue(other); }
    // Copies the other's value, read by this slot's kind; the descriptor stays. A slot of another
    // kind is converted through its as...() reading (its word means something else). Does
    // nothing on self-assignment.
    TNAttribute& operator=(const TNAttribute& other) {
        if (this != &other)
            copyValue(other);
        return *this;
    }
    // Assigns a value of the type the slot's kind accepts (enumeration: TNVInt or TNVString;
    // integer: TNVInt; long: TNVLong; real: TNVDouble; string: TNVString; boolean: TNVBoolean).
    // Raises SgxAssertion (unit "TNAttr") on any other value type, leaving the slot unchanged; an
    // unknown literal name raises what TNEnumType::operator[] raises. A checked build also raises
    // (Modify, EnumAttribute, Invalid) as the integer assignment does for an enumeration index
    // (TNVInt) that is not the index of a literal.
    TNAttribute& operator=(const TNValue& value) {
        copyValue(value);
        return *this;
    }
    // Store the integer (its low 32 bits) or 1/0 whatever the kind: the caller assigns what fits.
    // A checked build (tnCheckedBuild()) raises instead, leaving the slot unchanged, when it does
    // not fit: an integer fits the integer and long kinds, an enumeration when it is the index of
    // a literal (else TNException (Modify, EnumAttribute, Invalid) with the class, attribute and
    // enumeration type names) and a boolean when it is 0 or 1; a bool fits the boolean kind only.
    // Any other pairing raises TNException (Modify, AttrDescriptor, Invalid) with the class and
    // attribute names and a line saying what was assigned to what.
    TNAttribute& operator=(long value) noexcept(!checkedAssignments) {
        if constexpr (checkedAssignments)
            checkAssignment(AssignedInteger, static_cast<int32_t>(value));
        setInt(static_cast<int32_t>(value));
        return *this;
    }
    TNAttribute& operator=(int value) noexcept(!checkedAssignments) {
        if constexpr (checkedAssignments)
            checkAssignment(AssignedInteger, value);
        setInt(value);
        return *this;
    }
    TNAttribute& operator=(bool value) noexcept(!checkedAssignments) {
        if constexpr (checkedAssignments)
            checkAssignment(AssignedBoolean, value ? 1 : 0);
        setInt(value ? 1 : 0);
        return *this;
    }
    // Stores a real; 0.0 and -0.0 become the zero word. A checked build raises (Modify,
    // AttrDescriptor, Invalid) as above for a slot of another kind than real.
    TNAttribute& operator=(double value) noexcept(!checkedAssignments) {
        if constexpr (checkedAssignments)
            checkAssignment(AssignedReal, 0);
        m_word = value == 0.0 ? 0 : std::bit_cast<uint64_t>(value);
        return *this;
    }
    // Enumeration: the index the enumeration type gives for the literal name (raising what
    // TNEnumType::operator[] raises). Any other kind: the empty text becomes the zero word, any
    // other text is copied into the temporary region. A checked build raises (Modify,
    // AttrDescriptor, Invalid) as above for a slot that is neither a string nor an enumeration.
    TNAttribute& operator=(const SgxString& text) {
        assignText(text.c_str(), text.size());
        return *this;
    }
    TNAttribute& operator=(const char* text) {
        assignText(text, text ? std::strlen(text) : 0); // a null text reads as the empty text
        return *this;
    }
    // The same for a text whose length the caller knows (no NUL needed, none scanned for).
    TNAttribute& operator=(std::string_view text) {
        assignText(text.data(), text.size());
        return *this;
    }

    // Sets the descriptor and the kind's empty value (0, 0.0, the empty text).
    void initialize(TNAttrDesc& desc) noexcept {
        m_desc = &desc;
        m_word = 0;
    }

    // The value: TNVInt for enumeration (the index), integer and long; TNVDouble; TNVString (the
    // empty text when null); TNVBoolean. Raises SgxAssertion "false" for an unknown kind.
    TNValue value() const;
    // The descriptor (borrowed from its class) and its kind.
    SgxSimplePtr<TNAttrDesc> attrDesc() const { return m_desc; }
    TNAttrType type() const { return m_desc->type(); }

    // Comparisons with a value, by this slot's kind; an unknown kind compares false. Enumeration
    // equality takes an index (TNVInt) or a literal name (TNVString); integer, real, string,
    // boolean and long equality need the matching value type (TNVLong for long) and are false
    // otherwise; reals compare false with NaN. Ordering: enumeration by literal order (an unknown
    // name orders nothing), integer kinds as signed integers against asLongInt() of any value,
    // reals by value, texts byte-wise. Never raise, except "Null dereference" for an enumeration
    // slot without an enumeration type.
    bool operator==(const TNValue& value) const;
    bool operator!=(const TNValue& value) const { return !(*this == value); }
    bool operator<(const TNValue& value) const;
    // False when the kinds differ or are unknown; otherwise the stored values compare equal
    // (reals by value, NaN unequal; texts byte-wise, null reading as the empty text).
    bool operator==(const TNAttribute& other) const;

    // Conversions by kind. Reals truncate toward zero (a NaN or out-of-range real as TNValue
    // does); texts are read as atol/atof read them and are true only when exactly "true";
    // enumerations give their literal name as text (raising what TNEnumType raises for a bad
    // index); reals render "0.0" when zero and "%f" otherwise; integers "%d"; truth values
    // "true"/"false"; an unknown kind gives 0, 0.0, false and the empty text.
    // The text of a string slot where it lies (the empty text when null), valid until the
    // schema is unpopulated; null for the other kinds. For readers that compare texts without
    // copying them.
    const char* textInPlace() const { return type() == TNAttrString ? text() : nullptr; }
    int32_t asLongInt() const { return isIntegerKind(type()) ? intValue() : convertedLongInt(); }
    // asLongInt() of a slot that the caller knows to be of an integer kind (enumeration,
    // integer, boolean, long), without reading its descriptor: for walks over many slots of one
    // descriptor.
    int32_t integerInPlace() const noexcept { return intValue(); }
    bool asBoolean() const;
    double asDouble() const;
    SgxString asString() const;

    // Freezing a slot: nothing is left to do, as texts are placed in the string region when they
    // are assigned and reals are held in the slot.
    void donePopulating() noexcept {}

private:
    // Whether this build checks assignments (see tarnel/core/TNChecked.h).
    static constexpr bool checkedAssignments = TARNEL_CHECKED_BUILD != 0;
    // What a checked assignment was given.
    enum Assigned : uint8_t { AssignedInteger, AssignedBoolean, AssignedReal, AssignedText };
    // Raises what a checked build raises when a value of `given` (an integer or truth value
    // `integer`) does not fit this slot's kind; returns when it does.
    void checkAssignment(Assigned given, int32_t integer) const;
    [[noreturn]] void raiseWrongAssignment(const char* given) const;

    // The kinds held as a 32-bit integer in the slot word.
    static constexpr bool isIntegerKind(TNAttrType kind) noexcept {
        return kind == TNAttrEnumeration || kind == TNAttrInteger || kind == TNAttrBoolean ||
               kind == TNAttrLong;
    }
    void setInt(int32_t value) noexcept { m_word = static_cast<uint32_t>(value); }
    int32_t intValue() const noexcept {
        return static_cast<int32_t>(static_cast<uint32_t>(m_word));
    }
    double realValue() const noexcept { return std::bit_cast<double>(m_word); }
    const char* textOrNull() const noexcept { return reinterpret_cast<const char*>(m_word); }
    const char* text() const noexcept { return m_word == 0 ? "" : textOrNull(); }

    void assignText(const char* text, size_t length) {
        if (m_desc->type() == TNAttrEnumeration) [[unlikely]] {
            assignLiteral(text, length);
        } else {
            if constexpr (checkedAssignments)
                checkAssignment(AssignedText, 0);
            m_word = length == 0 ? 0 : reinterpret_cast<uintptr_t>(placeText(text, length));
        }
    }
    void assignLiteral(const char* text, size_t length);
    // asLongInt() of the kinds that are not integers.
    int32_t convertedLongInt() const;
    void copyValue(const TNAttribute& other);
    void copyValue(const TNValue& value);
    // A copy of `length` bytes of `text` plus a NUL in the string region.
    static const char* copyText(const char* text, size_t length);
    // copyText(), or the copy made for the last text placed through this slot's descriptor when
    // that text was the same: models repeat texts per attribute (a stereotype, boilerplate
    // documentation), and texts in the region never change, so slots may share them. length > 0.
    const char* placeText(const char* text, size_t length) const;

    // One of: a 32-bit integer (low half), the bits of a double, a text pointer; 0 reads as 0,
    // 0.0 and the empty text alike.
    uint64_t m_word;
    SgxSimplePtr<TNAttrDesc> m_desc;
};
