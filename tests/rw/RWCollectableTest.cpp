#include "rw/RWCollectable.h"

#include "rw/RWCollectableInt.h"
#include "rw/RWCollectableString.h"
#include "rw/RWFile.h"
#include "rw/RWOrdered.h"
#include "rw/RWbstream.h"

#include "RWTestSupport.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

namespace {

// root owns a and b; b owns c; a and b both link to c (shared), c links back to root (cycle) and
// to itself.
struct Graph {
    TestNode* root = new TestNode("root", 1);
    TestNode* a = root->adopt(new TestNode("a", 2));
    TestNode* b = root->adopt(new TestNode("b", -3));
    TestNode* c = b->adopt(new TestNode("c", 4));
    Graph() {
        a->link(c);
        b->link(c);
        b->link(nullptr);
        c->link(root);
        c->link(c);
    }
    ~Graph() { delete root; }
};

// Checks that `root` has the shape Graph builds, with shared nodes shared.
void expectGraphShape(const RWCollectable* object) {
    const auto* root = dynamic_cast<const TestNode*>(object);
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->name(), "root");
    ASSERT_EQ(root->owned().size(), 2u);
    const TestNode* a = root->owned()[0];
    const TestNode* b = root->owned()[1];
    EXPECT_EQ(a->name(), "a");
    EXPECT_EQ(b->name(), "b");
    EXPECT_EQ(b->value(), -3);
    ASSERT_EQ(b->owned().size(), 1u);
    const TestNode* c = b->owned()[0];
    EXPECT_EQ(c->value(), 4);
    ASSERT_EQ(a->links().size(), 1u);
    EXPECT_EQ(a->links()[0], c);
    ASSERT_EQ(b->links().size(), 2u);
    EXPECT_EQ(b->links()[0], c);
    EXPECT_EQ(b->links()[1], nullptr);
    ASSERT_EQ(c->links().size(), 2u);
    EXPECT_EQ(c->links()[0], root);
    EXPECT_EQ(c->links()[1], c);
}

std::string readWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(RWCollectable, FactoryNamesClassesAndRefusesConflicts) {
    const RWClassID first = RWCollectable::nextAtom();
    const RWClassID second = RWCollectable::nextAtom();
    EXPECT_NE(first, second);
    EXPECT_NE(first, RWCollectable::classIsA());

    auto make = []() -> RWCollectable* { return new RWCollectableInt(7); };
    rwAddToFactory(make, first, "FactoryProbe");
    rwAddToFactory(make, first, "FactoryProbe"); // the same pair again is accepted
    EXPECT_EQ(rwClassName(first), "FactoryProbe");
    EXPECT_TRUE(raisesWith([&] { rwAddToFactory(make, second, "FactoryProbe"); }, "conflicts"));
    EXPECT_TRUE(raisesWith([&] { rwAddToFactory(make, first, "OtherName"); }, "conflicts"));
    EXPECT_TRUE(raisesWith([&] { rwAddToFactory(make, 0, "Zero"); }, "Invalid"));
    EXPECT_TRUE(raisesWith([&] { rwAddToFactory(nullptr, second, "NoCreate"); }, "Invalid"));

    std::unique_ptr<RWCollectable> made(rwCreateFromFactory("FactoryProbe"));
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(static_cast<RWCollectableInt*>(made.get())->value(), 7);

    rwRemoveFromFactory(first);
    rwRemoveFromFactory(first); // unknown ids are ignored
    EXPECT_EQ(rwClassName(first), "");
    EXPECT_EQ(rwCreateFromFactory("FactoryProbe"), nullptr);
    // Once removed, the name is free for another id.
    rwAddToFactory(make, second, "FactoryProbe");
    rwRemoveFromFactory(second);
}

TEST(RWCollectable, BuiltInClassesAreRegisteredUnderTheirNames) {
    EXPECT_EQ(RWOrdered().stringID(), "RWOrdered");
    EXPECT_EQ(RWCollectableString().stringID(), "RWCollectableString");
    EXPECT_EQ(RWCollectableInt().stringID(), "RWCollectableInt");
    EXPECT_EQ(RWCollectable().stringID(), "");
    std::unique_ptr<RWCollectable> species(RWOrdered().newSpecies());
    EXPECT_EQ(species->isA(), RWOrdered::classIsA());
}

