// Persistence: the persistence library's version record, (2, 0, 1).
#pragma once

#include "sgx/general/SgxVersion.h"
#include "sgx/persistence/sgxpersistence_export.h"

class SGX_PERSISTENCE_API Persistence {
public:
    static SgxVersion<Persistence> getVersion();
};
