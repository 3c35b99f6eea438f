#include "sgx/persistence/Persistence.h"

SgxVersion<Persistence> Persistence::getVersion() { return {2, 0, 1}; }
