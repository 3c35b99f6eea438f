// CSignal2Exception: the guard that code keeps alive around regions where a hardware fault
// should surface as an exception rather than end the process.
//
// This platform does not turn hardware faults into exceptions, so the guard has no effect: it
// owns nothing, changes no signal disposition, and lets every exception pass unchanged. Guarded
// regions still catch and replace exceptions themselves as they are specified to.
#pragma once

#include "sgx/general/sgxgeneral_export.h"

class SGX_GENERAL_API CSignal2Exception {
public:
    // Start and end of a guarded region; neither does anything nor raises.
    CSignal2Exception() noexcept;
    ~CSignal2Exception();
    CSignal2Exception(const CSignal2Exception&) = delete;
    CSignal2Exception& operator=(const CSignal2Exception&) = delete;
};
