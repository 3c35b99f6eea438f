// A persistable record built on SgxCollectable that counts its live instances, for the
// persistence library's tests.
#pragma once

#include "rw/RWTestSupport.h"
#include "sgx/persistence/SgxCollectable.h"

// Guts: the base guts, then a 16-bit word and a reference to another record (borrowed).
struct TestRecord : SgxCollectable {
    explicit TestRecord(uint16_t word = 0) : word(word) { ++s_live; }
    ~TestRecord() override { --s_live; }
    TestRecord(const TestRecord&) = delete;
    TestRecord& operator=(const TestRecord&) = delete;

    RWClassID isA() const override { return atom; }
    using SgxCollectable::restoreGuts;
    using SgxCollectable::saveGuts;
    void saveGuts(RWvostream& s) const override {
        SgxCollectable::saveGuts(s);
        s << word << next;
    }
    void restoreGuts(RWvistream& s) override {
        SgxCollectable::restoreGuts(s);
        s >> word >> next;
    }
    static int live() { return s_live; }
    static inline int s_live = 0;
    static const RWClassID atom;

    uint16_t word;
    RWCollectable* next = nullptr;
};
inline const RWClassID TestRecord::atom = registerTestClass<TestRecord>("TestRecord");
