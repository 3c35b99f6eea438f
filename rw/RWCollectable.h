// RWCollectable: the base of every persistable object, the class factory, and the recursive
// store and restore of object graphs.
//
// Identity. Each persistable class draws a 16-bit class id from RWCollectable::nextAtom() at
// start-up (the value depends on initialisation order and never reaches a file) and registers it
// with rwAddToFactory together with its class name, its RWStringID. Files name classes only by
// that string, so a file written by one process is read by another whatever ids each drew.
//
// Guts. A class writes and reads its own fields in saveGuts(RWvostream&) and
// restoreGuts(RWvistream&), after calling those of its direct base. That is the one code path:
// the RWFile overloads are final here and run the stream overloads on an RWFileOStream /
// RWFileIStream view of the file, so a class writes its guts once and file and stream bytes are
// the same. A class that declares its stream overloads hides the RWFile ones from its own static
// type; bring them back with `using Base::saveGuts; using Base::restoreGuts;`.
//
// References. Inside guts, `stream << ptr` writes a reference to another object and
// `stream >> ptr` reads one: a nil tag, a back-reference to an object already written in this
// store, or a new object (its class name, then its guts). The table of objects written or read
// belongs to the outermost recursive call on a stream and is shared by every nested call on the
// same stream, so shared objects are written once and cycles survive. A new call on an RWFile
// makes a new view, hence a new table.
//
// Ownership while restoring. Until the outermost restore returns, its context owns every object
// it created. A restoring object that keeps another as its own calls rwAdopt(other, this) (the
// persistence library's registerCollectable calls rwAdopt(other)). If the restore fails, the
// context deletes every object it created that nobody adopted, then the exception propagates;
// adopted objects are left to their adopters (which, if themselves created by the context, are
// deleted and delete them in turn). An object deleted during a store or restore is forgotten by the
// context, so it is neither deleted twice nor back-referenced. On success the context owns
// nothing: the caller owns the returned object, and objects that nobody adopted belong to whoever
// holds them (for example a collection the caller empties with clearAndDestroy()). A caller that
// restores into an existing object keeps ownership of it, on failure as on success.
//
// Deferred guts. Graphs such as a metamodel, whose classes refer to one another through their
// associations, would otherwise nest one level per hop and reach the nesting limit (and the end of
// the stack) long before their size does. A class says, by overriding canDeferGuts(), that nobody
// looks inside its objects while a restore runs: whoever restores a reference to one only keeps
// the pointer. An object of such a class met RWDeferredGutsDepth or more levels deep is written as
// a forward declaration (its class name only) and its guts come later, in the order the
// declarations were written: where a class's guts call rwSaveDeferredGuts (and its restoreGuts
// rwRestoreDeferredGuts), else after the outermost object's guts. The reader makes the object at
// once, so every pointer to it is valid while the rest is read.
//
// Limits. References nest at most RWMaxNestingDepth deep; a class name is at most
// RWMaxClassNameLength bytes. A store that would exceed a limit raises, so nothing is written
// that could not be read back. Every violation raises SgxException with the byte offset.
#pragma once

#include "rw/RWvstream.h"
#include "rw/rwtools_export.h"
#include "sgx/general/SgxString.h"

#include <cstdint>
#include <type_traits>

class RWCollectable;
class RWFile;

// The run-time class id drawn from RWCollectable::nextAtom().
using RWClassID = uint16_t;
// A class's registered name; what files carry to identify a record's class.
using RWStringID = SgxString;
// Sizes in bytes of stored data.
using RWspace = uint64_t;
// The create function registered for a class: a new default-constructed object.
using RWuserCreator = RWCollectable* (*)();

// How deep references may nest (an object whose guts hold a new object whose guts hold...).
inline constexpr unsigned RWMaxNestingDepth = 4096;
// From this depth on, objects whose class allows it are written with deferred guts.
inline constexpr unsigned RWDeferredGutsDepth = 16;
// The longest class name a file may carry.
inline constexpr uint32_t RWMaxClassNameLength = 1024;

class RWTOOLS_API RWCollectable {
public:
    RWCollectable() = default;
    RWCollectable(const RWCollectable&) = default;
    RWCollectable& operator=(const RWCollectable&) = default;
    virtual ~RWCollectable();

    // A new default-constructed object of the same class, owned by the caller. By default made by
    // the factory entry of isA(); null when the class is not registered.
    virtual RWCollectable* newSpecies() const;
    // A new copy of this object, owned by the caller. Raises SgxException unless overridden.
    virtual RWCollectable* copy() const;
    // The class id; RWCollectable itself answers classIsA(), 0, which no class may register.
    virtual RWClassID isA() const;
    virtual RWCollectable* self() { return this; }
    virtual const RWCollectable* self() const { return this; }
    // Bytes that saveGuts writes for this object in a fresh store (objects it refers to that are
    // new are counted with their guts; references back to this object are back-references).
    virtual RWspace binaryStoreSize() const;
    // Negative, zero or positive as this object orders before, equal to or after `other`. By
    // default orders by address.
    virtual int compareTo(const RWCollectable* other) const;
    // By default derived from the address, agreeing with isEqual().
    virtual unsigned hash() const;
    // By default identity.
    virtual bool isEqual(const RWCollectable* other) const;
    // Reads the guts this class's saveGuts writes. The base reads nothing.
    virtual void restoreGuts(RWvistream& stream);
    // Runs restoreGuts(RWvistream&) on a view of `file`.
    virtual void restoreGuts(RWFile& file) final;
    // Writes this object's fields. The base writes nothing.
    virtual void saveGuts(RWvostream& stream) const;
    // Whether a store may write this object's guts later than its first reference (see
    // "Deferred guts" above). False here.
    virtual bool canDeferGuts() const { return false; }
    // Runs saveGuts(RWvostream&) on a view of `file`.
    virtual void saveGuts(RWFile& file) const final;

