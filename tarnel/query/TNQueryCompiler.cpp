// The query compiler: a lexer over the whole text, then a recursive-descent parser (one function
// per precedence level) that checks names and families against the schema as it goes and makes
// the nodes at once. Every node made joins a pool, which frees them all if anything raises; on
// success every node of the pool is reachable from the root, which then owns them.
#include "tarnel/query/TNQuery.h"
#include "tarnel/query/TNQuerySyntax.h"

#include "tarnel/expressions/TNCollectionExpr.h"
#include "tarnel/expressions/TNExtensionExpr.h"
#include "tarnel/expressions/TNQuantifierExpr.h"
#include "tarnel/expressions/TNScalarExpr.h"
#include "tarnel/expressions/TNStringExpr.h"
#include "tarnel/metamodel/TNAttrDesc.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNEnumType.h"
#include "tarnel/metamodel/TNSchema.h"
#include "tarnel/navigation/TNAssociation.h"
#include "tarnel/navigation/TNTraversalParser.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <set>
#include <vector>

using namespace tn_query;

namespace {

// --- Lexer ------------------------------------------------------------------------------------

enum class Tok { Ident, Int, Real, Text, Punct, End };

struct Token {
    Tok kind = Tok::End;
    size_t pos = 0;
    std::string_view text; // the token as written (for Text: with its quotes)
    SgxString value;       // Text: the decoded text
};

// Punctuation, longest first so that "->" is not read as "-".
constexpr std::string_view punctuation[] = {"->", "<>", "<=", ">=", "::", "(", ")", ",", ".",
                                            "|",  "=",  "<",  ">",  "+",  "-", "*", "/"};

class Lexer {
public:
    Lexer(std::string_view text, const Failer& fail) : m_text(text), m_fail(fail) {}

    std::vector<Token> run() {
        std::vector<Token> tokens;
        while (true) {
            skipBlanksAndComments();
            Token token;
            token.pos = m_pos;
            if (m_pos >= m_text.size()) {
                tokens.push_back(token);
                return tokens;
            }
            const char c = m_text[m_pos];
            if (isIdentStart(c)) {
                while (m_pos < m_text.size() && isIdentChar(m_text[m_pos]))
                    ++m_pos;
                token.kind = Tok::Ident;
            } else if (c >= '0' && c <= '9') {
                token.kind = number();
            } else if (c == '\'') {
                token.kind = Tok::Text;
                token.value = text();
            } else {
                token.kind = Tok::Punct;
                for (std::string_view p : punctuation)
                    if (m_text.substr(m_pos, p.size()) == p) {
                        m_pos += p.size();
                        break;
                    }
                if (m_pos == token.pos)
                    m_fail(m_pos, "unexpected character " + describeByte(c));
            }
            token.text = m_text.substr(token.pos, m_pos - token.pos);
            tokens.push_back(std::move(token));
        }
    }

private:
    static SgxString describeByte(char c) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x21 && byte < 0x7f)
            return "'" + SgxString(1, c) + "'";
        static const char hex[] = "0123456789abcdef";
        return SgxString("byte 0x") + hex[byte >> 4] + hex[byte & 15];
    }
    void skipBlanksAndComments() {
        while (m_pos < m_text.size()) {
            const char c = m_text[m_pos];
            if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f') {
                ++m_pos;
            } else if (m_text.substr(m_pos, 2) == "--") { // a comment to the end of the line
                while (m_pos < m_text.size() && m_text[m_pos] != '\n')
                    ++m_pos;
            } else {
                return;
            }
        }
    }
    bool digitAt(size_t pos) const {
        return pos < m_text.size() && m_text[pos] >= '0' && m_text[pos] <= '9';
    }
    void digits() {
        while (digitAt(m_pos))
            ++m_pos;
    }
    // digits ( '.' digits )? ( [eE] [+-]? digits )?; "1.x" is the integer 1 and a '.'.
    Tok number() {
        digits();
        Tok kind = Tok::Int;
        if (m_pos + 1 < m_text.size() && m_text[m_pos] == '.' && digitAt(m_pos + 1)) {
            ++m_pos;
            digits();
            kind = Tok::Real;
        }
        if (m_pos < m_text.size() && (m_text[m_pos] == 'e' || m_text[m_pos] == 'E')) {
            size_t after = m_pos + 1;
            if (after < m_text.size() && (m_text[after] == '+' || m_text[after] == '-'))
                ++after;
            if (!digitAt(after))
                m_fail(m_pos, "expected the digits of an exponent");
            m_pos = after;
            digits();
            kind = Tok::Real;
        }
        if (m_pos < m_text.size() && isIdentStart(m_text[m_pos]))
            m_fail(m_pos, "expected an operator after a number, found a letter");
        return kind;
    }
    // A text in single quotes with the escapes \\ \' \" \n \t \r \f \xHH.
    SgxString text() {
        const size_t start = m_pos++;
        SgxString value;
        while (true) {
            if (m_pos >= m_text.size())
                m_fail(start, "this text has no closing quote");
            const char c = m_text[m_pos];
            if (c == '\'') {
                ++m_pos;
                return value;
            }
            if (c == '\0')
                m_fail(m_pos, "a text cannot hold a NUL byte");
            if (c != '\\') {
                value += c;
                ++m_pos;
                continue;
            }
            const size_t escape = m_pos++;
            const char e = m_pos < m_text.size() ? m_text[m_pos++] : '\0';
            switch (e) {
            case '\\':
            case '\'':
            case '"':
                value += e;
                break;
            case 'n':
                value += '\n';
                break;
            case 't':
                value += '\t';
                break;
            case 'r':
                value += '\r';
                break;
            case 'f':
                value += '\f';
                break;
            case 'x': {
                unsigned byte = 0;
                const char* first = m_text.data() + m_pos;
                const char* last = m_text.data() + std::min(m_pos + 2, m_text.size());
                const auto [end, ec] = std::from_chars(first, last, byte, 16);
                if (ec != std::errc() || end != first + 2 || byte == 0)
                    m_fail(escape, "expected two hexadecimal digits, not 00, after \\x");
                m_pos += 2;
                value += static_cast<char>(byte);
                break;
            }
            default:
                m_fail(escape, "unknown escape in a text (known: \\\\ \\' \\\" \\n \\t \\r \\f "
                               "\\xHH)");
            }
        }
    }

    std::string_view m_text;
    const Failer& m_fail;
    size_t m_pos = 0;
};

// --- Typed expressions ---------------------------------------------------------------------------

enum Fam { V, O, C, S };

