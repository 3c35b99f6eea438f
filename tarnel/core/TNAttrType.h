// TNAttrType: the kind of an attribute descriptor, as stored in the low bits of its type word and
// written to schema files.
//
// The underlying type is fixed at 32 bits so that any type word read from a file can be held and
// compared without undefined behaviour; code that maps kinds must give every value it does not
// know a defined meaning.
#pragma once

#include <cstdint>

enum TNAttrType : uint32_t {
    TNAttrEnumeration = 0,
    TNAttrInteger = 1,
    TNAttrReal = 2,
    TNAttrString = 3,
    TNAttrBoolean = 4,
    TNAttrLong = 5
};
