#include "sgx/general/SgxCyclicPtr.h"

#include "GeneralTestSupport.h"

#include <gtest/gtest.h>

namespace {

// A graph node with two links that counts how often nodes are made and deleted.
struct Node : SgxCyclicPtrBody {
    static inline int constructed = 0;
    static inline int destroyed = 0;

    Node() { ++constructed; }
    ~Node() override { ++destroyed; }
    void prepareForDeletion() const override {
        first.takeOwnership();
        second.takeOwnership();
    }

    SgxCyclicPtr<Node> first;
    SgxCyclicPtr<Node> second;
};

// root -> a, b; a -> shared; b -> shared; shared -> root (a cycle back to the root).
struct Graph {
    int counts = (Node::constructed = Node::destroyed = 0);
    Node* root = new Node;
    Node* a = new Node;
    Node* b = new Node;
    Node* shared = new Node;
    Graph() {
        root->first = a;
        root->second = b;
        a->first = b->first = shared;
        shared->first = root;
    }
};

TEST(SgxCyclicPtr, TakeOwnershipDeletesASharedCyclicGraphExactlyOnce) {
    Graph g;
    {
        SgxCyclicPtr<Node> holder(g.root);
        holder.takeOwnership();
        // One owner per node: the first pointer that reached it, depth first.
        EXPECT_TRUE(holder.isOwner() && g.root->first.isOwner() && g.root->second.isOwner());
        EXPECT_TRUE(g.a->first.isOwner());
        EXPECT_FALSE(g.b->first.isOwner());      // the shared node, reached second
        EXPECT_FALSE(g.shared->first.isOwner()); // the cycle back to the root
        holder.takeOwnership();                  // claiming again changes nothing
        g.root->prepareForDeletion();
        EXPECT_FALSE(g.b->first.isOwner());
        EXPECT_EQ(Node::destroyed, 0);
    }
    EXPECT_EQ(Node::constructed, 4);
    EXPECT_EQ(Node::destroyed, 4);
}

TEST(SgxCyclicPtr, NothingIsDeletedUntilOwnershipIsClaimed) {
    Graph g;
    {
        SgxCyclicPtr<Node> holder(g.root);
        SgxCyclicPtr<Node> copy(holder);
        SgxCyclicPtr<Node> assigned;
        assigned = holder;
        EXPECT_FALSE(holder.isOwner() || copy.isOwner() || assigned.isOwner());
        EXPECT_EQ(assigned.get(), g.root);
    }
    EXPECT_EQ(Node::destroyed, 0);
    for (Node* n : {g.root, g.a, g.b, g.shared}) {
        EXPECT_FALSE(n->isOwned());
        delete n; // unowned links inside do not cascade
    }
    EXPECT_EQ(Node::destroyed, 4);
}

TEST(SgxCyclicPtr, CopiesAndAssignmentsNeverCarryOwnership) {
    Node* kept = new Node;
    Node* other = new Node;
    Node::destroyed = 0;
    {
        SgxCyclicPtr<Node> owner(kept);
        owner.takeOwnership();
        EXPECT_FALSE(SgxCyclicPtr<Node>(owner).isOwner());
        // Self-assignment leaves the owner owning: it must not leak its pointee.
        SgxCyclicPtr<Node>& alias = owner;
        owner = alias;
        EXPECT_TRUE(owner.isOwner());
        // Assigning away from an owned pointee neither deletes it nor keeps ownership.
        owner = SgxCyclicPtr<Node>(other);
        EXPECT_FALSE(owner.isOwner());
    }
    EXPECT_EQ(Node::destroyed, 0);

    // A copied body is a new node; an assigned one is no longer owned; self-assignment keeps it.
    kept->becomeOwned();
    other->becomeOwned();
    Node copy(*kept);
    EXPECT_FALSE(copy.isOwned());
    *other = *kept;
    EXPECT_FALSE(other->isOwned());
    *kept = static_cast<Node&>(*kept);
    EXPECT_TRUE(kept->isOwned());
    delete kept;
    delete other;
}

TEST(SgxCyclicPtr, NullDereferenceNamesTheAccessUsed) {
    SgxCyclicPtr<Node> p;
    const SgxCyclicPtr<Node>& c = p;
    EXPECT_NO_THROW(p.takeOwnership());
    EXPECT_TRUE(raisesText([&] { (void)c.operator->(); },
                           "Null dereference of SgxCyclicPtr<T>::operator->() const"));
    EXPECT_TRUE(raisesText([&] { (void)p.operator->(); },
                           "Null dereference of SgxCyclicPtr<T>::operator->()"));
    EXPECT_TRUE(
        raisesText([&] { (void)*c; }, "Null dereference of SgxCyclicPtr<T>::operator*() const"));
    EXPECT_TRUE(raisesText([&] { (void)*p; }, "Null dereference of SgxCyclicPtr<T>::operator*()"));
}

} // namespace
