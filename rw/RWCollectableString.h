// RWCollectableString: a string that can be stored in collections and persisted.
// Persisted as a 32-bit length, then the bytes.
#pragma once

#include "rw/RWCollectable.h"

class RWTOOLS_API RWCollectableString : public RWCollectable {
public:
    RWCollectableString() = default;
    RWCollectableString(SgxString text) : m_text(std::move(text)) {}
    RWCollectableString(const char* text) : m_text(text) {}

    RWCollectable* newSpecies() const override;
    RWCollectable* copy() const override;
    RWClassID isA() const override;
    // Against another RWCollectableString: byte-wise order of the texts; otherwise the default.
    int compareTo(const RWCollectable* other) const override;
    unsigned hash() const override;
    // True for another RWCollectableString with the same text.
    bool isEqual(const RWCollectable* other) const override;
    using RWCollectable::restoreGuts;
    using RWCollectable::saveGuts;
    void restoreGuts(RWvistream& stream) override;
    void saveGuts(RWvostream& stream) const override;

    static RWClassID classIsA();

    const SgxString& str() const { return m_text; }
    operator const SgxString&() const { return m_text; }
    size_t length() const { return m_text.size(); }
    void setString(SgxString text) { m_text = std::move(text); }

private:
    static RWClassID s_atom;
    SgxString m_text;
};
