// Owners free each node of the graphs they hold exactly once, however the graphs share and loop.
#include "sgx/general/GeneralTestSupport.h"
#include "tarnel/tarnel.h"

#include <gtest/gtest.h>

#include <set>

namespace {

// A value node that links to up to two others and records its own deletion.
struct Counted : TNValueExpr {
    explicit Counted(Counted* left = nullptr, Counted* right = nullptr)
        : left(left), right(right) {
        live().insert(this);
    }
    ~Counted() override {
        if (live().erase(this) == 0)
            ADD_FAILURE() << "a node was deleted twice";
    }
    TNValue operator()() const override { return TNValue(static_cast<int>(live().size())); }
    void prepareForDeletion() const override { tnClaimOperands(left, right); }
    static std::set<const Counted*>& live() {
        static std::set<const Counted*> nodes;
        return nodes;
    }
    SgxCyclicPtr<Counted> left, right;
};

} // namespace

TEST(TNExprOwner, FreesSharedAndCyclicGraphsOnceAndGivesUpWhatIsReleased) {
    {
        // Two graphs sharing a node, one looping back to its root, and a root reachable from
        // another root: one owner frees the six nodes once each.
        TNExprOwner owner;
        auto* shared = new Counted;
        auto* first = new Counted(shared, new Counted);
        auto* loop = new Counted(shared);
        loop->right = loop;
        auto* inner = new Counted;
        owner.adopt(first);
        owner.adopt(loop);
        owner.adopt(new Counted(inner));
        owner.adopt(inner);
        owner.adopt(first); // twice is harmless
        EXPECT_EQ(Counted::live().size(), 6u);
        TNExprOwner moved = std::move(owner);
        owner.reset(); // the moved-from owner holds nothing
        EXPECT_EQ(Counted::live().size(), 6u);
    }
    EXPECT_TRUE(Counted::live().empty());

    TNExprGraph<TNValueExpr> graph(new Counted(new Counted));
    EXPECT_EQ(graph().asString(), "2");
    TNExprGraph<TNValueExpr> other = std::move(graph);
    EXPECT_FALSE(graph);
    EXPECT_TRUE(raisesText([&] { graph(); }, "Null dereference"));
    TNValueExpr* root = other.release();
    other = TNExprGraph<TNValueExpr>(); // frees nothing: the graph was released
    EXPECT_EQ(Counted::live().size(), 2u);
    { TNExprGraph<TNValueExpr> again(root); }
    EXPECT_TRUE(Counted::live().empty());
}
