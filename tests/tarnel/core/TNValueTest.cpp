#include "tarnel/core/TNValue.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

template <class V, class Arg>
concept SetTypeAccepts = requires(V v, Arg a) {
    v.setType(a);
};

// Integers must name their kind: neither overload takes a plain integer, so no call can pick one
// of the two by an integral conversion the caller did not mean.
static_assert(!SetTypeAccepts<TNValue, int>);
static_assert(!SetTypeAccepts<TNValue, unsigned>);
static_assert(SetTypeAccepts<TNValue, TNValueType>);
static_assert(SetTypeAccepts<TNValue, TNAttrType>);
// A type tag is never silently taken for a value.
static_assert(!std::is_convertible_v<TNValueType, TNValue>);
// One tag and one payload word: the per-value cost the hot paths rely on.
static_assert(sizeof(TNValue) == 16);

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

struct Conversion {
    TNValue value;
    int32_t asLong;
    double asDouble;
    const char* asString;
    bool asBoolean;
};

void expectConversions(const std::vector<Conversion>& rows) {
    for (const Conversion& row : rows) {
        SCOPED_TRACE("value of type " + std::to_string(row.value.myType()) + " reading \"" +
                     row.value.asString() + "\"");
        EXPECT_EQ(row.value.asLongInt(), row.asLong);
        if (std::isnan(row.asDouble))
            EXPECT_TRUE(std::isnan(row.value.asDouble()));
        else
            EXPECT_DOUBLE_EQ(row.value.asDouble(), row.asDouble);
        EXPECT_EQ(row.value.asString(), row.asString);
        EXPECT_EQ(row.value.asBoolean(), row.asBoolean);
        EXPECT_EQ(!row.value, !row.asBoolean);
    }
}

} // namespace

TEST(TNValue, DefaultIsNoneAndSortsBeforeEverythingButEqualsNothing) {
    TNValue none;
    EXPECT_EQ(none.myType(), TNVNone);
    EXPECT_EQ(none.text(), nullptr);
    EXPECT_FALSE(none == none);
    EXPECT_FALSE(none == TNValue(0));
    EXPECT_TRUE(none < none);
    EXPECT_TRUE(none < TNValue(INT32_MIN));
    // A None on the right reads as 0 for an integer on the left.
    EXPECT_FALSE(TNValue(1) < none);
    EXPECT_TRUE(TNValue(-1) < none);

    TNValue tagOnly(TNVLong);
    EXPECT_EQ(TNValue(tagOnly).myType(), TNVLong);
    EXPECT_FALSE(tagOnly == TNValue(0));
    EXPECT_FALSE(tagOnly < TNValue(1));
}

TEST(TNValue, ConversionsOfEachType) {
    expectConversions({
        {TNValue(), 0, 0.0, "", false},
        {TNValue(TNVLong), 0, 0.0, "", false},
        {TNValue(TNVInt), 0, 0.0, "0", false},
        {TNValue(TNVDouble), 0, 0.0, "0.000000", false},
        {TNValue(TNVBoolean), 0, 0.0, "false", false},
        {TNValue(7), 7, 7.0, "7", true},
        {TNValue(INT32_MIN), INT32_MIN, -2147483648.0, "-2147483648", true},
        {TNValue(true), 1, 1.0, "true", true},
        {TNValue(false), 0, 0.0, "false", false},
        {TNValue("  -12abc"), -12, -12.0, "  -12abc", false},
        {TNValue("\t\n+7"), 7, 7.0, "\t\n+7", false},
        {TNValue("abc"), 0, 0.0, "abc", false},
        {TNValue("1e3"), 1, 1000.0, "1e3", false},
        // Reading a text saturates to the 32-bit range instead of wrapping.
        {TNValue("2147483648"), INT32_MAX, 2147483648.0, "2147483648", false},
        {TNValue("-99999999999999999999"), INT32_MIN, -1e20, "-99999999999999999999", false},
        // 2^64 + 1: digits beyond any 64-bit accumulator must not wrap around to 1.
        {TNValue("18446744073709551617"), INT32_MAX, 18446744073709551617.0, "18446744073709551617",
         false},
        {TNValue("true"), 0, 0.0, "true", true},
        {TNValue("True"), 0, 0.0, "True", false},
        {TNValue("1"), 1, 1.0, "1", false},
    });
}

