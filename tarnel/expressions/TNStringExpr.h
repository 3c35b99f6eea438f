// TNStringExpr.h: value operators on texts: regular-expression test, find and replace, case
// conversion and trimming, joining a string collection, and the texts that name an object (its
// class name and its identifier).
//
// Operands are read with TNValue::asString() and evaluated in field order, the pattern first.
// Results are TNVString values, except the match test's TNVBoolean. Patterns are RWCRegexp's
// dialect; an invalid pattern is not reported: it matches nothing. Operands are owned as the
// framework describes (TNExpr.h); prepareForDeletion() claims them in field order.
#pragma once

#include "rw/RWCRegexp.h"
#include "tarnel/expressions/TNExpr.h"

#include <cstdint>
#include <optional>
#include <string_view>

// The compiled form of the last pattern text a node evaluated. A node's pattern is usually a
// constant, so it is compiled once rather than on every evaluation; a different text recompiles.
// Written during const evaluation, like the binding caches.
class TARNEL_API TNRegexpCache {
public:
    const RWCRegexp& compiled(std::string_view pattern) const {
        if (!m_regexp || m_regexp->pattern() != pattern) {
            m_regexp.emplace(SgxString(pattern));
            m_literal = isLiteral(pattern);
        }
        return *m_regexp;
    }
    // The leftmost match of `pattern` in `subject` (RW_NPOS when none), its length in *length. A
    // pattern without special characters matches exactly its own characters, so it is searched
    // for as a substring.
    size_t index(std::string_view pattern, std::string_view subject, size_t* length) const {
        const RWCRegexp& regexp = compiled(pattern);
        if (!m_literal)
            return regexp.index(subject, length);
        const size_t found = subject.find(pattern);
        if (found == std::string_view::npos)
            return RW_NPOS;
        if (length != nullptr)
            *length = pattern.size();
        return found;
    }

private:
    static bool isLiteral(std::string_view pattern) noexcept;

    mutable std::optional<RWCRegexp> m_regexp;
    mutable bool m_literal = false;
};

// The operands and compiled-pattern cache of the two searches below: regexp, then str.
class TARNEL_API TNRegExpSearchExpr : public TNValueExpr {
public:
    TNRegExpSearchExpr() = default;
    TNRegExpSearchExpr(const TNValueExprPtr& regexp, const TNValueExprPtr& str)
        : m_regexp(regexp), m_str(str) {}

    void prepareForDeletion() const override { tnClaimOperands(m_regexp, m_str); }

    TN_EXPR_FIELD(TNValueExprPtr, regexp);
    TN_EXPR_FIELD(TNValueExprPtr, str);

protected:
    // The leftmost match of `pattern` in `subject` (RW_NPOS when none), its length in *length.
    size_t search(std::string_view pattern, std::string_view subject,
                  size_t* length = nullptr) const {
        return m_compiled.index(pattern, subject, length);
    }

private:
    TNRegexpCache m_compiled;
};

// True when regexp matches anywhere in str (a search; anchor with "^" and "$" for a whole match).
class TARNEL_API TNRegExpMatchExpr : public TNRegExpSearchExpr {
public:
    using TNRegExpSearchExpr::TNRegExpSearchExpr;
    TNValue operator()() const override;
};

// The leftmost match of regexp in str, or the empty text when there is none.
class TARNEL_API TNRegExpFindExpr : public TNRegExpSearchExpr {
public:
    using TNRegExpSearchExpr::TNRegExpSearchExpr;
    TNValue operator()() const override;
};

// source with the first match of regexp, or every match when replaceAll is set, replaced by the
// text of replacement, taken literally. Replace-all scans on from the end of each match; after an
// empty match it copies one character and goes on after it ("x*" by "-" in "abc" gives "-a-b-c").
// An empty source gives the empty text under replace-all, but the replacement alone under
// replace-first when the pattern matches the empty text.
class TARNEL_API TNRegExpReplaceExpr : public TNValueExpr {
public:
    TNRegExpReplaceExpr() = default;
    TNRegExpReplaceExpr(const TNValueExprPtr& regexp, const TNValueExprPtr& source,
                        const TNValueExprPtr& replacement)
        : m_regexp(regexp), m_source(source), m_replacement(replacement) {}

    TNValue operator()() const override;
    void prepareForDeletion() const override { tnClaimOperands(m_regexp, m_source, m_replacement); }

    TN_EXPR_FIELD(TNValueExprPtr, regexp);
    TN_EXPR_FIELD(TNValueExprPtr, source);
    TN_EXPR_FIELD(TNValueExprPtr, replacement);
    TN_EXPR_FIELD(bool, replaceAll);

private:
    TNRegexpCache m_compiled;
};

// The text of str with op applied: ASCII case conversion, or trimming of the blank, tab, form
// feed, carriage return and line feed at both ends. Any other op, 0 included, leaves it unchanged.
class TARNEL_API TNStringManipulationExpr : public TNValueExpr {
public:
    enum TNStringOp : int32_t {
        TNToLower = 1, // every letter to lower case
        TNToUpper = 2, // every letter to upper case
        TNTrim = 3     // white space removed at both ends
    };

    TNStringManipulationExpr() = default;
    TNStringManipulationExpr(TNStringOp op, const TNValueExprPtr& str) : m_op(op), m_str(str) {}

    TNValue operator()() const override;
    void prepareForDeletion() const override { tnClaimOperands(m_str); }

    TN_EXPR_FIELD(TNStringOp, op);
    TN_EXPR_FIELD(TNValueExprPtr, str);
};

// The texts of collection joined in order, the text of delimiter between consecutive ones; the
// empty text for an empty collection. delimiter is evaluated first.
class TARNEL_API TNDelimiterExpr : public TNValueExpr {
public:
    TNDelimiterExpr() = default;
    TNDelimiterExpr(const TNValueExprPtr& delimiter, const TNStringCollectionExprPtr& collection)
        : m_delimiter(delimiter), m_collection(collection) {}

    TNValue operator()() const override;
    void prepareForDeletion() const override { tnClaimOperands(m_delimiter, m_collection); }

    TN_EXPR_FIELD(TNValueExprPtr, delimiter);
    TN_EXPR_FIELD(TNStringCollectionExprPtr, collection);
};

// The name of the class of the object that `object` yields. A null object raises SgxException
// "Null dereference".
class TARNEL_API TNClassNameExpr : public TNValueExpr {
public:
    TNClassNameExpr() = default;
    explicit TNClassNameExpr(const TNObjectExprPtr& object) : m_object(object) {}

    TNValue operator()() const override;
    void prepareForDeletion() const override;

    TN_EXPR_FIELD(TNObjectExprPtr, object);
};

// An identifier of the object that `object` yields: the text of its "quid" attribute when its
// class has one and it is not empty; otherwise the low 32 bits of the object's address as an
// unsigned decimal number. A null object raises SgxException "Null dereference".
class TARNEL_API TNUidExpr : public TNValueExpr {
public:
    TNUidExpr() = default;
    explicit TNUidExpr(const TNObjectExprPtr& object) : m_object(object) {}

    TNValue operator()() const override;
    void prepareForDeletion() const override;

    TN_EXPR_FIELD(TNObjectExprPtr, object);
};