    static RWClassID classIsA() { return 0; }
    // A class id no earlier call returned (never 0). Raises SgxException when all 65535 are used.
    static RWClassID nextAtom();

    // The class name registered for isA(); empty when the class is not registered.
    RWStringID stringID() const;

    // Writes a reference to this object, with its guts and those of every new object it refers
    // to. Raises SgxException when the class of an object met is not registered, when references
    // nest deeper than RWMaxNestingDepth, or when writing fails.
    void recursiveSaveOn(RWvostream& stream) const;
    void recursiveSaveOn(RWFile& file) const;
    // Bytes that recursiveSaveOn writes: 1 + 4 + the class name's length + binaryStoreSize().
    RWspace recursiveStoreSize() const;
    // Reads a reference that must be a new object of this object's class and restores its guts
    // into this object. The caller keeps ownership of this object whatever happens; see the
    // header comment for the objects read on the way. Raises SgxException on any format error.
    void recursiveRestoreFrom(RWvistream& stream);
    void recursiveRestoreFrom(RWFile& file);
};

// Registers `create` under `id` and `name`. Registering the same pair again replaces the create
// function; an id or a name already registered with another partner, an id of 0, an empty name,
// a name longer than RWMaxClassNameLength or a null function raises SgxException.
RWTOOLS_API void rwAddToFactory(RWuserCreator create, RWClassID id, const RWStringID& name);
// Removes the class registered under `id`; an unknown id is ignored.
RWTOOLS_API void rwRemoveFromFactory(RWClassID id);
// A new object of the class registered under `name` (or `id`), owned by the caller; null when no
// such class is registered.
RWTOOLS_API RWCollectable* rwCreateFromFactory(const RWStringID& name);
RWTOOLS_API RWCollectable* rwCreateFromFactory(RWClassID id);
// The name registered for `id`; empty when none.
RWTOOLS_API RWStringID rwClassName(RWClassID id);

// Takes `object` out of the failure clean-up of the restore running on this thread: `owner` (or,
// when null, code outside the restore) now owns it. Raises SgxException when the object was
// already adopted in that restore (the data claimed the same object as owned twice), when it is
// the object restored into (its caller owns it), when `owner` is null and the object's own
// restoreGuts is still running (code outside the restore may free it before that returns), or
// when `owner` is the object or is owned through adoptions by it (an ownership cycle, which would
// never be freed). Does nothing for null, for objects the running restore did not read, and when
// no restore runs.
RWTOOLS_API void rwAdopt(const RWCollectable* object, const RWCollectable* owner = nullptr);

// Reads a reference as operator>> does, except that a new object (not a declaration) of the class
// registered under `id` is not made: `readGuts(stream, state)` reads the guts that the class's
// restoreGuts would read, at the depth the object would have had, and the object's number in the
// restore goes to nothing, so that a later back-reference to it raises. For records framed in
// helper collections that nobody keeps (lists of names, say), whose objects would otherwise be
// made, entered, owned and deleted one by one. Sets `readInPlace` and returns null when the
// reference was read in place; otherwise returns what operator>> returns (owned as it describes)
// with `readInPlace` false. Raises what operator>> and `readGuts` raise, after releasing what the
// restore created when the call is the outermost one.
RWTOOLS_API RWCollectable* rwRestoreInPlace(RWvistream& stream, RWClassID id,
                                            void (*readGuts)(RWvistream&, void*), void* state,
                                            bool& readInPlace);
// The same with any callable `readGuts(stream)`.
template <class ReadGuts>
RWCollectable* rwRestoreInPlace(RWvistream& stream, RWClassID id, ReadGuts&& readGuts,
                                bool& readInPlace) {
    using Callable = std::remove_reference_t<ReadGuts>;
    return rwRestoreInPlace(
        stream, id, [](RWvistream& s, void* f) { (*static_cast<Callable*>(f))(s); },
        const_cast<void*>(static_cast<const void*>(&readGuts)), readInPlace);
}

// Inside saveGuts: writes now the guts of every object whose guts the running store deferred and
// has not written yet (those objects may defer more; all are written). Does nothing outside a
// store. The matching restoreGuts calls rwRestoreDeferredGuts at the same point of its record,
// after which every object read so far has its guts.
RWTOOLS_API void rwSaveDeferredGuts(RWvostream& stream);
RWTOOLS_API void rwRestoreDeferredGuts(RWvistream& stream);

// Writes a reference to `object` (nil when null); see recursiveSaveOn.
RWTOOLS_API RWvostream& operator<<(RWvostream& stream, const RWCollectable* object);
RWTOOLS_API RWvostream& operator<<(RWvostream& stream, const RWCollectable& object);
RWTOOLS_API RWFile& operator<<(RWFile& file, const RWCollectable* object);
RWTOOLS_API RWFile& operator<<(RWFile& file, const RWCollectable& object);
// Reads a reference: null for nil, an object read earlier in this restore for a back-reference,
// or a new object made by the factory and restored. A new object is owned by the caller when the
// call is the outermost one, and by the running restore (until adopted) when it is nested.
// Raises SgxException on any format error, after releasing what the restore created.
RWTOOLS_API RWvistream& operator>>(RWvistream& stream, RWCollectable*& object);
RWTOOLS_API RWFile& operator>>(RWFile& file, RWCollectable*& object);
