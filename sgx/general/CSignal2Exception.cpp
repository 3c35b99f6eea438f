#include "sgx/general/CSignal2Exception.h"

// Out of line so that a guard is a real scope object at every use (and no compiler sees an unused
// variable in `CSignal2Exception guard;`).
CSignal2Exception::CSignal2Exception() noexcept = default;

CSignal2Exception::~CSignal2Exception() = default;
