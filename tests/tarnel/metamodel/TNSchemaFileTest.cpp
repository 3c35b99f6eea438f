// Schema files: what a round trip keeps, what a loaded schema can do, what a load refuses, and
// damage of every kind.
#include "rw/RWCollectableInt.h"
#include "rw/RWCollectableString.h"
#include "rw/RWOrdered.h"
#include "rw/RWTestSupport.h"
#include "rw/RWbstream.h"
#include "tarnel/tarnel.h"
#include "w1/w1_reports.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>

namespace {

template <class T, class Name> std::vector<T> sortedBy(std::vector<T> items, Name name) {
    std::sort(items.begin(), items.end(),
              [&](const T& a, const T& b) { return name(*a) < name(*b); });
    return items;
}

std::string nameOf(const SgxSimplePtr<TNClass>& cls) { return cls.isNull() ? "-" : cls->name(); }

// Everything a schema file keeps, in an order that does not depend on creation order.
std::string describe(const TNSchema& schema) {
    std::ostringstream out;
    for (const auto& type : sortedBy(schema.enums(), [](auto& t) { return t.name(); })) {
        out << "enum " << type->name() << ':';
        for (const auto& literal : type->values())
            out << ' ' << literal;
        out << '\n';
    }
    for (const auto& cls : sortedBy(schema.classes(), [](auto& c) { return c.name(); })) {
        out << "class " << cls->name() << " flags " << cls->flags() << " parents";
        for (const auto& parent : cls->parents())
            out << ' ' << parent->name();
        out << " children";
        for (const auto& child : cls->children())
            out << ' ' << child->name();
        out << " identifier";
        for (const auto& name : cls->classIdentifier()->attributes())
            out << ' ' << name;
        out << '\n';
        for (const auto& desc : sortedBy(cls->attributes(), [](auto& d) { return d.name(); }))
            out << "  attr " << desc->name() << ' ' << desc->typeWord() << ' '
                << (desc->enumType().isNull() ? "-" : desc->enumType()->name()) << " from "
                << desc->originClass() << '\n';
        for (const auto& assoc :
             sortedBy(cls->associations(), [](auto& a) { return a.otherRoleName(); })) {
            out << "  assoc " << assoc->name() << ' ' << assoc->roleName() << '/'
                << assoc->otherRoleName() << ' ' << nameOf(assoc->firstClass()) << "->"
                << nameOf(assoc->otherClass()) << ' ' << assoc->myMultiplicity().first() << ','
                << assoc->myMultiplicity().second() << ' ' << assoc->otherMultiplicity().first()
                << ',' << assoc->otherMultiplicity().second() << " flags " << assoc->flags();
            if (!assoc->isSimple())
                out << " source "
                    << dynamic_cast<const TNCompoundAssociation&>(*assoc).traversalSource();
            out << '\n';
        }
    }
    return out.str();
}

// A schema with a bit of everything: classes made out of name order, every attribute kind, two
// levels of inheritance, a self-association, a compound association handed down to subclasses,
// class identifiers and flags.
void buildVaried(TNSchema& schema) {
    const auto color = schema.newEnumType("Color");
    for (const char* literal : {"red", "green", "blue", "amber"})
        color->addName(literal);
    schema.newEnumType("Unused"); // no literal and no attribute: kept as it is
    const auto shape = schema.newClass("Shape");
    const auto circle = schema.newClass("Circle");
    const auto disc = schema.newClass("Disc");
    const auto canvas = schema.newClass("Canvas");
    shape->addChild(circle);
    circle->addChild(disc);
    shape->addAttr("name", TNAttrString, "", "");
    shape->addAttr("color", TNAttrEnumeration, "Color", "");
    circle->addAttr("radius", TNAttrReal, "", "");
    circle->addAttr("filled", TNAttrBoolean, "", "");
    canvas->addAttr("width", TNAttrInteger, "", "");
    canvas->addAttr("serial", static_cast<TNAttrType>(TNAttrLong | 0x120), "", "");
    canvas->addAssociation("canvasShapes", "Shape", {0, -1}, {1, 1}, "canvas", "shapes");
    shape->addAssociation("overlap", "Shape", {0, 7}, {2, -1}, "below", "above");
    tnAddCompoundAssociation(*shape, "<Shape:neighbours>", "neighbours", shape,
                             "[canvas] -> [shapes]");
    canvas->setIsDiagram(true);
    canvas->getAssociation("shapes")->setIsPathToModel(true);
    shape->classIdentifier()->addAttr("name");
    shape->classIdentifier()->addAttr("color");
}

std::string fileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// Loads `path`, returning the schema (owned) or the text of the SgxException it raised.
std::pair<std::unique_ptr<TNSchema>, std::string> tryLoad(const std::string& path) {
    try {
        return {std::unique_ptr<TNSchema>(TNSchema::load(path).get()), ""};
    } catch (const SgxException& e) {
        return {nullptr, e.reasonText()};
    }
}

} // namespace

