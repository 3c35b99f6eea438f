// RWCollectableInt: a 32-bit integer that can be stored in collections and persisted.
// Persisted as the 32-bit value.
#pragma once

#include "rw/RWCollectable.h"

#include <cstdint>

class RWTOOLS_API RWCollectableInt : public RWCollectable {
public:
    RWCollectableInt() = default;
    explicit RWCollectableInt(int32_t value) : m_value(value) {}

    RWCollectable* newSpecies() const override;
    RWCollectable* copy() const override;
    RWClassID isA() const override;
    // Against another RWCollectableInt: numeric order; otherwise the default.
    int compareTo(const RWCollectable* other) const override;
    unsigned hash() const override;
    // True for another RWCollectableInt with the same value.
    bool isEqual(const RWCollectable* other) const override;
    using RWCollectable::restoreGuts;
    using RWCollectable::saveGuts;
    void restoreGuts(RWvistream& stream) override;
    void saveGuts(RWvostream& stream) const override;

    static RWClassID classIsA();

    int32_t value() const { return m_value; }
    void value(int32_t v) { m_value = v; }

private:
    static RWClassID s_atom;
    int32_t m_value = 0;
};
