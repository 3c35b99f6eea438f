// SgxException: the general library's exception, base of every exception the libraries raise.
//
// It holds one message text. reasonText() and what() return it; showWhy() writes it as one line to
// standard error. Derived classes may build the text lazily through the protected clear() and
// append() operations. getLog() gives the process-wide log that throw and catch sites write to.
#pragma once

#include "sgx/general/SgxString.h"
#include "sgx/general/sgxgeneral_export.h"

#include <concepts>
#include <exception>

class SgxLogBase;

class SGX_GENERAL_API SgxException : public std::exception {
public:
    SgxException() = default;
    explicit SgxException(SgxString reason) : m_reason(std::move(reason)) {}
    SgxException(const SgxException&) = default;
    SgxException& operator=(const SgxException&) = default;
    ~SgxException() noexcept override;

    // Writes reasonText() as one line to standard error.
    virtual void showWhy() const;
    // The message text.
    virtual SgxString reasonText() const;
    // The same text as reasonText() (kept alive by the exception object).
    const char* what() const noexcept override;

    // The process-wide log (created on first use, never destroyed before exit).
    static SgxLogBase& getLog();

    // Raises `e` after writing "Exception throw: " + its reason text under the log category
    // "Throw" when that category is enabled. Every throw site of the libraries goes through here.
    // A copy of `e` is thrown as its static type E, so pass the derived object itself, not a
    // reference to a base, or the throw slices it.
    template <class E>
    [[noreturn]] static void raise(const E& e) requires std::derived_from<E, SgxException> {
        logThrow(e);
        throw e;
    }
    // Shorthand for raise(SgxException(reason)).
    [[noreturn, gnu::cold]] static void raise(const SgxString& reason);
    // Shorthand for raise(SgxException(reason)) from a text literal. Out of line, so the inline
    // checks of the pointer templates cost a call only when they fail.
    [[noreturn, gnu::cold]] static void raise(const char* reason);
    // Writes "Exception catch" (+ ": " + reason text when `caught` is non-null) under the log
    // category "Catch" when that category is enabled. Used by catch sites that swallow errors.
    static void logCatch(const SgxException* caught) noexcept;

protected:
    virtual void append(int value);
    virtual void append(const SgxString& text);
    virtual void clear();

private:
    static void logThrow(const SgxException& e);

    SgxString m_reason;
    mutable SgxString m_what; // backs what(), refreshed from reasonText()
};