TEST(TNValue, DoublesTruncateTowardZeroKeepingLow32Bits) {
    expectConversions({
        {TNValue(2.9), 2, 2.9, "2.900000", true},
        {TNValue(-2.9), -2, -2.9, "-2.900000", true},
        {TNValue(0.9), 0, 0.9, "0.900000", false},
        {TNValue(-0.5), 0, -0.5, "-0.500000", false},
        {TNValue(-2147483648.5), INT32_MIN, -2147483648.5, "-2147483648.500000", true},
        {TNValue(2147483648.0), INT32_MIN, 2147483648.0, "2147483648.000000", true},
        {TNValue(-2147483649.0), INT32_MAX, -2147483649.0, "-2147483649.000000", true},
        {TNValue(3e9), -1294967296, 3e9, "3000000000.000000", true},
        // The low 32 bits of 2^32 are zero, so this value is false.
        {TNValue(4294967296.0), 0, 4294967296.0, "4294967296.000000", false},
        {TNValue(-1e20), -1661992960, -1e20, "-100000000000000000000.000000", true},
        // 2^63 + 2^11 is beyond every 64-bit integer; its residue modulo 2^32 is still defined.
        {TNValue(9223372036854777856.0), 2048, 9223372036854777856.0, "9223372036854777856.000000",
         true},
        {TNValue(kNaN), 0, kNaN, "nan", false},
        {TNValue(-kInf), 0, -kInf, "-inf", false},
    });
    // The fixed form of the largest doubles runs to 316 and 317 characters; a short buffer would
    // cut them.
    SgxString big = TNValue(1e308).asString();
    EXPECT_EQ(big.size(), 316u);
    EXPECT_EQ(big.substr(0, 25), "1000000000000000010979063");
    EXPECT_EQ(big.substr(big.size() - 7), ".000000");
    EXPECT_EQ(TNValue(-DBL_MAX).asString().size(), 317u);
}

TEST(TNValue, LongKeepsLow32Bits) {
    EXPECT_EQ(TNValue(5000000000L).myType(), TNVInt);
    EXPECT_EQ(TNValue(5000000000L).asLongInt(), 705032704);
    EXPECT_EQ(TNValue(0x1FFFFFFFFL).asLongInt(), -1);
    EXPECT_EQ(TNValue(0x80000000L).asLongInt(), INT32_MIN);
    EXPECT_EQ(TNValue(std::numeric_limits<long>::min()).asLongInt(), 0);
}

