// TNQuery.h: the query language (ours; docs/query-language.md describes it). Query text compiles,
// against a schema, to the library's own expression nodes (and those of TNExtensionExpr.h); any
// graph of them prints back to canonical text.
//
// Ownership. A compiled query owns its graph through a TNExprGraph of its family (TNExprOwner.h):
// the graph is freed once with the query, or moved out with take<Family>(). The query's input
// (`self` in the text) is an object variable of the graph, set by evaluate().
//
// Untrusted text. The compiler reads any bytes: a text larger than TNQueryLimits::maxTextBytes,
// constructs nested deeper than maxNesting or a graph higher than maxGraphHeight raise
// TNQueryError before anything deep happens, so no input can exhaust the stack. Every failure
// raises TNQueryError, having freed every node made.
#pragma once

#include "sgx/general/SgxException.h"
#include "sgx/general/SgxString.h"
#include "tarnel/core/TNValue.h"
#include "tarnel/expressions/TNExpr.h"
#include "tarnel/expressions/TNExprOwner.h"
#include "tarnel/tarnel_export.h"

#include <cstddef>
#include <string_view>
#include <type_traits>
#include <variant>

class TNObject;
class TNSchema;

// A compile error: where (line and column from 1, in bytes), the line of text with a caret under
// the fault, and what was wrong or expected, with the nearest known name when one is close. The
// reason text holds all of it:
//   query error at line 1, column 40: unknown attribute or role 'visibilty' of class Operation;
//   did you mean 'visibility'?
//     Operation.allInstances()->select(o | o.visibilty = 'public')
//                                            ^
class TARNEL_API TNQueryError : public SgxException {
public:
    // `indent` is what precedes the caret under `sourceLine` (blanks, and tabs where the line has
    // them); empty means column - 1 blanks.
    TNQueryError(size_t line, size_t column, SgxString sourceLine, SgxString message,
                 SgxString indent = SgxString());
    size_t line() const noexcept { return m_line; }
    size_t column() const noexcept { return m_column; }
    const SgxString& sourceLine() const noexcept { return m_sourceLine; }
    // What was wrong, without the position and the source line.
    const SgxString& message() const noexcept { return m_message; }

private:
    size_t m_line;
    size_t m_column;
    SgxString m_sourceLine;
    SgxString m_message;
};

// Limits on untrusted query text.
struct TNQueryLimits {
    // Bytes of text.
    size_t maxTextBytes = 64 * 1024;
    // Constructs inside one another: parentheses, arguments, lambdas, let, if, unary operators.
    size_t maxNesting = 100;
    // Nodes on the longest path from the root of the graph made (a long chain of `a + b + ...`
    // or of navigations nests no construct but makes a high graph, which evaluation and
    // printing walk recursively).
    size_t maxGraphHeight = 1000;
};

// The four kinds of result a query may have: the expression families.
enum class TNQueryFamily { Value, Object, ObjectCollection, StringCollection };

// What evaluating a query gave; only the member of its family is set.
struct TNQueryResult {
    TNQueryFamily family = TNQueryFamily::Value;
    TNValue value;
    SgxSimplePtr<TNObject> object;
    TNObjectSequence objects;
    TNStringSequence texts;
};

class TARNEL_API TNQuery {
public:
    // Compiles `text` against `schema`, which must outlive nothing: names are checked and the
    // nodes made, and the schema is not referred to afterwards. Raises TNQueryError.
    static TNQuery compile(const TNSchema& schema, std::string_view text,
                           const TNQueryLimits& limits = TNQueryLimits());

    TNQuery(TNQuery&&) noexcept = default;
    TNQuery& operator=(TNQuery&&) noexcept = default;

