#include "sgx/general/SgxCyclicPtr.h"

SgxCyclicPtrBody::~SgxCyclicPtrBody() = default;

void SgxCyclicPtrBody::claim() const {
    becomeOwned();
    prepareForDeletion();
}

void workaroundVCBug(void*) noexcept {}
