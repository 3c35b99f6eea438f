#include "tarnel/core/TNCollectable.h"

#include "sgx/general/SgxException.h"
#include "tarnel/core/Tarnel.h"

TNFactoryEntry::TNFactoryEntry(RWClassID& atom, RWuserCreator create, const char* name) {
    // The classes register from static initialisers in any order; the version checks must have
    // passed before the first of them touches the persistence machinery.
    tnStartUp();
    m_atom = RWCollectable::nextAtom();
    rwAddToFactory(create, m_atom, RWStringID(name));
    atom = m_atom;
}

TNFactoryEntry::~TNFactoryEntry() {
    try {
        rwRemoveFromFactory(m_atom);
    } catch (const SgxException& e) {
        SgxException::logCatch(&e);
    } catch (...) {
        SgxException::logCatch(nullptr);
    }
}
