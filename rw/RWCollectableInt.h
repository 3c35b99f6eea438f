// RWCollectableInt: a 32-bit integer that can be stored in collections and persisted.
// Persisted as the 32-bit value.
#pragma once

#include "rw/RWFactoryEntry.h"

#include <cstdint>

class RWTOOLS_API RWCollectableInt : public RWCollectable {
    RW_DECLARE_COLLECTABLE(RWCollectableInt)

public:
    RWCollectableInt() = default;
    explicit RWCollectableInt(int32_t value) : m_value(value) {}

    // Against another RWCollectableInt: numeric order; otherwise the default.
    int compareTo(const RWCollectable* other) const override;
    unsigned hash() const override;
    // True for another RWCollectableInt with the same value.
    bool isEqual(const RWCollectable* other) const override;
    using RWCollectable::restoreGuts;
    using RWCollectable::saveGuts;
    void restoreGuts(RWvistream& stream) override;
    void saveGuts(RWvostream& stream) const override;

    int32_t value() const { return m_value; }
    void value(int32_t v) { m_value = v; }

private:
    int32_t m_value = 0;
};
