// SgxCollectable: the base of every persistable class of the libraries built on this one.
//
// Its guts, which every record starts with, are one byte: the record revision, currently 1.
// Reading any other value raises SgxException, so a record written by a later, incompatible
// revision of a class is refused at its first byte instead of being misread. A derived class
// calls SgxCollectable::saveGuts / restoreGuts (the stream overloads) before its own fields; the
// RWFile overloads are inherited from RWCollectable and run the stream ones (see RWCollectable.h),
// which a derived class brings into view with `using SgxCollectable::saveGuts;` and
// `using SgxCollectable::restoreGuts;`.
#pragma once

#include "rw/RWCollectable.h"
#include "sgx/general/SgxObject.h"
#include "sgx/persistence/sgxpersistence_export.h"

#include <cstdint>

class SGX_PERSISTENCE_API SgxCollectable : public SgxObject, public RWCollectable {
public:
    // The record revision this library writes and the only one it reads.
    static constexpr uint8_t recordRevision = 1;

    SgxCollectable() = default;
    SgxCollectable(const SgxCollectable&) = default;
    SgxCollectable& operator=(const SgxCollectable&) = default;
    ~SgxCollectable() override;

    using RWCollectable::restoreGuts;
    using RWCollectable::saveGuts;
    // Reads the record revision; raises SgxException "Unsupported record revision N at byte B"
    // for any other value than recordRevision.
    void restoreGuts(RWvistream& stream) override;
    // Writes the record revision.
    void saveGuts(RWvostream& stream) const override;
};
