#include "rw/RWCollectable.h"

#include "rw/RWCollectableInt.h"
#include "rw/RWCollectableString.h"
#include "rw/RWFile.h"
#include "rw/RWOrdered.h"
#include "rw/RWbstream.h"

#include "RWTestSupport.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

// root owns a and b; b owns c; a and b both link to c (shared), c links back to root (cycle) and
// to itself.
struct Graph {
    TestNode* root = new TestNode("root", 1);
    TestNode* a = root->adopt(new TestNode("a", 2));
    TestNode* b = root->adopt(new TestNode("b", -3));
    TestNode* c = b->adopt(new TestNode("c", 4));
    Graph() {
        a->links = {c};
        b->links = {c, nullptr};
        c->links = {root, c};
    }
    ~Graph() { delete root; }
};

// Checks that `object` has the shape Graph builds, with shared nodes shared.
void expectGraphShape(RWCollectable* object) {
    auto* root = dynamic_cast<TestNode*>(object);
    ASSERT_NE(root, nullptr);
    ASSERT_EQ(root->owned.size(), 2u);
    TestNode* a = root->owned[0];
    TestNode* b = root->owned[1];
    ASSERT_EQ(b->owned.size(), 1u);
    TestNode* c = b->owned[0];
    EXPECT_EQ(root->name + a->name + b->name + c->name, "rootabc");
    EXPECT_EQ(b->value, -3);
    EXPECT_EQ(c->value, 4);
    EXPECT_EQ(a->links, std::vector<RWCollectable*>({c}));
    EXPECT_EQ(b->links, std::vector<RWCollectable*>({c, nullptr}));
    EXPECT_EQ(c->links, std::vector<RWCollectable*>({root, c}));
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
    rwAddToFactory(make, second, "FactoryProbe"); // the name is free for another id
    rwRemoveFromFactory(second);

    EXPECT_EQ(RWOrdered().stringID(), "RWOrdered");
    EXPECT_EQ(RWCollectableString().stringID(), "RWCollectableString");
    EXPECT_EQ(RWCollectableInt().stringID(), "RWCollectableInt");
    EXPECT_EQ(RWCollectable().stringID(), "");
    EXPECT_EQ(std::unique_ptr<RWCollectable>(RWOrdered().newSpecies())->isA(),
              RWOrdered::classIsA());
}

TEST(RWCollectable, GraphRoundTripsThroughFileAndStreamWithTheSameBytes) {
    const size_t before = TestNode::live();
    std::string streamBytes;
    TempPath path;
    {
        Graph graph;
        streamBytes = storeToBytes(*graph.root);
        RWFile file(path.str(), "wb");
        ASSERT_TRUE(file.isValid());
        graph.root->recursiveSaveOn(file);
        EXPECT_EQ(graph.root->recursiveStoreSize(), streamBytes.size());
        // Tag, class name as a string, then the guts.
        EXPECT_EQ(graph.root->binaryStoreSize(), streamBytes.size() - 1 - 4 - 8);
    }
    EXPECT_EQ(path.contents(), streamBytes);

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
        RWFile file(path.str(), "rb");
        TestNode target; // restoring into an existing object: the caller keeps it
        target.recursiveRestoreFrom(file);
        expectGraphShape(&target);
    }
    EXPECT_EQ(TestNode::live(), before);
}

std::string intRecord(int32_t v) { return Bytes().newObject("RWCollectableInt").i32(v); }
std::string ordered(uint32_t entries) { return Bytes().newObject("RWOrdered").u32(entries); }

TEST(RWCollectable, StoresWriteSharedObjectsOnceAndEachCallStartsAfresh) {
    RWCollectableInt shared(5);
    RWOrdered list;
    list.insert(&shared);
    list.insert(&shared);
    EXPECT_EQ(storeToBytes(list), ordered(2) + intRecord(5) + std::string(Bytes().backRef(1)));
    // Two outermost calls on one stream have separate tables: the second writes the object anew.
    Bytes twice;
    twice.stream << &shared << &shared;
    EXPECT_EQ(std::string(twice), intRecord(5) + intRecord(5));

    // A new object reusing a deleted one's address during a store is not back-referenced.
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
    EXPECT_EQ(storeToBytes(Scratch()), ordered(2) + intRecord(0) + intRecord(1));
}

TEST(RWCollectable, StoringAnUnregisteredClassOrTooDeepANestingRaises) {
    Bytes sink;
    EXPECT_TRUE(
        raisesWith([&] { RWCollectable().recursiveSaveOn(sink.stream); }, "not registered"));
    // A chain one level deeper than a reader accepts is refused when written.
    std::vector<std::unique_ptr<TestNode>> chain;
    for (unsigned i = 0; i <= RWMaxNestingDepth; ++i) {
        chain.push_back(std::make_unique<TestNode>());
        if (i > 0)
            chain[i - 1]->links = {chain[i].get()};
    }
    EXPECT_TRUE(raisesWith([&] { chain[0]->recursiveSaveOn(sink.stream); }, "nested deeper"));
    // Exactly at the limit it is written and read back.
    const std::string bytes = storeToBytes(*chain[1]);
    chain.clear();
    ASSERT_EQ(TestNode::live(), 0u);
    EXPECT_NE(restoreFrom(bytes), nullptr);
    EXPECT_EQ(TestNode::live(), RWMaxNestingDepth);
    TestNode::deleteAll();
}

