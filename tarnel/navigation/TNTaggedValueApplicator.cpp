#include "tarnel/navigation/TNTaggedValueApplicator.h"

#include "rw/RWCTokenizer.h"
#include "sgx/general/CSignal2Exception.h"
#include "sgx/general/SgxException.h"
#include "tarnel/core/TNException.h"
#include "tarnel/metamodel/TNAttrDesc.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNSchema.h"
#include "tarnel/navigation/TNAssociation.h"
#include "tarnel/navigation/TNTaggedValueLine.h"

#include <filesystem>
#include <string>
#include <system_error>

namespace {

using Status = TNTaggedValueLineStatus;

// Records why the line fails, then raises the malformed-line exception with `info`.
[[noreturn]] void fail(TNTaggedValueLineOutcome& outcome, Status status, const SgxString& subject,
                       const SgxString& context, const SgxString& info) {
    outcome.status = status;
    outcome.subject = subject;
    outcome.context = context;
    TNException(TNException::Create, TNException::TaggedValue, TNException::Invalid)
        .setInfo(info)
        .raise();
}

// A field token without the delimiter that ended the token before it, and without leading
// blanks. Trailing blanks stay: they are part of the field.
SgxString cleaned(const RWClassicCString& token) {
    const SgxString& text = token.str();
    if (text.empty())
        return text;
    const size_t begin = text.find_first_not_of(' ', 1);
    return begin == SgxString::npos ? SgxString() : text.substr(begin);
}

// Reads the next key (up to "=") and checks that it is `expected`.
void expectKey(RWCTokenizer& tokens, const char* expected, const SgxString& line,
               TNTaggedValueLineOutcome& outcome) {
    const SgxString key = cleaned(tokens("="));
    if (key == expected)
        return;
    const size_t end = key.find_last_not_of(" \t");
    const bool blankBeforeEquals =
        end != SgxString::npos && end + 1 < key.size() && key.compare(0, end + 1, expected) == 0;
    fail(outcome, blankBeforeEquals ? Status::BlankBeforeEquals : Status::UnknownKey, key, expected,
         line);
}

TNValue valueOfLiteral(const SgxString& literal, TNTaggedValueLineOutcome& outcome) {
    if (literal == "true")
        return TNValue(true);
    if (literal == "false")
        return TNValue(false);
    if (literal.size() >= 2 && literal.front() == '"' && literal.back() == '"') {
        const SgxString quoted = literal.substr(1, literal.size() - 2);
        outcome.status = Status::BadEscape;
        outcome.subject = quoted;
        TNValue text(tnUnescapeTaggedValue(quoted));
        outcome.status = Status::None;
        outcome.subject.clear();
        return text;
    }
    // Read as C atol reads it, with 32-bit integers.
    return TNValue(static_cast<int>(TNValue(literal).asLongInt()));
}

} // namespace

std::ifstream tnOpenTaggedValueFile(const SgxString& fileName) {
    std::ifstream in;
    // A directory opens as a stream on this platform but has no lines to read.
    std::error_code error;
    if (!std::filesystem::is_directory(fileName, error))
        in.open(fileName, std::ios::in | std::ios::binary);
    if (!in.is_open())
        SgxException::raise("Tagged value file not found");
    return in;
}

SgxString tnUnescapeTaggedValue(const SgxString& quoted) {
    SgxString text;
    size_t start = 0;
    for (size_t at = quoted.find('\\'); at != SgxString::npos; at = quoted.find('\\', start)) {
        text.append(quoted, start, at - start);
        char escaped = at + 1 < quoted.size() ? quoted[at + 1] : '\0';
        switch (escaped) {
        case '"':
        case '\\':
            break;
        case 'n':
            escaped = '\n';
            break;
        case 'r':
            escaped = '\r';
            break;
        case 't':
            escaped = '\t';
            break;
        default:
            TNException(TNException::Create, TNException::TaggedValue, TNException::Invalid)
                .setInfo(quoted)
                .raise();
        }
        text.push_back(escaped);
        start = at + 2;
    }
    // A single character after the last escape, or a text of one character, is dropped: files
    // written for this library rely on it.
    if (quoted.size() - start >= 2)
        text.append(quoted, start);
    return text;
}

