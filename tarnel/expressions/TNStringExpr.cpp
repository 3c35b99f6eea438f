#include "tarnel/expressions/TNStringExpr.h"

#include "rw/RWClassicCString.h"
#include "tarnel/expressions/TNCollectionExpr.h"
#include "tarnel/expressions/internal/TNPlan.h"
#include "tarnel/instances/TNObject.h"

#include <cstdint>
#include <string>

#include <utility>

namespace {

// An operand's value read as text (TNValue::asString()), copied only when the value is not a
// text already. The view stays valid while this object lives; it is never copied or moved.
class Text {
public:
    explicit Text(TNValue value) : m_value(std::move(value)) {
        if (const char* text = m_value.text()) {
            m_view = text;
        } else {
            m_converted = m_value.asString();
            m_view = m_converted;
        }
    }
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;

    std::string_view view() const { return m_view; }

private:
    TNValue m_value;
    SgxString m_converted;
    std::string_view m_view;
};

// An operand's value read as text (TNValue::asString()) where it lies when it is a text
// (a constant, a binding's result, a text or enumeration attribute), converted otherwise. The
// view stays valid while this object lives and nothing changes what it reads.
class TextInPlace {
public:
    explicit TextInPlace(const TNValueExpr& operand) {
        const tn_detail::ValueView view = tn_detail::viewOf(operand, m_scratch);
        if (const char* text = view.textOrNull(); text != nullptr && !view.transient) {
            m_view = text;
        } else {
            m_converted = view.materialize(m_scratch).asString();
            m_view = m_converted;
        }
    }
    TextInPlace(const TextInPlace&) = delete;
    TextInPlace& operator=(const TextInPlace&) = delete;

    std::string_view view() const { return m_view; }

private:
    TNValue m_scratch;
    SgxString m_converted;
    std::string_view m_view;
};

TNValue stringValue(std::string_view text) { return TNValue(SgxString(text)); }

// The two trimming patterns; each is nine characters, the four escapes being single control
// characters. Compiled once for the process (RWCRegexp is immutable and shareable).
const RWCRegexp& leadingWhiteSpace() {
    static const RWCRegexp regexp("^[ \t\f\r\n]+");
    return regexp;
}
const RWCRegexp& trailingWhiteSpace() {
    static const RWCRegexp regexp("[ \t\f\r\n]+$");
    return regexp;
}

} // namespace

TNValue TNRegExpMatchExpr::operator()() const {
    // Through const handles, so a missing operand reports the const dereference.
    const TNValueExprPtr patternExpr = regexp(), subjectExpr = str();
    const TextInPlace pattern(*patternExpr);
    const TextInPlace subject(*subjectExpr);
    return TNValue(search(pattern.view(), subject.view()) != RW_NPOS);
}

TNValue TNRegExpFindExpr::operator()() const {
    // Through const handles, so a missing operand reports the const dereference.
    const TNValueExprPtr patternExpr = regexp(), subjectExpr = str();
    const TextInPlace pattern(*patternExpr);
    const TextInPlace subject(*subjectExpr);
    size_t length = 0;
    const size_t pos = search(pattern.view(), subject.view(), &length);
    if (pos == RW_NPOS)
        return TNValue(TNVString);
    return stringValue(subject.view().substr(pos, length));
}

TNValue TNRegExpReplaceExpr::operator()() const {
    const Text pattern(tnOperand(*this, m_regexp)());
    RWClassicCString result(tnOperand(*this, m_source)().asString());
    const Text replacement(tnOperand(*this, m_replacement)());
    const RWCRegexp& regexp = m_compiled.compiled(pattern.view());
    if (m_replaceAll)
        result.replaceAll(regexp, replacement.view());
    else
        result.replaceFirst(regexp, replacement.view());
    return TNValue(result.str());
}

TNValue TNStringManipulationExpr::operator()() const {
    RWClassicCString text(tnOperand(*this, m_str)().asString());
    switch (m_op) {
    case TNToLower:
        text.toLower();
        break;
    case TNToUpper:
        text.toUpper();
        break;
    case TNTrim:
        text.replaceFirst(leadingWhiteSpace(), {});
        text.replaceFirst(trailingWhiteSpace(), {});
        break;
    }
    return TNValue(text.str());
}

TNValue TNDelimiterExpr::operator()() const {
    const Text delimiter(tnOperand(*this, m_delimiter)());
    const TNStringCollectionExpr& collection = tnOperand(*this, m_collection);
    SgxString joined;
    if (tn_detail::isExactly<TNMapExpr>(collection)) {
        // A map's texts are appended where the joined text is built, one after another, with
        // the same evaluations in the same order: no sequence of them is made (rule 5).
        static_cast<const TNMapExpr&>(collection).appendJoined(delimiter.view(), joined);
        return TNValue(joined);
    }
    const TNStringSequence strings = collection();
    if (!strings.empty()) {
        size_t size = delimiter.view().size() * (strings.size() - 1);
        for (const SgxString& s : strings)
            size += s.size();
        joined.reserve(size);
        joined.append(strings.front());
        for (size_t i = 1; i < strings.size(); ++i)
            joined.append(delimiter.view()).append(strings[i]);
    }
    return TNValue(joined);
}

TNValue TNClassNameExpr::operator()() const {
    const SgxSimplePtr<TNObject> object = tnOperand(*this, m_object)();
    return TNValue(object->getClass()->name());
}

TNValue TNUidExpr::operator()() const {
    const SgxSimplePtr<TNObject> handle = tnOperand(*this, m_object)();
    const TNObject& object = *handle;
    if (object.getClass()->attributeExists("quid")) {
        SgxString quid = object["quid"].asString();
        if (!quid.empty())
            return TNValue(quid);
    }
    // The identity printed as an unsigned 32-bit number: only the address's low half shows.
    const auto low = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&object));
    return TNValue(std::to_string(low));
}

// Out of line: a caller that knows a node's exact type may call these directly, which an
// inline definition, hidden inside the library, would not allow.
void TNClassNameExpr::prepareForDeletion() const { tnClaimOperands(m_object); }
void TNUidExpr::prepareForDeletion() const { tnClaimOperands(m_object); }

bool TNRegexpCache::isLiteral(std::string_view pattern) noexcept {
    return tn_detail::isLiteralPattern(pattern);
}
