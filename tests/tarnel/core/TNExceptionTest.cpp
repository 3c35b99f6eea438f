#include "tarnel/core/TNException.h"

#include "sgx/general/GeneralTestSupport.h"

#include <gtest/gtest.h>

#include <string>

using E = TNException;

TEST(TNException, EveryCodeWordAndItsFallback) {
    auto text = [](const char* action, const char* target, const char* reason) {
        return std::string("Unable to ") + action + target + ": " + reason;
    };
    using Row = std::pair<int32_t, const char*>;
    const Row actions[] = {{0, "delete "},
                           {1, "modify "},
                           {2, "create "},
                           {3, "access "},
                           {4, "traverse "},
                           {5, "perform unknown action on "},
                           {-1, "perform unknown action on "}};
    for (const auto& [code, word] : actions)
        EXPECT_EQ(E(static_cast<E::Action>(code), E::Class, E::NameNotFound).reasonText(),
                  text(word, "class", "The requested name does not exist.\n"))
            << code;
    // Targets are looked up as unsigned, so negative codes fall back too.
    const Row targets[] = {{0, "attribute descriptor"}, {1, "class"},
                           {2, "enumeration type"},     {3, "enumeration attribute"},
                           {4, "association"},          {5, "association chain"},
                           {6, "tagged value"},         {7, "unknown object type"},
                           {-1, "unknown object type"}, {INT32_MIN, "unknown object type"}};
    for (const auto& [code, word] : targets)
        EXPECT_EQ(E(E::Delete, static_cast<E::Target>(code), E::ReferencesExist).reasonText(),
                  text("delete ", word, "References to this class currently exist.\n"))
            << code;
    const Row reasons[] = {
        {0, "References to this class currently exist.\n"},
        {1, "The requested name does not exist.\n"},
        {2, "The requested name duplicates an existing name.\n"},
        {3, "Unknown reason.\n"}, // Invalid has no sentence of its own
        {4, "Collection with no objects reached before end of chain.\n"},
        {5, "Collection with more than one object reached before end of chain.\n"},
        {6, "Unknown reason.\n"},
        {-3, "Unknown reason.\n"}};
    for (const auto& [code, word] : reasons)
        EXPECT_EQ(E(E::Traverse, E::AssociationChain, static_cast<E::Reason>(code)).reasonText(),
                  text("traverse ", "association chain", word))
            << code;
}

TEST(TNException, DetailLinesInOrderRebuiltOnEveryRequestAndCopied) {
    E one(E::Access, E::Association, E::NameNotFound);
    one.setClass1("Part").setAssoc("owner");
    EXPECT_EQ(one.reasonText(), "Unable to access association: The requested name does not "
                                "exist.\nClass name: Part\nAssociation name: owner");
    // A second class name renames the first line, and alone it leaves a blank line.
    E second(E::Create, E::Class, E::DuplicateName);
    second.setClass2("B");
    const std::string duplicate =
        "Unable to create class: The requested name duplicates an existing name.\n";
    EXPECT_EQ(second.reasonText(), duplicate + "\nClass name 2: B");
    second.setClass1("A");
    EXPECT_EQ(second.reasonText(), duplicate + "Class name 1: A\nClass name 2: B");

    E all(E::Modify, E::TaggedValue, E::Invalid);
    all.setInfo("bad line").setAssoc("as").setEnumAttr("lit").setEnumType("Colour");
    all.setAttr("colour").setClass2("C2").setClass1("C1");
    const std::string allLines = "Class name 1: C1\nClass name 2: C2\nAttribute name: colour\n"
                                 "Enumeration type name: Colour\nEnumeration attribute name: lit\n"
                                 "Association name: as\nbad line";
    EXPECT_EQ(all.reasonText(), "Unable to modify tagged value: Unknown reason.\n" + allLines);
    EXPECT_STREQ(all.what(), all.reasonText().c_str());
    all.setAction(E::Delete);
    all.setTarget(E::EnumAttribute);
    const std::string changed =
        "Unable to delete enumeration attribute: Unknown reason.\n" + allLines;
    EXPECT_EQ(all.reasonText(), changed);
    EXPECT_EQ(all.what(), changed);
    testing::internal::CaptureStderr();
    all.showWhy();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), changed + "\n");

    E unset;
    EXPECT_EQ(unset.reasonText(),
              "Unable to perform unknown action on unknown object type: Unknown reason.\n");
    unset = all;
    for (const E& e : {unset, E(all)}) {
        EXPECT_EQ(e.reasonText(), changed);
        EXPECT_EQ(e.getReason(), E::Invalid);
    }
}

TEST(TNException, RaiseLogsWhenEnabledThenThrowsACopy) {
    E e(E::Access, E::Class, E::NameNotFound);
    e.setClass1("Missing");
    const SgxString message = e.reasonText();
    {
        LogCapture log("Throw");
        try {
            e.raise();
            ADD_FAILURE() << "raise() returned";
        } catch (const TNException& caught) {
            EXPECT_NE(&caught, &e);
            EXPECT_EQ(caught.className1(), "Missing");
            // A copy sliced to the base class still carries the message.
            EXPECT_EQ(SgxException(static_cast<const SgxException&>(caught)).reasonText(), message);
        }
        EXPECT_EQ(log.out.str(), "Exception throw: " + message + "\n");
    }
    LogCapture other("Catch");
    EXPECT_THROW(e.raise(), TNException);
    EXPECT_EQ(other.out.str(), "");
}
