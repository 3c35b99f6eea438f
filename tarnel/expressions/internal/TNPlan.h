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
// concatenation, a map's function body, a sort key). A constant is read where it lies; a
// binding's cached result where the binding keeps it; an attribute where its slot lies: a text
// slot's characters, an enumeration's literal name in its type, a number or truth value from the
// slot word, with the slot found through the attribute node's per-class cache (one name lookup
// per class met), and a plain variable's object read without a virtual call. Any other node is
// evaluated as usual and its value read from a scratch value. Which of these an operand is (its
// Route) is told by the address of its type_info, never by comparing type names. Plan: a
// TNRelationalExpr keeps its operands' routes in its ShapeCache; elsewhere the route is found
// at each read.
//
// Rule 2, comparisons on views (TNRelationalExpr, every operator and every pair of types): the
// two views compare as TNValue::operator== and operator< would compare the values, the left
// operand's type deciding: numbers and truth values as they lie, no value being made (an
// integer or truth value compared with a real, which TNValue reads as an integer, goes the
// general way), texts where they lie. A view that a later evaluation could change (a binding's
// result, while the other operand may flush it) is copied first. An attribute compared with a
// constant is read once and compared for every operator at once; an attribute as a truth value
// (TNAttrExpr::test) is read the same way.
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
// Rule 5, texts appended where they are built: a text sum (TNArithmeticExpr TNPlus, any depth
// of sums on the left, whose leftmost operand is a text) appends its operands one after another
// in the order a node-by-node walk evaluates them (the leftmost, then the right operands from
// the innermost sum out), where a map's text or a sum's result is built; a map's texts are
// appended to the joined text when a TNDelimiterExpr joins them, no sequence being made (the
// delimiter is still evaluated first). Plan: none.
//
// Rule 6, slot tests over many elements (TNFilterExpr, TNAllExpr, TNSomeExpr): a predicate or
// condition x -> attr(name, s) OP constant (any operator), x -> attr(name, s) as a truth value,
// or x -> match(pattern, attr(name, s)) for a constant literal pattern (rule 4), any kind of
// attribute, name a constant, x the plain variable the node binds and s either x itself or the
// object one step from it (First or ExactlyOne of [role] of x, a single step without a
// condition), is decided from the element's slot, or from the slot of the object its frozen link
// word leads to: positions and kinds found once per class (the slot's kept from one walk to the
// next while the class and its enumeration type are unchanged; the link slot once per walk, and
// only while no traversal runs on the thread, whose nesting limit only a walk checks), the
// constant converted once. A uniform array handed to a filter or a quantifier (objects all made
// by one class: frozen link arrays so marked, and a class's own instances) is decided after its
// first element from the slot or link word at the same place in each, their headers unread, the
// elements some places ahead being loaded early so that their waits for memory overlap. A
// predicate or condition that combines such tests of one variable with and, or, not and implies
// (CompoundTest) is decided test by test, each reached only where the operators evaluated node
// by node would reach it. The variable is left bound as binding each element in turn leaves it
// (nothing in such a test reads it meanwhile); elements a test cannot decide (another class met
// first, an index outside an enumeration, an object whose class lacks the attribute or the role,
// no link, two for ExactlyOne, a link slot not frozen, a search in what is not a text) are
// evaluated node by node, and raise what they raise. Quantifiers stop where they always stop
// (their first deciding element); no walk stops earlier than a node-by-node walk but under rule
// 8. Plan: PredicatePlan (a SlotTestPlan or a CompoundTestPlan, TNCollectionPlan.h) in the node's
// OpaqueShapeCache, derived after any graph change, and read at the walk's first element, after
// the collection's evaluations.
//
// Rule 7, sort keys evaluated once per element (TNSortExpr): a key whose body is effectFree and
// whose variable is a plain one could only give the same value again, so it is evaluated once
// per element, in order, kept as a view (numbers in it, texts where they lie or in one value
// kept for the sort), and (key, element) pairs are sorted stably: by the standard stable sort
// where all keys are texts, all integers and truth values, or all reals without NaN (a strict
// weak order), by the merge sort that survives inconsistent answers otherwise. An evaluation
// that raises sends the sort back to evaluating per comparison, which raises what it raises. A
// key holding a host's node is evaluated per comparison as the node describes. The variable is
// left bound as evaluating per comparison leaves it. Plan: the effectFree answers, found once
// per evaluation of the sort.
//
// Rule 8, a filter handed on as it is kept (TNFilterExpr::forEach): a filter visits what it
// keeps once every evaluation of its predicate is done, from a sequence it keeps for its next
// evaluation (as a TNTraverseExpr does, which appends each part where its path hands it over). But
// where no evaluation can raise, and its consumer's visits can have no effect
// (TNObjectVisitor::visitsWithoutEffect: an extraction; a quantifier whose condition is
// effectFree), it hands each element on as soon as it keeps it and stops where the consumer
// stops, the evaluations left out having no effect. No evaluation can raise when the filter walks
// all the objects of one class (TNAllInstancesExpr, objects made by the class, none overwritten)
// under a slot test of each object's own slot, prepared for that class at the first object, of
// a kind whose every value compares (not an enumeration, whose index may lie outside its type).
// The variable is bound to the class's last object before the first element is handed on, as a
// finished filter leaves it, and stays there. Plan: rule 6's, and the decision at the walk's
// first element.
//
// Navigation read in place (TNAssociationTraversal, no plan): a single step whose slot is
// frozen hands over its array, or the one link its word holds (an owner, a parent), where it
// lies; a last step without a condition appends its links to the result without gathering them
// first; an extraction (TNObjectExtractionExpr) of such a step of the library's own
// TNAssociationExpr takes the first link or two from the slot itself, no visitor being made
// (TNAssociationExpr::linksInPlace), and visits only where the slot is not frozen.
//
// Plans kept elsewhere, each derived from a narrower family of graphs, which the rules above do
// not yet serve as fast: a map counting links through a filter's enumeration test (TNMapExpr's
// MapPlan and TestedLinkCount, with TNFilterExpr::attributeTest; TNCollectionPlan.h): it
// compares whole link arrays with the comparison prepared once per class for the whole map,
// where rule 6 prepares once per walk, and its look-ahead (navigation/internal/
// TNTraversalPlan.h); and the recursive closure count of TNAssociationTraversal (countFrozen),
// which counts `label: [] -> ( [a] -> @label; [b] )` in one loop. All of them re-derive after
// any graph change (tn_detail::ShapeCache).
#pragma once

