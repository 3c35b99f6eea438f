#include "tarnel/core/TNException.h"

#include <cstdint>
#include <iterator>

namespace {

const char* actionWord(TNException::Action action) {
    switch (action) {
    case TNException::Delete:
        return "delete ";
    case TNException::Modify:
        return "modify ";
    case TNException::Create:
        return "create ";
    case TNException::Access:
        return "access ";
    case TNException::Traverse:
        return "traverse ";
    default:
        return "perform unknown action on ";
    }
}

const char* targetWord(TNException::Target target) {
    // Looked up as unsigned, so a negative code falls outside the table like any other.
    static const char* const words[] = {"attribute descriptor",  "class",       "enumeration type",
                                        "enumeration attribute", "association", "association chain",
                                        "tagged value"};
    auto index = static_cast<uint32_t>(target);
    return index < std::size(words) ? words[index] : "unknown object type";
}

const char* reasonSentence(TNException::Reason reason) {
    switch (reason) {
    case TNException::ReferencesExist:
        return "References to this class currently exist.\n";
    case TNException::NameNotFound:
        return "The requested name does not exist.\n";
    case TNException::DuplicateName:
        return "The requested name duplicates an existing name.\n";
    case TNException::NoObjectsInChain:
        return "Collection with no objects reached before end of chain.\n";
    case TNException::ManyObjectsInChain:
        return "Collection with more than one object reached before end of chain.\n";
    default: // Invalid included: it has never had a sentence of its own
        return "Unknown reason.\n";
    }
}

// Codes of a default-constructed exception: outside every table until assigned.
constexpr int32_t kUnsetCode = -1;

} // namespace

TNException::TNException()
    : m_action(static_cast<Action>(kUnsetCode)), m_target(static_cast<Target>(kUnsetCode)),
      m_reason(static_cast<Reason>(kUnsetCode)) {}

TNException::TNException(Action action, Target target, Reason reason)
    : m_action(action), m_target(target), m_reason(reason) {}

TNException::~TNException() noexcept = default;

SgxString TNException::assembleMessage() const {
    SgxString message = "Unable to ";
    message += actionWord(m_action);
    message += targetWord(m_target);
    message += ": ";
    message += reasonSentence(m_reason);
    if (!m_className1.empty()) {
        message += m_className2.empty() ? "Class name: " : "Class name 1: ";
        message += m_className1;
    }
    // Each further detail starts its own line, even when nothing precedes it on the line above.
    auto addLine = [&message](const char* label, const SgxString& value) {
        if (!value.empty()) {
            message += label;
            message += value;
        }
    };
    addLine("\nClass name 2: ", m_className2);
    addLine("\nAttribute name: ", m_attrName);
    addLine("\nEnumeration type name: ", m_enumTypeName);
    addLine("\nEnumeration attribute name: ", m_enumAttrName);
    addLine("\nAssociation name: ", m_assocName);
    addLine("\n", m_info);
    return message;
}

void TNException::constructMessage() {
    clear();
    append(assembleMessage());
}

SgxString TNException::reasonText() const { return assembleMessage(); }

void TNException::showWhy() const { SgxException(assembleMessage()).showWhy(); }

void TNException::raise() const {
    TNException thrown(*this);
    thrown.constructMessage();
    SgxException::raise(thrown);
}
