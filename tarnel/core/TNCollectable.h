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

#include "rw/RWCollectable.h"
#include "tarnel/tarnel_export.h"

#include <type_traits>

// Keeps one class in the collectable factory from static initialisation until unload. Used only
// through TN_DEFINE_COLLECTABLE.
class TARNEL_API TNFactoryEntry {
public:
    // Runs the start-up checks (once per process), draws a class id into `atom` and registers
    // `create` under it and `name`. Raises SgxException when the factory refuses the entry.
    TNFactoryEntry(RWClassID& atom, RWuserCreator create, const char* name);
    // Removes the class from the factory; never raises.
    ~TNFactoryEntry();
    TNFactoryEntry(const TNFactoryEntry&) = delete;
    TNFactoryEntry& operator=(const TNFactoryEntry&) = delete;

private:
    RWClassID m_atom;
};

// copy() for class C: a copy when C is publicly copy-constructible, else the base behaviour
// (which raises). A template, so that the branch not taken is never compiled.
template <class C> RWCollectable* tnCopyCollectable(const C& object) {
    if constexpr (std::is_copy_constructible_v<C>)
        return new C(object);
    else
        return object.RWCollectable::copy();
}

#define TN_DECLARE_COLLECTABLE(Class)                                                              \
public:                                                                                            \
    /* The class id drawn at start-up; 0 until the class has registered. */                        \
    static RWClassID myAtom;                                                                       \
    /* A new default-constructed Class, owned by the caller. */                                    \
    RWCollectable* newSpecies() const override;                                                    \
    /* A new copy of this object, owned by the caller. */                                          \
    RWCollectable* copy() const override;                                                          \
    RWClassID isA() const override;                                                                \
    static RWClassID classIsA();                                                                   \
                                                                                                   \
private:                                                                                           \
    static const TNFactoryEntry tnFactoryEntry;

// The entry is defined after myAtom in the same unit, so it is initialised after it and destroyed
// before it; as a member, its create function may use a private default constructor.
#define TN_DEFINE_COLLECTABLE(Class)                                                               \
    RWClassID Class::myAtom = 0;                                                                   \
    const TNFactoryEntry Class::tnFactoryEntry(                                                    \
        Class::myAtom, []() -> RWCollectable* { return new Class; }, #Class);                      \
    RWCollectable* Class::newSpecies() const { return new Class; }                                 \
    RWCollectable* Class::copy() const { return tnCopyCollectable(*this); }                        \
    RWClassID Class::isA() const { return myAtom; }                                                \
    RWClassID Class::classIsA() { return myAtom; }
