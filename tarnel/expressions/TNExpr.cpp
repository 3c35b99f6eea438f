#include "tarnel/expressions/TNExpr.h"

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
