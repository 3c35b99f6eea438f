#include "tarnel/core/TNValue.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <limits>
#include <tuple>
#include <type_traits>
#include <utility>

namespace {

template <class V, class Arg>
concept SetTypeAccepts = requires(V v, Arg a) {
    v.setType(a);
};

// Integers must name their kind: neither setType overload takes a plain integer, so no call can
// pick one of the two by an integral conversion the caller did not mean.
static_assert(!SetTypeAccepts<TNValue, int> && !SetTypeAccepts<TNValue, unsigned>);
static_assert(SetTypeAccepts<TNValue, TNValueType> && SetTypeAccepts<TNValue, TNAttrType>);
// A type tag is never silently taken for a value.
static_assert(!std::is_convertible_v<TNValueType, TNValue>);
// One tag and one payload word: the per-value cost the hot paths rely on.
static_assert(sizeof(TNValue) == 16);

const double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kInf = std::numeric_limits<double>::infinity();

} // namespace

TEST(TNValue, DefaultIsNoneAndSortsBeforeEverythingButEqualsNothing) {
    TNValue none;
    EXPECT_EQ(none.myType(), TNVNone);
    EXPECT_EQ(none.text(), nullptr);
    EXPECT_FALSE(none == none || none == TNValue(0));
    EXPECT_TRUE(none < none && none < TNValue(INT32_MIN));
    // A None on the right reads as 0 for an integer on the left.
    EXPECT_FALSE(TNValue(1) < none);
    EXPECT_TRUE(TNValue(-1) < none);
    TNValue tagOnly(TNVLong);
    EXPECT_EQ(TNValue(tagOnly).myType(), TNVLong);
    EXPECT_FALSE(tagOnly == TNValue(0) || tagOnly < TNValue(1));
}

TEST(TNValue, ConversionsOfEachType) {
    struct Row {
        TNValue value;
        int32_t asLong;
        double asDouble;
        const char* asString;
        bool asBoolean;
    };
    using V = TNValue;
    // clang-format off
    const Row rows[] = {
        {V(), 0, 0.0, "", false}, {V(TNVLong), 0, 0.0, "", false}, {V(TNVInt), 0, 0.0, "0", false},
        {V(TNVDouble), 0, 0.0, "0.000000", false}, {V(TNVBoolean), 0, 0.0, "false", false},
        {V(7), 7, 7.0, "7", true}, {V(INT32_MIN), INT32_MIN, -2147483648.0, "-2147483648", true},
        {V(true), 1, 1.0, "true", true}, {V(false), 0, 0.0, "false", false},
        // A long keeps its low 32 bits.
        {V(5000000000L), 705032704, 705032704.0, "705032704", true},
        {V(0x1FFFFFFFFL), -1, -1.0, "-1", true}, {V(LONG_MIN), 0, 0.0, "0", false},
        // Texts read as C reads numbers; saturated to the 32-bit range, even past 2^64.
        {V("  -12abc"), -12, -12.0, "  -12abc", false}, {V("\t\n+7"), 7, 7.0, "\t\n+7", false},
        {V("abc"), 0, 0.0, "abc", false}, {V("1e3"), 1, 1000.0, "1e3", false},
        {V("2147483648"), INT32_MAX, 2147483648.0, "2147483648", false},
        {V("-99999999999999999999"), INT32_MIN, -1e20, "-99999999999999999999", false},
        {V("18446744073709551617"), INT32_MAX, 18446744073709551617.0, "18446744073709551617",
         false},
        {V("true"), 0, 0.0, "true", true}, {V("True"), 0, 0.0, "True", false},
        {V("1"), 1, 1.0, "1", false},
        // Doubles truncate toward zero and keep the low 32 bits; NaN and infinities give 0.
        {V(2.9), 2, 2.9, "2.900000", true}, {V(-2.9), -2, -2.9, "-2.900000", true},
        {V(0.9), 0, 0.9, "0.900000", false}, {V(-0.5), 0, -0.5, "-0.500000", false},
        {V(-2147483648.5), INT32_MIN, -2147483648.5, "-2147483648.500000", true},
        {V(2147483648.0), INT32_MIN, 2147483648.0, "2147483648.000000", true},
        {V(-2147483649.0), INT32_MAX, -2147483649.0, "-2147483649.000000", true},
        {V(3e9), -1294967296, 3e9, "3000000000.000000", true},
        {V(4294967296.0), 0, 4294967296.0, "4294967296.000000", false}, // low bits are 0
        {V(-1e20), -1661992960, -1e20, "-100000000000000000000.000000", true},
        // 2^63 + 2^11 is beyond every 64-bit integer; its residue modulo 2^32 is still defined.
        {V(9223372036854777856.0), 2048, 9223372036854777856.0, "9223372036854777856.000000", true},
        {V(kNaN), 0, kNaN, "nan", false}, {V(-kInf), 0, -kInf, "-inf", false},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE("type " + std::to_string(row.value.myType()) + " \"" + row.asString + "\"");
        EXPECT_EQ(row.value.asLongInt(), row.asLong);
        if (std::isnan(row.asDouble))
            EXPECT_TRUE(std::isnan(row.value.asDouble()));
        else
            EXPECT_DOUBLE_EQ(row.value.asDouble(), row.asDouble);
        EXPECT_EQ(row.value.asString(), row.asString);
        SgxString appended = "text longer than any inline buffer: ";
        row.value.appendTo(appended);
        EXPECT_EQ(appended, "text longer than any inline buffer: " + std::string(row.asString));
        EXPECT_EQ(row.value.asBoolean(), row.asBoolean);
        EXPECT_EQ(!row.value, !row.asBoolean);
    }
    // The fixed form of the largest doubles runs to 316 and 317 characters.
    SgxString big = TNValue(1e308).asString();
    EXPECT_EQ(big.size(), 316u);
    EXPECT_EQ(big.substr(0, 25), "1000000000000000010979063");
    EXPECT_EQ(big.substr(big.size() - 7), ".000000");
    EXPECT_EQ(TNValue(-DBL_MAX).asString().size(), 317u);
}

