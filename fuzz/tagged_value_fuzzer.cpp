// Feeds arbitrary bytes, line by line, to the tagged-value line parser and applies each line to a
// small schema, as TNTaggedValueApplicator::apply does. Every line must either take effect or
// raise SgxException (TNException included), without crashing, leaking or touching freed memory;
// any other exception escapes and counts as a crash. A line that takes effect must read back as
// the value parsed, and the outcome must agree with whether the line raised.
#include "sgx/general/SgxException.h"
#include "tarnel/metamodel/TNAttrDesc.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNSchema.h"
#include "tarnel/navigation/TNAssociation.h"
#include "tarnel/navigation/TNTaggedValueLine.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace {

// Package (name, size) owns Elements through "elements"; an Element reaches its Package through
// "owner".
void buildSchema(TNSchema& schema) {
    const SgxSimplePtr<TNClass> package = schema.newClass("Package");
    package->addAttr("name", TNAttrString, "", "");
    package->addAttr("size", TNAttrInteger, "", "");
    schema.newClass("Element")->addAttr("name", TNAttrString, "", "");
    package->addAssociation("owns", "Element", {}, {0, -1}, "owner", "elements");
}

TNValue readBack(TNSchema& schema, const TNTaggedValueRecord& record) {
    const SgxSimplePtr<TNClass> cls = schema.getClass(record.className);
    switch (record.kind) {
    case TNTaggedValueRecord::ClassElement:
        return cls->taggedValue(record.tagName);
    case TNTaggedValueRecord::AttributeElement:
        return (*cls)[record.memberName].taggedValue(record.tagName);
    case TNTaggedValueRecord::AssociationElement:
        return cls->getAssociation(record.memberName)->taggedValue(record.tagName);
    }
    __builtin_trap();
}

void check(bool condition) {
    if (!condition)
        __builtin_trap();
}

void runLine(TNSchema& schema, const SgxString& line) {
    TNTaggedValueRecord record;
    TNTaggedValueLineOutcome outcome;
    bool raised = false;
    try {
        if (!tnParseTaggedValueLine(line, record, outcome)) {
            check(outcome.status == TNTaggedValueLineStatus::Comment);
            return;
        }
        // Defaults live in process-wide maps that nothing empties; setting only short names keeps
        // them from growing with every new name the fuzzer makes up, on the same code path.
        if (record.isDefault && record.tagName.size() > 2)
            return;
        tnApplyTaggedValueRecord(SgxSimplePtr<TNSchema>(&schema), record, outcome);
    } catch (const SgxException&) {
        raised = true;
    }
    check(raised == (outcome.status != TNTaggedValueLineStatus::Applied));
    if (raised || record.isDefault)
        return;
    const TNValue stored = readBack(schema, record);
    check(stored.myType() == record.value.myType() &&
          stored.asString() == record.value.asString());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // A schema per input, so that values set by one input do not pile up over the run.
    TNSchema schema;
    buildSchema(schema);
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    for (size_t begin = 0; begin <= text.size();) {
        size_t end = text.find('\n', begin);
        if (end == std::string_view::npos)
            end = text.size();
        runLine(schema, SgxString(text.substr(begin, end - begin)));
        begin = end + 1;
    }
    return 0;
}
