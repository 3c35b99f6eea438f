// TNQuerySyntax.h: what the query compiler and printer share (internal to the library): the
// binary operators with their precedence, keywords, identifiers, error building and the
// nearest-name search of error messages.
#pragma once

#include "sgx/general/SgxString.h"
#include "tarnel/core/TNAttrType.h"
#include "tarnel/core/TNValue.h"
#include "tarnel/expressions/TNScalarExpr.h"

#include <string_view>
#include <vector>

namespace tn_query {

// Precedence levels, loosest first: let (and lambda bodies and arguments), the binary levels
// 0 to maxBinaryLevel, unary operators, then postfix operations and primaries.
inline constexpr int letLevel = -1;
inline constexpr int compareLevel = 3;
inline constexpr int maxBinaryLevel = 5;
inline constexpr int unaryLevel = 6;
inline constexpr int postfixLevel = 7;

// One binary operator: its text, its level and the node operator it makes (one of the three).
// Every level is left-associative except comparisons, which do not chain.
struct BinaryOperator {
    std::string_view text;
    int level;
    TNRelationalExpr::TNRelOp relOp;
    TNBooleanExpr::TNLogOp logOp;
    TNArithmeticExpr::TNArithOp arithOp;
};
inline constexpr TNRelationalExpr::TNRelOp noRel{};
inline constexpr TNBooleanExpr::TNLogOp noLog{};
inline constexpr TNArithmeticExpr::TNArithOp noArith{};
inline constexpr BinaryOperator binaryOperators[] = {
    {"implies", 0, noRel, TNBooleanExpr::TNImplies, noArith},
    {"or", 1, noRel, TNBooleanExpr::TNOr, noArith},
    {"and", 2, noRel, TNBooleanExpr::TNAnd, noArith},
    {"=", 3, TNRelationalExpr::TNEqual, noLog, noArith},
    {"<>", 3, TNRelationalExpr::TNNotEqual, noLog, noArith},
    {"<", 3, TNRelationalExpr::TNLess, noLog, noArith},
    {">", 3, TNRelationalExpr::TNGreater, noLog, noArith},
    {"<=", 3, TNRelationalExpr::TNLessEqual, noLog, noArith},
    {">=", 3, TNRelationalExpr::TNGreaterEqual, noLog, noArith},
    {"+", 4, noRel, noLog, TNArithmeticExpr::TNPlus},
    {"-", 4, noRel, noLog, TNArithmeticExpr::TNMinus},
    {"*", 5, noRel, noLog, TNArithmeticExpr::TNTimes},
    {"/", 5, noRel, noLog, TNArithmeticExpr::TNDivide},
};

// Words that cannot name a variable or a class at the start of an expression (after '.' and
// '->' any name is a member).
bool isKeyword(std::string_view word);
inline bool isIdentStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
inline bool isIdentChar(char c) { return isIdentStart(c) || (c >= '0' && c <= '9'); }
// Whether `name` can be written as a bare name.
bool isIdentifier(std::string_view name);

// Raises TNQueryError for a position (a byte offset) in the text.
class Failer {
public:
    explicit Failer(std::string_view text) : m_text(text) {}
    [[noreturn]] void operator()(size_t pos, const SgxString& message) const;

private:
    std::string_view m_text;
};

// The name of `known` nearest to `name` by edit distance, when it is close enough to be a
// likely typing error (at most a third of the name's length, at least one edit); null otherwise.
const SgxString* nearestName(std::string_view name, const std::vector<SgxString>& known);

// The value type an attribute of `kind` reads as through TNAttrExpr.
TNValueType attrValueType(TNAttrType kind);

// A text as a quoted literal of the language.
SgxString quoteText(std::string_view text);

} // namespace tn_query
