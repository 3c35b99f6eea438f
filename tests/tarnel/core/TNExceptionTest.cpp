#include "tarnel/core/TNException.h"

#include "sgx/general/SgxLogBase.h"

#include <gtest/gtest.h>

#include <iostream>
#include <sstream>
#include <string>

namespace {

using E = TNException;

SgxString bare(const char* action, const char* target, const char* reason) {
    return SgxString("Unable to ") + action + target + ": " + reason;
}

// Sends the shared log to a string for one test and restores it afterwards.
class LogCapture {
public:
    explicit LogCapture(bool throwEnabled) {
        log().setStream(&m_out);
        log().enable("Throw", throwEnabled);
    }
    ~LogCapture() {
        log().enable("Throw", false);
        log().setStream(&std::cerr);
    }
    std::string text() const { return m_out.str(); }

private:
    static SgxLogBase& log() { return SgxException::getLog(); }
    std::ostringstream m_out;
};

} // namespace

TEST(TNException, EveryCodeWordAndItsFallback) {
    struct Row {
        int32_t code;
        const char* word;
    };
    const Row actions[] = {{0, "delete "},
                           {1, "modify "},
                           {2, "create "},
                           {3, "access "},
                           {4, "traverse "},
                           {5, "perform unknown action on "},
                           {-1, "perform unknown action on "}};
    for (const Row& row : actions) {
        SCOPED_TRACE(row.code);
        E e(static_cast<E::Action>(row.code), E::Class, E::NameNotFound);
        EXPECT_EQ(e.reasonText(), bare(row.word, "class", "The requested name does not exist.\n"));
    }
    // Targets are looked up as unsigned, so negative codes fall back too.
    const Row targets[] = {{0, "attribute descriptor"}, {1, "class"},
                           {2, "enumeration type"},     {3, "enumeration attribute"},
                           {4, "association"},          {5, "association chain"},
                           {6, "tagged value"},         {7, "unknown object type"},
                           {-1, "unknown object type"}, {INT32_MIN, "unknown object type"}};
    for (const Row& row : targets) {
        SCOPED_TRACE(row.code);
        E e(E::Delete, static_cast<E::Target>(row.code), E::ReferencesExist);
        EXPECT_EQ(e.reasonText(),
                  bare("delete ", row.word, "References to this class currently exist.\n"));
    }
    const Row reasons[] = {
        {0, "References to this class currently exist.\n"},
        {1, "The requested name does not exist.\n"},
        {2, "The requested name duplicates an existing name.\n"},
        {3, "Unknown reason.\n"}, // Invalid has no sentence of its own
        {4, "Collection with no objects reached before end of chain.\n"},
        {5, "Collection with more than one object reached before end of chain.\n"},
        {6, "Unknown reason.\n"},
        {-3, "Unknown reason.\n"}};
    for (const Row& row : reasons) {
        SCOPED_TRACE(row.code);
        E e(E::Traverse, E::AssociationChain, static_cast<E::Reason>(row.code));
        EXPECT_EQ(e.reasonText(), bare("traverse ", "association chain", row.word));
    }
}

TEST(TNException, DetailLinesInOrder) {
    E one(E::Access, E::Association, E::NameNotFound);
    one.setClass1("Part").setAssoc("owner");
    EXPECT_EQ(one.reasonText(), "Unable to access association: The requested name does not "
                                "exist.\nClass name: Part\nAssociation name: owner");

    // A second class name renames the first line, and alone it leaves a blank line.
    E onlySecond(E::Create, E::Class, E::DuplicateName);
    onlySecond.setClass2("B");
    EXPECT_EQ(onlySecond.reasonText(),
              "Unable to create class: The requested name duplicates an existing name.\n"
              "\nClass name 2: B");
    onlySecond.setClass1("A");
    EXPECT_EQ(onlySecond.reasonText(),
              "Unable to create class: The requested name duplicates an existing name.\n"
              "Class name 1: A\nClass name 2: B");

    E all(E::Modify, E::TaggedValue, E::Invalid);
    all.setInfo("bad line")
        .setAssoc("as")
        .setEnumAttr("lit")
        .setEnumType("Colour")
        .setAttr("colour")
        .setClass2("C2")
        .setClass1("C1");
    EXPECT_EQ(all.reasonText(), "Unable to modify tagged value: Unknown reason.\n"
                                "Class name 1: C1\nClass name 2: C2\nAttribute name: colour\n"
                                "Enumeration type name: Colour\nEnumeration attribute name: lit\n"
                                "Association name: as\nbad line");
    EXPECT_STREQ(all.what(), all.reasonText().c_str());
}

