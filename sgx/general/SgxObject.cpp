#include "sgx/general/SgxObject.h"

SgxObject::~SgxObject() = default;
