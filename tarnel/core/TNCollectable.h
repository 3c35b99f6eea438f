// Registration of the library's persistable classes with the collectable factory, one line per
// class.
//
// In the class body (first, as it ends in private access, as a class body begins):
//
//     class TARNEL_API TNSchema : public SgxCollectable {
//         TN_DECLARE_COLLECTABLE(TNSchema)
//     public:
//         ...
//     };
//
// and in the class's .cpp, at namespace scope:
//
//     TN_DEFINE_COLLECTABLE(TNSchema)
//
// The pair gives the class its static class id `myAtom`, drawn from RWCollectable::nextAtom()
// during static initialisation of the library (so its value depends on initialisation order and
// never reaches a file), and defines newSpecies(), copy(), isA() and the static classIsA().
// During that initialisation the class is entered in the factory under its own name
// (rwAddToFactory with a function that creates a default-constructed object); at unload it is
// removed (rwRemoveFromFactory). The library's start-up version checks (tnStartUp) are
// guaranteed to have run before the first class registers. Until its own registration has run,
// a class's isA() is 0, which no class registers.
//
// The class must be default-constructible (privately is enough). copy() uses the public copy
// constructor when there is one; otherwise it raises SgxException, as RWCollectable::copy() does.
// The other RWCollectable operations (saveGuts, restoreGuts, binaryStoreSize, compareTo, hash,
// isEqual) stay with each class.
#pragma once

#include "rw/RWFactoryEntry.h"
#include "tarnel/core/Tarnel.h"

// The collectable framework's registration, with the library's start-up checks (tnStartUp) run
// before the first class registers.
#define TN_DECLARE_COLLECTABLE(Class) RW_DECLARE_COLLECTABLE(Class)
#define TN_DEFINE_COLLECTABLE(Class) RW_DEFINE_COLLECTABLE_AFTER(Class, tnStartUp)
