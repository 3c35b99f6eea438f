// SgxCyclicPtrBody and SgxCyclicPtr<T>: pointers for graphs that may share nodes and contain
// cycles (expression and traversal graphs), with ownership settled once, just before deletion.
//
// While a graph is built and used, no SgxCyclicPtr owns anything: pointers are plain links that
// may be copied, shared and pointed back at ancestors. Before deleting, the holder of the root
// calls takeOwnership() on its own pointer to it. That marks the root owned and asks it to
// prepareForDeletion(), which calls takeOwnership() on each of its pointer fields, and so on
// depth first: every node reachable from the root ends up owned by exactly one pointer, the first
// that reached it. Destroying the root pointer then deletes each node exactly once, however the
// graph is shared or cyclic. A pointer that never took ownership deletes nothing.
//
// Copies and assignments never carry ownership; so an owning pointer must stay where it is (not
// be copied into a container that may reallocate) until it is destroyed.
#pragma once

#include "sgx/general/SgxException.h"
#include "sgx/general/sgxgeneral_export.h"

#include <concepts>
#include <type_traits>

// Does nothing and has no observable effect; it neither reads nor writes through `pointer`, which
// may be null. SgxCyclicPtr's assignment hands it each new pointee. Out of line, so that callers
// cannot make assumptions about the pointer from it.
SGX_GENERAL_API void workaroundVCBug(void* pointer) noexcept;

// The base of every node that an SgxCyclicPtr may point to: carries the node's "owned" mark.
class SGX_GENERAL_API SgxCyclicPtrBody {
public:
    // Not owned.
    SgxCyclicPtrBody() noexcept = default;
    // A copy is a new node: it starts not owned whatever the original's mark.
    SgxCyclicPtrBody(const SgxCyclicPtrBody&) noexcept {}
    // The target becomes a node not owned, unless this is self-assignment (which changes nothing).
    SgxCyclicPtrBody& operator=(const SgxCyclicPtrBody& other) noexcept {
        if (this != &other)
            m_owned = false;
        return *this;
    }
    // Nodes are deleted through their owning pointers, that is through a base pointer.
    virtual ~SgxCyclicPtrBody();

    // Whether some pointer has taken ownership of this node.
    bool isOwned() const noexcept { return m_owned; }
    // Marks this node owned. Const: ownership is settled on graphs handed around as const.
    void becomeOwned() const noexcept { m_owned = true; }

    // Calls takeOwnership() on each SgxCyclicPtr this node holds, in field order. Raises only
    // what those calls raise (nothing, for a well-formed node).
    virtual void prepareForDeletion() const = 0;

private:
    template <class T> friend class SgxCyclicPtr;

    // becomeOwned(), then prepareForDeletion(). Out of line, so that the virtual call is made
    // here, where the node's class is unknown. A caller that knows the class (it has just made
    // the node with `new`) would otherwise call that class's prepareForDeletion() directly, and
    // when the class defines it in its header, through the this-adjusting entry point that only
    // the library holding the class's vtable emits: GCC then refers to that entry point as if the
    // program defined it, and a position-independent program does not link.
    void claim() const;

    mutable bool m_owned = false;
};

// A non-counting pointer to a T (deriving from SgxCyclicPtrBody) with an ownership mark.
template <class T> class SgxCyclicPtr {
public:
    // Null, not owner.
    constexpr SgxCyclicPtr() noexcept = default;
    // Points to `pointer` (which may be null) without owning it.
    constexpr SgxCyclicPtr(T* pointer) noexcept : m_pointer(pointer) {}
    // Same pointee, not owner: a copy never owns.
    constexpr SgxCyclicPtr(const SgxCyclicPtr& other) noexcept : m_pointer(other.m_pointer) {}
    // Same pointee seen through a base type, not owner.
    template <class U>
    requires std::convertible_to<U*, T*>
    constexpr SgxCyclicPtr(const SgxCyclicPtr<U>& other) noexcept : m_pointer(other.get()) {}

    // Unless self-assignment (which changes nothing): takes the other's pointee and stops owning.
    // The old pointee is never deleted here, even if this pointer owned it.
    SgxCyclicPtr& operator=(const SgxCyclicPtr& other) noexcept {
        if (this != &other) {
            m_isOwner = false;
            m_pointer = other.m_pointer;
            workaroundVCBug(const_cast<std::remove_cv_t<T>*>(m_pointer));
        }
        return *this;
    }

    // Deletes the pointee when this pointer owns it and it is not null; otherwise nothing.
    ~SgxCyclicPtr() {
        if (m_isOwner && m_pointer) {
            static_assert(std::is_base_of_v<SgxCyclicPtrBody, T>,
                          "SgxCyclicPtr points to SgxCyclicPtrBody nodes");
            delete m_pointer;
        }
    }

    // The pointee, possibly null. Never raises.
    constexpr T* get() const noexcept { return m_pointer; }
    constexpr bool isNull() const noexcept { return m_pointer == nullptr; }
    // Whether destroying this pointer deletes the pointee.
    bool isOwner() const noexcept { return m_isOwner; }

    // The pointee (shallow: a const pointer still gives a modifiable node). Each form raises
    // SgxException naming itself when the pointer is null.
    T* operator->() const {
        if (!m_pointer) [[unlikely]]
            SgxException::raise("Null dereference of SgxCyclicPtr<T>::operator->() const");
        return m_pointer;
    }
    T* operator->() {
        if (!m_pointer) [[unlikely]]
            SgxException::raise("Null dereference of SgxCyclicPtr<T>::operator->()");
        return m_pointer;
    }
    T& operator*() const {
        if (!m_pointer) [[unlikely]]
            SgxException::raise("Null dereference of SgxCyclicPtr<T>::operator*() const");
        return *m_pointer;
    }
    T& operator*() {
        if (!m_pointer) [[unlikely]]
            SgxException::raise("Null dereference of SgxCyclicPtr<T>::operator*()");
        return *m_pointer;
    }

    // Claims the pointee for this pointer unless it is null or already owned; a claimed pointee
    // is marked owned and then claims its own children (prepareForDeletion). Calling it again,
    // or on a graph already claimed, changes nothing.
    void takeOwnership() const {
        static_assert(std::is_base_of_v<SgxCyclicPtrBody, T>,
                      "SgxCyclicPtr points to SgxCyclicPtrBody nodes");
        if (!m_pointer)
            return;
        const SgxCyclicPtrBody& body = *m_pointer;
        if (body.isOwned())
            return;
        m_isOwner = true;
        body.claim();
    }

private:
    mutable bool m_isOwner = false; // set by the const takeOwnership()
    T* m_pointer = nullptr;
};
