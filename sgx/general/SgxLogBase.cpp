#include "sgx/general/SgxLogBase.h"

#include <cstdlib>
#include <iostream>

SgxLogBase::SgxLogBase() : m_out(&std::cerr) {
    if (const char* list = std::getenv("SGX_LOG"))
        enableList(list);
}

bool SgxLogBase::isEnabled(const SgxString& category) const {
    return !m_enabled.empty() && m_enabled.count(category) != 0;
}

void SgxLogBase::enable(const SgxString& category, bool on) {
    if (on)
        m_enabled.insert(category);
    else
        m_enabled.erase(category);
}

void SgxLogBase::setStream(std::ostream* out) { m_out = out; }

void SgxLogBase::writeLine(const SgxString& text) {
    if (m_out)
        *m_out << text << '\n' << std::flush;
}

void SgxLogBase::enableList(const SgxString& commaSeparated) {
    constexpr const char* blanks = " \t";
    size_t start = 0;
    while (start <= commaSeparated.size()) {
        size_t end = commaSeparated.find(',', start);
        if (end == SgxString::npos)
            end = commaSeparated.size();
        SgxString name = commaSeparated.substr(start, end - start);
        size_t first = name.find_first_not_of(blanks);
        if (first != SgxString::npos)
            enable(name.substr(first, name.find_last_not_of(blanks) - first + 1));
        start = end + 1;
    }
}
