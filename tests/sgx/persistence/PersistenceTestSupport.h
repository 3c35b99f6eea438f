// Helpers shared by the persistence library's tests: a persistable record built on
// SgxCollectable that counts its live instances, and a check of a raised exception's text.
#pragma once

#include "rw/RWCollectable.h"
#include "sgx/general/SgxException.h"
#include "sgx/persistence/SgxCollectable.h"

#include <gtest/gtest.h>

#include <string>

// Succeeds when `f` raises an SgxException whose reason text contains `part`.
template <class F>::testing::AssertionResult raisesWith(F&& f, const std::string& part) {
    try {
        f();
    } catch (const SgxException& e) {
        if (e.reasonText().find(part) != std::string::npos)
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure()
               << "raised \"" << e.reasonText() << "\", expected it to contain \"" << part << "\"";
    } catch (...) {
        return ::testing::AssertionFailure() << "raised another exception";
    }
    return ::testing::AssertionFailure() << "raised nothing, expected \"" << part << "\"";
}

// A record: the base guts, then a 16-bit word and a reference to another record (borrowed).
class TestRecord : public SgxCollectable {
public:
    explicit TestRecord(uint16_t word = 0) : m_word(word) { ++s_live; }
    ~TestRecord() override { --s_live; }
    TestRecord(const TestRecord&) = delete;
    TestRecord& operator=(const TestRecord&) = delete;

    RWClassID isA() const override { return atom; }
    using SgxCollectable::restoreGuts;
    using SgxCollectable::saveGuts;
    void saveGuts(RWvostream& s) const override {
        SgxCollectable::saveGuts(s);
        s << m_word << m_next;
    }
    void restoreGuts(RWvistream& s) override {
        SgxCollectable::restoreGuts(s);
        s >> m_word >> m_next;
    }

    uint16_t word() const { return m_word; }
    RWCollectable* next() const { return m_next; }
    void setNext(RWCollectable* next) { m_next = next; }

    static int live() { return s_live; }
    static const RWClassID atom;

private:
    static inline int s_live = 0;
    uint16_t m_word;
    RWCollectable* m_next = nullptr;
};

inline const RWClassID TestRecord::atom = [] {
    const RWClassID id = RWCollectable::nextAtom();
    rwAddToFactory([]() -> RWCollectable* { return new TestRecord; }, id, "TestRecord");
    return id;
}();
