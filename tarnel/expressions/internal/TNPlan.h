// TNPlan.h (internal; not installed, not included by tarnel/tarnel.h): the rules by which value
// operators evaluate less than a node-by-node walk would, each for a whole family of graphs, and
// what makes each derive its plan anew.
//
// What every rule keeps: each result, order, text and exception a node-by-node walk gives. What
// a rule may drop: copies, allocations, and evaluations of subgraphs made only of the library's
// own node classes that have no effect (evaluating them again can only give the same value).
// A graph that holds a node of a host's class keeps every evaluation where that node is reached.
//
// Rule 1, values read in place (every value operand of a comparison, a pattern search, a text
// concatenation and a map's function body). A constant is read where it lies; a binding's cached
// result where the binding keeps it; an attribute where its slot lies: a text slot's characters,
// an enumeration's literal name in its type, a number or truth value from the slot word, with
// the slot found through the attribute node's per-class cache (one name lookup per class met).
// Any other node is evaluated as usual and its value read from a scratch value. Plan: none (a
// dispatch on the operand's class at each read); nothing to re-derive.
//
// Rule 2, comparisons on views (TNRelationalExpr, every operator and every pair of types): the
// two views compare as TNValue::operator== and operator< would compare the values, the left
// operand's type deciding, with texts compared where they lie. A view that a later evaluation
// could change (a binding's result, while the other operand may flush it) is copied first.
//
// Rule 3, relational operands evaluated once (TNGreater, TNLessEqual): when neither operand can
// have an effect (effectFree below), the second evaluation the operators describe could only
// repeat the first, so both are evaluated once. Plan: the two effectFree answers, kept in the
// node's ShapeCache and derived anew after any graph change (tn_detail::graphChanges).
//
// Rule 4, literal patterns (TNRegExpMatchExpr, TNRegExpFindExpr): a pattern text without any of
// the dialect's special characters matches exactly its own characters, so it is searched for as
// a substring; its subject is read in place (rule 1). Plan: the compiled pattern, kept per
// pattern text (TNRegexpCache) and compiled again when the text changes.
//
// Rule 5, text sums (TNArithmeticExpr TNPlus on a text) and a map's texts: the operands, or the
// function's value, read in place (rule 1) and appended where the text is built, so that no
// operand's text is copied into a value first.
//
// Plans kept elsewhere, each derived from a narrower family of graphs and still to be folded
// into the rules above: a filter's attribute test against a constant (TNFilterExpr::
// attributeTest; TNCollectionPlan.h), a map counting links (TNMapExpr's MapPlan, same header,
// and its look-ahead, navigation/internal/TNTraversalPlan.h), a sort by an attribute key
// (TNCollectionExpr.cpp) and the recursive closure count of TNAssociationTraversal.
// All of them re-derive after any graph change (tn_detail::ShapeCache).
#pragma once

#include "tarnel/core/TNValue.h"
#include "tarnel/expressions/TNExpr.h"

#include <cstdint>
#include <string_view>

class TNAttribute;

namespace tn_detail {

// A value read in place: either a TNValue that lives elsewhere, or the payload of an attribute
// slot (an integer or truth value, a real, or a text that lives in the model or its enumeration
// type). Valid while what it points at is unchanged.
struct ValueView {
    const TNValue* value = nullptr; // set: the view is this value
    TNValueType type = TNVNone;     // else: the type and payload below
    int32_t integer = 0;            // TNVInt, TNVBoolean
    double real = 0.0;              // TNVDouble
    const char* text = nullptr;     // TNVString
    // Whether the value viewed may change while the graph is evaluated further (a binding's
    // result, which a Let flushes): a reader that evaluates anything before it is done with the
    // view copies it first.
    bool transient = false;

    TNValueType myType() const noexcept { return value != nullptr ? value->myType() : type; }
    // The text of a TNVString view, or null.
    const char* textOrNull() const noexcept { return value != nullptr ? value->text() : text; }
    // The value itself, made in `scratch` unless the view is one already (a text is copied).
    const TNValue& materialize(TNValue& scratch) const;
};

// Reads what `node` evaluates to as a view (rule 1), with the evaluations and failures of
// evaluating it; `scratch` holds the value of a node that is evaluated as usual.
ValueView viewOf(const TNValueExpr& node, TNValue& scratch);
// The view of attribute `slot` as TNAttrExpr yields it (an enumeration as its literal's name),
// in `scratch` where it cannot be read in place; raises what TNAttrExpr raises for it.
ValueView viewOfSlot(const TNAttribute& slot, TNValue& scratch);

// TNValue::operator== and operator< of the values viewed, lhs deciding.
bool viewEquals(const ValueView& lhs, const ValueView& rhs);
bool viewLess(const ValueView& lhs, const ValueView& rhs);

// Appends what TNValue::asString() of the viewed value gives.
void appendView(const ValueView& view, SgxString& text);

// Whether evaluating `node` can have no effect but its result: every node reachable from it is
// of one of the library's own classes that neither binds a variable nor fills a cache (no
// abstraction's caller, quantifier, binding or Let, no traversal condition) and that reads no
// binding, which a Let elsewhere may flush between two evaluations. Such a node evaluated twice
// in a row yields the same value or raises the same exception. Graphs deeper or larger than a
// fixed bound answer false.
bool effectFree(const TNValueExpr& node);

// Whether `pattern` holds none of the pattern dialect's special characters, so that it matches
// exactly its own characters (rule 4).
bool isLiteralPattern(std::string_view pattern) noexcept;

} // namespace tn_detail
