#include "tarnel/navigation/TNTaggedValueApplicator.h"

#include "sgx/general/GeneralTestSupport.h"
#include "tarnel/metamodel/MetamodelTestSupport.h"
#include "tarnel/metamodel/TNAttrDesc.h"
#include "tarnel/metamodel/TNSchema.h"
#include "tarnel/navigation/TNAssociation.h"
#include "tarnel/navigation/TNTaggedValueLine.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

// Package (name, size) owns Elements: Package reaches them through "elements", an Element its
// Package through "owner". Defaults are process-wide, so each test uses tag names of its own.
struct TagModel {
    TagModel() {
        package = schema.newClass("Package");
        package->addAttr("name", TNAttrString, "", "");
        package->addAttr("size", TNAttrInteger, "", "");
        element = schema.newClass("Element");
        package->addAssociation("owns", "Element", {}, {0, -1}, "owner", "elements");
    }
    ~TagModel() { std::filesystem::remove(path); }

    // Writes `text` as the tagged-value file and applies it.
    void apply(const std::string& text) {
        std::ofstream(path, std::ios::binary) << text;
        TNTaggedValueApplicator(SgxSimplePtr<TNSchema>(&schema), path.string()).apply();
    }

    TNSchema schema;
    SgxSimplePtr<TNClass> package, element;
    std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("tntags-" + std::to_string(getpid()) + ".txt");
};

std::string typeAndText(const TNValue& v) {
    return std::to_string(v.myType()) + " " + v.asString();
}

} // namespace

