#include "tarnel/navigation/TNAssociationTraversal.h"

#include "rw/RWTestSupport.h"
#include "rw/RWbstream.h"
#include "tarnel/navigation/NavigationTestModel.h"
#include "tarnel/navigation/TNBuiltinAssociations.h"
#include "tarnel/navigation/TNTraversalParser.h"

namespace {

using TraversalPtr = SgxCyclicPtr<TNAssociationTraversal>;
const std::string kTooDeep = "more than 10000 nested traversal steps";

// a -next-> b, c; b -next-> d, e; c -next-> e (e is reached along two paths).
struct Tree : NodeModel {
    Tree() {
        for (const char* n : {"a", "b", "c", "d", "e"})
            objects.push_back(make(n, static_cast<int>(objects.size())));
        link(objects[0], {objects[1], objects[2]});
        link(objects[1], {objects[3], objects[4]});
        link(objects[2], {objects[4]});
    }
    std::string run(const TNAssociationTraversal& root, TNObject* from = nullptr) {
        TNObjectSequence result;
        root.traverse(result, from ? from : objects[0]);
        return names(result);
    }
    std::vector<TNObject*> objects;
};

} // namespace

TEST(TNAssociationTraversal, BreadthAndDepthFirstOrderSiblingsAndRepetitions) {
    Tree t;
    // [next] -> [next], both adding; then the sibling [] adds the source itself.
    auto* root = new TNAssociationTraversal("next", true);
    auto* child = new TNAssociationTraversal("next", true);
    auto* self = new TNAssociationTraversal("", true);
    root->setChild(child);
    root->setSibling(self);
    EXPECT_EQ(t.run(*root), "b c d e e a");
    EXPECT_EQ(root->count(t.objects[0]), 6u);
    root->setDepthFirstEvaluation(true);
    EXPECT_EQ(t.run(*root), "b d e c e a");
    // A child that adds nothing, under a depth-first node.
    child->setAddToResult(false);
    EXPECT_EQ(t.run(*root), "b c a");
    EXPECT_EQ(root->count(t.objects[0]), 3u);
    // The result is appended to, never cleared.
    TNObjectSequence result{t.objects[3]};
    root->traverse(result, t.objects[0]);
    EXPECT_EQ(names(result), "d b c a");
    release(root);
}

TEST(TNAssociationTraversal, ForEachVisitsWhatTraverseGathersAndStopsWhenTold) {
    Tree t;
    // A single step (links handed over in place) and a tree (gathered first).
    auto* step = new TNAssociationTraversal("next", true);
    auto* tree = new TNAssociationTraversal("next", true);
    tree->setChild(new TNAssociationTraversal("next", true));
    for (const TNAssociationTraversal* root : {step, tree}) {
        for (const TNObject* from : {t.objects[0], t.objects[2], t.objects[4]}) {
            TNObjectSequence expected;
            root->traverse(expected, const_cast<TNObject*>(from));
            TNObjectSequence visited;
            root->forEach(const_cast<TNObject*>(from), [&](const SgxSimplePtr<TNObject>& o) {
                visited.push_back(o);
                return true;
            });
            EXPECT_EQ(names(visited), names(expected));
        }
        size_t calls = 0;
        root->forEach(t.objects[0], [&](const SgxSimplePtr<TNObject>&) { return ++calls < 2; });
        EXPECT_EQ(calls, 2u);
    }
    release(step);
    release(tree);
}

TEST(TNAssociationTraversal, UnknownRoleAndFalseConditionYieldNothing) {
    Tree t;
    auto* unknown = new TNAssociationTraversal("nope", true);
    EXPECT_EQ(t.run(*unknown), "");
    release(unknown);

    // A condition rejecting everything: the child (which would raise on a null source) is never
    // called.
    auto* root = new TNAssociationTraversal("next", true);
    SgxCyclicPtr<TNObjectVarExpr> x = new TNObjectVarExpr;
    root->setCondition(SgxCountedPtr<TNValueAbsExpr>(new TNValueAbsExpr(
        x, new TNRelationalExpr(new TNAttrExpr("size", x), TNRelationalExpr::TNGreater,
                                new TNConstantExpr(1)))));
    root->setChild(new TNAssociationTraversal("next", true));
    EXPECT_EQ(t.run(*root), "c e"); // c passes (size 2), b does not
    EXPECT_EQ(t.run(*root, t.objects[3]), "");
    release(root);
}