TEST(TNValue, ComparisonsAreDecidedByTheLeftOperand) {
    struct Row {
        TNValue left;
        TNValue right;
        bool equal;
        bool less;
    };
    const Row rows[] = {
        // Text on the left compares texts; a number on the left compares numbers.
        {TNValue("10"), TNValue(10), true, false},
        {TNValue(10), TNValue("10abc"), true, false},
        {TNValue("10abc"), TNValue(10), false, false},
        {TNValue("10"), TNValue(9), false, true},
        {TNValue(10), TNValue("9"), false, false},
        {TNValue(1.0), TNValue("1"), true, false},
        {TNValue("1"), TNValue(1.0), false, true},
        {TNValue(2.9), TNValue(2), false, false},
        {TNValue(2), TNValue(2.9), true, false},
        {TNValue(1.5), TNValue("2"), false, true},
        // Truth values compare by asBoolean() for equality, by their 0 or 1 for order.
        {TNValue(true), TNValue(5), true, true},
        {TNValue(5), TNValue(true), false, false},
        {TNValue(false), TNValue(0.5), true, false},
        {TNValue("true"), TNValue(true), true, false},
        {TNValue(true), TNValue("yes"), false, false},
        // Byte order: upper case before lower case, bytes above 0x7F after ASCII.
        {TNValue("abc"), TNValue("ABC"), false, false},
        {TNValue("B"), TNValue("a"), false, true},
        {TNValue("ab"), TNValue("abc"), false, true},
        {TNValue("\xC3\xA9"), TNValue("z"), false, false},
        {TNValue("z"), TNValue("\xC3\xA9"), false, true},
        {TNValue(""), TNValue(), true, false},
        {TNValue(kNaN), TNValue(kNaN), false, false},
        {TNValue(1.0), TNValue(kNaN), false, false},
        {TNValue(kNaN), TNValue(1.0), false, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE("\"" + row.left.asString() + "\" against \"" + row.right.asString() + "\"");
        EXPECT_EQ(row.left == row.right, row.equal);
        EXPECT_EQ(row.left < row.right, row.less);
    }
}

TEST(TNValue, SetTypeConvertsByTheAsRules) {
    struct Row {
        TNValue start;
        TNValueType to;
        TNValueType type;
        const char* text;
    };
    const Row rows[] = {
        {TNValue(3), TNVString, TNVString, "3"},
        {TNValue("3.7"), TNVDouble, TNVDouble, "3.700000"},
        {TNValue(2.9), TNVInt, TNVInt, "2"},
        {TNValue(0.9), TNVBoolean, TNVBoolean, "false"},
        {TNValue(), TNVString, TNVString, ""},
        // None, Long and unknown tags are not conversions: the value stays as it is.
        {TNValue(7), TNVNone, TNVInt, "7"},
        {TNValue("x"), TNVLong, TNVString, "x"},
        {TNValue(2.5), static_cast<TNValueType>(17), TNVDouble, "2.500000"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE("\"" + row.start.asString() + "\" to type " + std::to_string(row.to));
        TNValue v = row.start;
        v.setType(row.to);
        EXPECT_EQ(v.myType(), row.type);
        EXPECT_EQ(v.asString(), row.text);
    }

    struct KindRow {
        TNAttrType kind;
        TNValueType type;
        const char* text;
    };
    const KindRow kinds[] = {
        {TNAttrEnumeration, TNVInt, "2"},           {TNAttrInteger, TNVInt, "2"},
        {TNAttrReal, TNVDouble, "2.700000"},        {TNAttrString, TNVString, "2.7"},
        {TNAttrBoolean, TNVBoolean, "false"},       {TNAttrLong, TNVString, "2.7"},
        {static_cast<TNAttrType>(99), TNVInt, "2"},
    };
    for (const KindRow& row : kinds) {
        SCOPED_TRACE("attribute kind " + std::to_string(row.kind));
        TNValue v("2.7");
        v.setType(row.kind);
        EXPECT_EQ(v.myType(), row.type);
        EXPECT_EQ(v.asString(), row.text);
    }

    // Converting to the type already held is a no-op, not a rebuild.
    TNValue text("keep");
    const char* before = text.text();
    text.setType(TNVString);
    EXPECT_EQ(text.text(), before);
}

TEST(TNValue, EmptyTextsShareOneConstantAndOthersAreCopied) {
    const char* shared = TNValue("").text();
    ASSERT_NE(shared, nullptr);
    EXPECT_EQ(TNValue(static_cast<const char*>(nullptr)).text(), shared);
    EXPECT_EQ(TNValue(SgxString()).text(), shared);
    EXPECT_EQ(TNValue(TNVString).text(), shared);

    // Copies, assignments and destruction of many empty values never allocate or free it
    // (freeing a constant would also be caught by the address sanitizer).
    std::vector<TNValue> many(1000, TNValue(""));
    for (const TNValue& v : many)
        ASSERT_EQ(v.text(), shared);
    TNValue assigned("not empty");
    assigned = many.front();
    EXPECT_EQ(assigned.text(), shared);
    many.clear();

    TNValue original("model");
    TNValue copy(original);
    assigned = original;
    EXPECT_NE(copy.text(), original.text());
    EXPECT_NE(assigned.text(), original.text());
    original = TNValue(1.5);
    EXPECT_EQ(copy.asString(), "model");
    EXPECT_EQ(assigned.asString(), "model");

    // Texts are kept NUL-terminated, so an embedded NUL ends them.
    EXPECT_EQ(TNValue(SgxString("ab\0cd", 5)).asString(), "ab");
}

TEST(TNValue, SelfAssignmentAndMovesKeepPayloads) {
    TNValue v("payload");
    const char* text = v.text();
    TNValue& alias = v;
    v = alias;
    EXPECT_EQ(v.text(), text);
    v = std::move(alias);
    EXPECT_EQ(v.text(), text);
    EXPECT_EQ(v.asString(), "payload");

    // A move hands the text over; the source stays a string, now empty.
    TNValue moved(std::move(v));
    EXPECT_EQ(moved.text(), text);
    EXPECT_EQ(v.myType(), TNVString);
    EXPECT_EQ(v.text(), TNValue("").text());
    TNValue target(3.25);
    target = std::move(moved);
    EXPECT_EQ(target.text(), text);
    EXPECT_EQ(moved.asString(), "");
}
