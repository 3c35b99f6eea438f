// TNLinkView: the objects linked to one object along one association, oldest first, as a range
// (what TNObject::links gives).
//
// The view copies nothing when the link slot is frozen or holds one link (every slot after
// donePopulating): it points into the object's own link array, which lives in the schema's
// primary region. Links still being recorded, and what a compound association computes, are
// copied into the view. A view is valid while the object gains no links and its schema stays
// populated; copying a view is cheap only for the first two kinds.
#pragma once

#include "sgx/general/SgxSimplePtr.h"

#include <cstddef>
#include <vector>

class TNObject;

class TNLinkView {
public:
    const SgxSimplePtr<TNObject>* begin() const noexcept {
        return m_first != nullptr ? m_first : m_copy.empty() ? &m_single : m_copy.data();
    }
    const SgxSimplePtr<TNObject>* end() const noexcept { return begin() + m_count; }
    size_t size() const noexcept { return m_count; }

private:
    friend class TNObject;
    const SgxSimplePtr<TNObject>* m_first = nullptr;
    size_t m_count = 0;
    SgxSimplePtr<TNObject> m_single;
    std::vector<SgxSimplePtr<TNObject>> m_copy;
};