TEST(TNAssociationTraversal, RecursionLimitOnASelfLinkedObject) {
    NodeModel m;
    TNObject* loop = m.make("loop");
    m.link(loop, {loop});
    // [next] -> (back to itself): follows the self link for ever.
    auto* root = new TNAssociationTraversal("next", true);
    root->setChild(root);
    TNObjectSequence result;
    EXPECT_TRUE(raisesWith([&] { root->traverse(result, loop); }, kTooDeep));
    // One object per level; larger frames (sanitizers) may meet the stack budget first.
    EXPECT_LE(result.size(), TNAssociationTraversal::maxDepth);
    EXPECT_GT(result.size(), 1000u);
    // The limit counts nesting, not calls: the same tree works again afterwards on a model
    // without the cycle.
    result.clear();
    root->traverse(result, m.make("alone"));
    EXPECT_TRUE(result.empty());
    release(root);

    // Recursion through a compound association (each level a deeper stack) is caught as well.
    tnAddCompoundAssociation(*m.node, "<Node:loop>", "loop", m.node, "[next] -> [loop]");
    EXPECT_THROW(loop->objects("loop"), SgxException);
}

TEST(TNAssociationTraversal, ClosureCountsWhatTheWalkGathers) {
    // Counting a recursive closure takes a walk of its own; it must agree with traverse() on
    // every variant of the shape, on lists still being populated and on frozen single links and
    // arrays, with unknown roles and compound associations as steps.
    Tree t;
    tnAddCompoundAssociation(*t.node, "<Node:kids>", "kids", t.node, "[next]");
    const char* sources[] = {
        "top: [] -> ( [next] -> @top; [prev] )",
        "top: [] -> ( [next] -> @top; [nope]; [prev]; [kids] )",
        "top: [] -> [next] -> @top",
        "top: [] -> ( [kids] -> @top; [next] )",
        "top: [] -> ( [nope] -> @top; [next] )",
    };
    for (bool frozen : {false, true}) {
        if (frozen)
            t.schema.donePopulating();
        for (const char* source : sources) {
            TNAssociationTraversal* root = tnParseTraversal(source);
            for (bool rootAdds : {false, true}) {
                root->setAddToResult(rootAdds);
                for (TNObject* from : t.objects) {
                    TNObjectSequence gathered;
                    root->traverse(gathered, from);
                    EXPECT_EQ(root->count(from), gathered.size())
                        << source << " from " << names({from}) << (frozen ? " frozen" : "");
                }
            }
            release(root);
        }
    }
    TNAssociationTraversal* all = tnParseTraversal("top: [] -> ( [next] -> @top; [prev] )");
    // The prev links of a, b, d, e, c, e (e is reached along two paths): 0 + 1 + 1 + 2 + 1 + 2.
    EXPECT_EQ(all->count(t.objects[0]), 7u);
    // A graph changed after it was counted is counted as it is now: a condition on the leaf,
    // then a step that no longer leads back.
    TNAssociationTraversal* leaf = all->child()->sibling().get();
    SgxCyclicPtr<TNObjectVarExpr> x = new TNObjectVarExpr;
    leaf->setCondition(SgxCountedPtr<TNValueAbsExpr>(new TNValueAbsExpr(
        x, new TNRelationalExpr(new TNAttrExpr("name", x), TNRelationalExpr::TNEqual,
                                new TNConstantExpr("b")))));
    EXPECT_EQ(all->count(t.objects[0]), 3u); // b as the prev of d, and of e reached twice
    all->child()->setChild(nullptr);
    EXPECT_EQ(all->count(t.objects[0]), 0u); // a has no prev
    all->child()->setChild(all);
    release(all);

    // More link arrays waiting than the walk keeps in its frame: 50 children with 2 each.
    NodeModel wide;
    TNObject* top = wide.make("top");
    for (int i = 0; i < 50; ++i) {
        TNObject* child = wide.make("child");
        wide.link(top, {child});
        wide.link(child, {wide.make("x"), wide.make("y")});
    }
    // A copy made by the host, linked and counted from: it stands for its original.
    const TNObject copy = *top;
    TNObject* last = wide.make("last");
    wide.link(last, {const_cast<TNObject*>(&copy)});
    wide.schema.donePopulating();
    TNAssociationTraversal* below = tnParseTraversal("top: [] -> [next] -> @top");
    EXPECT_EQ(below->count(top), 150u);
    EXPECT_EQ(below->count(const_cast<TNObject*>(&copy)), 150u);
    TNObjectSequence gathered;
    below->traverse(gathered, last);
    EXPECT_EQ(below->count(last), gathered.size());
    EXPECT_EQ(gathered.size(), 151u);
    release(below);
}

