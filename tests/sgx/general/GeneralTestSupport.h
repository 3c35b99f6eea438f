// Helpers shared by the general library's tests.
#pragma once

#include "sgx/general/SgxException.h"
#include "sgx/general/SgxLogBase.h"

#include <gtest/gtest.h>

#include <iostream>
#include <sstream>
#include <string>
#include <utility>

// Succeeds when `f` raises an E whose reason text is `text` or, unless `exact`, contains it.
template <class E = SgxException, class F>
::testing::AssertionResult raisesText(F&& f, const std::string& text, bool exact = true) {
    try {
        f();
    } catch (const E& e) {
        const std::string got = e.reasonText();
        if (exact ? got == text : got.find(text) != std::string::npos)
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "raised \"" << got << "\", not \"" << text << '"';
    } catch (...) {
        return ::testing::AssertionFailure() << "raised another exception";
    }
    return ::testing::AssertionFailure() << "raised nothing, not \"" << text << '"';
}
template <class F>::testing::AssertionResult raisesWith(F&& f, const std::string& part) {
    return raisesText(std::forward<F>(f), part, false);
}

// Sends the shared log to a string with `category` enabled, for the lifetime of the capture.
struct LogCapture {
    explicit LogCapture(const char* category) : category(category) {
        SgxException::getLog().enable(category);
        SgxException::getLog().setStream(&out);
    }
    ~LogCapture() {
        SgxException::getLog().enable(category, false);
        SgxException::getLog().setStream(&std::cerr);
    }
    const char* category;
    std::ostringstream out;
};
