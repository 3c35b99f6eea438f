// TNTaggedValueApplicator: reads a tagged-value file and sets the tagged values and defaults it
// names on the classes, attribute descriptors and associations of a schema.
//
// The file is line-oriented text; leading white space and blank lines are skipped, and a line
// starting with ";" is a comment. Every other line has one of these shapes:
//
//     Class: TaggedValueDefault; name=N; type=T; default=V        (likewise AttributeDescriptor,
//                                                                    Association)
//     Class: TaggedValue; name=C; valuename=N; value=V
//     AttributeDescriptor: TaggedValue; name=C:A; valuename=N; value=V
//     Association: TaggedValue; name=C:R; valuename=N; value=V
//
// where T is "bool", "string" or "int" (checked, not used) and V is true or false (a truth value),
// a double-quoted text with the escapes \" \\ \n \r \t (a text), or anything else, read as C atol
// reads it (an integer; 0 when it is no number). Keys must be followed by "=" at once: a blank
// before it leaves the line without effect. tarnel/navigation/TNTaggedValueLine.h gives the exact
// rules.
//
// Ownership: the applicator borrows the schema and owns only its copy of the file name. Values
// and defaults are copied into the elements and the process-wide default maps.
#pragma once

#include "sgx/general/SgxSimplePtr.h"
#include "sgx/general/SgxString.h"
#include "tarnel/tarnel_export.h"

class TNSchema;

class TARNEL_API TNTaggedValueApplicator {
public:
    TNTaggedValueApplicator(const SgxSimplePtr<TNSchema>& schema, const SgxString& fileName)
        : m_schema(schema), m_fileName(fileName) {}
    TNTaggedValueApplicator(const TNTaggedValueApplicator&) = default;
    TNTaggedValueApplicator& operator=(const TNTaggedValueApplicator&) = default;
    ~TNTaggedValueApplicator() = default;

    // Reads the whole file and applies every valid line, in order; a later line overwrites a
    // value of the same name. A line that is malformed or names an unknown class, attribute or
    // association has no effect, and the lines after it still apply. Raises only SgxException
    // "Tagged value file not found" when the file cannot be opened for reading.
    void apply() const;

private:
    SgxSimplePtr<TNSchema> m_schema;
    SgxString m_fileName;
};
