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
    explicit TNProbe(int value) : m_value(value) {}
    int value() const { return m_value; }

private:
    int m_value = 0;
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

TEST(TNCollectable, ClassesRegisterUnderTheirNamesWithDistinctIds) {
    ASSERT_NE(TNProbe::classIsA(), 0);
    ASSERT_NE(TNUncopyableProbe::classIsA(), 0);
    EXPECT_NE(TNProbe::classIsA(), TNUncopyableProbe::classIsA());
    EXPECT_EQ(TNProbe::myAtom, TNProbe::classIsA());

    EXPECT_EQ(rwClassName(TNProbe::classIsA()), "TNProbe");
    EXPECT_EQ(rwClassName(TNUncopyableProbe::classIsA()), "TNUncopyableProbe");

    std::unique_ptr<RWCollectable> byName(rwCreateFromFactory("TNProbe"));
    ASSERT_NE(dynamic_cast<TNProbe*>(byName.get()), nullptr);
    EXPECT_EQ(byName->isA(), TNProbe::classIsA());
    EXPECT_EQ(byName->stringID(), "TNProbe");

    std::unique_ptr<RWCollectable> byId(rwCreateFromFactory(TNUncopyableProbe::classIsA()));
    ASSERT_NE(dynamic_cast<TNUncopyableProbe*>(byId.get()), nullptr);
    EXPECT_EQ(byId->isA(), TNUncopyableProbe::classIsA());
}

TEST(TNCollectable, NewSpeciesIsFreshAndCopyCopies) {
    TNProbe original(7);
    std::unique_ptr<RWCollectable> species(original.newSpecies());
    auto* fresh = dynamic_cast<TNProbe*>(species.get());
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(fresh->value(), 0);

    std::unique_ptr<RWCollectable> duplicate(original.copy());
    auto* copied = dynamic_cast<TNProbe*>(duplicate.get());
    ASSERT_NE(copied, nullptr);
    EXPECT_NE(copied, &original);
    EXPECT_EQ(copied->value(), 7);

    std::unique_ptr<RWCollectable> uncopyable(rwCreateFromFactory("TNUncopyableProbe"));
    ASSERT_NE(uncopyable, nullptr);
    EXPECT_THROW(delete uncopyable->copy(), SgxException);
    std::unique_ptr<RWCollectable> uncopyableSpecies(uncopyable->newSpecies());
    EXPECT_EQ(uncopyableSpecies->isA(), TNUncopyableProbe::classIsA());
}

TEST(TNCollectable, EntryLeavesTheFactoryWhenItEnds) {
    RWClassID atom = 0;
    {
        TNFactoryEntry entry(
            atom, [] { return static_cast<RWCollectable*>(new TNProbe(3)); }, "TNScopedProbe");
        EXPECT_NE(atom, 0);
        EXPECT_NE(atom, TNProbe::classIsA());
        EXPECT_EQ(rwClassName(atom), "TNScopedProbe");
        std::unique_ptr<RWCollectable> made(rwCreateFromFactory("TNScopedProbe"));
        ASSERT_NE(dynamic_cast<TNProbe*>(made.get()), nullptr);
        EXPECT_EQ(static_cast<TNProbe*>(made.get())->value(), 3);
    }
    EXPECT_EQ(rwCreateFromFactory("TNScopedProbe"), nullptr);
    EXPECT_EQ(rwClassName(atom), "");
    // Other classes are untouched.
    EXPECT_EQ(rwClassName(TNProbe::classIsA()), "TNProbe");
}
