#include "rw/RWFactoryEntry.h"

#include "sgx/general/SgxException.h"

RWFactoryEntry::RWFactoryEntry(RWClassID& atom, RWuserCreator create, const char* name,
                               void (*before)()) {
    if (before != nullptr)
        before();
    m_atom = RWCollectable::nextAtom();
    rwAddToFactory(create, m_atom, RWStringID(name));
    atom = m_atom;
}

RWFactoryEntry::~RWFactoryEntry() {
    try {
        rwRemoveFromFactory(m_atom);
    } catch (const SgxException& e) {
        SgxException::logCatch(&e);
    } catch (...) {
        SgxException::logCatch(nullptr);
    }
}
