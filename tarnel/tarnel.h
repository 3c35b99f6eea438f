// Umbrella header: includes every public header of the library and the platform headers its
// interface uses, so a host needs only this one.
#pragma once

#include "sgx/general/SgxException.h"
#include "sgx/general/SgxLogBase.h"
#include "sgx/general/SgxString.h"
