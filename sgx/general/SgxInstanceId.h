// SgxInstanceId: a number naming one object among every object that ever had one in the
// process, for caches that remember something about an object by its address.
//
// An address alone does not name an object for long: once it is destroyed, another may be made
// at the same place, and a cache keyed by the address would answer for the newcomer. An id is
// never given twice (the counter is process-wide and 64 bits wide), so a cache that keeps the id
// beside what it derived knows a newcomer when it sees one. A copy is a new object and gets a
// new id; assignment keeps the target's. Ids are never 0, so 0 can mean "nothing cached".
#pragma once

#include "sgx/general/sgxgeneral_export.h"

#include <cstdint>

class SGX_GENERAL_API SgxInstanceId {
public:
    SgxInstanceId() noexcept : m_value(next()) {}
    SgxInstanceId(const SgxInstanceId& /*other*/) noexcept : m_value(next()) {}
    SgxInstanceId& operator=(const SgxInstanceId& /*other*/) noexcept { return *this; }

    uint64_t value() const noexcept { return m_value; }

    // A number not returned before in this process (thread-safe); never 0.
    static uint64_t next() noexcept;

private:
    uint64_t m_value;
};
