#include "sgx/persistence/StartPersistence.h"

#include "rw/RWOrdered.h"
#include "rw/RWbstream.h"

#include "PersistenceTestSupport.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

TEST(StartPersistence, CleanUpDeletesRegisteredObjectsOnceAndIgnoresNull) {
    const int before = TestRecord::live();
    auto* record = new TestRecord;
    registerCollectable(record);
    registerCollectable(record);
    registerCollectable(nullptr);
    EXPECT_EQ(registeredCollectables(), 1u);
    cleanUpAfterPersistence();
    EXPECT_EQ(registeredCollectables(), 0u);
    EXPECT_EQ(TestRecord::live(), before);
}

TEST(StartPersistence, InnerGuardFreesOnlyWhatItsScopeRegistered) {
    const int before = TestRecord::live();
    {
        StartPersistence outer;
        registerCollectable(new TestRecord(1));
        {
            StartPersistence inner;
            registerCollectable(new TestRecord(2));
            registerCollectable(new TestRecord(3));
            EXPECT_EQ(TestRecord::live(), before + 3);
        }
        EXPECT_EQ(TestRecord::live(), before + 1); // the outer save's object is still there
        { StartPersistence innerWithNothing; }
        EXPECT_EQ(TestRecord::live(), before + 1);
    }
    EXPECT_EQ(TestRecord::live(), before);
}

// A record that, like a schema, reads helper collections and hands them to the library.
class Unpacker : public TestRecord {
public:
    RWClassID isA() const override { return atom; }
    using TestRecord::restoreGuts;
    void restoreGuts(RWvistream& s) override {
        StartPersistence guard;
        RWCollectable* helper;
        s >> helper;
        registerCollectable(helper);
        RWCollectable* last;
        s >> last;
    }
    static const RWClassID atom;
};

const RWClassID Unpacker::atom = [] {
    const RWClassID id = RWCollectable::nextAtom();
    rwAddToFactory([]() -> RWCollectable* { return new Unpacker; }, id, "Unpacker");
    return id;
}();

std::string unpackerBytes(bool complete) {
    std::ostringstream out;
    RWbostream s(out);
    s << uint8_t{2} << SgxString("Unpacker");
    TestRecord helper(7);
    s << uint8_t{2} << SgxString("TestRecord");
    helper.saveGuts(s);
    if (complete)
        s << uint8_t{1} << uint32_t{1}; // back to the helper
    else
        s << uint8_t{1} << uint32_t{9}; // no such object
    return out.str();
}

TEST(StartPersistence, RegisteredObjectsOfAFailedRestoreAreFreedOnceByTheGuard) {
    const int before = TestRecord::live();
    for (bool complete : {true, false}) {
        const std::string bytes = unpackerBytes(complete);
        RWbistream in(bytes.data(), bytes.size());
        RWCollectable* read = nullptr;
        if (complete) {
            in >> read;
            delete read;
        } else {
            EXPECT_TRUE(raisesWith([&] { in >> read; }, "Back-reference to object 9"));
        }
        EXPECT_EQ(registeredCollectables(), 0u) << "complete: " << complete;
        EXPECT_EQ(TestRecord::live(), before) << "complete: " << complete;
    }
}

TEST(StartPersistence, RegisteringAnObjectTheRestoreGaveToAnOwnerRaises) {
    // The restoring code adopted the helper and then registered it as well.
    class Greedy : public TestRecord {
    public:
        RWClassID isA() const override { return Unpacker::atom; }
        using TestRecord::restoreGuts;
        void restoreGuts(RWvistream& s) override {
            RWCollectable* helper;
            s >> helper;
            m_helper.reset(helper);
            rwAdopt(helper, this);
            registerCollectable(helper);
        }
        std::unique_ptr<RWCollectable> m_helper;
    };
    std::ostringstream out;
    RWbostream s(out);
    s << uint8_t{2} << SgxString("Unpacker") << uint8_t{2} << SgxString("TestRecord");
    TestRecord(1).saveGuts(s);
    const std::string bytes = out.str();
    RWbistream in(bytes.data(), bytes.size());
    Greedy target;
    const int before = TestRecord::live();
    EXPECT_TRUE(raisesWith([&] { target.recursiveRestoreFrom(in); }, "claimed by two owners"));
    EXPECT_EQ(registeredCollectables(), 0u);
    // The helper was not deleted by the failed restore: it stays with its owner.
    ASSERT_NE(target.m_helper, nullptr);
    EXPECT_EQ(TestRecord::live(), before + 1);
}

} // namespace