// A compiled subexpression: its node, its family and what is known of it statically.
struct Expr {
    Fam fam = V;
    TNValueExpr* v = nullptr;
    TNObjectExpr* o = nullptr;
    TNObjectCollectionExpr* c = nullptr;
    TNStringCollectionExpr* s = nullptr;
    const TNClass* cls = nullptr;             // O, C: the class of the objects, when known
    const TNEnumType* enumType = nullptr;     // V: a literal name of this enumeration
    TNValueType type = TNVNone;               // V: the value type, when known
    TNAttrExpr* attr = nullptr;               // V: an attribute read made here (for index())
    const TNConstantExpr* constant = nullptr; // V: a constant written here
    size_t pos = 0;
    size_t height = 1;
};

const char* famName(Fam fam) { return tnQueryFamilyName(static_cast<TNQueryFamily>(fam)); }

// The nodes of one family, for the framework nodes that exist in all four.
template <class Family> struct FamilyNodes;
template <> struct FamilyNodes<TNValueExpr> {
    using If = TNIfValueExpr;
    using Let = TNLetValueExpr;
    using Binding = TNValueBindingExpr;
};
template <> struct FamilyNodes<TNObjectExpr> {
    using If = TNIfObjectExpr;
    using Let = TNLetObjectExpr;
    using Binding = TNObjectBindingExpr;
};
template <> struct FamilyNodes<TNObjectCollectionExpr> {
    using If = TNIfObjectCollectionExpr;
    using Let = TNLetObjectCollectionExpr;
    using Binding = TNObjectCollectionBindingExpr;
};
template <> struct FamilyNodes<TNStringCollectionExpr> {
    using If = TNIfStringCollectionExpr;
    using Let = TNLetStringCollectionExpr;
    using Binding = TNStringCollectionBindingExpr;
};

template <class Family> Family* nodeOf(const Expr& e) {
    if constexpr (std::is_same_v<Family, TNValueExpr>)
        return e.v;
    else if constexpr (std::is_same_v<Family, TNObjectExpr>)
        return e.o;
    else if constexpr (std::is_same_v<Family, TNObjectCollectionExpr>)
        return e.c;
    else
        return e.s;
}

// Calls fn.template operator()<Family>() for the family of `fam`.
template <class Fn> decltype(auto) byFamily(Fam fam, Fn&& fn) {
    switch (fam) {
    case V:
        return fn.template operator()<TNValueExpr>();
    case O:
        return fn.template operator()<TNObjectExpr>();
    case C:
        return fn.template operator()<TNObjectCollectionExpr>();
    case S:
        break;
    }
    return fn.template operator()<TNStringCollectionExpr>();
}

// The value types that convert(...) names.
constexpr std::pair<std::string_view, TNValueType> valueTypeNames[] = {
    {"None", TNVNone},     {"Integer", TNVInt},     {"Real", TNVDouble},
    {"String", TNVString}, {"Boolean", TNVBoolean}, {"Long", TNVLong}};

constexpr std::pair<std::string_view, TNAggregateExpr::TNAggregateOp> aggregateNames[] = {
    {"sum", TNAggregateExpr::TNSum},
    {"min", TNAggregateExpr::TNMin},
    {"max", TNAggregateExpr::TNMax},
    {"average", TNAggregateExpr::TNAverage}};

// A name in scope: a lambda's variable or a let's binding.
struct Scoped {
    std::string_view name;
    TNObjectVarExpr* variable = nullptr; // a lambda variable, or null for a binding
    Expr bound;                          // the binding, or what is known of the variable
    size_t uses = 0;
};

class Compiler {
public:
    Compiler(const TNSchema& schema, std::string_view text, const TNQueryLimits& limits)
        : m_schema(schema), m_text(text), m_limits(limits), m_fail(text) {}
    Compiler(const Compiler&) = delete;
    Compiler& operator=(const Compiler&) = delete;

    // Compiles the text. Every node made stays in the pool (freed with the compiler) until
    // release().
    Expr run() {
        if (m_text.size() > m_limits.maxTextBytes)
            m_fail(0, "the query is " + std::to_string(m_text.size()) +
                          " bytes long; the limit is " + std::to_string(m_limits.maxTextBytes));
        m_tokens = Lexer(m_text, m_fail).run();
        Expr e = expr();
        if (peek().kind != Tok::End)
            expected("an operator or the end of the query");
        return e;
    }
    TNObjectVarExpr* input() const { return m_self; }
    // Gives up the nodes: the caller's graph owns them through the root, from which every node
    // made is reachable.
    void release() { m_pool.releaseAll(); }

private:
    // --- Tokens ------------------------------------------------------------------------------
    const Token& peek(size_t ahead = 0) const {
        return m_tokens[std::min(m_next + ahead, m_tokens.size() - 1)];
    }
    const Token& take() {
        const Token& token = peek();
        if (m_next < m_tokens.size() - 1)
            ++m_next;
        return token;
    }
    static bool is(const Token& token, std::string_view text) {
        return (token.kind == Tok::Punct || token.kind == Tok::Ident) && token.text == text;
    }
    bool accept(std::string_view text) {
        if (!is(peek(), text))
            return false;
        take();
        return true;
    }
    static SgxString describe(const Token& token) {
        switch (token.kind) {
        case Tok::End:
            return "the end of the query";
        case Tok::Text:
            return "a text";
        case Tok::Int:
        case Tok::Real:
            return "the number " + SgxString(token.text.substr(0, 40));
        default:
            return "'" + SgxString(token.text.substr(0, 40)) + "'";
        }
    }
    [[noreturn]] void expected(const SgxString& what) const {
        m_fail(peek().pos, "expected " + what + ", found " + describe(peek()));
    }
    void expect(std::string_view text) {
        if (!accept(text))
            expected("'" + SgxString(text) + "'");
    }
    std::string_view name(const char* what) {
        if (peek().kind != Tok::Ident)
            expected(what);
        return take().text;
    }
    // A name that a lambda or a let introduces.
    std::string_view newName(const char* what) {
        const size_t pos = peek().pos;
        const std::string_view n = name(what);
        if (isKeyword(n))
            m_fail(pos, "'" + SgxString(n) + "' is a keyword, not a name");
        return n;
    }

    // --- Limits ------------------------------------------------------------------------------
    // One construct inside another; raises beyond maxNesting, before recursing further.
    class Nest {
    public:
        explicit Nest(Compiler& c) : m_compiler(c) {
            if (++m_compiler.m_nesting > m_compiler.m_limits.maxNesting)
                m_compiler.m_fail(m_compiler.peek().pos,
                                  "constructs nest more than " +
                                      std::to_string(m_compiler.m_limits.maxNesting) +
                                      " deep here");
        }
        ~Nest() { --m_compiler.m_nesting; }
        Nest(const Nest&) = delete;
        Nest& operator=(const Nest&) = delete;

