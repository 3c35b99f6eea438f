// Container helpers shared by the metamodel classes: the name index and vector growth and
// compaction.
//
// TNNameMap<V> maps names to values (positions, handles). It owns its keys and borrows nothing;
// whatever the values point to is owned elsewhere (by the schema or a class).
//
// Why a hash map: name lookups (attribute and association positions, enumeration literals) run
// once per object or per attribute access on models of millions of objects, so they must not
// grow with the number of names. An ordered map would give the same results; nothing reads these
// indexes in name order except writing schema files, which sorts at that time. The transparent
// hash lets a std::string_view or a C string be looked up without building a temporary string.
#pragma once

#include "sgx/general/SgxString.h"

#include <cstddef>
#include <functional>
#include <iterator>
#include <string_view>
#include <unordered_map>
#include <vector>

// Hashes every string-like key through std::string_view, so lookups by view and by string agree.
struct TNNameHash {
    using is_transparent = void;
    size_t operator()(std::string_view name) const noexcept {
        return std::hash<std::string_view>{}(name);
    }
};

template <class V> using TNNameMap = std::unordered_map<SgxString, V, TNNameHash, std::equal_to<>>;

// Makes room for one more element without giving up geometric growth, so that the push_back that
// follows cannot fail: callers enter an element in a vector and an index together, and either
// both hold it or neither does.
template <class T> void tnReserveOneMore(std::vector<T>& items) {
    if (items.size() == items.capacity())
        items.reserve(items.empty() ? 4 : 2 * items.capacity());
}

// Trims the capacity of `items` to its size, guaranteed (shrink_to_fit is only a request).
// Returns the capacity it had, for callers that report shrinks.
template <class T> size_t tnCompact(std::vector<T>& items) {
    const size_t oldCapacity = items.capacity();
    if (oldCapacity != items.size())
        std::vector<T>(std::make_move_iterator(items.begin()), std::make_move_iterator(items.end()))
            .swap(items);
    return oldCapacity;
}