TEST(TNAssociationTraversal, ClosureCountKeepsTheRecursionLimit) {
    NodeModel m;
    TNObject* loop = m.make("loop");
    m.link(loop, {loop});
    TNObject* a = m.make("a");
    TNObject* b = m.make("b");
    m.link(a, {b, m.make("c")});
    m.link(b, {m.make("d")});
    TNAssociationTraversal* root = tnParseTraversal("top: [] -> ( [next] -> @top; [prev] )");
    for (bool frozen : {false, true}) {
        if (frozen)
            m.schema.donePopulating();
        EXPECT_TRUE(raisesWith([&] { root->count(loop); }, kTooDeep));
        // The thread's nesting is back at the start: a deep but finite walk still counts.
        EXPECT_EQ(root->count(m.make("alone")), 0u);
    }
    // A compound step met inside the closure starts its own walk one level deeper; a cycle
    // through it is caught too.
    tnAddCompoundAssociation(*m.node, "<Node:kids>", "kids", m.node, "[next]");
    TNAssociationTraversal* viaCompound = tnParseTraversal("top: [] -> ( [kids] -> @top; [prev] )");
    EXPECT_THROW(viaCompound->count(loop), SgxException);
    release(viaCompound);
    // A step over a compound association whose graph is a closure counts that closure itself,
    // one level down: the cycle still raises, and a finite walk counts what it gathers.
    tnAddCompoundAssociation(*m.node, "<Node:below>", "below", m.node, "top: [] -> [next] -> @top");
    TNAssociationTraversal* viaStep = tnParseTraversal("[below]");
    EXPECT_TRUE(raisesWith([&] { viaStep->count(loop); }, kTooDeep));
    TNObjectSequence gathered;
    viaStep->traverse(gathered, a);
    EXPECT_EQ(viaStep->count(a), gathered.size());
    EXPECT_EQ(gathered.size(), 3u); // b, c and d
    release(viaStep);
    release(root);
}

TEST(TNAssociationTraversal, PersistsLinksButNotConditionOrDepthFirst) {
    TNAssociationTraversal* root =
        tnParseTraversal("top: [] -> ( [x] { class current = \"C\" } -> @top; [y] )");
    root->setDepthFirstEvaluation(true);
    const std::string data = storeToBytes(*root);
    RWbistream stream(data.data(), data.size());
    TNAssociationTraversal restored;
    restored.recursiveRestoreFrom(stream);
    EXPECT_FALSE(restored.depthFirstEvaluation());
    EXPECT_EQ(restored.associationToTraverse(), "");
    const TraversalPtr x = restored.child();
    ASSERT_FALSE(x.isNull());
    EXPECT_EQ(x->associationToTraverse(), "x");
    EXPECT_TRUE(x->condition().isNull());
    EXPECT_FALSE(x->addToResult());
    EXPECT_EQ(x->child().get(), &restored); // the back reference survives
    EXPECT_TRUE(x->sibling()->addToResult());
    EXPECT_EQ(x->sibling()->associationToTraverse(), "y");
    EXPECT_EQ(restored.binaryStoreSize(), ~RWspace(0));
    EXPECT_FALSE(restored.isEqual(&restored));
    release(x->sibling().get());
    delete x.get();
    release(root);
}