    private:
        Compiler& m_compiler;
    };

    // --- Nodes -------------------------------------------------------------------------------
    // `node`, adopted by the pool, as an Expr of its family at `pos` over `operands`.
    template <class Node>
    Expr made(Node* node, size_t pos, std::initializer_list<const Expr*> operands) {
        m_pool.adopt(node);
        Expr e;
        e.pos = pos;
        for (const Expr* operand : operands)
            e.height = std::max(e.height, operand->height + 1);
        if (e.height > m_limits.maxGraphHeight)
            m_fail(pos, "the query's graph would be more than " +
                            std::to_string(m_limits.maxGraphHeight) + " nodes high");
        if constexpr (std::is_base_of_v<TNValueExpr, Node>) {
            e.fam = V;
            e.v = node;
        } else if constexpr (std::is_base_of_v<TNObjectExpr, Node>) {
            e.fam = O;
            e.o = node;
        } else if constexpr (std::is_base_of_v<TNObjectCollectionExpr, Node>) {
            e.fam = C;
            e.c = node;
        } else {
            e.fam = S;
            e.s = node;
        }
        return e;
    }
    template <class Node> Node* adopt(Node* node) { return m_pool.adopt(node); }

    void need(const Expr& e, Fam fam, const SgxString& where = SgxString()) const {
        if (e.fam != fam)
            m_fail(e.pos,
                   SgxString("expected ") + famName(fam) + where + ", found " + famName(e.fam));
    }
    // `self`: the variable is made on first use (a query that never uses it has none).
    Expr selfExpr(size_t pos) {
        if (m_self == nullptr)
            m_self = new TNObjectVarExpr;
        return made(m_self, pos, {}); // adopting twice is harmless: it is freed once
    }

    // --- Names -------------------------------------------------------------------------------
    // The classes an object of static class `cls` may be: that class, or every class.
    std::vector<const TNClass*> candidates(const TNClass* cls) const {
        if (cls != nullptr)
            return {cls};
        std::vector<const TNClass*> all;
        for (const SgxSimplePtr<TNClass>& c : m_schema.classes())
            all.push_back(c.get());
        return all;
    }
    static SgxString ofClass(const TNClass* cls) {
        return cls != nullptr ? " of class " + cls->name() : SgxString(" of any class");
    }
    [[noreturn]] void unknown(size_t pos, const char* what, std::string_view n,
                              const SgxString& where, const std::vector<SgxString>& known) const {
        SgxString message = SgxString("unknown ") + what + " '" + SgxString(n) + "'" + where;
        if (const SgxString* near = nearestName(n, known))
            message += "; did you mean '" + *near + "'?";
        m_fail(pos, message);
    }
    const TNClass* classNamed(std::string_view n, size_t pos) const {
        if (const SgxSimplePtr<TNClass> cls = m_schema.findClass(n))
            return cls.get();
        std::vector<SgxString> known;
        for (const SgxSimplePtr<TNClass>& c : m_schema.classes())
            known.push_back(c->name());
        unknown(pos, "class", n, "", known);
    }
    const TNAttrDesc* attributeNamed(const TNClass* cls, std::string_view n) const {
        const int32_t index = cls->findAttrIndex(n);
        return index >= 0 && static_cast<size_t>(index) < cls->attrCount() ? &(*cls)[n] : nullptr;
    }
    void checkLiteral(const TNEnumType& type, const Expr& constant) const {
        const char* text = constant.constant->constant().text();
        if (text == nullptr || type.check(std::string_view(text)))
            return;
        unknown(constant.pos, "literal", text, " of enumeration " + type.name(), type.values());
    }

    // --- Grammar -----------------------------------------------------------------------------
    // expr := 'let' NAME '=' expr 'in' expr | binary
    Expr expr() {
        Nest nest(*this);
        if (!is(peek(), "let"))
            return binary(0);
        const size_t pos = take().pos;
        const size_t namePos = peek().pos;
        const std::string_view n = newName("a name after 'let'");
        expect("=");
        const Expr bound = expr();
        expect("in");
        TNCachedExpr* cached = nullptr;
        Expr binding = byFamily(bound.fam, [&]<class Family>() {
            auto* node = new typename FamilyNodes<Family>::Binding(nodeOf<Family>(bound));
            cached = node;
            Expr b = made(node, bound.pos, {&bound});
            b.cls = bound.cls;
            b.enumType = bound.enumType;
            b.type = bound.type;
            return b;
        });
        m_scope.push_back({n, nullptr, binding, 0});
        const Expr body = expr();
        if (m_scope.back().uses == 0)
            m_fail(namePos, "'" + SgxString(n) + "' is never used after 'in'");
        m_scope.pop_back();
        return byFamily(body.fam, [&]<class Family>() {
            using Let = typename FamilyNodes<Family>::Let;
            Expr e = made(new Let(SgxSimplePtr<TNCachedExpr>(cached), nodeOf<Family>(body)), pos,
                          {&body, &binding});
            e.cls = body.cls;
            e.enumType = body.enumType;
            e.type = body.type;
            return e;
        });
    }

    // The binary levels, loosest first (binaryOperators).
    Expr binary(int level) {
        if (level > maxBinaryLevel)
            return unary();
        Expr lhs = binary(level + 1);
        while (const BinaryOperator* op = findBinary(peek(), level)) {
            const size_t pos = take().pos;
            const Expr rhs = binary(level + 1);
            lhs = applyBinary(*op, pos, lhs, rhs);
            if (level == compareLevel && findBinary(peek(), level) != nullptr)
                m_fail(peek().pos, "comparisons do not chain; add parentheses");
        }
        return lhs;
    }
    static const BinaryOperator* findBinary(const Token& token, int level) {
        if (token.kind != Tok::Punct && token.kind != Tok::Ident)
            return nullptr;
        for (const BinaryOperator& op : binaryOperators)
            if (op.level == level && op.text == token.text)
                return &op;
        return nullptr;
    }