bool tnParseTaggedValueLine(const SgxString& rawLine, TNTaggedValueRecord& record,
                            TNTaggedValueLineOutcome& outcome) {
    record = TNTaggedValueRecord();
    const size_t begin = rawLine.find_first_not_of(" \t\n\v\f\r");
    if (begin == SgxString::npos || rawLine[begin] == ';') {
        outcome.status = Status::Comment;
        return false;
    }
    const size_t end = rawLine.back() == '\r' ? rawLine.size() - 1 : rawLine.size();
    const SgxString line = rawLine.substr(begin, end - begin);

    RWCTokenizer tokens(line);
    const SgxString kind = tokens(":").str();
    if (kind == "Class")
        record.kind = TNTaggedValueRecord::ClassElement;
    else if (kind == "AttributeDescriptor")
        record.kind = TNTaggedValueRecord::AttributeElement;
    else if (kind == "Association")
        record.kind = TNTaggedValueRecord::AssociationElement;
    else
        fail(outcome, Status::UnknownElementKind, kind, {}, line);

    const SgxString recordKind = cleaned(tokens(";"));
    if (recordKind == "TaggedValueDefault")
        record.isDefault = true;
    else if (recordKind == "TaggedValue")
        record.isDefault = false;
    else
        fail(outcome, Status::UnknownRecordKind, recordKind, {}, line);

    expectKey(tokens, "name", line, outcome);
    if (record.isDefault) {
        record.tagName = cleaned(tokens(";"));
        expectKey(tokens, "type", line, outcome);
        const SgxString type = cleaned(tokens(";"));
        if (type != "bool" && type != "string" && type != "int")
            fail(outcome, Status::UnknownType, type, {}, line);
        expectKey(tokens, "default", line, outcome);
    } else {
        const SgxString elementName = cleaned(tokens(";"));
        if (record.kind == TNTaggedValueRecord::ClassElement) {
            record.className = elementName;
        } else {
            RWCTokenizer parts(elementName);
            record.className = parts(":").str();
            record.memberName = cleaned(
                record.kind == TNTaggedValueRecord::AttributeElement ? parts() : parts(";"));
        }
        expectKey(tokens, "valuename", line, outcome);
        record.tagName = cleaned(tokens(";"));
        expectKey(tokens, "value", line, outcome);
    }
    record.value = valueOfLiteral(cleaned(tokens("")), outcome);
    return true;
}

void tnApplyTaggedValueRecord(const SgxSimplePtr<TNSchema>& schema,
                              const TNTaggedValueRecord& record,
                              TNTaggedValueLineOutcome& outcome) {
    if (record.isDefault) {
        switch (record.kind) {
        case TNTaggedValueRecord::ClassElement:
            TNClass::taggedValueDefault(record.tagName, record.value);
            break;
        case TNTaggedValueRecord::AttributeElement:
            TNAttrDesc::taggedValueDefault(record.tagName, record.value);
            break;
        case TNTaggedValueRecord::AssociationElement:
            TNAssociation::taggedValueDefault(record.tagName, record.value);
            break;
        }
        outcome.status = Status::Applied;
        return;
    }
    // The outcome is filled from the non-raising lookups; the raising ones then raise exactly
    // what an unknown name raises.
    if (!schema.isNull() && !schema->classExists(record.className)) {
        outcome.status = Status::UnknownClass;
        outcome.subject = record.className;
    }
    const SgxSimplePtr<TNClass> cls = schema->getClass(record.className);
    switch (record.kind) {
    case TNTaggedValueRecord::ClassElement:
        cls->taggedValue(record.tagName, record.value);
        break;
    case TNTaggedValueRecord::AttributeElement: {
        const int32_t at = cls->findAttrIndex(record.memberName);
        if (at < 0 || static_cast<size_t>(at) >= cls->attrCount()) {
            outcome.status = Status::UnknownAttribute;
            outcome.subject = record.memberName;
            outcome.context = record.className;
        }
        (*cls)[record.memberName].taggedValue(record.tagName, record.value);
        break;
    }
    case TNTaggedValueRecord::AssociationElement:
        if (!cls->associationExists(record.memberName)) {
            outcome.status = Status::UnknownAssociation;
            outcome.subject = record.memberName;
            outcome.context = record.className;
        }
        cls->getAssociation(record.memberName)->taggedValue(record.tagName, record.value);
        break;
    }
    outcome.status = Status::Applied;
}

void tnApplyTaggedValueLine(const SgxSimplePtr<TNSchema>& schema, const SgxString& line,
                            TNTaggedValueLineOutcome& outcome) {
    TNTaggedValueRecord record;
    if (tnParseTaggedValueLine(line, record, outcome))
        tnApplyTaggedValueRecord(schema, record, outcome);
}

SgxString tnDescribeTaggedValueOutcome(const TNTaggedValueLineOutcome& outcome) {
    const auto quoted = [](const SgxString& text) { return "\"" + text + "\""; };
    switch (outcome.status) {
    case Status::None:
    case Status::Applied:
    case Status::Comment:
        return {};
    case Status::UnknownElementKind:
        return "unknown element kind " + quoted(outcome.subject);
    case Status::UnknownRecordKind:
        return "unknown record kind " + quoted(outcome.subject);
    case Status::UnknownKey:
        return "expected key " + quoted(outcome.context) + ", found " + quoted(outcome.subject);
    case Status::BlankBeforeEquals:
        return "blank before \"=\" after key " + quoted(outcome.context);
    case Status::UnknownType:
        return "unknown type " + quoted(outcome.subject);
    case Status::BadEscape:
        return "bad escape in " + quoted(outcome.subject);
    case Status::UnknownClass:
        return "unknown class " + quoted(outcome.subject);
    case Status::UnknownAttribute:
        return "unknown attribute " + quoted(outcome.subject) + " of class " +
               quoted(outcome.context);
    case Status::UnknownAssociation:
        return "unknown association " + quoted(outcome.subject) + " of class " +
               quoted(outcome.context);
    }
    return {};
}

void TNTaggedValueApplicator::apply() const {
    std::ifstream in = tnOpenTaggedValueFile(m_fileName);
    SgxString line;
    while (std::getline(in, line)) {
        try {
            const CSignal2Exception guard;
            TNTaggedValueLineOutcome outcome;
            tnApplyTaggedValueLine(m_schema, line, outcome);
        } catch (...) {
            // A line that fails has no effect; the next one still applies.
        }
    }
}