// A node whose holders only keep pointers to it while a restore runs, so its guts may come later.
struct DeferrableNode : TestNode {
    RWClassID isA() const override { return atom; }
    bool canDeferGuts() const override { return true; }
    static const RWClassID atom;
};
const RWClassID DeferrableNode::atom = registerTestClass<DeferrableNode>("DeferrableNode");

TEST(RWCollectable, DeepChainsOfDeferrableObjectsRoundTripWithBoundedNesting) {
    // Four times deeper than a reader nests: each link beyond the deferral depth is declared,
    // and its guts follow the root's, so the chain reads back whole and in order.
    const unsigned length = 4 * RWMaxNestingDepth;
    std::vector<std::unique_ptr<DeferrableNode>> chain;
    for (unsigned i = 0; i < length; ++i) {
        chain.push_back(std::make_unique<DeferrableNode>());
        chain.back()->name = std::to_string(i);
        if (i > 0)
            chain[i - 1]->links = {chain[i].get()};
    }
    chain.back()->links = {chain.front().get()}; // and a cycle back to the root
    const std::string bytes = storeToBytes(*chain[0]);
    EXPECT_EQ(chain[0]->recursiveStoreSize(), bytes.size());
    chain.clear();

    auto* root = dynamic_cast<DeferrableNode*>(restoreFrom(bytes));
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(TestNode::live(), length);
    const TestNode* node = root;
    for (unsigned i = 0; i < length; ++i, node = static_cast<const TestNode*>(node->links[0]))
        ASSERT_EQ(node->name, std::to_string(i));
    EXPECT_EQ(node, root);
    EXPECT_EQ(storeToBytes(*root), bytes); // written again, byte for byte
    TestNode::deleteAll();

    // A declaration of a class that needs its guts at once is refused, and nothing leaks.
    const std::string declared = Bytes().node("root", 1) << uint8_t{3} << std::string("TestNode");
    EXPECT_TRUE(raisesWith([&] { delete restoreFrom(declared + std::string(Bytes().u32(0))); },
                           "Class \"TestNode\" cannot be declared ahead"));
    EXPECT_EQ(TestNode::live(), 0u);
}

// Reads a reference, deletes what it got, then reads another.
struct Discarding : RWCollectable {
    RWClassID isA() const override { return atom; }
    using RWCollectable::restoreGuts;
    void restoreGuts(RWvistream& s) override {
        RWCollectable *first, *second;
        s >> first;
        delete first;
        s >> second;
    }
    static const RWClassID atom;
};
const RWClassID Discarding::atom = registerTestClass<Discarding>("Discarding");

// Reads a reference and hands what it got to code outside the restore, which frees it at once.
struct Claiming : RWCollectable {
    RWClassID isA() const override { return atom; }
    using RWCollectable::restoreGuts;
    void restoreGuts(RWvistream& s) override {
        RWCollectable* read;
        s >> read;
        rwAdopt(read);
        delete read;
    }
    static const RWClassID atom;
};
const RWClassID Claiming::atom = registerTestClass<Claiming>("Claiming");

TEST(RWCollectable, CorruptInputsAreRefusedWithTheirPlaceAndLeakNothing) {
    auto nested = [](unsigned depth) {
        Bytes bytes;
        for (unsigned i = 0; i < depth; ++i)
            bytes.node("", 1);
        bytes.u8(0); // nil
        for (unsigned i = 0; i < depth; ++i)
            bytes.u32(0); // no owned nodes
        return std::string(bytes);
    };
    // A root with one new child, then `back` as the root's second owned entry or the child's.
    auto owning = [](uint32_t rootOwns, uint32_t childOwns, uint32_t back) {
        return std::string(
            Bytes().node("root", 0).u32(rootOwns).node("child", 0).u32(childOwns).backRef(back));
    };
    const std::pair<std::string, std::string> rows[] = {
        {Bytes().newObject("NoSuchClass"), "Unknown class \"NoSuchClass\" at byte 1"},
        {Bytes().backRef(0), "Back-reference to object 0 when 0 objects"},
        {Bytes().node("x", 1).backRef(3),
         "Back-reference to object 3 when 1 objects have been read at byte 26"},
        {Bytes().newObject("Discarding").newObject("RWCollectableInt").i32(1).backRef(1),
         "which no longer exists"},
        {Bytes().u8(7), "Invalid reference tag 7 at byte 0"},
        {Bytes().u8(2).u32(5000), "Class name of 5000 bytes"},
        {Bytes().u8(2).u32(20).u8('T'),
         "Count of 20 class name bytes exceeds the 1 bytes left at byte 5"},
        {Bytes().newObject("TestNode").u32(0xFFFFFFFF),
         "String length 4294967295 exceeds the 0 bytes left at byte 13"},
        // A link count no input could hold: refused before anything is reserved.
        {Bytes().node("n", 0x7FFFFFFF).u8(0), "Count of 2147483647 links exceeds the 1 bytes left"},
        {nested(RWMaxNestingDepth + 1),
         "Objects nested deeper than " + std::to_string(RWMaxNestingDepth)},
        {owning(2, 0, 1), "claimed by two owners"}, // the root owns its child twice
        {owning(1, 1, 0), "would own itself"},      // the child owns the root, which owns it
        {Bytes().newObject("Claiming").backRef(0), "claimed while it is still being read"},
    };
    for (const auto& [bytes, part] : rows) {
        EXPECT_TRUE(raisesWith([&] { delete restoreFrom(bytes); }, part));
        EXPECT_EQ(TestNode::live(), 0u) << part;
    }

    // Restoring into a target of another class refuses and leaves the target as it was.
    const std::string bytes = storeToBytes(RWCollectableInt(3));
    RWbistream in(bytes.data(), bytes.size());
    RWCollectableString target("kept");
    EXPECT_TRUE(raisesWith(
        [&] { target.recursiveRestoreFrom(in); },
        "Expected an object of class \"RWCollectableString\", found \"RWCollectableInt\""));
    EXPECT_EQ(target.str(), "kept");
}