TEST(TNSchemaFile, RoundTripKeepsTheMetamodelInNameOrderAndSavesTheSameBytes) {
    TempPath first, second;
    TNSchema original;
    buildVaried(original);
    original.save(first.str());

    const std::unique_ptr<TNSchema> loaded(TNSchema::load(first.str()).get());
    EXPECT_EQ(describe(*loaded), describe(original));
    EXPECT_EQ(loaded->version(), "1.8");
    std::vector<std::string> names;
    for (const auto& cls : loaded->classes())
        names.push_back(cls->name());
    EXPECT_EQ(names, (std::vector<std::string>{"Canvas", "Circle", "Disc", "Shape"}));
    EXPECT_EQ(loaded->getEnumType("Color")->values(),
              (std::vector<SgxString>{"red", "green", "blue", "amber"}));

    // Copies handed down share one definition again, as the originals did.
    const auto neighbours = [&](const char* cls) {
        return dynamic_cast<TNCompoundAssociation*>(
            loaded->getClass(cls)->getAssociation("neighbours").get());
    };
    EXPECT_EQ(neighbours("Disc")->associationTraversal(),
              neighbours("Shape")->associationTraversal());

    loaded->save(second.str());
    EXPECT_EQ(fileBytes(second.str()), fileBytes(first.str()));
}

TEST(TNSchemaFile, ALoadedSchemaIsPopulatedAndQueriedAsTheOneSaved) {
    constexpr size_t n = 2000;
    TempPath path;
    std::string expected[3];
    {
        TNSchema built;
        w1::TarnelModel model(built);
        w1::defineAllClasses(built);
        built.save(path.str());
        w1::generate(model, n);
        built.donePopulating();
        const w1::Reports reports;
        TNObject* any = built.rootObject().get();
        expected[0] = reports.q1(any);
        expected[1] = std::to_string(reports.q2(any));
        expected[2] = std::to_string(reports.q3(any));
    }
    const std::unique_ptr<TNSchema> loaded(TNSchema::load(path.str()).get());
    w1::TarnelModel model(*loaded, w1::TarnelModel::Defined{});
    w1::generate(model, n);
    loaded->donePopulating();
    const w1::Reports reports;
    TNObject* any = loaded->rootObject().get();
    EXPECT_EQ(reports.q1(any), expected[0]);
    EXPECT_EQ(std::to_string(reports.q2(any)), expected[1]);
    EXPECT_EQ(std::to_string(reports.q3(any)), expected[2]);
    EXPECT_NE(expected[2], "0");
}

