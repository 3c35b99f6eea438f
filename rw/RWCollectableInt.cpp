#include "rw/RWCollectableInt.h"

RW_DEFINE_COLLECTABLE(RWCollectableInt)

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
