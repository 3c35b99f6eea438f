// TNTraversalPlan.h (internal; not installed): what a caller that runs one traversal step from
// each object of an array in turn (a map over a collection) uses to overlap the waits for memory
// of several objects, and the link words such callers read in place.
#pragma once

#include "sgx/general/SgxSimplePtr.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/navigation/TNAssociationTraversal.h"

#include <cstddef>

inline uintptr_t TNAssociationTraversal::linkWordAt(const TNObject& source, int32_t slot) noexcept {
    return source.linkWord(slot);
}
inline uintptr_t TNAssociationTraversal::originalLinkWordAt(const TNObject& source,
                                                            int32_t slot) noexcept {
    return source.originalLinkWord(slot);
}
inline bool TNAssociationTraversal::madeBy(const TNObject& object, const TNClass& cls) noexcept {
    return object.m_word == reinterpret_cast<uintptr_t>(&cls);
}

namespace tn_detail {

// Look-ahead for such a caller: before running `step` from objects[i], the caller calls
// before(i), which starts loading, without waiting for them, what the runs from a few objects
// further on will read: the object and its link word, then its link array, then `linkedBytes`
// bytes into each linked object (where a test of them reads; negative when nothing reads them).
// So the waits for memory of several objects overlap instead of adding up. It reads only what it
// loaded itself, only in objects of the class `step` last followed its association from, and
// changes nothing; the objects must stay live while it is used. Nothing it loads is needed for
// correctness, so a wrong guess costs time only.
class LinkLookAhead {
public:
    LinkLookAhead(const TNAssociationTraversal& step, const SgxSimplePtr<TNObject>* objects,
                  size_t count, ptrdiff_t linkedBytes) noexcept;
    void before(size_t i) noexcept;

private:
    // How many objects ahead of the one run each stage loads: far enough for a load to arrive
    // before the next stage reads it, near enough to be still in cache when used.
    static constexpr size_t sourceAhead = 8;
    static constexpr size_t linksAhead = 4;
    static constexpr size_t linkedAhead = 2;
    struct Links {
        const SgxSimplePtr<TNObject>* first = nullptr;
        size_t count = 0;
    };
    static constexpr size_t ringSize = 4; // > linksAhead - linkedAhead, a power of two

    const TNAssociationTraversal& m_step;
    const SgxSimplePtr<TNObject>* m_objects;
    size_t m_count;
    ptrdiff_t m_linkedBytes;
    Links m_ring[ringSize]; // the link array found for object j, at j % ringSize
};

} // namespace tn_detail
