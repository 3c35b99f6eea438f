#include "sgx/general/SgxCountedPtr.h"
#include "sgx/general/SgxCyclicPtr.h"
#include "sgx/general/SgxSimplePtr.h"

#include "GeneralTestSupport.h"

#include <gtest/gtest.h>

namespace {

struct Counted {
    static inline int destroyed = 0;
    int value = 5;
    ~Counted() { ++destroyed; }
};

TEST(SgxCountedPtr, CopiesShareOneObjectDeletedWithTheLastHandle) {
    SgxCountedPtr<Counted> empty;
    EXPECT_TRUE(raisesText([&] { (void)empty->value; }, "Bad dereference"));
    EXPECT_TRUE(raisesText([&] { (void)*empty; }, "Bad dereference"));
    Counted::destroyed = 0;
    {
        SgxCountedPtr<Counted> first(new Counted);
        {
            SgxCountedPtr<Counted> copy = first;
            copy->value = 9;
        }
        EXPECT_EQ(Counted::destroyed, 0);
        EXPECT_EQ((*first).value, 9);
    }
    EXPECT_EQ(Counted::destroyed, 1);
}

TEST(SgxSimplePtr, NullRaisesAndHandlesCompareByAddress) {
    struct Base {
        int value = 7;
    };
    struct Derived : Base {};
    SgxSimplePtr<Base> null;
    EXPECT_TRUE(null.isNull());
    EXPECT_TRUE(raisesText([&] { (void)null->value; }, "Null dereference"));
    EXPECT_TRUE(raisesText([&] { (void)*null; }, "Null dereference"));
    Derived objects[2];
    SgxSimplePtr<Base> first(&objects[0]);
    SgxSimplePtr<Base> second = SgxSimplePtr<Derived>(&objects[1]);
    EXPECT_EQ(first->value, 7);
    EXPECT_EQ(first, SgxSimplePtr<Base>(&objects[0]));
    EXPECT_NE(first, second);
    EXPECT_TRUE(first < second && !(second < first));
}

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
    Node *root = new Node, *a = new Node, *b = new Node, *shared = new Node;
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
        SgxCyclicPtr<Node>& alias = owner;
        owner = alias; // self-assignment keeps ownership: the pointee must not leak
        EXPECT_TRUE(owner.isOwner());
        owner = SgxCyclicPtr<Node>(other); // neither deletes the old pointee nor keeps ownership
        EXPECT_FALSE(owner.isOwner());
    }
    EXPECT_EQ(Node::destroyed, 0);
    // A copied body is a new node; an assigned one is no longer owned; self-assignment keeps it.
    kept->becomeOwned();
    other->becomeOwned();
    EXPECT_FALSE(Node(*kept).isOwned());
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
    const std::string prefix = "Null dereference of SgxCyclicPtr<T>::operator";
    EXPECT_TRUE(raisesText([&] { (void)c.operator->(); }, prefix + "->() const"));
    EXPECT_TRUE(raisesText([&] { (void)p.operator->(); }, prefix + "->()"));
    EXPECT_TRUE(raisesText([&] { (void)*c; }, prefix + "*() const"));
    EXPECT_TRUE(raisesText([&] { (void)*p; }, prefix + "*()"));
}

} // namespace
