// The chain notation of compound associations, read into traversal graphs
// (TNAssociationTraversal).
//
// Notation (blanks are free between elements):
//   [name]                  a step following the association reached through role `name` (which
//                           may contain blanks, as in [All Classes]); [] stays on the object
//   a -> b                  b applies to every object that a keeps (b is a's child); when a is a
//                           group, b follows every branch of it
//   ( a; b; ... )           the branches apply to the same objects in turn (siblings)
//   label: a                names the step (or the group's first step) a
//   @label                  refers back to the named step, which must come earlier in the text;
//                           it ends its chain (nothing may follow it)
//   [name] { class current = "X" }
//                           keeps only the objects whose class is exactly X (not a subclass)
//
// Which steps add their objects to the result: every step that ends a path, i.e. that nothing
// follows. A step followed only by a reference (`[subpackages] -> @top`) is a recursion step: it
// adds its objects when the chain it refers to has no end step of its own, so that the recursion
// itself is what the definition collects (`top: [] -> [subpackages] -> @top` gives every package
// nested at any depth, once per path); otherwise it only descends, and the other branches collect
// (`top: [] -> ( [subpackages] -> @top; [classes] )` gives the classes at every depth and no
// packages). No other step adds; nodes use the breadth form.
#pragma once

#include "tarnel/navigation/TNAssociationTraversal.h"
#include "tarnel/tarnel_export.h"

#include <string_view>

// Builds the traversal graph that `source` describes and returns its root, which nothing owns
// yet: hand it to a compound association (setAssociationTraversal), or claim it with
// SgxCyclicPtr<TNAssociationTraversal>(root).takeOwnership() and destroy that pointer. Raises
// SgxException "Traversal source error at position P (...): ..." naming the offset (from 0) and
// what was expected, for malformed text, an unknown or duplicate label, or a step after a
// reference; nothing is left allocated then.
TARNEL_API TNAssociationTraversal* tnParseTraversal(std::string_view source);
