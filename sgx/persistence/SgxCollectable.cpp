#include "sgx/persistence/SgxCollectable.h"

SgxCollectable::~SgxCollectable() = default;

void SgxCollectable::restoreGuts(RWvistream& stream) {
    const uint64_t at = stream.offset();
    uint8_t revision;
    stream >> revision;
    if (revision != recordRevision)
        RWvistream::raiseFormatError("Unsupported record revision " + std::to_string(revision), at);
}

void SgxCollectable::saveGuts(RWvostream& stream) const { stream << recordRevision; }
