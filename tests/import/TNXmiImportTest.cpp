#include "LibraryMetamodel.h"

#include <cstdlib>
#include <sstream>

namespace {

const std::string header = R"(<?xml version="1.0" encoding="UTF-8"?>
)";
const std::string namespaces =
    R"(xmi:version="2.0" xmlns:xmi="http://www.omg.org/XMI")"
    R"( xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xmlns:lib="http://test/lib")";

struct LibraryModel {
    ScratchDir dir;
    TNSchema schema;
    std::unique_ptr<TNEcoreMetamodel> metamodel;
    LibraryModel() {
        metamodel = TNEcoreMetamodel::import(schema, dir.write("lib.ecore", libraryEcore()));
    }
};

std::vector<std::string> names(const std::vector<SgxSimplePtr<TNObject>>& objects) {
    std::vector<std::string> result;
    for (const auto& o : objects)
        result.push_back((*o)["name"].asString());
    return result;
}

TEST(TNXmiImport, ObjectsValuesAndLinksAcrossTwoFiles) {
    LibraryModel m;
    const std::string model =
        m.dir.write("model.xmi", header + "<lib:Library " + namespaces + R"( name="City">
  <books name="B0" authors="w1 //@writers.1" cover="bl"
      i64="9007199254740992" f32="0.5" flag="true">
    <tags>red</tags>
    <tags>old</tags>
  </books>
  <books xsi:type="lib:ShortNovel" name="B1" cites="//@books.0" pages="7"/>
  <writers xmi:id="w1" name="W0" books="//@books.0"/>
  <writers name="W1"/>
</lib:Library>
)");
    const std::string extra =
        m.dir.write("extra.xmi", header + "<lib:Writer " + namespaces +
                                     R"( name="W2" books="model.xmi#//@books.1"/>)");
    TNXmiImporter importer(*m.metamodel);
    importer.read(model);
    importer.read(extra);
    importer.finish();
    m.schema.donePopulating();
    EXPECT_EQ(importer.objectCount(), 6u);
    const auto library = importer.roots(0).at(0);
    const auto books = library->objects("books");
    ASSERT_EQ(names(books), (std::vector<std::string>{"B0", "B1"}));
    const auto b0 = books[0], b1 = books[1];
    EXPECT_EQ(b1->getClass()->name(), "ShortNovel");
    EXPECT_EQ(b1->object("library"), library) << "the container end follows the nesting";
    // Opposites written on both ends make each link once.
    EXPECT_EQ(names(b0->objects("authors")), (std::vector<std::string>{"W0", "W1"}));
    EXPECT_EQ(names(library->objects("writers")[0]->objects("books")),
              std::vector<std::string>{"B0"});
    EXPECT_EQ(names(b1->objects("authors")), std::vector<std::string>{"W2"});
    EXPECT_EQ(names(b0->objects("citesOfBook")), std::vector<std::string>{"B1"});
    EXPECT_EQ(library->objects("writers")[1]->object("writersOfLibrary"), library);
    // Values: literal text of an enumeration, defaults where absent, many values one per line.
    EXPECT_EQ((*b0)["cover"].asString(), "Blue");
    EXPECT_EQ((*b1)["cover"].asString(), "Green");
    EXPECT_EQ((*b0)["pages"].asLongInt(), 100);
    EXPECT_EQ((*b1)["pages"].asLongInt(), 7);
    EXPECT_EQ((*b0)["tags"].asString(), "red\nold");
    EXPECT_EQ((*b0)["i64"].asDouble(), 9007199254740992.0);
    EXPECT_EQ((*b0)["f32"].asDouble(), 0.5);
    EXPECT_TRUE((*b0)["flag"].asBoolean());
    EXPECT_FALSE((*b1)["flag"].asBoolean());
}

// The reader hands values as the text they stand for: references and sections undone, comments
// dropped, whatever form the parser keeps them in.
TEST(TNXmiImport, EscapesSectionsAndCommentsReadAsTheirText) {
    LibraryModel m;
    TNXmiImporter importer(*m.metamodel);
    importer.readBuffer(header + "<lib:Library " + namespaces + R"(>
  <books name="a&amp;b &#38;&#x26; &lt;&quot;&#233;">
    <tags><![CDATA[<x>&amp;]]></tags>
    <tags>c<!-- gone --><?pi x?>d&amp;&#233;</tags>
  </books>
</lib:Library>)",
                        "escapes.xmi");
    const auto book = importer.roots(0).at(0)->objects("books").at(0);
    EXPECT_EQ((*book)["name"].asString(), "a&b && <\"\u00e9");
    EXPECT_EQ((*book)["tags"].asString(), "<x>&amp;\ncd&\u00e9");
}

TEST(TNXmiImport, RealsReadAsTheirNearestDouble) {
    // Short plain decimals are read without strtod; every form must still give strtod's double.
    std::istringstream forms(
        "0.1 -2.675 4.35 123456789012345 1234567890123456 0.333333333333333 "
        "99999.9999999999 .5 5. -0 .000000000000001 1e3 7.0E-5 9007199254740993");
    std::vector<std::string> texts;
    for (std::string text; forms >> text;)
        texts.push_back(text);
    LibraryModel m;
    std::string body;
    for (const std::string& text : texts)
        body += "<books f64=\"" + text + "\"/>\n";
    TNXmiImporter importer(*m.metamodel);
    importer.readBuffer(header + "<lib:Library " + namespaces + ">\n" + body + "</lib:Library>",
                        "reals.xmi");
    const auto books = importer.roots(0).at(0)->objects("books");
    ASSERT_EQ(books.size(), texts.size());
    for (size_t i = 0; i < books.size(); ++i)
        EXPECT_EQ((*books[i])["f64"].asDouble(), std::strtod(texts[i].c_str(), nullptr))
            << texts[i];
}

