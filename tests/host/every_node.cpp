// A host that makes, copies, claims and deletes one node of every expression and traversal class
// the library exports, the way TNExpr.h tells hosts to. scripts/check-installed-host compiles it
// against the installed package at each optimisation level with each compiler: a compiler that
// sees a node's class where it is made calls that class's functions directly, so a function that
// only the library defines, and keeps to itself, fails the link here rather than in a host.
#include "tarnel/tarnel.h"

#include <cstdio>
#include <type_traits>

namespace {

int deleted = 0;

// Each pattern runs in a function of its own that makes the node it claims: the compiler calls a
// node's functions directly where it sees the node's class made, and how (directly, or through an
// address it loads first, which a program cannot take of a function the library defines) depends
// on the code around the call. These two shapes are those that GCC compiled to the failing forms.

// A new node, claimed from a root pointer and deleted with it.
template <class Node> [[gnu::noinline]] void claimNew() {
    SgxCyclicPtr<Node>(new Node).takeOwnership();
    ++deleted;
}
// Claims `node` from a root pointer and deletes it by destroying the pointer.
template <class Node> void claimAndDelete(Node* node) {
    SgxCyclicPtr<Node>(node).takeOwnership();
    ++deleted;
}
// A heap copy of a node on the stack (sharing its operands), claimed and deleted.
template <class Node> [[gnu::noinline]] void claimCopy() {
    if constexpr (std::is_copy_constructible_v<Node>) {
        Node onTheStack;
        claimAndDelete(new Node(onTheStack));
    }
}

template <class... Nodes> void each() {
    (claimNew<Nodes>(), ...);
    (claimCopy<Nodes>(), ...);
}

} // namespace

int main() {
    each<TNObjectVarExpr, TNValueAbsExpr, TNObjectAbsExpr, TNObjectCollectionAbsExpr,
         TNStringCollectionAbsExpr, TNValueBindingExpr, TNObjectBindingExpr,
         TNObjectCollectionBindingExpr, TNStringCollectionBindingExpr, TNLetValueExpr,
         TNLetObjectExpr, TNLetObjectCollectionExpr, TNLetStringCollectionExpr, TNIfValueExpr,
         TNIfObjectExpr, TNIfObjectCollectionExpr, TNIfStringCollectionExpr, TNApplyValueExpr>();
    each<TNRelationalExpr, TNBooleanExpr, TNArithmeticExpr, TNConversionExpr, TNConstantExpr,
         TNCountExpr, TNAttrExpr>();
    each<TNRegExpMatchExpr, TNRegExpFindExpr, TNRegExpReplaceExpr, TNStringManipulationExpr,
         TNDelimiterExpr, TNClassNameExpr, TNUidExpr>();
    each<TNAllExpr, TNSomeExpr, TNObjectSetExpr, TNObjectEqualityExpr>();
    each<TNAllInstancesExpr, TNAssociationExpr, TNFilterExpr, TNTraverseExpr, TNSortExpr,
         TNUniqueExpr, TNReverseExpr, TNObjectExtractionExpr, TNModelExpr, TNMapExpr>();
    each<TNAssociationTraversal>();
    std::printf("%d nodes made, claimed and deleted\n", deleted);
    return 0;
}