TEST(TNValue, ComparisonsAreDecidedByTheLeftOperand) {
    struct Row {
        TNValue left, right;
        bool equal, less;
    };
    using V = TNValue;
    // clang-format off
    const Row rows[] = {
        // Text on the left compares texts; a number on the left compares numbers.
        {V("10"), V(10), true, false}, {V(10), V("10abc"), true, false},
        {V("10abc"), V(10), false, false}, {V("10"), V(9), false, true},
        {V(10), V("9"), false, false}, {V(1.0), V("1"), true, false}, {V("1"), V(1.0), false, true},
        {V(2.9), V(2), false, false}, {V(2), V(2.9), true, false}, {V(1.5), V("2"), false, true},
        // Truth values compare by asBoolean() for equality, by their 0 or 1 for order.
        {V(true), V(5), true, true}, {V(5), V(true), false, false},
        {V(false), V(0.5), true, false}, {V("true"), V(true), true, false},
        {V(true), V("yes"), false, false},
        // Byte order: upper case before lower case, bytes above 0x7F after ASCII; NaN is unordered.
        {V("abc"), V("ABC"), false, false}, {V("B"), V("a"), false, true},
        {V("ab"), V("abc"), false, true}, {V("\xC3\xA9"), V("z"), false, false},
        {V("z"), V("\xC3\xA9"), false, true}, {V(""), V(), true, false},
        {V(kNaN), V(kNaN), false, false}, {V(1.0), V(kNaN), false, false},
        {V(kNaN), V(1.0), false, false},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE("\"" + row.left.asString() + "\" against \"" + row.right.asString() + "\"");
        EXPECT_EQ(row.left == row.right, row.equal);
        EXPECT_EQ(row.left < row.right, row.less);
    }
}

TEST(TNValue, SetTypeConvertsByTheAsRules) {
    const std::tuple<TNValue, TNValueType, TNValueType, const char*> rows[] = {
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
    for (auto [v, to, type, text] : rows) {
        SCOPED_TRACE("\"" + v.asString() + "\" to type " + std::to_string(to));
        v.setType(to);
        EXPECT_EQ(v.myType(), type);
        EXPECT_EQ(v.asString(), text);
    }
    const std::tuple<TNAttrType, TNValueType, const char*> kinds[] = {
        {TNAttrEnumeration, TNVInt, "2"},           {TNAttrInteger, TNVInt, "2"},
        {TNAttrReal, TNVDouble, "2.700000"},        {TNAttrString, TNVString, "2.7"},
        {TNAttrBoolean, TNVBoolean, "false"},       {TNAttrLong, TNVString, "2.7"},
        {static_cast<TNAttrType>(99), TNVInt, "2"},
    };
    for (const auto& [kind, type, text] : kinds) {
        SCOPED_TRACE("attribute kind " + std::to_string(kind));
        TNValue v("2.7");
        v.setType(kind);
        EXPECT_EQ(v.myType(), type);
        EXPECT_EQ(v.asString(), text);
    }
    // Converting to the type already held is a no-op, not a rebuild.
    TNValue text("keep");
    const char* before = text.text();
    text.setType(TNVString);
    EXPECT_EQ(text.text(), before);
}

TEST(TNValue, EmptyTextsShareOneConstantAndOthersAreCopiedOrMoved) {
    const char* shared = TNValue("").text();
    ASSERT_NE(shared, nullptr);
    EXPECT_EQ(TNValue(static_cast<const char*>(nullptr)).text(), shared);
    EXPECT_EQ(TNValue(SgxString()).text(), shared);
    EXPECT_EQ(TNValue(TNVString).text(), shared);
    // Copies and assignments of an empty value never allocate or free it (freeing a constant would
    // also be caught by the address sanitizer).
    const TNValue empty("");
    TNValue assigned("not empty");
    assigned = empty;
    EXPECT_EQ(assigned.text(), shared);
    EXPECT_EQ(TNValue(empty).text(), shared);

    TNValue original("model");
    TNValue copy(original);
    assigned = original;
    EXPECT_NE(copy.text(), original.text());
    EXPECT_NE(assigned.text(), original.text());
    original = TNValue(1.5);
    EXPECT_EQ(copy.asString() + assigned.asString(), "modelmodel");
    // Texts are kept NUL-terminated, so an embedded NUL ends them.
    EXPECT_EQ(TNValue(SgxString("ab\0cd", 5)).asString(), "ab");

    // Self-assignment keeps the payload; a move hands the text over and leaves an empty string.
    const char* text = copy.text();
    TNValue& alias = copy;
    copy = alias;
    copy = std::move(alias);
    EXPECT_EQ(copy.text(), text);
    TNValue moved(std::move(copy));
    EXPECT_EQ(moved.text(), text);
    EXPECT_EQ(copy.myType(), TNVString);
    EXPECT_EQ(copy.text(), shared);
    TNValue target(3.25);
    target = std::move(moved);
    EXPECT_EQ(target.text(), text);
    EXPECT_EQ(target.asString(), "model");
    EXPECT_EQ(moved.asString(), "");
}
