#include "sgx/general/SgxAssertion.h"

#include <string>

SgxAssertion::SgxAssertion(SgxString condition, SgxString unit, int32_t line)
    : SgxException("Assertion failed: " + condition + " (" + unit + ", line " +
                   std::to_string(line) + ")"),
      m_condition(std::move(condition)), m_unit(std::move(unit)), m_line(line) {}

SgxAssertion::~SgxAssertion() noexcept = default;

void SgxAssertion::raise(const SgxString& condition, const SgxString& unit, int32_t line) {
    SgxException::raise(SgxAssertion(condition, unit, line));
}
