// RWFactoryEntry and the one-line registration of a collectable class with the factory.
//
// In the class body (first, as it ends in private access, as a class body begins):
//
//     class RWCollectableInt : public RWCollectable {
//         RW_DECLARE_COLLECTABLE(RWCollectableInt)
//     public:
//         ...
//     };
//
// and in the class's .cpp, at namespace scope, RW_DEFINE_COLLECTABLE(RWCollectableInt), or
// RW_DEFINE_COLLECTABLE_AFTER(Class, check) to run `check()` before the class registers (a
// library's start-up checks). The pair gives the class its static class id `myAtom`, drawn from
// RWCollectable::nextAtom() during static initialisation (so it depends on initialisation order
// and never reaches a file), and defines newSpecies(), copy(), isA() and the static classIsA().
// The class is entered in the factory under its own name during static initialisation and
// removed at unload. Until its registration has run, a class's isA() is 0, which no class
// registers.
//
// The class must be default-constructible (privately is enough). copy() uses the public copy
// constructor when there is one; otherwise it raises SgxException, as RWCollectable::copy() does.
#pragma once

#include "rw/RWCollectable.h"
#include "rw/rwtools_export.h"

#include <type_traits>

// Keeps one class in the factory for the lifetime of the entry.
class RWTOOLS_API RWFactoryEntry {
public:
    // Runs `before` when it is not null, draws a class id into `atom` and registers `create`
    // under it and `name`. Raises SgxException when the factory refuses the entry.
    RWFactoryEntry(RWClassID& atom, RWuserCreator create, const char* name,
                   void (*before)() = nullptr);
    // Removes the class from the factory; never raises.
    ~RWFactoryEntry();
    RWFactoryEntry(const RWFactoryEntry&) = delete;
    RWFactoryEntry& operator=(const RWFactoryEntry&) = delete;

private:
    RWClassID m_atom;
};

// copy() for class C: a copy when C is publicly copy-constructible, else the base behaviour
// (which raises). A template, so that the branch not taken is never compiled.
template <class C> RWCollectable* rwCopyCollectable(const C& object) {
    if constexpr (std::is_copy_constructible_v<C>)
        return new C(object);
    else
        return object.RWCollectable::copy();
}

#define RW_DECLARE_COLLECTABLE(Class)                                                              \
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
    static const RWFactoryEntry rwFactoryEntry;

// The entry is defined after myAtom in the same unit, so it is initialised after it and destroyed
// before it; as a member, its create function may use a private default constructor.
#define RW_DEFINE_COLLECTABLE_AFTER(Class, before)                                                 \
    RWClassID Class::myAtom = 0;                                                                   \
    const RWFactoryEntry Class::rwFactoryEntry(                                                    \
        Class::myAtom, []() -> RWCollectable* { return new Class; }, #Class, before);              \
    RWCollectable* Class::newSpecies() const { return new Class; }                                 \
    RWCollectable* Class::copy() const { return rwCopyCollectable(*this); }                        \
    RWClassID Class::isA() const { return myAtom; }                                                \
    RWClassID Class::classIsA() { return myAtom; }

#define RW_DEFINE_COLLECTABLE(Class) RW_DEFINE_COLLECTABLE_AFTER(Class, nullptr)
