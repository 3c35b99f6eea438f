#include "sgx/persistence/StartPersistence.h"

#include "PersistenceTestSupport.h"

#include <gtest/gtest.h>

namespace {

TEST(StartPersistence, EachGuardFreesOnceWhatItsScopeRegistered) {
    const int before = TestRecord::live();
    auto* record = new TestRecord;
    registerCollectable(record);
    registerCollectable(record);
    registerCollectable(nullptr);
    EXPECT_EQ(registeredCollectables(), 1u);
    cleanUpAfterPersistence();
    EXPECT_EQ(registeredCollectables(), 0u);
    EXPECT_EQ(TestRecord::live(), before);
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

// A record that, like a schema, reads a helper collection and hands it to the library, then
// reads one more reference; `greedy` ones give the helper to themselves first.
struct Unpacker : TestRecord {
    RWClassID isA() const override { return atom; }
    using TestRecord::restoreGuts;
    void restoreGuts(RWvistream& s) override {
        StartPersistence guard;
        RWCollectable *helper, *last;
        s >> helper;
        if (greedy) {
            kept.reset(helper);
            rwAdopt(helper, this);
        }
        registerCollectable(helper);
        s >> last;
    }
    bool greedy = false;
    std::unique_ptr<RWCollectable> kept;
    static const RWClassID atom;
};
const RWClassID Unpacker::atom = registerTestClass<Unpacker>("Unpacker");

TEST(StartPersistence, ObjectsRegisteredInARestoreAreFreedOnceByItsGuard) {
    // An Unpacker, its helper (revision 1, word 7, nil), then a back-reference to object `back`.
    auto bytes = [](uint32_t back) {
        Bytes b;
        b.newObject("Unpacker").newObject("TestRecord") << uint8_t{1} << uint16_t{7} << uint8_t{0};
        return std::string(b.backRef(back));
    };
    const int before = TestRecord::live();
    delete restoreFrom(bytes(1)); // the last reference is back to the helper
    EXPECT_EQ(registeredCollectables(), 0u);
    EXPECT_EQ(TestRecord::live(), before);
    EXPECT_TRUE(raisesWith([&] { delete restoreFrom(bytes(9)); }, "Back-reference to object 9"));
    EXPECT_EQ(registeredCollectables(), 0u);
    EXPECT_EQ(TestRecord::live(), before);

    // Registering an object the restore already gave to an owner raises; the owner keeps it.
    const std::string complete = bytes(1);
    RWbistream in(complete.data(), complete.size());
    Unpacker target;
    target.greedy = true;
    EXPECT_TRUE(raisesWith([&] { target.recursiveRestoreFrom(in); }, "claimed by two owners"));
    EXPECT_EQ(registeredCollectables(), 0u);
    ASSERT_NE(target.kept, nullptr);
    EXPECT_EQ(TestRecord::live(), before + 2);
}

} // namespace