TEST(RWCollectable, GraphRoundTripsThroughFileAndStreamWithTheSameBytes) {
    const size_t before = TestNode::live();
    std::string streamBytes;
    TempPath path("rwcollectable-graph");
    {
        Graph graph;
        streamBytes = storeToBytes(*graph.root);
        RWFile file(path.str(), "wb");
        ASSERT_TRUE(file.isValid());
        graph.root->recursiveSaveOn(file);
        file.Close();
        EXPECT_EQ(graph.root->recursiveStoreSize(), streamBytes.size());
    }
    EXPECT_EQ(readWholeFile(path.str()), streamBytes);

    RWCollectable* fromStream = restoreFrom(streamBytes);
    expectGraphShape(fromStream);
    delete fromStream;

    {
        RWFile file(path.str(), "rb");
        RWCollectable* fromFile = nullptr;
        file >> fromFile;
        expectGraphShape(fromFile);
        EXPECT_EQ(file.bytesLeft(), 0u);
        delete fromFile;
    }
    {
        // Restoring into an existing object; the caller keeps it.
        RWFile file(path.str(), "rb");
        TestNode target;
        target.recursiveRestoreFrom(file);
        expectGraphShape(&target);
    }
    EXPECT_EQ(TestNode::live(), before);
}

TEST(RWCollectable, SharedObjectsAreWrittenOnceAndLaterStoresStartAfresh) {
    RWCollectableInt shared(5);
    RWOrdered list;
    list.insert(&shared);
    list.insert(&shared);
    const std::string bytes = storeToBytes(list);
    const std::string expected =
        Bytes().newObject("RWOrdered").u32(2).newObject("RWCollectableInt").i32(5).backRef(1);
    EXPECT_EQ(bytes, expected);

    // Two outermost calls on one stream have separate tables: the second writes the object anew.
    std::ostringstream out;
    RWbostream stream(out);
    stream << &shared << &shared;
    EXPECT_EQ(
        out.str(),
        Bytes().newObject("RWCollectableInt").i32(5).newObject("RWCollectableInt").i32(5).str());
}

TEST(RWCollectable, StoreSizesMatchWhatIsWritten) {
    Graph graph;
    const std::string bytes = storeToBytes(*graph.root);
    EXPECT_EQ(graph.root->recursiveStoreSize(), bytes.size());
    // Tag, class name as a string, then the guts.
    EXPECT_EQ(graph.root->binaryStoreSize(), bytes.size() - 1 - 4 - std::string("TestNode").size());
    RWCollectableString text("four");
    EXPECT_EQ(text.binaryStoreSize(), 8u);
}

TEST(RWCollectable, StoringAnUnregisteredClassOrTooDeepANestingRaises) {
    RWCollectable unregistered;
    std::ostringstream out;
    RWbostream stream(out);
    EXPECT_TRUE(raisesWith([&] { unregistered.recursiveSaveOn(stream); }, "not registered"));

    // A chain one level deeper than a reader accepts is refused when written.
    std::vector<std::unique_ptr<TestNode>> chain;
    for (unsigned i = 0; i <= RWMaxNestingDepth; ++i) {
        chain.push_back(std::make_unique<TestNode>());
        if (i > 0)
            chain[i - 1]->link(chain[i].get());
    }
    EXPECT_TRUE(raisesWith([&] { chain[0]->recursiveSaveOn(stream); }, "nested deeper"));
    // Exactly at the limit it is written and read back.
    const std::string bytes = storeToBytes(*chain[1]);
    chain.clear();
    const size_t before = TestNode::live();
    RWCollectable* restored = restoreFrom(bytes);
    EXPECT_NE(restored, nullptr);
    EXPECT_EQ(TestNode::live(), before + RWMaxNestingDepth);
    TestNode::deleteAll();
}

// Guards against a false back-reference when a new object reuses a deleted one's address.
TEST(RWCollectable, ObjectDeletedDuringAStoreIsNotBackReferenced) {
    struct Scratch : RWCollectable {
        RWClassID isA() const override { return RWOrdered::classIsA(); }
        using RWCollectable::saveGuts;
        void saveGuts(RWvostream& s) const override {
            s << uint32_t{2};
            for (int i = 0; i < 2; ++i) {
                auto* temporary = new RWCollectableInt(i);
                s << temporary;
                delete temporary;
            }
        }
    };
    const std::string bytes = storeToBytes(Scratch());
    EXPECT_EQ(bytes, Bytes()
                         .newObject("RWOrdered")
                         .u32(2)
                         .newObject("RWCollectableInt")
                         .i32(0)
                         .newObject("RWCollectableInt")
                         .i32(1)
                         .str());
}

// Restores `bytes`, which must fail with a message containing `part`, and checks nothing leaked.
void expectRefused(const std::string& bytes, const std::string& part) {
    const size_t before = TestNode::live();
    EXPECT_TRUE(raisesWith([&] { delete restoreFrom(bytes); }, part));
    EXPECT_EQ(TestNode::live(), before);
}

