// StartPersistence and the registry of objects that the persistence library owns on behalf of a
// store or restore.
//
// Code that builds helper collections to write (or reads collections it only unpacks) hands them
// to registerCollectable(); the library then owns them and deletes them in
// cleanUpAfterPersistence().
//
// Nesting. Each live StartPersistence marks the point of the registry where it began.
// cleanUpAfterPersistence() deletes only the objects registered since the innermost live guard
// began (all registered objects when no guard is live), and each guard's destructor calls it. So
// a guard inside a save frees what was registered inside it, never what an enclosing save, still
// running, registered before it. Guards must end in the reverse order of their beginning, as
// scoped objects do. A process-wide guard made at start-up frees whatever is left at unload.
//
// Registered objects must not be deleted by anyone else. Not thread-safe: used by one thread.
#pragma once

#include "rw/RWCollectable.h"
#include "sgx/persistence/sgxpersistence_export.h"

#include <cstddef>

// Takes ownership of `object` until the next cleanUpAfterPersistence() that covers it. Null and
// an object already registered are ignored. Inside a restore it also adopts the object (rwAdopt),
// so the restore does not delete it on failure; that raises SgxException when the restore had
// already given the object to another owner.
SGX_PERSISTENCE_API void registerCollectable(RWCollectable* object);
// Deletes, newest first, the objects registered since the innermost live StartPersistence began,
// or every registered object when none is live.
SGX_PERSISTENCE_API void cleanUpAfterPersistence();
// How many registered objects are waiting to be deleted.
SGX_PERSISTENCE_API size_t registeredCollectables();

class SGX_PERSISTENCE_API StartPersistence {
public:
    // Marks the registry; does nothing else.
    StartPersistence();
    StartPersistence(const StartPersistence&) = delete;
    StartPersistence& operator=(const StartPersistence&) = delete;
    // Calls cleanUpAfterPersistence() for the objects registered since this guard began.
    ~StartPersistence();

private:
    size_t m_level; // how many guards were live when this one began
};
