#include "tarnel/expressions/TNExpr.h"
#include "tarnel/navigation/TNAssociationTraversal.h"

std::atomic<uint64_t> tn_detail::graphChanges{1};

// The family bases are abstract through their destructors; these definitions are what derived
// destructors call, and they anchor the bases' vtables in the library.
TNValueExpr::~TNValueExpr() = default;

void TNObjectCollectionExpr::forEach(const TNObjectVisitor& visit) const {
    const TNObjectSequence elements = (*this)();
    visit.each(elements.data(), elements.size());
}
TNObjectExpr::~TNObjectExpr() = default;
TNObjectCollectionExpr::~TNObjectCollectionExpr() = default;
TNStringCollectionExpr::~TNStringCollectionExpr() = default;

namespace {
thread_local const TNOperandVisitor* listing = nullptr;
} // namespace

const TNOperandVisitor* tn_detail::operandListing() noexcept { return listing; }

void tnVisitOperands(const SgxCyclicPtrBody& node, const TNOperandVisitor& visit) {
    // A traversal node claims its condition by hand (it is held by a counted handle): list its
    // links from their getters rather than run a prepareForDeletion() that would mark it owned.
    if (const auto* traversal = dynamic_cast<const TNAssociationTraversal*>(&node)) {
        visit(traversal->condition().get());
        visit(traversal->child().get());
        visit(traversal->sibling().get());
        return;
    }
    struct Listing {
        explicit Listing(const TNOperandVisitor& visit) : outer(listing) { listing = &visit; }
        ~Listing() { listing = outer; }
        const TNOperandVisitor* outer;
    } scope(visit);
    node.prepareForDeletion();
}
