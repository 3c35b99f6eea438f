#include "rw/RWCollectableInt.h"

namespace {
RWCollectable* createRWCollectableInt() { return new RWCollectableInt; }
} // namespace

RWClassID RWCollectableInt::s_atom = [] {
    const RWClassID id = RWCollectable::nextAtom();
    rwAddToFactory(createRWCollectableInt, id, "RWCollectableInt");
    return id;
}();

RWClassID RWCollectableInt::classIsA() { return s_atom; }
RWClassID RWCollectableInt::isA() const { return s_atom; }
RWCollectable* RWCollectableInt::newSpecies() const { return new RWCollectableInt; }
RWCollectable* RWCollectableInt::copy() const { return new RWCollectableInt(*this); }

int RWCollectableInt::compareTo(const RWCollectable* other) const {
    const auto* that = dynamic_cast<const RWCollectableInt*>(other);
    if (that == nullptr)
        return RWCollectable::compareTo(other);
    return m_value < that->m_value ? -1 : m_value > that->m_value ? 1 : 0;
}

unsigned RWCollectableInt::hash() const { return static_cast<unsigned>(m_value); }

bool RWCollectableInt::isEqual(const RWCollectable* other) const {
    const auto* that = dynamic_cast<const RWCollectableInt*>(other);
    return that != nullptr && that->m_value == m_value;
}

void RWCollectableInt::restoreGuts(RWvistream& stream) { stream >> m_value; }
void RWCollectableInt::saveGuts(RWvostream& stream) const { stream << m_value; }