#include "tarnel/core/TNValue.h"
#include "tarnel/expressions/TNExpr.h"
#include "tarnel/expressions/TNScalarExpr.h"
#include "tarnel/instances/TNAttr.h"

#include <cstdint>
#include <string_view>
#include <typeinfo>

namespace tn_detail {

// Whether `node` is exactly of the library's class Node, not of a host's class derived from it.
// Types are told apart by the address of their type_info, which costs no name comparison: a type
// whose type_info exists twice (a library loaded twice) answers false, which only costs a plan.
template <class Node, class Base> inline bool isExactly(const Base& node) noexcept {
    return &typeid(node) == &typeid(Node);
}

// A value read in place: either a TNValue that lives elsewhere, or the payload of an attribute
// slot (an integer or truth value, a real, or a text that lives in the model or its enumeration
// type). Valid while what it points at is unchanged.
struct ValueView {
    const TNValue* value = nullptr; // set: the view is this value
    TNValueType type = TNVNone;     // else: the type and payload below
    int32_t integer = 0;            // TNVInt, TNVBoolean (0 or 1)
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

// How a value operand is read (rule 1): decided by the operand's class once, by a plan, or at
// each read by routeOf.
enum class Route : uint8_t {
    Evaluated, // any other node: evaluated into a scratch value
    Constant,  // TNConstantExpr: its value where it lies
    Attribute, // TNAttrExpr: the slot of the object its operand yields
    Binding    // TNValueBindingExpr: its cached result where it keeps it (transient)
};
Route routeOf(const TNValueExpr& node) noexcept;

// Reads what `node` evaluates to as a view, `route` being routeOf(node), with the evaluations and
// failures of evaluating it; `scratch` holds the value of a node that is evaluated as usual.
inline ValueView viewByRoute(Route route, const TNValueExpr& node, TNValue& scratch) {
    ValueView view;
    switch (route) {
    case Route::Constant:
        view.value = &static_cast<const TNConstantExpr&>(node).constant();
        return view;
    case Route::Attribute:
        return static_cast<const TNAttrExpr&>(node).view(scratch);
    case Route::Binding:
        view.value = &static_cast<const TNValueBindingExpr&>(node).resultInPlace();
        view.transient = true;
        return view;
    case Route::Evaluated:
        break;
    }
    scratch = node();
    view.value = &scratch;
    return view;
}
inline ValueView viewOf(const TNValueExpr& node, TNValue& scratch) {
    return viewByRoute(routeOf(node), node, scratch);
}

// The view of attribute `slot` as TNAttrExpr yields it (an enumeration as its literal's name),
// in `scratch` where it cannot be read in place; raises what TNAttrExpr raises for it.
ValueView viewOfOtherSlot(const TNAttribute& slot, TNValue& scratch);
inline ValueView viewOfSlot(const TNAttribute& slot, TNValue& scratch) {
    ValueView view;
    switch (slot.type()) {
    case TNAttrInteger:
    case TNAttrLong:
        view.type = TNVInt;
        view.integer = slot.integerInPlace();
        return view;
    case TNAttrBoolean:
        view.type = TNVBoolean;
        view.integer = slot.integerInPlace() != 0 ? 1 : 0;
        return view;
    case TNAttrReal:
        view.type = TNVDouble;
        view.real = slot.asDouble();
        return view;
    case TNAttrString:
        view.type = TNVString;
        view.text = slot.textInPlace();
        return view;
    default:
        return viewOfOtherSlot(slot, scratch);
    }
}

// TNValue::operator== and operator< of the values viewed, lhs deciding; the general case.
bool viewEqualsInGeneral(const ValueView& lhs, const ValueView& rhs);
bool viewLessInGeneral(const ValueView& lhs, const ValueView& rhs);

// A number or truth value view with its payload in `type`, `integer` and `real`, read from the
// value where the view is one (a constant, a binding's result): false for texts and TNVNone.
inline bool numberOf(const ValueView& view, ValueView& number) noexcept {
    if (view.value == nullptr) {
        number = view;
        return view.type == TNVInt || view.type == TNVBoolean || view.type == TNVDouble;
    }
    number.type = view.value->myType();
    switch (number.type) {
    case TNVInt:
    case TNVBoolean:
        number.integer = view.value->asLongInt();
        return true;
    case TNVDouble:
        number.real = view.value->asDouble();
        return true;
    default:
        return false;
    }
}

// TNValue::operator== (`equal`) and operator< (`less`) of two views that numberOf gave, lhs
// deciding, where no value need be made for them: false for an integer or truth value compared
// with a real, which TNValue reads as an integer or a truth value.
inline bool compareNumbers(const ValueView& l, const ValueView& r, bool& equal,
                           bool& less) noexcept {
    if (l.type == TNVDouble) {
        const double right = r.type == TNVDouble ? r.real : static_cast<double>(r.integer);
        equal = l.real == right;
        less = right > l.real;
        return true;
    }
    if (r.type == TNVDouble)
        return false;
    equal = l.type == TNVBoolean ? (l.integer != 0) == (r.integer != 0) : l.integer == r.integer;
    less = l.integer < r.integer;
    return true;
}

// TNValue::operator== of the values viewed, lhs deciding. Numbers and truth values compare
// without a value being made: an integer with the other's integer, a real with the other's real
// (int to double is exact), a truth value with the other's truth; the rest (a real read as an
// integer or a truth value, texts, TNVNone) as TNValue does.
inline bool viewEquals(const ValueView& lhs, const ValueView& rhs) {
    ValueView l, r;
    if (numberOf(lhs, l) && numberOf(rhs, r)) {
        switch (l.type) {
        case TNVInt:
            if (r.type != TNVDouble)
                return l.integer == r.integer;
            break;
        case TNVBoolean:
            if (r.type != TNVDouble)
                return (l.integer != 0) == (r.integer != 0);
            break;
        default: // TNVDouble
            return l.real == (r.type == TNVDouble ? r.real : static_cast<double>(r.integer));
        }
    }
    return viewEqualsInGeneral(lhs, rhs);
}

// TNValue::operator< of the values viewed, lhs deciding, numbers as viewEquals compares them.
inline bool viewLess(const ValueView& lhs, const ValueView& rhs) {
    ValueView l, r;
    if (numberOf(lhs, l) && numberOf(rhs, r)) {
        if (l.type != TNVDouble) {
            if (r.type != TNVDouble)
                return l.integer < r.integer;
        } else {
            return (r.type == TNVDouble ? r.real : static_cast<double>(r.integer)) > l.real;
        }
    }
    return viewLessInGeneral(lhs, rhs);
}

// TNValue::asBoolean() of the value viewed.
bool viewTruthInGeneral(const ValueView& view);
inline bool viewTruth(const ValueView& view) {
    if (view.value == nullptr && (view.type == TNVInt || view.type == TNVBoolean))
        return view.integer != 0;
    return viewTruthInGeneral(view);
}

// Appends what TNValue::asString() of the viewed value gives.
void appendView(const ValueView& view, SgxString& text);

// Appends asString() of what `node` evaluates to, with the same evaluations and failures: a text
// sum (TNArithmeticExpr TNPlus whose leftmost operand is a text) appends its operands one after
// another where the text is built, anything else is read in place (rule 5).
void appendValue(const TNValueExpr& node, SgxString& text);

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