// Reads two references, RWCollectableInt ones in place: keeps the values read so, and owns the
// TestNodes read otherwise.
struct InPlaceReading : RWCollectable {
    RWClassID isA() const override { return atom; }
    using RWCollectable::restoreGuts;
    void restoreGuts(RWvistream& s) override {
        for (int i = 0; i < 2; ++i) {
            int32_t value = 0;
            bool inPlace = false;
            RWCollectable* read = rwRestoreInPlace(
                s, RWCollectableInt::classIsA(), [&](RWvistream& in) { in >> value; }, inPlace);
            if (inPlace)
                values.push_back(value);
            if (auto* node = dynamic_cast<TestNode*>(read)) {
                rwAdopt(node, this);
                nodes.emplace_back(node);
            }
        }
    }
    std::vector<int32_t> values;
    std::vector<std::unique_ptr<TestNode>> nodes;
    static const RWClassID atom;
};
const RWClassID InPlaceReading::atom = registerTestClass<InPlaceReading>("InPlaceReading");

TEST(RWCollectable, ObjectsReadInPlaceTakeTheirNumberButAreNeverMade) {
    const std::string reader = Bytes().newObject("InPlaceReading");
    const auto value = [](int32_t v) {
        return std::string(Bytes().newObject("RWCollectableInt").i32(v));
    };
    // Object 1 is read in place, so the node that links to itself is object 2.
    std::unique_ptr<RWCollectable> read(
        restoreFrom(reader + value(5) + std::string(Bytes().node("n", 1).backRef(2).u32(0))));
    auto& reading = dynamic_cast<InPlaceReading&>(*read);
    EXPECT_EQ(reading.values, std::vector<int32_t>({5}));
    ASSERT_EQ(reading.nodes.size(), 1u);
    EXPECT_EQ(reading.nodes[0]->links, std::vector<RWCollectable*>({reading.nodes[0].get()}));
    read.reset();

    const std::pair<std::string, std::string> refused[] = {
        {reader + value(5) + std::string(Bytes().backRef(1)),
         "Back-reference to object 1, which was read in place and is not kept at byte 44"},
        // A declaration is no object read in place: its class must allow one.
        {reader + value(5) + std::string(Bytes().u8(3) << std::string("RWCollectableInt")),
         "Class \"RWCollectableInt\" cannot be declared ahead"},
        // Fails inside the guts read in place, after a node was read and adopted.
        {reader + std::string(Bytes().node("n", 0).u32(0).newObject("RWCollectableInt")),
         "Unexpected end of data"},
    };
    for (const auto& [bytes, part] : refused) {
        EXPECT_TRUE(raisesWith([&] { delete restoreFrom(bytes); }, part)) << part;
        EXPECT_EQ(TestNode::live(), 0u) << part;
    }

    // The outermost call reads in place as well.
    const std::string bytes = value(9);
    RWbistream in(bytes.data(), bytes.size());
    int32_t got = 0;
    bool inPlace = false;
    EXPECT_EQ(rwRestoreInPlace(
                  in, RWCollectableInt::classIsA(), [&](RWvistream& s) { s >> got; }, inPlace),
              nullptr);
    EXPECT_TRUE(inPlace);
    EXPECT_EQ(got, 9);
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
            TestNode::deleteAll(); // accepted (a changed value or name): it must be freeable
        } catch (const SgxException&) {
            ++refused;
        }
        ASSERT_EQ(TestNode::live(), 0u) << "bit " << bit;
    }
    EXPECT_GT(refused, bytes.size());
}

} // namespace
