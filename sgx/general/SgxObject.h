// SgxObject: the root class of the general library's object hierarchy. It has no state; it gives
// every derived class a virtual destructor so objects can be deleted through a base pointer.
#pragma once

#include "sgx/general/sgxgeneral_export.h"

class SGX_GENERAL_API SgxObject {
public:
    SgxObject() = default;
    SgxObject(const SgxObject&) = default;
    SgxObject& operator=(const SgxObject&) = default;
    virtual ~SgxObject();
};
