#include "tarnel/navigation/TNClassIdentifier.h"

#include "rw/RWCollectableString.h"
#include "rw/RWOrdered.h"
#include "rw/RWbstream.h"
#include "sgx/persistence/SgxStringPersistence.h"
#include "sgx/persistence/StartPersistence.h"
#include "tarnel/metamodel/MetamodelTestSupport.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNSchema.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

// The class identifier that a class of that name creates for itself.
struct Fixture {
    TNSchema schema;
    TNClassIdentifier& identifier(const SgxString& className) {
        return *schema.newClass(className)->classIdentifier();
    }
};

} // namespace

TEST(TNClassIdentifier, NamesKeepTheirOrderAndAreUnique) {
    Fixture f;
    TNClassIdentifier& id = f.identifier("Part");
    EXPECT_EQ(id.className(), "Part");
    id.addAttr("b");
    id.addAttr("a");
    const auto e = raisedTN([&] { id.addAttr("b"); });
    ASSERT_TRUE(
        hasTriple(e, TNException::Create, TNException::AttrDescriptor, TNException::DuplicateName));
    EXPECT_EQ(e->reasonText(), "Unable to create attribute descriptor: The requested name "
                               "duplicates an existing name.\nClass name: Part Identifier\n"
                               "Attribute name: b");
    EXPECT_EQ(id.attrCount(), 2u);
    EXPECT_EQ(id.attributes(), (std::vector<SgxString>{"b", "a"}));
    EXPECT_TRUE(id.attributeExists("a"));
    EXPECT_FALSE(id.attributeExists("A"));
    EXPECT_EQ(id["a"], "a");

    const auto missing = raisedTN([&] { id["A"]; });
    ASSERT_TRUE(hasTriple(missing, TNException::Access, TNException::AttrDescriptor,
                          TNException::NameNotFound));
    EXPECT_EQ(missing->attrName(), "A");
}

TEST(TNClassIdentifier, RestoreFillsOnlyTheList) {
    Fixture f;
    TNClassIdentifier& saved = f.identifier("Part");
    saved.addAttr("name");
    saved.addAttr("id");

    std::ostringstream bytes;
    {
        StartPersistence guard;
        RWbostream out(bytes);
        saved.recursiveSaveOn(out);
    }
    const std::string data = bytes.str();
    TNClassIdentifier restored;
    {
        StartPersistence guard;
        RWbistream in(data.data(), data.size());
        restored.recursiveRestoreFrom(in);
        EXPECT_EQ(in.bytesLeft(), 0u);
    }
    EXPECT_EQ(restored.className(), "Part");
    EXPECT_EQ(restored.attrCount(), 2u);
    EXPECT_EQ(restored.attributes(), (std::vector<SgxString>{"name", "id"}));
    // The positions are not part of the record: only addAttr makes them.
    EXPECT_FALSE(restored.attributeExists("name"));
    const auto e = raisedTN([&] { restored["name"]; });
    EXPECT_TRUE(
        hasTriple(e, TNException::Access, TNException::AttrDescriptor, TNException::NameNotFound));
    restored.addAttr("name");
    EXPECT_EQ(restored.attrCount(), 3u);
    EXPECT_EQ(restored["name"], "name");
}

TEST(TNClassIdentifier, RecordWithoutANameListIsRefused) {
    // Builds a record by hand: base guts, class name, then `list` in place of the names.
    auto record = [](const RWCollectable* list) {
        std::ostringstream bytes;
        RWbostream out(bytes);
        out << SgxCollectable::recordRevision;
        sgxStringToStream(out, "Part");
        out << list;
        return bytes.str();
    };
    auto restore = [](const std::string& data, TNClassIdentifier& into) -> std::string {
        StartPersistence guard;
        RWbistream in(data.data(), data.size());
        try {
            into.restoreGuts(in);
        } catch (const SgxException& e) {
            return e.reasonText();
        }
        return "no error";
    };

    RWCollectableString notAList("name");
    RWOrdered withNil;
    RWCollectableString fine("fine");
    withNil.insert(&fine);
    withNil.insert(nullptr);

    TNClassIdentifier id;
    id.addAttr("kept");
    EXPECT_EQ(restore(record(&notAList), id),
              "Invalid class identifier: expected RWOrdered; got RWCollectableString");
    EXPECT_EQ(restore(record(nullptr), id),
              "Invalid class identifier: expected RWOrdered; got nil");
    EXPECT_EQ(restore(record(&withNil), id),
              "Invalid class identifier: expected RWCollectableString; got nil");
    EXPECT_EQ(id.attributes(), (std::vector<SgxString>{"kept"}));
}

// Identifiers must never collapse in hashed or sorted collections, and copies never share names.
TEST(TNClassIdentifier, HasNoIdentityOfItsOwnAndCopiesDeeply) {
    TNClassIdentifier one;
    one.addAttr("a");
    TNClassIdentifier same(one);
    same.addAttr("b");
    EXPECT_FALSE(one.isEqual(&one));
    EXPECT_EQ(one.compareTo(&same), 0);
    EXPECT_EQ(one.hash(), 1u);
    EXPECT_EQ(one.attributes(), (std::vector<SgxString>{"a"}));
}