    Expr applyBinary(const BinaryOperator& op, size_t pos, const Expr& lhs, const Expr& rhs) {
        const SgxString after = " after '" + SgxString(op.text) + "'";
        if (op.level == compareLevel && lhs.fam == O) {
            need(rhs, O, after);
            if (op.relOp != TNRelationalExpr::TNEqual && op.relOp != TNRelationalExpr::TNNotEqual)
                m_fail(pos, "objects compare only with '=' and '<>'");
            Expr e = made(new TNObjectEqualityExpr(
                              lhs.o, static_cast<TNObjectEqualityExpr::TNRelOp>(op.relOp), rhs.o),
                          pos, {&lhs, &rhs});
            e.pos = lhs.pos;
            return e;
        }
        if (op.level == compareLevel && lhs.fam == C) {
            need(rhs, C, after);
            TNObjectSetExpr::TNSetOp setOp = TNObjectSetExpr::TNSetEqual;
            switch (op.relOp) {
            case TNRelationalExpr::TNEqual:
                break;
            case TNRelationalExpr::TNNotEqual:
                setOp = TNObjectSetExpr::TNSetNotEqual;
                break;
            case TNRelationalExpr::TNLess:
                setOp = TNObjectSetExpr::TNProperSubset;
                break;
            case TNRelationalExpr::TNLessEqual:
                setOp = TNObjectSetExpr::TNSubset;
                break;
            default:
                m_fail(pos, "collections compare with '=', '<>', '<' (proper subset) and '<=' "
                            "(subset) only");
            }
            Expr e = made(new TNObjectSetExpr(lhs.c, setOp, rhs.c), pos, {&lhs, &rhs});
            e.pos = lhs.pos;
            return e;
        }
        need(lhs, V, " before '" + SgxString(op.text) + "'");
        need(rhs, V, after);
        Expr e;
        if (op.level == compareLevel) {
            if (lhs.enumType != nullptr && rhs.constant != nullptr)
                checkLiteral(*lhs.enumType, rhs);
            if (rhs.enumType != nullptr && lhs.constant != nullptr)
                checkLiteral(*rhs.enumType, lhs);
            e = made(new TNRelationalExpr(lhs.v, op.relOp, rhs.v), pos, {&lhs, &rhs});
            e.type = TNVBoolean;
        } else if (op.logOp != noLog) {
            e = made(new TNBooleanExpr(lhs.v, op.logOp, rhs.v), pos, {&lhs, &rhs});
            e.type = TNVBoolean;
        } else {
            e = made(new TNArithmeticExpr(lhs.v, op.arithOp, rhs.v), pos, {&lhs, &rhs});
            e.type = lhs.type;
        }
        e.pos = lhs.pos;
        return e;
    }

    // unary := 'not' unary | '-' unary | postfix
    Expr unary() {
        const Token& token = peek();
        if (!is(token, "not") && !is(token, "-"))
            return postfix(primary());
        Nest nest(*this);
        take();
        const bool negation = token.text == "-";
        // A minus written straight before a number is part of the constant (so the smallest
        // integer can be written), unless an operation follows the number.
        if (negation && (peek().kind == Tok::Int || peek().kind == Tok::Real) &&
            !is(peek(1), ".") && !is(peek(1), "->"))
            return number(true, token.pos);
        const Expr operand = unary();
        need(operand, V, " after '" + SgxString(token.text) + "'");
        if (negation) {
            Expr e = made(new TNArithmeticExpr(operand.v, TNArithmeticExpr::TNMinus, nullptr),
                          token.pos, {&operand});
            e.type = operand.type;
            return e;
        }
        Expr e = made(new TNBooleanExpr(operand.v, TNBooleanExpr::TNNot, nullptr), token.pos,
                      {&operand});
        e.type = TNVBoolean;
        return e;
    }

    Expr constant(const TNValue& value, size_t pos) {
        auto* node = new TNConstantExpr(value);
        Expr e = made(node, pos, {});
        e.constant = node;
        e.type = value.myType();
        return e;
    }

    Expr number(bool negative, size_t signPos) {
        const Token& token = take();
        const char* first = token.text.data();
        const char* last = first + token.text.size();
        const size_t pos = negative ? signPos : token.pos;
        if (token.kind == Tok::Int) {
            int64_t magnitude = 0;
            const auto [end, ec] = std::from_chars(first, last, magnitude);
            const int64_t value = negative ? -magnitude : magnitude;
            if (ec != std::errc() || end != last || value < std::numeric_limits<int32_t>::min() ||
                value > std::numeric_limits<int32_t>::max())
                m_fail(token.pos, "integer out of the 32-bit range");
            return constant(TNValue(static_cast<int>(value)), pos);
        }
        double value = 0;
        const auto [end, ec] = std::from_chars(first, last, value);
        if (ec != std::errc() || end != last || !std::isfinite(value))
            m_fail(token.pos, "real number out of range");
        return constant(TNValue(negative ? -value : value), pos);
    }

    Expr primary() {
        const Token& token = peek();
        switch (token.kind) {
        case Tok::Int:
        case Tok::Real:
            return number(false, token.pos);
        case Tok::Text:
            take();
            return constant(TNValue(token.value), token.pos);
        case Tok::Punct:
            if (is(token, "(")) { // nests through expr()
                take();
                Expr e = expr();
                expect(")");
                return e;
            }
            expected("an expression");
        case Tok::End:
            expected("an expression");
        case Tok::Ident:
            break;
        }
        const std::string_view word = token.text;
        if (word == "true" || word == "false") {
            take();
            return constant(TNValue(word == "true"), token.pos);
        }
        if (word == "null") {
            take();
            return constant(TNValue(), token.pos);
        }
        if (word == "self") {
            take();
            return selfExpr(token.pos);
        }
        if (word == "model") {
            take();
            const Expr var = selfExpr(token.pos);
            return made(new TNModelExpr(var.o), token.pos, {&var});
        }
        if (word == "if")
            return conditional();
        if (isKeyword(word))
            expected("an expression");
        if (is(peek(1), ".") && is(peek(2), "allInstances")) // Class.allInstances()
            return allInstances();
        if (is(peek(1), "::")) // Enumeration::literal
            return literal();
        take();
        for (auto scoped = m_scope.rbegin(); scoped != m_scope.rend(); ++scoped) {
            if (scoped->name != word)
                continue;
            ++scoped->uses;
            Expr e = scoped->bound;
            if (scoped->variable != nullptr) {
                e.fam = O;
                e.o = scoped->variable;
            }
            e.pos = token.pos;
            e.attr = nullptr;
            e.constant = nullptr;
            e.height = 1;
            return e;
        }
        std::vector<SgxString> known;
        for (const Scoped& scoped : m_scope)
            known.emplace_back(scoped.name);
        unknown(token.pos, "name", word, "", known);
    }

    Expr allInstances() {
        const Token& token = take();
        take();
        take();
        expect("(");
        expect(")");
        const TNClass* cls = classNamed(token.text, token.pos);
        const Expr var = selfExpr(token.pos);
        Expr e = made(new TNAllInstancesExpr(SgxString(token.text), var.o), token.pos, {&var});
        e.cls = cls;
        return e;
    }

