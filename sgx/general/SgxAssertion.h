// SgxAssertion: the exception of failed internal consistency checks.
//
// It records the failed condition as source text, the source unit that made the check and the
// line of the check; its reason text holds all three, as
// "Assertion failed: <condition> (<unit>, line <line>)". It is raised, like every exception of
// the libraries, through SgxException::raise so that the "Throw" log line is written.
#pragma once

#include "sgx/general/SgxException.h"
#include "sgx/general/sgxgeneral_export.h"

#include <cstdint>

class SGX_GENERAL_API SgxAssertion : public SgxException {
public:
    SgxAssertion(SgxString condition, SgxString unit, int32_t line);
    SgxAssertion(const SgxAssertion&) = default;
    SgxAssertion& operator=(const SgxAssertion&) = default;
    ~SgxAssertion() noexcept override;

    // The failed condition, e.g. "m_attributes != 0".
    const SgxString& condition() const noexcept { return m_condition; }
    // The source unit that made the check, e.g. "TNObject".
    const SgxString& unit() const noexcept { return m_unit; }
    // The line of the check within its unit.
    int32_t line() const noexcept { return m_line; }

    // Raises SgxAssertion(condition, unit, line) through SgxException::raise (which logs it).
    [[noreturn, gnu::cold]] static void raise(const SgxString& condition, const SgxString& unit,
                                              int32_t line);
    using SgxException::raise;

private:
    SgxString m_condition;
    SgxString m_unit;
    int32_t m_line;
};