TEST(RWCollectable, CorruptReferencesAreRefusedWithTheirPlace) {
    expectRefused(Bytes().newObject("NoSuchClass").str(),
                  "Unknown class \"NoSuchClass\" at byte 1");
    expectRefused(Bytes().backRef(0).str(), "Back-reference to object 0 when 0 objects");
    expectRefused(Bytes().newObject("TestNode").nodeHead("x", 1).backRef(3).str(),
                  "Back-reference to object 3 when 1 objects have been read at byte 26");
    expectRefused(Bytes().u8(7), "Invalid reference tag 7 at byte 0");
    expectRefused(Bytes().u8(2).u32(5000), "Class name of 5000 bytes");
    expectRefused(Bytes().u8(2).u32(20).u8('T'),
                  "Count of 20 class name bytes exceeds the 1 bytes left at byte 5");
    // A node name claiming more bytes than are left.
    expectRefused(Bytes().newObject("TestNode").u32(0xFFFFFFFF),
                  "String length 4294967295 exceeds the 0 bytes left at byte 13");
    // A link count no input could hold: refused before anything is reserved.
    expectRefused(Bytes().newObject("TestNode").text("n").i32(0).u32(0x7FFFFFFF).nil(),
                  "Count of 2147483647 links exceeds the 1 bytes left");
}

TEST(RWCollectable, NestingBeyondTheLimitIsRefused) {
    auto nested = [](unsigned depth) {
        Bytes bytes;
        for (unsigned i = 0; i < depth; ++i)
            bytes.newObject("TestNode").nodeHead("", 1);
        bytes.nil();
        for (unsigned i = 0; i < depth; ++i)
            bytes.u32(0); // no owned nodes
        return bytes.str();
    };
    expectRefused(nested(RWMaxNestingDepth + 1), "Objects nested deeper than " + std::to_string(RWMaxNestingDepth));
    RWCollectable* deepest = restoreFrom(nested(RWMaxNestingDepth));
    EXPECT_NE(deepest, nullptr);
    EXPECT_EQ(TestNode::live(), RWMaxNestingDepth);
    TestNode::deleteAll();
}

TEST(RWCollectable, OwnershipClaimedTwiceOrInACycleIsRefused) {
    // The root owns its child twice.
    expectRefused(Bytes()
                      .newObject("TestNode")
                      .nodeHead("root", 0)
                      .u32(2)
                      .newObject("TestNode")
                      .nodeHead("child", 0)
                      .u32(0)
                      .backRef(1),
                  "claimed by two owners");
    // The child owns the root, which then owns the child.
    expectRefused(Bytes()
                      .newObject("TestNode")
                      .nodeHead("root", 0)
                      .u32(1)
                      .newObject("TestNode")
                      .nodeHead("child", 0)
                      .u32(1)
                      .backRef(0),
                  "would own itself");
}

// Reads a reference, deletes what it got, then reads another.
struct Discarding : RWCollectable {
    RWClassID isA() const override { return atom; }
    using RWCollectable::restoreGuts;
    void restoreGuts(RWvistream& s) override {
        RWCollectable* first;
        s >> first;
        delete first;
        RWCollectable* second;
        s >> second;
    }
    static RWCollectable* create() { return new Discarding; }
    static inline const RWClassID atom = RWCollectable::nextAtom();
};

TEST(RWCollectable, BackReferenceToADeletedObjectIsRefused) {
    rwAddToFactory(&Discarding::create, Discarding::atom, "Discarding");
    const std::string bytes =
        Bytes().newObject("Discarding").newObject("RWCollectableInt").i32(1).backRef(1);
    EXPECT_TRUE(raisesWith([&] { delete restoreFrom(bytes); }, "which no longer exists"));
    rwRemoveFromFactory(Discarding::atom);
}

TEST(RWCollectable, EveryTruncationAndBitFlipFailsCleanlyOrReadsAGraph) {
    std::string bytes;
    {
        Graph graph;
        bytes = storeToBytes(*graph.root);
    }
    ASSERT_EQ(TestNode::live(), 0u);
    for (size_t length = 0; length < bytes.size(); ++length) {
        EXPECT_THROW(delete restoreFrom(bytes.substr(0, length)), SgxException)
            << "prefix of " << length << " bytes";
        ASSERT_EQ(TestNode::live(), 0u) << "prefix of " << length << " bytes";
    }
    size_t refused = 0;
    for (size_t bit = 0; bit < bytes.size() * 8; ++bit) {
        std::string flipped = bytes;
        flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << (bit % 8)));
        try {
            restoreFrom(flipped);
            // Accepted (a changed value or name): whatever was read must be freeable.
            TestNode::deleteAll();
        } catch (const SgxException&) {
            ++refused;
        }
        ASSERT_EQ(TestNode::live(), 0u) << "bit " << bit;
    }
    EXPECT_GT(refused, bytes.size());
}

TEST(RWCollectable, TargetOfTheWrongClassIsRefusedAndKept) {
    const std::string bytes = storeToBytes(RWCollectableInt(3));
    RWbistream in(bytes.data(), bytes.size());
    RWCollectableString target("kept");
    EXPECT_TRUE(raisesWith([&] { target.recursiveRestoreFrom(in); },
                           "Expected an object of class \"RWCollectableString\", found "
                           "\"RWCollectableInt\""));
    EXPECT_EQ(target.str(), "kept");
}

} // namespace
