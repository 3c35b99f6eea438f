// RWCollectableString: a string that can be stored in collections and persisted.
// Persisted as a 32-bit length, then the bytes.
#pragma once

#include "rw/RWFactoryEntry.h"

class RWTOOLS_API RWCollectableString : public RWCollectable {
    RW_DECLARE_COLLECTABLE(RWCollectableString)

public:
    RWCollectableString() = default;
    RWCollectableString(SgxString text) : m_text(std::move(text)) {}
    RWCollectableString(const char* text) : m_text(text) {}

    // Against another RWCollectableString: byte-wise order of the texts; otherwise the default.
    int compareTo(const RWCollectable* other) const override;
    unsigned hash() const override;
    // True for another RWCollectableString with the same text.
    bool isEqual(const RWCollectable* other) const override;
    using RWCollectable::restoreGuts;
    using RWCollectable::saveGuts;
    void restoreGuts(RWvistream& stream) override;
    void saveGuts(RWvostream& stream) const override;
    // Reads the guts restoreGuts reads into `text`: for readers of a string in place
    // (rwRestoreInPlace).
    static void restoreText(RWvistream& stream, SgxString& text) { stream >> text; }

    const SgxString& str() const { return m_text; }
    operator const SgxString&() const { return m_text; }
    size_t length() const { return m_text.size(); }
    void setString(SgxString text) { m_text = std::move(text); }

private:
    SgxString m_text;
};
