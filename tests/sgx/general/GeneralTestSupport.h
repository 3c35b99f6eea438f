// Helpers shared by the general library's tests.
#pragma once

#include "sgx/general/SgxException.h"
#include "sgx/general/SgxLogBase.h"

#include <gtest/gtest.h>

#include <iostream>
#include <sstream>
#include <string>

// Succeeds when `f` raises an E whose reason text is exactly `text`.
template <class E = SgxException, class F>
::testing::AssertionResult raisesText(F&& f, const std::string& text) {
    try {
        f();
    } catch (const E& e) {
        if (e.reasonText() == text)
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "raised \"" << e.reasonText() << '"';
    } catch (...) {
        return ::testing::AssertionFailure() << "raised another exception";
    }
    return ::testing::AssertionFailure() << "raised nothing";
}

// Sends the shared log to a string with `category` enabled, for the lifetime of the capture.
class LogCapture {
public:
    explicit LogCapture(const char* category) : m_category(category) {
        SgxException::getLog().enable(m_category);
        SgxException::getLog().setStream(&m_out);
    }
    ~LogCapture() {
        SgxException::getLog().enable(m_category, false);
        SgxException::getLog().setStream(&std::cerr);
    }
    std::string text() const { return m_out.str(); }

private:
    const char* m_category;
    std::ostringstream m_out;
};
