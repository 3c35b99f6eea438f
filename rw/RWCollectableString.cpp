#include "rw/RWCollectableString.h"

#include <functional>

RW_DEFINE_COLLECTABLE(RWCollectableString)

int RWCollectableString::compareTo(const RWCollectable* other) const {
    const auto* that = dynamic_cast<const RWCollectableString*>(other);
    if (that == nullptr)
        return RWCollectable::compareTo(other);
    const int order = m_text.compare(that->m_text);
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

unsigned RWCollectableString::hash() const {
    return static_cast<unsigned>(std::hash<SgxString>()(m_text));
}

bool RWCollectableString::isEqual(const RWCollectable* other) const {
    const auto* that = dynamic_cast<const RWCollectableString*>(other);
    return that != nullptr && that->m_text == m_text;
}

void RWCollectableString::restoreGuts(RWvistream& stream) { restoreText(stream, m_text); }
void RWCollectableString::saveGuts(RWvostream& stream) const { stream << m_text; }
