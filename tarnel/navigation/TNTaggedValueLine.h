// The parser of one line of a tagged-value file, shared by TNTaggedValueApplicator::apply (which
// drops every line that fails), the `tarnel tags check` command (which says why each failed) and
// the fuzz target. Internal: not part of the umbrella header; hosts use TNTaggedValueApplicator.
//
// Line rules. Leading white space and a final carriage return (a line ending written on another
// system) are removed first; what remains is "the line". An empty line, or one starting with ";",
// is a comment. Otherwise the line is cut with RWCTokenizer, each call with its own delimiters:
//   1. the element kind, up to ":": exactly "Class", "AttributeDescriptor" or "Association";
//   2. the record kind, up to ";": "TaggedValueDefault" or "TaggedValue";
//   3. for a default: key "name" (up to "="), tag name (up to ";"), key "type", type ("bool",
//      "string" or "int"; checked, not used), key "default", then the rest of the line is the
//      value literal;
//   4. for a value: key "name", element name (up to ";"), key "valuename", tag name, key "value",
//      then the rest of the line. An attribute's element name is "C:A", where A is the first
//      white-space-delimited token after the ":"; an association's is "C:R", R the rest.
// Every token after the first is cleaned: its first character (the delimiter that ended the
// token before it) is removed, then leading blanks. Trailing blanks stay, so "name =" does not
// give the key "name". Value literals: "true" and "false" are truth values; a text of at least
// two characters in double quotes is a text, unescaped as tnUnescapeTaggedValue says; anything
// else is an integer read as C atol reads it (0 when it is no number).
//
// Failures raise what apply drops: TNException (Create, TaggedValue, Invalid) with the line as
// information for a token that does not match, with the quoted text for a bad escape; the
// schema's and class's own exceptions for unknown names. Before raising, the parser records in
// the caller's TNTaggedValueLineOutcome why the line fails; an exception raised with the outcome
// still at None has another cause (no schema, no memory).
#pragma once

#include "sgx/general/SgxSimplePtr.h"
#include "sgx/general/SgxString.h"
#include "tarnel/core/TNValue.h"
#include "tarnel/tarnel_export.h"

#include <cstdint>
#include <fstream>

class TNSchema;

// What became of one line.
enum class TNTaggedValueLineStatus : uint8_t {
    None,               // nothing decided yet (the initial state)
    Applied,            // a value or a default was set
    Comment,            // a blank or comment line: nothing to do
    UnknownElementKind, // subject: the element kind
    UnknownRecordKind,  // subject: the record kind
    UnknownKey,         // subject: the key found; context: the key expected
    BlankBeforeEquals,  // subject: the key found, with its trailing blanks; context: the key
    UnknownType,        // subject: the type
    BadEscape,          // subject: the text between the quotes
    UnknownClass,       // subject: the class name
    UnknownAttribute,   // subject: the attribute name; context: the class name
    UnknownAssociation, // subject: the role name; context: the class name
};

struct TNTaggedValueLineOutcome {
    TNTaggedValueLineStatus status = TNTaggedValueLineStatus::None;
    SgxString subject;
    SgxString context;
};

// One line, parsed.
struct TNTaggedValueRecord {
    enum ElementKind : uint8_t { ClassElement, AttributeElement, AssociationElement };
    ElementKind kind = ClassElement;
    bool isDefault = false;
    SgxString className;  // values only
    SgxString memberName; // values of attributes and associations only
    SgxString tagName;
    TNValue value;
};

// Opens a tagged-value file for reading line by line. Raises SgxException "Tagged value file not
// found" (logged under "Throw") when it cannot be opened or is a directory.
TARNEL_API std::ifstream tnOpenTaggedValueFile(const SgxString& fileName);

// Parses `line` into `record`. Returns false, with the outcome Comment, for a comment or blank
// line. Raises as the header comment says, after filling `outcome`.
TARNEL_API bool tnParseTaggedValueLine(const SgxString& line, TNTaggedValueRecord& record,
                                       TNTaggedValueLineOutcome& outcome);
// Sets the default, or looks the element up in `schema` and sets its value; the outcome is
// Applied on success. Raises what the lookups raise (a null schema raises "Null dereference"),
// after filling `outcome` for an unknown class, attribute or association.
TARNEL_API void tnApplyTaggedValueRecord(const SgxSimplePtr<TNSchema>& schema,
                                         const TNTaggedValueRecord& record,
                                         TNTaggedValueLineOutcome& outcome);
// Both steps, as apply runs them for each line.
TARNEL_API void tnApplyTaggedValueLine(const SgxSimplePtr<TNSchema>& schema, const SgxString& line,
                                       TNTaggedValueLineOutcome& outcome);

// The text between the quotes of a quoted value, unescaped: \" \\ \n \r \t stand for a double
// quote, a backslash, line feed, carriage return and tab. Text between escapes is copied, but
// the text after the last escape (the whole text when there is none) only when it is at least
// two characters long: files written for this library rely on the single last character being
// dropped. Raises TNException (Create, TaggedValue, Invalid) with `quoted` as information for a
// backslash before any other character or at the end.
TARNEL_API SgxString tnUnescapeTaggedValue(const SgxString& quoted);

// Why a line failed, in a few words for a person ("unknown class \"Foo\""); empty for None,
// Applied and Comment.
TARNEL_API SgxString tnDescribeTaggedValueOutcome(const TNTaggedValueLineOutcome& outcome);
