#include "sgx/general/SgxCyclicPtr.h"

SgxCyclicPtrBody::~SgxCyclicPtrBody() = default;

void workaroundVCBug(void*) noexcept {}