TEST(TNXmiImport, ReferencesFindObjectsAmongManyIds) {
    LibraryModel m;
    std::string body = R"(<books name="B" authors="w0 w150 w299 //@writers.7"/>)";
    for (int i = 0; i < 300; ++i)
        body +=
            "<writers xmi:id=\"w" + std::to_string(i) + "\" name=\"W" + std::to_string(i) + "\"/>";
    TNXmiImporter importer(*m.metamodel);
    importer.readBuffer(header + "<lib:Library " + namespaces + ">" + body + "</lib:Library>",
                        "ids.xmi");
    importer.finish();
    const auto book = importer.roots(0).at(0)->objects("books").at(0);
    EXPECT_EQ(names(book->objects("authors")),
              (std::vector<std::string>{"W0", "W150", "W299", "W7"}));
}

TEST(TNXmiImport, ErrorsNameFileLineAndColumn) {
    struct Case {
        std::string body; // after the root's start tag, on line 3
        std::string expected;
        uint64_t line, column;
    };
    const Case cases[] = {
        {"  <shelves/>", "has no feature 'shelves'", 3, 3},
        {"  <books colour=\"x\"/>", "has no feature 'colour'", 3, 3},
        {"  <books pages=\"many\"/>", "value 'many' does not fit attribute 'pages'", 3, 3},
        {"  <books cover=\"Purple\"/>", "does not fit attribute 'cover'", 3, 3},
        {"  <books f64=\"+1\"/>", "value '+1' does not fit", 3, 3},
        {"  <books f64=\"1.2.3\"/>", "value '1.2.3' does not fit", 3, 3},
        {"  <books f64=\"-.\"/>", "value '-.' does not fit", 3, 3},
        {"  <books>\n    <pages>1x</pages>\n  </books>", "does not fit", 4, 5},
        {"  <books xsi:type=\"lib:Writer\"/>", "is not a 'Book'", 3, 3},
        {"  <books xsi:type=\"lib:Named\"/>", "is not a 'Book'", 3, 3},
        {"  <writers xsi:type=\"lib:Nope\"/>", "unknown class 'Nope'", 3, 3},
        {"  <books authors=\"//@writers.5\"/>", "past the last", 3, 3},
        {"  <books cites=\"nobody\"/>", "xmi:id of reference 'nobody'", 3, 3},
        {"  <writers xmi:id=\"a\"/><writers xmi:id=\"a\"/>", "xmi:id 'a' is used twice", 3, 24},
        {"  <books cites=\"other.xmi#//@books.0\"/>", "not read", 3, 3},
        {"  <books cites=\"//@writers.0\"/><writers/>", "takes a 'Book'", 3, 3},
        {"  <books name=\"a\">text</books>", "inside the element", 3, 19},
        {"  <books><name>a<b/></name></books>", "inside a value", 3, 17},
        {"  <books", "", 4, 1},
        // A tag over several lines is placed at its '<'; columns count characters, not bytes;
        // a text starts behind the comment or reference before it.
        {"  <books\n      colour=\"x\"/>", "has no feature 'colour'", 3, 3},
        {"  <books name=\"\u00e9\"><!-- c -->text</books>", "inside the element", 3, 29},
        {"  <books name=\"\u00e9\">&#233;\n  x</books>", "inside the element", 3, 19},
    };
    for (const Case& c : cases) {
        LibraryModel m;
        const std::string file = m.dir.write("bad.xmi", header + "<lib:Library " + namespaces +
                                                            ">\n" + c.body + "\n</lib:Library>\n");
        TNXmiImporter importer(*m.metamodel);
        const auto e = raisedImport([&] {
            importer.read(file);
            importer.finish();
        });
        ASSERT_TRUE(e) << c.body;
        EXPECT_NE(std::string(e->what()).find(c.expected), std::string::npos) << e->what();
        EXPECT_EQ(e->file(), file);
        EXPECT_EQ(std::pair(e->line(), e->column()), std::pair(c.line, c.column)) << e->what();
    }
}

TEST(TNXmiImport, UntrustedInputIsRefused) {
    LibraryModel m;
    const std::pair<std::string, std::string> cases[] = {
        {header + "<!DOCTYPE x [<!ENTITY a \"aaaa\">]>\n<lib:Library " + namespaces + "/>",
         "document type declarations"},
        {header + "<lib:Nope " + namespaces + "/>", "unknown class 'Nope'"},
        {header + "<lib:Named " + namespaces + "/>", "abstract"},
        {header + "<zz:Library " + namespaces + "/>", "undeclared namespace prefix 'zz'"},
        {header + "<lib:Library " + namespaces + "><books/><books/><books><library/></books>" +
             "<writers><books><x/></books></writers></lib:Library>",
         "nested deeper than 3"},
        {"", "no root element"},
    };
    TNImportLimits limits;
    limits.maxDepth = 3;
    for (const auto& [text, expected] : cases) {
        TNXmiImporter importer(*m.metamodel, limits);
        const auto e = raisedImport([&] { importer.readBuffer(text, "mem.xmi"); });
        ASSERT_TRUE(e) << text;
        EXPECT_NE(std::string(e->what()).find(expected), std::string::npos) << e->what();
    }
    limits.maxBytes = 10;
    TNXmiImporter small(*m.metamodel, limits);
    const auto e = raisedImport([&] { small.readBuffer(header, "big.xmi"); });
    ASSERT_TRUE(e);
    EXPECT_NE(std::string(e->what()).find("larger than 10 bytes"), std::string::npos);
}

} // namespace