    Expr literal() {
        const Token& token = take();
        take();
        const size_t literalPos = peek().pos;
        const std::string_view text = name("a literal after '::'");
        const SgxString typeName(token.text);
        if (!m_schema.enumExists(typeName)) {
            std::vector<SgxString> known;
            for (const SgxSimplePtr<TNEnumType>& t : m_schema.enums())
                known.push_back(t->name());
            unknown(token.pos, "enumeration", token.text, "", known);
        }
        const SgxSimplePtr<TNEnumType> type = m_schema.getEnumType(typeName);
        if (!type->check(text))
            unknown(literalPos, "literal", text, " of enumeration " + type->name(), type->values());
        Expr e = constant(TNValue(SgxString(text)), token.pos);
        e.enumType = type.get();
        return e;
    }

    // 'if' expr 'then' expr 'else' expr 'endif'
    Expr conditional() {
        Nest nest(*this);
        const size_t pos = take().pos;
        const Expr test = expr();
        need(test, V, " as the condition");
        expect("then");
        const Expr thenExpr = expr();
        expect("else");
        const Expr elseExpr = expr();
        expect("endif");
        need(elseExpr, thenExpr.fam, " after 'else', as after 'then'");
        return byFamily(thenExpr.fam, [&]<class Family>() {
            using If = typename FamilyNodes<Family>::If;
            Expr e = made(new If(test.v, nodeOf<Family>(thenExpr), nodeOf<Family>(elseExpr)), pos,
                          {&test, &thenExpr, &elseExpr});
            e.cls = thenExpr.cls == elseExpr.cls ? thenExpr.cls : nullptr;
            e.type = thenExpr.type == elseExpr.type ? thenExpr.type : TNVNone;
            return e;
        });
    }

    // postfix := primary ( '.' NAME ( '(' args ')' )? | '->' NAME '(' args ')' )*
    Expr postfix(Expr e) {
        while (true) {
            if (accept(".")) {
                const size_t pos = peek().pos;
                const std::string_view n = name("a name after '.'");
                e = is(peek(), "(") ? method(e, n, pos) : member(e, n, pos);
            } else if (accept("->")) {
                const size_t pos = peek().pos;
                const std::string_view n = name("an operation after '->'");
                e = collectionOperation(e, n, pos);
            } else {
                return e;
            }
        }
    }

    // object '.' NAME: an attribute, else a role, of the object's class (of any class when it is
    // not known).
    Expr member(const Expr& object, std::string_view n, size_t pos) {
        if (object.fam == C)
            m_fail(pos, "'." + SgxString(n) +
                            "' needs an object, found a collection of objects; write "
                            "->collect(x | x." +
                            SgxString(n) + ")");
        need(object, O, " before '.'");
        const std::vector<const TNClass*> classes = candidates(object.cls);
        for (const TNClass* cls : classes)
            if (const TNAttrDesc* desc = attributeNamed(cls, n))
                return attribute(object, constant(TNValue(SgxString(n)), pos), desc, pos);
        for (const TNClass* cls : classes)
            if (cls->associationExists(n)) {
                auto* step = new TNAssociationTraversal(SgxString(n), true);
                Expr e = made(new TNAssociationExpr(step, object.o), pos, {&object});
                e.pos = object.pos;
                e.cls = cls->getAssociation(n)->otherClass().get();
                if (object.cls == nullptr && !sameTarget(n, e.cls))
                    e.cls = nullptr;
                return e;
            }
        std::vector<SgxString> known;
        for (const TNClass* cls : classes) {
            for (const SgxSimplePtr<TNAttrDesc>& desc : cls->attributes())
                known.push_back(desc->name());
            for (const SgxSimplePtr<TNAssociation>& assoc : cls->associations())
                known.push_back(assoc->otherRoleName());
        }
        unknown(pos, "attribute or role", n, ofClass(object.cls), known);
    }
    // Whether every class with role `role` reaches `target` through it.
    bool sameTarget(std::string_view role, const TNClass* target) const {
        for (const SgxSimplePtr<TNClass>& c : m_schema.classes())
            if (c->associationExists(role) && c->getAssociation(role)->otherClass().get() != target)
                return false;
        return true;
    }

    // An attribute read of `object`, the name given by `nameExpr`; `desc` when known. Followed
    // by `.index()`, the literal's index instead.
    Expr attribute(const Expr& object, const Expr& nameExpr, const TNAttrDesc* desc, size_t pos) {
        if (is(peek(), ".") && is(peek(1), "index") && is(peek(2), "(")) {
            const size_t indexPos = peek(1).pos;
            take();
            take();
            expect("(");
            expect(")");
            if (desc != nullptr && desc->type() != TNAttrEnumeration)
                m_fail(indexPos,
                       "index() needs an enumeration attribute; '" + desc->name() + "' is not one");
            Expr e = made(new TNEnumIndexExpr(nameExpr.v, object.o), pos, {&object, &nameExpr});
            e.type = TNVInt;
            e.pos = object.pos;
            return e;
        }
        auto* node = new TNAttrExpr(nameExpr.v, object.o);
        Expr e = made(node, pos, {&object, &nameExpr});
        e.attr = node;
        if (desc != nullptr) {
            e.type = attrValueType(desc->type());
            if (desc->type() == TNAttrEnumeration)
                e.enumType = desc->enumType().get();
        }
        e.pos = object.pos;
        return e;
    }

    // '(' ')' after a method that takes nothing.
    void noArguments() {
        expect("(");
        expect(")");
    }
    // '(' expr ')' or '(' expr ',' expr ')': the arguments of a method, each of family V.
    std::vector<Expr> valueArguments(size_t count, std::string_view method) {
        Nest nest(*this);
        std::vector<Expr> arguments;
        expect("(");
        for (size_t i = 0; i < count; ++i) {
            if (i > 0)
                expect(",");
            arguments.push_back(expr());
            need(arguments.back(), V, " as an argument of " + SgxString(method));
        }
        expect(")");
        return arguments;
    }

    // value '.' NAME '(' args ')', object '.' NAME '(' args ')'
    Expr method(const Expr& receiver, std::string_view n, size_t pos) {
        if (receiver.fam == C || receiver.fam == S)
            m_fail(pos - 1, SgxString("'.' applies to a value or an object, found ") +
                                famName(receiver.fam) + "; write ->" + SgxString(n) + "(...)");
        return receiver.fam == V ? valueMethod(receiver, n, pos) : objectMethod(receiver, n, pos);
    }

