// Helpers shared by the metamodel and navigation tests.
#pragma once

#include "tarnel/core/TNException.h"
#include "tarnel/metamodel/TNClass.h"

#include <gtest/gtest.h>

#include <optional>
#include <string_view>
#include <utility>

// Runs `f` and returns the E it raised, or nothing (after recording a failure) when it raised
// none or another exception.
template <class E, class F> std::optional<E> raisedAs(F&& f) {
    try {
        f();
    } catch (const E& e) {
        return e;
    } catch (const std::exception& e) {
        ADD_FAILURE() << "raised another exception: " << e.what();
        return std::nullopt;
    }
    ADD_FAILURE() << "raised nothing";
    return std::nullopt;
}
template <class F> std::optional<TNException> raisedTN(F&& f) {
    return raisedAs<TNException>(std::forward<F>(f));
}

// Whether `e` carries exactly the triple (action, target, reason).
inline ::testing::AssertionResult hasTriple(const std::optional<TNException>& e,
                                            TNException::Action action, TNException::Target target,
                                            TNException::Reason reason) {
    if (!e)
        return ::testing::AssertionFailure() << "no TNException";
    if (e->getAction() == action && e->getTarget() == target && e->getReason() == reason)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << "triple (" << e->getAction() << ", " << e->getTarget() << ", " << e->getReason()
           << "), message: " << e->reasonText();
}

// The private index lookups of TNClass, which instances use.
struct TNClassTestAccess {
    static int32_t attrIndex(const TNClass& cls, std::string_view name) {
        return cls.attrIndex(name);
    }
    static int32_t assocIndex(const TNClass& cls, std::string_view name) {
        return cls.assocIndex(name);
    }
};