TEST(TNException, MessageIsRebuiltOnEveryRequest) {
    E e(E::Access, E::Association, E::NameNotFound);
    e.setAssoc("first");
    EXPECT_EQ(e.reasonText(), "Unable to access association: The requested name does not "
                              "exist.\n\nAssociation name: first");
    e.setAssoc("second");
    e.setAction(E::Delete);
    e.setTarget(E::EnumAttribute);
    const SgxString expected = "Unable to delete enumeration attribute: The requested name does "
                               "not exist.\n\nAssociation name: second";
    EXPECT_EQ(e.reasonText(), expected);
    EXPECT_EQ(e.what(), expected);
    EXPECT_EQ(e.getAction(), E::Delete);
    EXPECT_EQ(e.getTarget(), E::EnumAttribute);
    EXPECT_EQ(e.getReason(), E::NameNotFound);

    testing::internal::CaptureStderr();
    e.showWhy();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), expected + "\n");
}

TEST(TNException, CopiesCarryCodesAndDetails) {
    E source(E::Traverse, E::AssociationChain, E::ManyObjectsInChain);
    source.setClass1("a").setClass2("b").setAttr("c").setEnumType("d").setEnumAttr("e");
    source.setAssoc("f").setInfo("g");

    E unset;
    EXPECT_EQ(unset.reasonText(),
              "Unable to perform unknown action on unknown object type: Unknown reason.\n");
    unset = source;
    E copied(source);
    for (const E* e : {&unset, &copied}) {
        EXPECT_EQ(e->getAction(), E::Traverse);
        EXPECT_EQ(e->getTarget(), E::AssociationChain);
        EXPECT_EQ(e->getReason(), E::ManyObjectsInChain);
        EXPECT_EQ(e->className1(), "a");
        EXPECT_EQ(e->className2(), "b");
        EXPECT_EQ(e->attrName(), "c");
        EXPECT_EQ(e->enumTypeName(), "d");
        EXPECT_EQ(e->enumAttrName(), "e");
        EXPECT_EQ(e->assocName(), "f");
        EXPECT_EQ(e->info(), "g");
        EXPECT_EQ(e->reasonText(), source.reasonText());
    }
}

TEST(TNException, RaiseLogsThenThrowsACopy) {
    E e(E::Access, E::Class, E::NameNotFound);
    e.setClass1("Missing");
    const SgxString message = e.reasonText();

    LogCapture log(true);
    try {
        e.raise();
        FAIL() << "raise() returned";
    } catch (const TNException& caught) {
        EXPECT_NE(&caught, &e);
        EXPECT_EQ(caught.className1(), "Missing");
        EXPECT_EQ(caught.reasonText(), message);
        // A copy sliced to the base class still carries the message.
        const SgxException& base = caught;
        SgxException sliced(base);
        EXPECT_EQ(sliced.reasonText(), message);
    }
    EXPECT_EQ(log.text(), "Exception throw: " + message + "\n");
}

TEST(TNException, RaiseWritesNothingWhenThrowIsOff) {
    LogCapture log(false);
    EXPECT_THROW(E(E::Delete, E::Class, E::ReferencesExist).setClass1("Used").raise(), TNException);
    EXPECT_EQ(log.text(), "");
}