    Expr valueMethod(const Expr& value, std::string_view n, size_t pos) {
        static constexpr std::pair<std::string_view, TNValueType> conversions[] = {
            {"toInteger", TNVInt},
            {"toReal", TNVDouble},
            {"toString", TNVString},
            {"toBoolean", TNVBoolean}};
        for (const auto& [text, type] : conversions)
            if (n == text) {
                noArguments();
                return conversion(value, type, pos);
            }
        if (n == "convert") {
            expect("(");
            const size_t typePos = peek().pos;
            const std::string_view typeName = name("a value type name");
            expect(")");
            for (const auto& [text, type] : valueTypeNames)
                if (typeName == text)
                    return conversion(value, type, pos);
            std::vector<SgxString> known;
            for (const auto& [text, type] : valueTypeNames)
                known.emplace_back(text);
            unknown(typePos, "value type", typeName, "", known);
        }
        static constexpr std::pair<std::string_view, TNStringManipulationExpr::TNStringOp>
            manipulations[] = {{"toLower", TNStringManipulationExpr::TNToLower},
                               {"toUpper", TNStringManipulationExpr::TNToUpper},
                               {"trim", TNStringManipulationExpr::TNTrim}};
        for (const auto& [text, op] : manipulations)
            if (n == text) {
                noArguments();
                Expr e = made(new TNStringManipulationExpr(op, value.v), pos, {&value});
                e.type = TNVString;
                e.pos = value.pos;
                return e;
            }
        Expr e;
        if (n == "matches" || n == "find") {
            const std::vector<Expr> args = valueArguments(1, n);
            e = n == "matches"
                    ? made(new TNRegExpMatchExpr(args[0].v, value.v), pos, {&value, &args[0]})
                    : made(new TNRegExpFindExpr(args[0].v, value.v), pos, {&value, &args[0]});
            e.type = n == "matches" ? TNVBoolean : TNVString;
        } else if (n == "replaceFirst" || n == "replaceAll") {
            const std::vector<Expr> args = valueArguments(2, n);
            auto* node = new TNRegExpReplaceExpr(args[0].v, value.v, args[1].v);
            node->replaceAll(n == "replaceAll");
            e = made(node, pos, {&value, &args[0], &args[1]});
            e.type = TNVString;
        } else if (n == "size") {
            noArguments();
            e = made(new TNStringLengthExpr(value.v), pos, {&value});
            e.type = TNVInt;
        } else if (n == "substring") {
            const std::vector<Expr> args = valueArguments(2, n);
            e = made(new TNSubstringExpr(value.v, args[0].v, args[1].v), pos,
                     {&value, &args[0], &args[1]});
            e.type = TNVString;
        } else if (n == "index") {
            m_fail(pos, "index() follows an enumeration attribute directly, as in "
                        "o.visibility.index()");
        } else {
            unknown(pos, "operation", n, " of a value", valueMethodNames());
        }
        e.pos = value.pos;
        return e;
    }
    Expr conversion(const Expr& value, TNValueType to, size_t pos) {
        Expr e = made(new TNConversionExpr(value.v, value.type, to), pos, {&value});
        e.type = to == TNVNone || to == TNVLong ? value.type : to;
        e.pos = value.pos;
        return e;
    }

    Expr objectMethod(const Expr& object, std::string_view n, size_t pos) {
        Expr e;
        if (n == "className" || n == "uid") {
            noArguments();
            e = n == "uid" ? made(new TNUidExpr(object.o), pos, {&object})
                           : made(new TNClassNameExpr(object.o), pos, {&object});
            e.type = TNVString;
        } else if (n == "model") {
            noArguments();
            e = made(new TNModelExpr(object.o), pos, {&object});
        } else if (n == "apply") {
            Nest nest(*this);
            expect("(");
            const Lambda l = lambda(object.cls, "apply");
            expect(")");
            need(l.body, V, " as the body of apply");
            Expr abs;
            auto* f = abstraction<TNValueAbsExpr>(l, abs);
            e = made(new TNApplyValueExpr(f, object.o), pos, {&object, &abs});
            e.type = l.body.type;
        } else if (n == "allInstancesOf") {
            const std::vector<Expr> args = valueArguments(1, n);
            e = made(new TNAllInstancesExpr(args[0].v, object.o), pos, {&object, &args[0]});
            if (args[0].constant != nullptr && args[0].constant->constant().text() != nullptr)
                e.cls = classNamed(args[0].constant->constant().text(), args[0].pos);
        } else if (n == "attribute") {
            const std::vector<Expr> args = valueArguments(1, n);
            const TNAttrDesc* desc = nullptr;
            if (args[0].constant != nullptr && args[0].constant->constant().text() != nullptr)
                desc =
                    checkedAttribute(object.cls, args[0].constant->constant().text(), args[0].pos);
            return attribute(object, args[0], desc, pos);
        } else if (n == "navigate") {
            e = navigate(object, pos);
        } else {
            unknown(pos, "operation", n, " of an object", objectMethodNames());
        }
        e.pos = object.pos;
        return e;
    }
    const TNAttrDesc* checkedAttribute(const TNClass* cls, std::string_view n, size_t pos) const {
        std::vector<SgxString> known;
        for (const TNClass* c : candidates(cls)) {
            if (const TNAttrDesc* desc = attributeNamed(c, n))
                return desc;
            for (const SgxSimplePtr<TNAttrDesc>& desc : c->attributes())
                known.push_back(desc->name());
        }
        unknown(pos, "attribute", n, ofClass(cls), known);
    }

