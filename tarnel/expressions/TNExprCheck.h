// TNExprCheck.h: a check of an expression graph against a schema, for a host to run before it
// evaluates the graph (ours, beyond the library's established interface).
//
// Evaluation forgives what a host most often gets wrong: an all-instances node naming a class
// the schema lacks yields no objects, a traversal step through a role that no class has yields
// nothing, a malformed pattern matches nothing. Unset operands and unbound variables fail, but only
// when evaluation reaches them. tnCheckExpression finds all of these at once, without evaluating
// anything, each with the path of node classes that leads to it from the root.
//
// Classes are followed where the graph tells them: an all-instances node names its class; a
// traversal step leads from its source's class to the other class of the association reached
// through its role (narrowed by a `{ class current = "X" }` condition); filters, sorts, unique,
// reverse, extraction, bindings and Lets keep their operand's class; an abstraction or quantifier
// over a collection binds its variable to the collection's class; a variable holding an object
// has that object's class. So an attribute or role is checked against the class it will be read on
// ("unknown attribute 'visibilty' of class Operation"); a subclass's members count, since objects
// of the subclass may be among those reached. Where the class cannot be known, a name passes when
// some class of the schema has it. The chains of the compound associations that the graph
// navigates are checked from their owner class, each once.
//
// Only names given by constants are checked; a name computed at evaluation time passes. Each node
// is examined once, on the first path that reaches it, so a node shared by several parents is
// reported once, and a cycle (a node reaching an ancestor, a traversal referring back to an earlier
// step) ends the walk there. The check reads the graph and the schema and changes neither.
#pragma once

#include "sgx/general/SgxCyclicPtr.h"
#include "sgx/general/SgxString.h"
#include "tarnel/expressions/TNExpr.h"
#include "tarnel/tarnel_export.h"

#include <cstdint>
#include <utility>
#include <vector>

class TNSchema;

// One fault found in a graph.
struct TNExprProblem {
    enum Kind : int32_t {
        UnknownClass = 1,     // a class name no class of the schema has
        UnknownRole = 2,      // a traversal role the class (or every class) lacks
        UnknownAttribute = 3, // an attribute name the class (or every class) lacks
        MalformedPattern = 4, // a pattern whose RWCRegexp status() is not OK
        UnsetOperand = 5,     // a null operand that evaluating the node needs
        UnboundVariable = 6   // a variable that no abstraction or quantifier around it binds
    };

    Kind kind;
    // The node classes from the root to the node concerned, joined by " > "
    // ("TNDelimiterExpr > TNMapExpr > TNValueAbsExpr > TNAttrExpr").
    SgxString path;
    // What is wrong, naming the class, role, attribute or pattern
    // ("unknown attribute 'visibilty' of class Operation").
    SgxString message;

    // path + ": " + message.
    SgxString text() const { return path + ": " + message; }
};

// A variable that the host binds itself before evaluating (a parameter of the whole graph), with
// the name of the class of the objects it will hold (empty: any class).
struct TNExprParameter {
    TNExprParameter(const SgxCyclicPtr<TNObjectVarExpr>& variable, SgxString className = {})
        : variable(variable.get()), className(std::move(className)) {}
    const TNObjectVarExpr* variable;
    SgxString className;
};

// The faults of the graph reachable from `root` (any expression node, abstraction or traversal
// node) against `schema`, in the order a depth-first walk in field order meets them. A variable
// counts as bound inside the abstractions and quantifiers that bind it, when it is among
// `parameters`, or when it holds an object already. An If's branches are both checked, and an
// operand that a node does without (the right operand of a negation or of an arithmetic
// operator, a traversal's condition, child and sibling) may be null. A null `root` is one unset
// operand with an empty path. Raises only std::bad_alloc.
TARNEL_API std::vector<TNExprProblem>
tnCheckExpression(const TNSchema& schema, const SgxCyclicPtrBody* root,
                  const std::vector<TNExprParameter>& parameters = {});
