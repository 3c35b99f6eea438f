#include "sgx/general/SgxException.h"

#include "sgx/general/SgxLogBase.h"

#include <iostream>

SgxException::~SgxException() noexcept = default;

void SgxException::showWhy() const { std::cerr << SgxException::reasonText() << '\n'; }

SgxString SgxException::reasonText() const { return m_reason; }

const char* SgxException::what() const noexcept {
    try {
        m_what = reasonText();
    } catch (...) {
        // Out of memory while assembling: keep whatever text was built last.
    }
    return m_what.c_str();
}

void SgxException::append(int value) { m_reason += std::to_string(value); }

void SgxException::append(const SgxString& text) { m_reason += text; }

void SgxException::clear() { m_reason.clear(); }

SgxLogBase& SgxException::getLog() {
    // Deliberately leaked: destructors of static objects may still log during exit.
    static SgxLogBase* log = new SgxLogBase;
    return *log;
}

void SgxException::raise(const SgxString& reason) { raise(SgxException(reason)); }

void SgxException::raise(const char* reason) {
    raise(SgxException(reason ? SgxString(reason) : SgxString()));
}

void SgxException::logThrow(const SgxException& e) {
    SgxLogBase& log = getLog();
    if (log.isEnabled("Throw"))
        log.writeLine("Exception throw: " + e.reasonText());
}

void SgxException::logCatch(const SgxException* caught) noexcept {
    try {
        SgxLogBase& log = getLog();
        if (log.isEnabled("Catch"))
            log.writeLine(caught ? "Exception catch: " + caught->reasonText()
                                 : SgxString("Exception catch"));
    } catch (...) {
        // Logging from a catch site must never raise.
    }
}