    // object '.navigate(' TEXT ')': the chain notation of compound associations.
    Expr navigate(const Expr& object, size_t pos) {
        expect("(");
        const Token& chain = peek();
        if (chain.kind != Tok::Text)
            expected("the text of a chain, as in navigate('[classes] -> [operations]')");
        take();
        expect(")");
        // The chain parser recurses once per step and group; bound it before handing it text.
        const size_t steps = std::count(chain.value.begin(), chain.value.end(), '[') +
                             std::count(chain.value.begin(), chain.value.end(), '(');
        if (steps > m_limits.maxNesting)
            m_fail(chain.pos, "the chain has more than " + std::to_string(m_limits.maxNesting) +
                                  " steps and groups");
        TNAssociationTraversal* root = nullptr;
        try {
            root = tnParseTraversal(chain.value);
        } catch (const SgxException& e) {
            m_fail(chain.pos, e.reasonText());
        }
        Expr e = made(new TNAssociationExpr(root, object.o), pos, {&object});
        // Follow the chain through the classes each step may start from (every class when the
        // object's is not known): a step no such class can take is an unknown role.
        using Step = std::pair<const TNAssociationTraversal*, const TNClass*>;
        std::set<Step> seen;
        std::vector<Step> pending;
        for (const TNClass* cls : candidates(object.cls))
            pending.emplace_back(root, cls);
        std::vector<const TNAssociationTraversal*> visited; // in order of first visit
        std::set<const TNAssociationTraversal*> taken;
        std::set<const TNClass*> results;
        while (!pending.empty()) {
            const auto [node, cls] = pending.back();
            pending.pop_back();
            if (node == nullptr || !seen.insert({node, cls}).second)
                continue;
            if (std::find(visited.begin(), visited.end(), node) == visited.end())
                visited.push_back(node);
            pending.emplace_back(node->sibling().get(), cls);
            const SgxString role = node->associationToTraverse();
            const TNClass* reached = cls;
            if (!role.empty()) {
                if (!cls->associationExists(role))
                    continue;
                reached = cls->getAssociation(role)->otherClass().get();
            }
            taken.insert(node);
            if (node->addToResult())
                results.insert(reached);
            for (const TNClass* next : candidates(reached))
                pending.emplace_back(node->child().get(), next);
        }
        for (const TNAssociationTraversal* step : visited)
            if (!taken.contains(step)) {
                std::vector<SgxString> roles;
                for (const SgxSimplePtr<TNClass>& c : m_schema.classes())
                    for (const SgxSimplePtr<TNAssociation>& assoc : c->associations())
                        roles.push_back(assoc->otherRoleName());
                unknown(chain.pos, "role", step->associationToTraverse(),
                        " in the chain" + (object.cls != nullptr && step == root
                                               ? " from class " + object.cls->name()
                                               : SgxString()),
                        roles);
            }
        e.cls = results.size() == 1 ? *results.begin() : nullptr;
        return e;
    }

    // A lambda `NAME | body`, its variable in scope in the body only and of `cls`.
    struct Lambda {
        TNObjectVarExpr* variable;
        Expr body;
    };
    Lambda lambda(const TNClass* cls, std::string_view operation) {
        if (peek().kind != Tok::Ident || !is(peek(1), "|"))
            expected("a lambda 'x | ...' as the argument of " + SgxString(operation));
        const std::string_view n = newName("a name");
        take();
        auto* variable = adopt(new TNObjectVarExpr);
        Expr bound;
        bound.cls = cls;
        m_scope.push_back({n, variable, bound, 0});
        Expr body = expr();
        m_scope.pop_back();
        return {variable, body};
    }
    // The abstraction of a lambda, adopted by the pool; `height` receives its graph height
    // (abstractions belong to no family, so they are no Expr).
    template <class Abs> Abs* abstraction(const Lambda& l, Expr& height) {
        Abs* node = nullptr;
        if constexpr (std::is_same_v<Abs, TNValueAbsExpr>)
            node = new Abs(l.variable, l.body.v);
        else
            node = new Abs(l.variable, l.body.c);
        m_pool.adopt(node);
        height = Expr();
        height.pos = l.body.pos;
        height.height = l.body.height + 1;
        return node;
    }

    // collection '->' NAME '(' args ')', texts '->join(' value ')'
    Expr collectionOperation(const Expr& receiver, std::string_view n, size_t pos) {
        Nest nest(*this);
        if (receiver.fam == S) {
            if (n != "join")
                unknown(pos, "operation", n, " of a collection of texts", {"join"});
            const std::vector<Expr> args = valueArguments(1, n);
            Expr e = made(new TNDelimiterExpr(args[0].v, receiver.s), pos, {&receiver, &args[0]});
            e.type = TNVString;
            e.pos = receiver.pos;
            return e;
        }
        if (receiver.fam != C)
            m_fail(pos - 2, "'->' applies to a collection, found " +
                                SgxString(famName(receiver.fam)) + "; write ." + SgxString(n) +
                                "(...)");
        Expr e = collectionOperationOf(receiver, n, pos);
        e.pos = receiver.pos;
        return e;
    }

    Expr lambdaOperation(const Expr& receiver, std::string_view n, size_t pos, Fam bodyFam) {
        expect("(");
        const Lambda l = lambda(receiver.cls, n);
        expect(")");
        Expr abs;
        if (bodyFam == C && l.body.fam == C) {
            auto* path = abstraction<TNObjectCollectionAbsExpr>(l, abs);
            Expr e = made(new TNTraverseExpr(path, receiver.c), pos, {&receiver, &abs});
            e.cls = l.body.cls;
            return e;
        }
        need(l.body, V,
             " as the body of " + SgxString(n) +
                 (bodyFam == C ? " (or a collection of objects)" : ""));
        if (n == "forAll" || n == "exists") {
            // The quantifiers bind their variable themselves, with no abstraction.
            abs.height = l.body.height;
            Expr e = n == "forAll" ? made(new TNAllExpr(receiver.c, l.body.v, l.variable), pos,
                                          {&receiver, &abs})
                                   : made(new TNSomeExpr(receiver.c, l.body.v, l.variable), pos,
                                          {&receiver, &abs});
            e.type = TNVBoolean;
            return e;
        }
        auto* f = abstraction<TNValueAbsExpr>(l, abs);
        if (n == "select") {
            Expr e = made(new TNFilterExpr(f, receiver.c), pos, {&receiver, &abs});
            e.cls = receiver.cls;
            return e;
        }
        if (n == "collect")
            return made(new TNMapExpr(f, receiver.c), pos, {&receiver, &abs});
        TNAggregateExpr::TNAggregateOp op = TNAggregateExpr::TNSum;
        for (const auto& [text, aggregate] : aggregateNames)
            if (n == text)
                op = aggregate;
        Expr e = made(new TNAggregateExpr(op, f, receiver.c), pos, {&receiver, &abs});
        e.type = op == TNAggregateExpr::TNAverage ? TNVDouble
                 : op == TNAggregateExpr::TNSum   ? TNVNone
                                                  : l.body.type;
        return e;
    }

