#include "tarnel/core/TNCollectable.h"

#include "sgx/general/SgxException.h"
#include "sgx/persistence/SgxCollectable.h"

#include <gtest/gtest.h>

#include <memory>

// Persistable classes that exist only in this test, registered the way the library's own are.
class TNProbe : public SgxCollectable {
    TN_DECLARE_COLLECTABLE(TNProbe)
public:
    TNProbe() = default;
    explicit TNProbe(int value) : value(value) {}
    int value = 0;
};

class TNUncopyableProbe : public SgxCollectable {
    TN_DECLARE_COLLECTABLE(TNUncopyableProbe)
public:
    TNUncopyableProbe(const TNUncopyableProbe&) = delete;
    TNUncopyableProbe& operator=(const TNUncopyableProbe&) = delete;

private:
    TNUncopyableProbe() = default; // the factory still reaches it
};

TN_DEFINE_COLLECTABLE(TNProbe)
TN_DEFINE_COLLECTABLE(TNUncopyableProbe)

TEST(TNCollectable, OneLineRegistersUnderTheNameAndDefinesSpeciesAndCopy) {
    ASSERT_NE(TNProbe::classIsA(), 0);
    EXPECT_NE(TNProbe::classIsA(), TNUncopyableProbe::classIsA());
    EXPECT_EQ(rwClassName(TNProbe::classIsA()), "TNProbe");
    EXPECT_EQ(rwClassName(TNUncopyableProbe::classIsA()), "TNUncopyableProbe");
    std::unique_ptr<RWCollectable> byName(rwCreateFromFactory("TNProbe"));
    ASSERT_NE(dynamic_cast<TNProbe*>(byName.get()), nullptr);
    std::unique_ptr<RWCollectable> uncopyable(rwCreateFromFactory(TNUncopyableProbe::classIsA()));
    ASSERT_NE(dynamic_cast<TNUncopyableProbe*>(uncopyable.get()), nullptr);
    EXPECT_THROW(delete uncopyable->copy(), SgxException);
    EXPECT_EQ(std::unique_ptr<RWCollectable>(uncopyable->newSpecies())->isA(),
              TNUncopyableProbe::classIsA());

    TNProbe original(7);
    std::unique_ptr<RWCollectable> species(original.newSpecies()), copy(original.copy());
    ASSERT_NE(dynamic_cast<TNProbe*>(species.get()), nullptr);
    EXPECT_EQ(static_cast<TNProbe*>(species.get())->value, 0);
    ASSERT_NE(dynamic_cast<TNProbe*>(copy.get()), nullptr);
    EXPECT_NE(copy.get(), &original);
    EXPECT_EQ(static_cast<TNProbe*>(copy.get())->value, 7);
}

TEST(TNCollectable, EntryLeavesTheFactoryWhenItEnds) {
    RWClassID atom = 0;
    {
        RWFactoryEntry entry(
            atom, [] { return static_cast<RWCollectable*>(new TNProbe(3)); }, "TNScopedProbe",
            tnStartUp);
        EXPECT_NE(atom, 0);
        EXPECT_NE(atom, TNProbe::classIsA());
        std::unique_ptr<RWCollectable> made(rwCreateFromFactory("TNScopedProbe"));
        ASSERT_NE(dynamic_cast<TNProbe*>(made.get()), nullptr);
        EXPECT_EQ(static_cast<TNProbe*>(made.get())->value, 3);
    }
    EXPECT_EQ(rwCreateFromFactory("TNScopedProbe"), nullptr);
    EXPECT_EQ(rwClassName(atom), "");
    EXPECT_EQ(rwClassName(TNProbe::classIsA()), "TNProbe"); // other classes are untouched
}