TEST(TNTaggedValueApplicator, ValueLiteralsGiveTheirTypes) {
    struct Case {
        const char* literal;
        TNValueType type;
        const char* text;
    };
    const std::vector<Case> cases = {
        {"true", TNVBoolean, "true"},
        {"false", TNVBoolean, "false"},
        {"true ", TNVInt, "0"}, // trailing blanks are part of the literal
        {"True", TNVInt, "0"},
        {"12", TNVInt, "12"},
        {"   -7x", TNVInt, "-7"},
        {"abc", TNVInt, "0"},
        {"99999999999", TNVInt, "2147483647"},
        {"\"", TNVInt, "0"},
        {"\"\"", TNVString, ""},
        {"\"Paket\"", TNVString, "Paket"},
        {"\"a;b=c\"", TNVString, "a;b=c"},
        {"\"x\"", TNVString, ""},           // one character is dropped
        {"\"x\\ty\"", TNVString, "x\t"},    // so is one character after the last escape
        {"\"x\\tyz\"", TNVString, "x\tyz"}, // but two are kept
        {"\"\\\"q\\\"\"", TNVString, "\"q\""},
        {"\"\\\\\\n\\r\"", TNVString, "\\\n\r"},
    };
    TagModel m;
    std::string file;
    for (size_t i = 0; i < cases.size(); ++i)
        file += "Class: TaggedValue; name=Package; valuename=v" + std::to_string(i) +
                "; value=" + cases[i].literal + "\n";
    m.apply(file);
    for (size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(typeAndText(m.package->taggedValue("v" + std::to_string(i))),
                  std::to_string(cases[i].type) + " " + cases[i].text)
            << "literal " << cases[i].literal;
}

// Comments, blank lines, indentation, CR LF endings and bad lines leave the other lines alone.
TEST(TNTaggedValueApplicator, EachShapeReachesItsElementAndBadLinesAreSkipped) {
    TagModel m;
    m.apply("; Class: TaggedValue; name=Package; valuename=shape; value=1\n"
            "\n"
            "   \t\n"
            "Class: TaggedValue; name=Nowhere; valuename=shape; value=2\n"
            "  Class: TaggedValue; name=Package; valuename=shape; value=\"pkg\"\r\n"
            "AttributeDescriptor: TaggedValue; name=Package:size unit; valuename=shape; value=3\n"
            "Association: TaggedValue; name=Package:elements; valuename=shape; value=4\n"
            "Class: TaggedValue; name=Element; valuename=shape; value=\"bad\\escape\"\n"
            "Class: TaggedValue; name=Element; valuename=shape; value=true");
    EXPECT_EQ(typeAndText(m.package->taggedValue("shape")), "3 pkg");
    EXPECT_EQ(typeAndText((*m.package)["size"].taggedValue("shape")), "1 3");
    EXPECT_EQ(typeAndText(m.package->getAssociation("elements")->taggedValue("shape")), "1 4");
    EXPECT_EQ(typeAndText(m.element->taggedValue("shape")), "4 true");
    // A later file overwrites.
    m.apply("Class: TaggedValue; name=Package; valuename=shape; value=5");
    EXPECT_EQ(typeAndText(m.package->taggedValue("shape")), "1 5");
}

TEST(TNTaggedValueApplicator, DefaultsServeElementsWithoutAValueOfTheirOwn) {
    TagModel m;
    m.apply("Association: TaggedValueDefault; name=dflt; type=int; default=5\n"
            "Class: TaggedValueDefault; name=dflt; type=string; default=\"cd\"\n"
            "AttributeDescriptor: TaggedValueDefault; name=dflt; type=bool; default=false\n"
            "Association: TaggedValue; name=Package:elements; valuename=dflt; value=7\n");
    EXPECT_EQ(typeAndText(m.package->getAssociation("elements")->taggedValue("dflt")), "1 7");
    EXPECT_EQ(typeAndText(m.element->getAssociation("owner")->taggedValue("dflt")), "1 5");
    EXPECT_EQ(typeAndText(m.element->taggedValue("dflt")), "3 cd");
    EXPECT_EQ(typeAndText((*m.package)["name"].taggedValue("dflt")), "4 false");

    // A tag found nowhere: descriptors and associations name themselves and the tag in fields of
    // their own.
    const auto attr = raisedTN([&] { (*m.package)["name"].taggedValue("nothing"); });
    ASSERT_TRUE(
        hasTriple(attr, TNException::Access, TNException::TaggedValue, TNException::NameNotFound));
    EXPECT_EQ(attr->attrName() + "|" + attr->info(), "name|nothing");
    const auto assoc =
        raisedTN([&] { m.element->getAssociation("owner")->taggedValue("nothing"); });
    ASSERT_TRUE(assoc);
    EXPECT_EQ(assoc->assocName() + "|" + assoc->attrName(), "owns|nothing");
}

TEST(TNTaggedValueApplicator, OnlyAMissingFileRaises) {
    TagModel m;
    LogCapture log("Throw");
    const auto applyTo = [&](const std::filesystem::path& path) {
        TNTaggedValueApplicator(SgxSimplePtr<TNSchema>(&m.schema), path.string()).apply();
    };
    EXPECT_TRUE(
        raisesText([&] { applyTo(m.path.string() + ".missing"); }, "Tagged value file not found"));
    EXPECT_TRUE(raisesText([&] { applyTo(m.path.parent_path()); }, "Tagged value file not found"));
    EXPECT_EQ(log.out.str().substr(0, 44), "Exception throw: Tagged value file not found");
    EXPECT_NO_THROW(m.apply("garbage\nClass: TaggedValue; name=Nowhere; valuename=x; value=1\n"));
}

// Why each malformed line has no effect (`tarnel tags check` prints it), and what apply drops.
TEST(TNTaggedValueApplicator, MalformedLinesSayWhy) {
    using S = TNTaggedValueLineStatus;
    const std::vector<std::pair<const char*, S>> cases = {
        {"Klass: TaggedValue; name=Package; valuename=t; value=1", S::UnknownElementKind},
        {"Class : TaggedValue; name=Package; valuename=t; value=1", S::UnknownElementKind},
        {"Class: TaggedValue ; name=Package; valuename=t; value=1", S::UnknownRecordKind},
        {"Class: TaggedValue; name =Package; valuename=t; value=1", S::BlankBeforeEquals},
        {"Class: TaggedValue; name=Package; valuename=t; val=1", S::UnknownKey},
        {"Class: TaggedValue", S::UnknownKey},
        {"Class: TaggedValueDefault; name=t; type=float; default=1", S::UnknownType},
        {"Class: TaggedValue; name=Package; valuename=t; value=\"a\\qb\"", S::BadEscape},
        {"Class: TaggedValue; name=Package; valuename=t; value=\"ab\\\"", S::BadEscape},
        {"Class: TaggedValue; name=Package ; valuename=t; value=1", S::UnknownClass},
        {"AttributeDescriptor: TaggedValue; name=Package: size; valuename=t; value=1",
         S::UnknownAttribute},
        {"Association: TaggedValue; name=Package:owner; valuename=t; value=1",
         S::UnknownAssociation},
    };
    TagModel m;
    const SgxSimplePtr<TNSchema> schema(&m.schema);
    for (const auto& c : cases) {
        const SgxString line = c.first;
        const S status = c.second;
        TNTaggedValueLineOutcome outcome;
        const auto e = raisedTN([&] { tnApplyTaggedValueLine(schema, line, outcome); });
        EXPECT_EQ(outcome.status, status) << line;
        // Parse failures carry the whole line (a bad escape its quoted text).
        if (status < S::UnknownClass) {
            EXPECT_TRUE(
                hasTriple(e, TNException::Create, TNException::TaggedValue, TNException::Invalid))
                << line;
        }
        if (status < S::BadEscape) {
            EXPECT_EQ(e ? e->info() : "", line);
        }
    }
    EXPECT_THROW(m.package->taggedValue("t"), TNException);

    TNTaggedValueLineOutcome comment;
    tnApplyTaggedValueLine(schema, "  ; note", comment);
    EXPECT_EQ(comment.status, S::Comment);
}
