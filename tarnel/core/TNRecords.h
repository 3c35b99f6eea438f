// The collections that schema records are framed in: a list of texts, a plain vector of objects
// and a string-mapped vector (names beside the objects registered under them), each written as
// RWOrdered collections. Used by the metamodel's records; not part of a host's interface.
//
// Writing: every helper collection made here is registered with registerCollectable, so the
// innermost live StartPersistence frees it; the caller's guts hold such a guard.
//
// Reading trusts nothing: every element is type-checked as it is read, and a failure raises
// SgxException with the texts below. The collections and the texts are read in place
// (rwRestoreInPlace): no object is made for them, so a back-reference to one raises. Anything
// found where a collection was expected is handed to registerCollectable (freed by the guard);
// anything else the restore made is freed by the restore when it fails. The objects returned are
// not adopted: the caller decides who owns them (rwAdopt) and must do so before anything else
// can raise, or the restore frees them.
#pragma once

#include "rw/RWCollectable.h"
#include "rw/RWOrdered.h"
#include "sgx/general/SgxString.h"

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

// Writes `texts` as one RWOrdered of RWCollectableString, in order.
void tnSaveStrings(RWvostream& stream, const std::vector<SgxString>& texts);
// Reads what tnSaveStrings writes. Raises SgxException "Invalid <record>: expected RWOrdered; got
// <class>" or "Invalid <record>: expected RWCollectableString; got <class>" ("nil" for a null).
std::vector<SgxString> tnRestoreStrings(RWvistream& stream, const SgxString& record);

// Writes `objects` as one RWOrdered, in order.
void tnSaveVector(RWvostream& stream, const std::vector<const RWCollectable*>& objects);
// The pairs as an RWOrdered of two RWOrdered of equal length: the names (as RWCollectableString)
// and the objects, the i-th object registered under the i-th name; registered, like its parts.
RWOrdered* tnMappedVector(const std::vector<std::pair<SgxString, const RWCollectable*>>& entries);
// Writes tnMappedVector(entries).
void tnSaveMappedVector(RWvostream& stream,
                        const std::vector<std::pair<SgxString, const RWCollectable*>>& entries);

// The members of `items` (handles of collectables) as (key, object) pairs in the byte order of
// their keys, which is the order files list them in whatever order they were made.
template <class Handles, class Key>
std::vector<std::pair<SgxString, const RWCollectable*>> tnByName(const Handles& items, Key key) {
    std::vector<std::pair<SgxString, const RWCollectable*>> entries;
    entries.reserve(items.size());
    for (const auto& item : items)
        entries.emplace_back(key(*item), item.get());
    std::sort(entries.begin(), entries.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    return entries;
}

// Reads what tnSaveVector writes, each element of type T (checked with `isType`). Raises
// SgxException "Invalid type in vector! Expected <typeName>; got <class>".
std::vector<RWCollectable*> tnRestoreVector(RWvistream& stream, const char* typeName,
                                            bool (*isType)(const RWCollectable*));
// Reads what tnSaveMappedVector writes. Raises SgxException "Invalid type in string mapped
// vector! Expected String; got <class>" for a name that is not an RWCollectableString, and
// "Invalid type in string mapped vector! Expected <typeName>; got <class>" for an object that is
// not of type T; "Invalid string mapped vector" when the framing is not two lists of equal length.
std::vector<std::pair<SgxString, RWCollectable*>>
tnRestoreMappedVector(RWvistream& stream, const char* typeName,
                      bool (*isType)(const RWCollectable*));

// The class name of `object` for messages; "nil" for null.
SgxString tnClassOf(const RWCollectable* object);
// Hands `other` to registerCollectable, then raises SgxException `problem` + its class.
[[noreturn]] void tnRaiseNotAList(RWCollectable* other, const SgxString& problem);

// Reads a reference that must be a new RWOrdered, in place: `count(n)` is given its element
// count, then `element(stream, i)` reads the reference of each element i. Anything else raises
// through tnRaiseNotAList with the text `problem()` returns.
template <class Problem, class Count, class Element>
void tnRestoreList(RWvistream& stream, Problem&& problem, Count&& count, Element&& element) {
    bool inPlace = false;
    RWCollectable* other = rwRestoreInPlace(
        stream, RWOrdered::classIsA(),
        [&](RWvistream& in) {
            const uint32_t n = RWOrdered::restoreCount(in);
            count(n);
            for (uint32_t i = 0; i < n; ++i)
                element(in, i);
        },
        inPlace);
    if (!inPlace)
        tnRaiseNotAList(other, problem());
}

// The type tests the readers take.
// An object of T's own class (its class id; most records hold exactly the class they expect) is
// told apart without a dynamic_cast, which costs more than reading the object did.
template <class T> bool tnIsA(const RWCollectable* object) {
    if constexpr (requires { T::classIsA(); })
        if (object != nullptr && object->isA() == T::classIsA() && T::classIsA() != 0)
            return true;
    return dynamic_cast<const T*>(object) != nullptr;
}

// Reads one reference, which must be nil or a T. Raises SgxException "Invalid <record>: expected
// <typeName>; got <class>".
RWCollectable* tnRestoreReference(RWvistream& stream, const char* record, const char* typeName,
                                  bool (*isType)(const RWCollectable*));
// The typed forms below cast what the type test has passed with static_cast: the test is the one
// dynamic_cast each object needs.
template <class T>
T* tnRestoreReference(RWvistream& stream, const char* record, const char* typeName) {
    return static_cast<T*>(tnRestoreReference(stream, record, typeName, &tnIsA<T>));
}

// The typed forms: the same reads, the objects cast to T.
template <class T> std::vector<T*> tnRestoreVectorOf(RWvistream& stream, const char* typeName) {
    std::vector<T*> result;
    for (RWCollectable* object : tnRestoreVector(stream, typeName, &tnIsA<T>))
        result.push_back(static_cast<T*>(object));
    return result;
}
template <class T>
std::vector<std::pair<SgxString, T*>>
tnCastEntries(std::vector<std::pair<SgxString, RWCollectable*>>&& entries) {
    std::vector<std::pair<SgxString, T*>> result;
    result.reserve(entries.size());
    for (auto& [name, object] : entries)
        result.emplace_back(std::move(name), static_cast<T*>(object));
    return result;
}