    Expr collectionOperationOf(const Expr& receiver, std::string_view n, size_t pos) {
        if (n == "select" || n == "forAll" || n == "exists")
            return lambdaOperation(receiver, n, pos, V);
        if (n == "collect")
            return lambdaOperation(receiver, n, pos, C);
        for (const auto& [text, op] : aggregateNames)
            if (n == text)
                return lambdaOperation(receiver, n, pos, V);
        if (n == "sortedBy")
            return sortedBy(receiver, pos);
        Expr e;
        if (n == "asOrderedSet" || n == "asSet") {
            noArguments();
            e = made(new TNUniqueExpr(receiver.c, n == "asOrderedSet"), pos, {&receiver});
        } else if (n == "reverse") {
            noArguments();
            e = made(new TNReverseExpr(receiver.c), pos, {&receiver});
        } else if (n == "size") {
            noArguments();
            e = made(new TNCountExpr(receiver.c), pos, {&receiver});
            e.type = TNVInt;
            return e;
        } else if (n == "one" || n == "first") {
            noArguments();
            auto* node = new TNObjectExtractionExpr(receiver.c);
            node->choice(n == "one" ? TNObjectExtractionExpr::ExactlyOne
                                    : TNObjectExtractionExpr::First);
            e = made(node, pos, {&receiver});
        } else if (n == "union" || n == "intersection" || n == "difference") {
            Nest nest(*this);
            expect("(");
            const Expr other = expr();
            expect(")");
            need(other, C, " as the argument of " + SgxString(n));
            const auto op = n == "union"          ? TNCollectionSetOpExpr::TNUnion
                            : n == "intersection" ? TNCollectionSetOpExpr::TNIntersection
                                                  : TNCollectionSetOpExpr::TNDifference;
            e = made(new TNCollectionSetOpExpr(receiver.c, op, other.c), pos, {&receiver, &other});
            if (op != TNCollectionSetOpExpr::TNUnion || receiver.cls == other.cls)
                e.cls = receiver.cls;
            return e;
        } else {
            unknown(pos, "operation", n, " of a collection of objects", collectionMethodNames());
        }
        e.cls = receiver.cls;
        return e;
    }

    // '->sortedBy(' ( NAME '|' key ( 'asc' | 'desc' )? ( ',' key ( 'asc' | 'desc' )? )* )? ')':
    // one lambda variable for every key.
    Expr sortedBy(const Expr& receiver, size_t pos) {
        expect("(");
        auto* sort = new TNSortExpr;
        Expr e = made(sort, pos, {&receiver});
        sort->collection(receiver.c);
        e.cls = receiver.cls;
        if (accept(")"))
            return e;
        if (peek().kind != Tok::Ident || !is(peek(1), "|"))
            expected("a lambda 'x | key' as the argument of sortedBy");
        const std::string_view n = newName("a name");
        take();
        auto* variable = adopt(new TNObjectVarExpr);
        Expr bound;
        bound.cls = receiver.cls;
        m_scope.push_back({n, variable, bound, 0});
        do {
            const Expr key = expr();
            need(key, V, " as a sort key");
            const bool ascending = !accept("desc");
            if (ascending)
                accept("asc");
            Expr abs;
            sort->key(abstraction<TNValueAbsExpr>(Lambda{variable, key}, abs), ascending);
            e.height = std::max(e.height, abs.height + 1);
        } while (accept(","));
        m_scope.pop_back();
        expect(")");
        if (e.height > m_limits.maxGraphHeight)
            m_fail(pos, "the query's graph would be more than " +
                            std::to_string(m_limits.maxGraphHeight) + " nodes high");
        e.cls = receiver.cls;
        return e;
    }

    static std::vector<SgxString> valueMethodNames() {
        return {"toInteger",    "toReal",     "toString", "toBoolean", "convert",
                "toLower",      "toUpper",    "trim",     "matches",   "find",
                "replaceFirst", "replaceAll", "size",     "substring"};
    }
    static std::vector<SgxString> objectMethodNames() {
        return {"className", "uid", "model", "apply", "allInstancesOf", "attribute", "navigate"};
    }
    static std::vector<SgxString> collectionMethodNames() {
        return {"select",       "collect",    "sortedBy", "asOrderedSet", "asSet",  "reverse",
                "size",         "one",        "first",    "forAll",       "exists", "union",
                "intersection", "difference", "sum",      "min",          "max",    "average"};
    }

    const TNSchema& m_schema;
    std::string_view m_text;
    const TNQueryLimits& m_limits;
    Failer m_fail;
    std::vector<Token> m_tokens;
    size_t m_next = 0;
    size_t m_nesting = 0;
    std::vector<Scoped> m_scope;
    TNObjectVarExpr* m_self = nullptr;
    TNExprOwner m_pool;
};

} // namespace

TNQueryError::TNQueryError(size_t line, size_t column, SgxString sourceLine, SgxString message,
                           SgxString indent)
    : SgxException("query error at line " + std::to_string(line) + ", column " +
                   std::to_string(column) + ": " + message + "\n  " + sourceLine + "\n  " +
                   (indent.empty() && column > 1 ? SgxString(column - 1, ' ') : indent) + "^"),
      m_line(line), m_column(column), m_sourceLine(std::move(sourceLine)),
      m_message(std::move(message)) {}

const char* tnQueryFamilyName(TNQueryFamily family) {
    switch (family) {
    case TNQueryFamily::Value:
        return "a value";
    case TNQueryFamily::Object:
        return "an object";
    case TNQueryFamily::ObjectCollection:
        return "a collection of objects";
    case TNQueryFamily::StringCollection:
        return "a collection of texts";
    }
    return "an unknown family";
}

TNQuery TNQuery::compile(const TNSchema& schema, std::string_view text,
                         const TNQueryLimits& limits) {
    Compiler compiler(schema, text, limits);
    const Expr root = compiler.run();
    TNObjectVarExpr* input = compiler.input();
    compiler.release();
    switch (root.fam) {
    case V:
        return TNQuery(Graph(std::in_place_index<0>, root.v), input);
    case O:
        return TNQuery(Graph(std::in_place_index<1>, root.o), input);
    case C:
        return TNQuery(Graph(std::in_place_index<2>, root.c), input);
    case S:
        break;
    }
    return TNQuery(Graph(std::in_place_index<3>, root.s), input);
}

void TNQuery::raiseFamily(std::string_view text, TNQueryFamily found, TNQueryFamily wanted) {
    const Failer fail(text);
    fail(0, SgxString("expected a query yielding ") + tnQueryFamilyName(wanted) +
                ", found one yielding " + tnQueryFamilyName(found));
}

TNQueryResult TNQuery::evaluate(const SgxSimplePtr<TNObject>& object) const {
    if (m_input != nullptr)
        m_input->object(object);
    TNQueryResult result;
    result.family = family();
    switch (result.family) {
    case TNQueryFamily::Value:
        result.value = std::get<0>(m_graph)();
        break;
    case TNQueryFamily::Object:
        result.object = std::get<1>(m_graph)();
        break;
    case TNQueryFamily::ObjectCollection:
        result.objects = std::get<2>(m_graph)();
        break;
    case TNQueryFamily::StringCollection:
        result.texts = std::get<3>(m_graph)();
        break;
    }
    return result;
}

TNQueryResult TNQuery::evaluateOnModel(const TNSchema& schema) const {
    return evaluate(schema.rootObject());
}

SgxString TNQuery::print() const {
    return std::visit([&](const auto& graph) { return tnPrintQuery(*graph, m_input); }, m_graph);
}