TEST(TNSchemaFile, FilesThatAreNotGoodSchemasAreRefusedWithTheirTexts) {
    TempPath path, target;
    const std::string name = path.str();
    EXPECT_TRUE(raisesText([&] { TNSchema::load(name); }, "Error reading schema file " + name));
    writeBytes(name, "");
    EXPECT_TRUE(raisesText([&] { TNSchema::load(name); }, "Empty schema file " + name));
    writeBytes(name, "not a schema at all");
    EXPECT_TRUE(raisesText([&] { TNSchema::load(name); }, "Error reading schema file " + name));

    // A schema of another version: refused inside the restore with the version texts, which
    // load turns into its own.
    TNSchema schema;
    buildVaried(schema);
    schema.save(name);
    std::string bytes = fileBytes(name);
    const size_t at = bytes.find("1.8");
    ASSERT_NE(at, std::string::npos);
    bytes.replace(at, 3, "1.7");
    writeBytes(name, bytes);
    EXPECT_TRUE(raisesText([&] { TNSchema::load(name); }, "Error reading schema file " + name));
    TNSchema target17;
    RWbistream in(bytes.data() + 10, bytes.size() - 10); // after the file header
    EXPECT_TRUE(raisesText([&] { target17.recursiveRestoreFrom(in); },
                           "Version mismatch: Software version 1.8; persisted version 1.7"));

    // A save that cannot be written leaves the old file as it was.
    schema.save(target.str());
    const std::string good = fileBytes(target.str());
    const std::string badName = target.str() + "/nested";
    EXPECT_TRUE(raisesText([&] { schema.save(badName); }, "Error writing schema file " + badName));
    EXPECT_EQ(fileBytes(target.str()), good);
}

TEST(TNSchemaFile, StringMappedVectorsRefuseElementsOfTheWrongTypeAndSharedNames) {
    // A schema record whose class list holds a number, one whose names do, and one that lists
    // one name object twice: names are read without being kept, so nothing can refer to one.
    enum Damage { BadObject, BadName, SharedName };
    const auto record = [](Damage damage) {
        RWCollectableString name("A");
        RWCollectableInt one(1), two(2);
        RWOrdered names, objects, noNames, noObjects, enums, classes, outer;
        names.insert(damage == BadName ? static_cast<RWCollectable*>(&one) : &name);
        objects.insert(&two);
        if (damage == SharedName) {
            names.insert(&name);
            objects.insert(&two);
        }
        enums.insert(&noNames);
        enums.insert(&noObjects);
        classes.insert(&names);
        classes.insert(&objects);
        outer.insert(&enums);
        outer.insert(&classes);
        Bytes bytes;
        bytes.newObject("TNSchema") << uint8_t{1} << std::string("1.8");
        outer.recursiveSaveOn(bytes.stream);
        return std::string(bytes);
    };
    for (const auto& [damage, text] :
         {std::pair{BadObject, "Invalid type in string mapped vector! Expected TNClass; got "
                               "RWCollectableInt"},
          std::pair{BadName, "Invalid type in string mapped vector! Expected String; got "
                             "RWCollectableInt"},
          std::pair{SharedName, "which was read in place and is not kept"}}) {
        const std::string bytes = record(damage);
        RWbistream in(bytes.data(), bytes.size());
        TNSchema schema;
        EXPECT_TRUE(raisesWith([&] { schema.recursiveRestoreFrom(in); }, text));
        EXPECT_EQ(schema.classCount(), 0u);
    }
}

// Every truncation and every single-bit flip of a saved file either loads or is refused with the
// load's one text; nothing leaks either way (the sanitizer build checks).
TEST(TNSchemaFile, EveryTruncationAndBitFlipLoadsOrIsRefusedCleanly) {
    TempPath path;
    TNSchema schema;
    buildVaried(schema);
    schema.save(path.str());
    const std::string good = fileBytes(path.str());
    const std::string refused = "Error reading schema file " + path.str();
    size_t loads = 0;
    const auto check = [&](const std::string& bytes, const std::string& what) {
        writeBytes(path.str(), bytes);
        auto [loaded, text] = tryLoad(path.str());
        if (loaded != nullptr)
            ++loads;
        else if (text != refused && !(bytes.empty() && text == "Empty schema file " + path.str()))
            ADD_FAILURE() << what << ": " << text;
    };
    for (size_t length = 0; length < good.size(); ++length)
        check(good.substr(0, length), "truncated to " + std::to_string(length));
    for (size_t bit = 0; bit < 8 * good.size(); ++bit) {
        std::string bytes = good;
        bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << (bit % 8)));
        check(bytes, "bit " + std::to_string(bit) + " flipped");
    }
    // Flips inside names, flags and multiplicities leave loadable schemas: the check above has
    // seen both outcomes.
    EXPECT_GT(loads, 0u);
}
