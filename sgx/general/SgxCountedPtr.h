// SgxCountedPtr<T>: a shared, reference-counted handle.
//
// All copies of a handle share one object and one count; the object is deleted when the last
// handle to it goes. A handle may be empty (default constructed); reaching the object through an
// empty handle raises SgxException "Bad dereference". Counting is thread-safe, the shared object
// itself is not guarded.
#pragma once

#include "sgx/general/SgxException.h"

#include <concepts>
#include <cstddef>
#include <memory>

template <class T> class SgxCountedPtr {
public:
    // An empty handle.
    SgxCountedPtr() noexcept = default;
    // Takes ownership of `object` (which may be null, giving an empty handle). If the count
    // cannot be allocated, deletes `object` and raises std::bad_alloc.
    explicit SgxCountedPtr(T* object) : m_shared(object) {}
    // Shares the other handle's object through a base type.
    template <class U>
    requires std::convertible_to<U*, T*> SgxCountedPtr(const SgxCountedPtr<U>& other)
    noexcept : m_shared(other.m_shared) {}

    // The shared object, possibly null. Never raises.
    T* get() const noexcept { return m_shared.get(); }
    // The shared object. Raises SgxException "Bad dereference" when the handle is empty.
    T* operator->() const {
        if (!m_shared) [[unlikely]]
            SgxException::raise("Bad dereference");
        return m_shared.get();
    }
    // The shared object. Raises SgxException "Bad dereference" when the handle is empty.
    T& operator*() const {
        if (!m_shared) [[unlikely]]
            SgxException::raise("Bad dereference");
        return *m_shared;
    }

    bool isNull() const noexcept { return !m_shared; }
    explicit operator bool() const noexcept { return static_cast<bool>(m_shared); }
    // How many handles share the object (0 for an empty handle).
    long useCount() const noexcept { return m_shared.use_count(); }

    // Identity of the shared object.
    friend bool operator==(const SgxCountedPtr& a, const SgxCountedPtr& b) noexcept {
        return a.m_shared == b.m_shared;
    }

private:
    template <class U> friend class SgxCountedPtr;

    std::shared_ptr<T> m_shared;
};
