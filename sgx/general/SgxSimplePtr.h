// SgxSimplePtr<T>: a non-owning handle to one object.
//
// The handle borrows its pointee: copying copies the address, destroying it never deletes
// anything, and whoever created the object (a schema, a class, a memory region) keeps it alive
// for as long as handles to it are used. Handles compare and order by address, so they serve as
// keys of ordered and hashed containers. Dereferencing a null handle raises SgxException
// "Null dereference" instead of faulting.
#pragma once

#include "sgx/general/SgxException.h"

#include <compare>
#include <concepts>
#include <cstddef>
#include <functional>

template <class T> class SgxSimplePtr {
public:
    // A null handle.
    constexpr SgxSimplePtr() noexcept = default;
    constexpr SgxSimplePtr(std::nullptr_t) noexcept {}
    // A handle to `pointer` (which may be null); borrows it.
    constexpr SgxSimplePtr(T* pointer) noexcept : m_pointer(pointer) {}
    // A handle to the same object through a base or less qualified type.
    template <class U>
    requires std::convertible_to<U*, T*>
    constexpr SgxSimplePtr(const SgxSimplePtr<U>& other) noexcept : m_pointer(other.get()) {}

    // The address held, possibly null. Never raises.
    constexpr T* get() const noexcept { return m_pointer; }

    // The pointee. Raises SgxException "Null dereference" when the handle is null.
    T* operator->() const {
        if (!m_pointer) [[unlikely]]
            SgxException::raise("Null dereference");
        return m_pointer;
    }
    // The pointee. Raises SgxException "Null dereference" when the handle is null.
    T& operator*() const {
        if (!m_pointer) [[unlikely]]
            SgxException::raise("Null dereference");
        return *m_pointer;
    }

    constexpr bool isNull() const noexcept { return m_pointer == nullptr; }
    constexpr explicit operator bool() const noexcept { return m_pointer != nullptr; }

    // Identity, and a total order by address (the same order std::less<T*> gives).
    friend constexpr bool operator==(const SgxSimplePtr& a, const SgxSimplePtr& b) noexcept {
        return a.m_pointer == b.m_pointer;
    }
    friend constexpr std::strong_ordering operator<=>(const SgxSimplePtr& a,
                                                      const SgxSimplePtr& b) noexcept {
        return std::compare_three_way{}(a.m_pointer, b.m_pointer);
    }

private:
    T* m_pointer = nullptr;
};

// Ordered containers keyed by handles order them by address.
template <class T> struct std::less<SgxSimplePtr<T>> {
    bool operator()(const SgxSimplePtr<T>& a, const SgxSimplePtr<T>& b) const noexcept {
        return std::less<T*>{}(a.get(), b.get());
    }
};

template <class T> struct std::hash<SgxSimplePtr<T>> {
    size_t operator()(const SgxSimplePtr<T>& p) const noexcept { return std::hash<T*>{}(p.get()); }
};