    TNQueryFamily family() const noexcept { return static_cast<TNQueryFamily>(m_graph.index()); }
    // The graph, when the query is of that family (SgxException "Query yields another family"
    // otherwise). Borrowed from this query.
    template <class Family> const TNExprGraph<Family>& graph() const {
        if (const auto* g = std::get_if<TNExprGraph<Family>>(&m_graph))
            return *g;
        SgxException::raise("Query yields another family");
    }
    // Moves the graph out; the query is left empty. The input variable stays part of it.
    template <class Family> TNExprGraph<Family> take() {
        graph<Family>();
        return std::move(std::get<TNExprGraph<Family>>(m_graph));
    }
    // The variable `self` stands for, or null when the text never uses it. Part of the graph.
    TNObjectVarExpr* input() const noexcept { return m_input; }

    // Binds `self` to `object` and evaluates the graph; raises what evaluation raises.
    TNQueryResult evaluate(const SgxSimplePtr<TNObject>& object) const;
    // evaluate() from the schema's root object (TNSchema::rootObject).
    TNQueryResult evaluateOnModel(const TNSchema& schema) const;
    // The canonical text of the graph (tnPrintQuery).
    SgxString print() const;

    // The family a node class heads.
    template <class Family> static constexpr TNQueryFamily familyOf() {
        if constexpr (std::is_same_v<Family, TNValueExpr>)
            return TNQueryFamily::Value;
        else if constexpr (std::is_same_v<Family, TNObjectExpr>)
            return TNQueryFamily::Object;
        else if constexpr (std::is_same_v<Family, TNObjectCollectionExpr>)
            return TNQueryFamily::ObjectCollection;
        else
            return TNQueryFamily::StringCollection;
    }
    // Raises the TNQueryError of a query of family `found` where `wanted` was expected, at the
    // start of `text`.
    [[noreturn]] static void raiseFamily(std::string_view text, TNQueryFamily found,
                                         TNQueryFamily wanted);

private:
    using Graph =
        std::variant<TNExprGraph<TNValueExpr>, TNExprGraph<TNObjectExpr>,
                     TNExprGraph<TNObjectCollectionExpr>, TNExprGraph<TNStringCollectionExpr>>;
    TNQuery(Graph graph, TNObjectVarExpr* input) : m_graph(std::move(graph)), m_input(input) {}

    Graph m_graph;
    TNObjectVarExpr* m_input = nullptr;
};

// Compiles a query that must yield `Family` and returns its graph; raises TNQueryError (at the
// start of the text for a query of another family). `input`, when given, receives the variable
// `self` stands for (null when unused).
template <class Family>
TNExprGraph<Family> tnCompileQuery(const TNSchema& schema, std::string_view text,
                                   TNObjectVarExpr** input = nullptr,
                                   const TNQueryLimits& limits = TNQueryLimits()) {
    TNQuery query = TNQuery::compile(schema, text, limits);
    if (query.family() != TNQuery::familyOf<Family>())
        TNQuery::raiseFamily(text, query.family(), TNQuery::familyOf<Family>());
    if (input != nullptr)
        *input = query.input();
    return query.take<Family>();
}

// The canonical text of the graph rooted at `root`, hand-built or compiled. `self` names the
// input variable; when null, the first variable that no lambda binds is taken as `self`. Shared
// nodes are printed at each place they are used. Raises SgxException "Query printer: ..." for
// what the language cannot say: an operand that is not set, an operator value outside its
// enumeration, a real that is not finite, a second free variable, a binding outside its let, a
// traversal that the chain notation cannot write, a graph deeper than
// TNQueryLimits().maxGraphHeight (cycles included).
TARNEL_API SgxString tnPrintQuery(const TNValueExpr& root, const TNObjectVarExpr* self = nullptr);
TARNEL_API SgxString tnPrintQuery(const TNObjectExpr& root, const TNObjectVarExpr* self = nullptr);
TARNEL_API SgxString tnPrintQuery(const TNObjectCollectionExpr& root,
                                  const TNObjectVarExpr* self = nullptr);
TARNEL_API SgxString tnPrintQuery(const TNStringCollectionExpr& root,
                                  const TNObjectVarExpr* self = nullptr);

// Family names as the query language's messages say them ("a value", "an object", ...).
TARNEL_API const char* tnQueryFamilyName(TNQueryFamily family);
