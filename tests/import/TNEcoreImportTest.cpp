#include "LibraryMetamodel.h"

#include <tuple>

namespace {

struct Imported {
    ScratchDir dir;
    TNSchema schema;
    std::unique_ptr<TNEcoreMetamodel> metamodel;
    explicit Imported(const std::string& text) {
        metamodel = TNEcoreMetamodel::import(schema, dir.write("lib.ecore", text));
    }
};

TEST(TNEcoreImport, DataTypesMapOntoSlotKinds) {
    Imported lib(libraryEcore());
    const auto book = lib.schema.getClass("Book");
    const std::pair<const char*, TNAttrType> cases[] = {
        {"name", TNAttrString}, {"cover", TNAttrEnumeration}, {"pages", TNAttrInteger},
        {"tags", TNAttrString}, {"b8", TNAttrInteger},        {"s16", TNAttrInteger},
        {"i64", TNAttrReal},    {"big", TNAttrReal},          {"price", TNAttrReal},
        {"f32", TNAttrReal},    {"f64", TNAttrReal},          {"flag", TNAttrBoolean},
        {"when", TNAttrString}, {"ch", TNAttrString},         {"opaque", TNAttrString},
    };
    for (const auto& [name, type] : cases)
        EXPECT_EQ((*book)[name].type(), type) << name;
    EXPECT_TRUE((*book)["tags"].taggedValue("many").asBoolean());
    EXPECT_FALSE((*book)["pages"].taggedValue("many").asBoolean());
    EXPECT_EQ((*book)["pages"].taggedValue("defaultValue").asString(), "100");
}

TEST(TNEcoreImport, EnumerationKeepsLiteralOrder) {
    Imported lib(libraryEcore());
    const auto color = lib.schema.getEnumType("Color");
    EXPECT_EQ(color->values(), (std::vector<SgxString>{"Red", "Green", "Blue"}));
    EXPECT_EQ(lib.schema.getClass("Book")->operator[]("cover").enumType()->name(), "Color");
    EXPECT_EQ(lib.schema.enumCount(), 1u) << "data types are not enumeration types";
}

TEST(TNEcoreImport, InheritanceOverSeveralLevelsCopiesEveryMember) {
    Imported lib(libraryEcore());
    const auto shortNovel = lib.schema.getClass("ShortNovel");
    EXPECT_TRUE(shortNovel->hasParent("Novel"));
    EXPECT_FALSE(shortNovel->hasParent("Book"));
    EXPECT_EQ((*shortNovel)["name"].originClass(), "Named");
    EXPECT_EQ((*shortNovel)["cover"].originClass(), "Book");
    // Associations declared after the inheritance links reach the grandchild too.
    for (const char* role : {"library", "authors", "cites", "citesOfBook"})
        EXPECT_TRUE(shortNovel->associationExists(role)) << role;
    // Tagged values are on every copy, since lookups do not climb to parents.
    EXPECT_EQ((*shortNovel)["name"].taggedValue("doc#text").asString(), "the name");
    EXPECT_EQ(lib.schema.getClass("Named")->taggedValue("doc#text").asString(), "has a name");
    EXPECT_TRUE(lib.schema.getClass("Named")->taggedValue("abstract").asBoolean());
    EXPECT_FALSE(shortNovel->taggedValue("abstract").asBoolean());
    EXPECT_EQ(shortNovel->taggedValue("nsURI").asString(), "http://test/lib");
}

TEST(TNEcoreImport, ReferencesBecomeAssociationsWithBothRoles) {
    Imported lib(libraryEcore());
    struct Case {
        const char* cls;
        const char* role; // the far end, as navigated from cls
        const char* other;
        const char* nearRole;
        TNMultiplicity mine, far;
        bool containment, container;
    };
    const Case cases[] = {
        // Containment with an opposite: one association, the containment end forward.
        {"Library", "books", "Book", "library", {0, 1}, {0, -1}, true, false},
        {"Book", "library", "Library", "books", {0, -1}, {0, 1}, false, true},
        // Opposites without containment: the end met first is forward, the other its reverse.
        {"Writer", "books", "Book", "authors", {1, -1}, {0, -1}, false, false},
        {"Book", "authors", "Writer", "books", {0, -1}, {1, -1}, false, false},
        // No opposite: a generated reverse role; a contained object has one container.
        {"Library", "writers", "Writer", "writersOfLibrary", {0, 1}, {0, -1}, true, false},
        {"Writer", "writersOfLibrary", "Library", "writers", {0, -1}, {0, 1}, false, true},
        {"Book", "cites", "Book", "citesOfBook", {0, -1}, {0, -1}, false, false},
        {"Novel", "citesOfBook", "Book", "cites", {0, -1}, {0, -1}, false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.cls) + "." + c.role);
        const auto a = lib.schema.getClass(c.cls)->getAssociation(c.role);
        EXPECT_EQ(a->otherClass()->name(), c.other);
        EXPECT_EQ(a->roleName(), c.nearRole);
        EXPECT_EQ(std::tuple(a->myMultiplicity().first(), a->myMultiplicity().second()),
                  std::tuple(c.mine.first(), c.mine.second()));
        EXPECT_EQ(std::tuple(a->otherMultiplicity().first(), a->otherMultiplicity().second()),
                  std::tuple(c.far.first(), c.far.second()));
        EXPECT_EQ(a->taggedValue("containment").asBoolean(), c.containment);
        EXPECT_EQ(a->taggedValue("container").asBoolean(), c.container);
    }
    // Each pair is one association and its reverse, not two.
    EXPECT_EQ(lib.schema.getClass("Writer")->associationCount(), 2u);
    EXPECT_EQ(lib.schema.getClass("Book")->associationCount(), 4u);
}

TEST(TNEcoreImport, NestedPackagesQualifyOnlyClashingNames) {
    Imported nested(ecorePackage("a", R"(
<eClassifiers xsi:type="ecore:EClass" name="Item"/>
<eSubpackages name="b" nsURI="http://test/a/b" nsPrefix="b">
  <eClassifiers xsi:type="ecore:EClass" name="Item" eSuperTypes="#//Item"/>
  <eClassifiers xsi:type="ecore:EClass" name="Only"/>
</eSubpackages>
)"));
    std::vector<std::string> names;
    for (const auto& cls : nested.schema.classes())
        names.push_back(cls->name());
    EXPECT_EQ(names, (std::vector<std::string>{"a.Item", "a.b.Item", "Only"}));
    EXPECT_TRUE(nested.schema.getClass("a.b.Item")->hasParent("a.Item"));
    EXPECT_EQ(nested.metamodel->className("http://test/a/b", "Item"), "a.b.Item");
}

TEST(TNEcoreImport, TypesInOtherFilesResolveBesideTheImportingFile) {
    ScratchDir dir;
    dir.write("base.ecore", ecorePackage("base", R"(
<eClassifiers xsi:type="ecore:EEnum" name="Kind">
  <eLiterals name="x"/><eLiterals name="y"/>
</eClassifiers>
<eClassifiers xsi:type="ecore:EClass" name="Base">
  <eStructuralFeatures xsi:type="ecore:EAttribute" name="id"
      eType="ecore:EDataType http://www.eclipse.org/emf/2002/Ecore#//EString"/>
</eClassifiers>)"));
    dir.write("third.ecore",
              ecorePackage("third", R"(<eClassifiers xsi:type="ecore:EClass" name="Third"/>)"));
    dir.write("unrelated.ecore",
              ecorePackage("unrelated", R"(<eClassifiers xsi:type="ecore:EClass" name="U"/>)"));
    const std::string main = dir.write("main.ecore", ecorePackage("main", R"(
<eClassifiers xsi:type="ecore:EClass" name="Main" eSuperTypes="base.ecore#//Base">
  <eStructuralFeatures xsi:type="ecore:EAttribute" name="kind"
      eType="ecore:EEnum base.ecore#//Kind"/>
  <eStructuralFeatures xsi:type="ecore:EReference" name="t"
      eType="ecore:EClass http://test/third#//Third"/>
</eClassifiers>)"));
    TNSchema schema;
    const auto mm = TNEcoreMetamodel::import(schema, main);
    const auto cls = schema.getClass("Main");
    EXPECT_EQ((*cls)["id"].originClass(), "Base");
    EXPECT_EQ((*cls)["kind"].enumType()->name(), "Kind");
    EXPECT_EQ(cls->getAssociation("t")->otherClass()->name(), "Third");
    EXPECT_EQ(mm->files().size(), 3u) << "only the files referred to are read";
    EXPECT_FALSE(schema.classExists("U"));

    const std::string broken = dir.write("broken.ecore", ecorePackage("broken", R"(
<eClassifiers xsi:type="ecore:EClass" name="B" eSuperTypes="missing.ecore#//X"/>)"));
    TNSchema other;
    const auto e = raisedImport([&] { TNEcoreMetamodel::import(other, broken); });
    ASSERT_TRUE(e);
    EXPECT_NE(std::string(e->what()).find("'missing.ecore#//X'"), std::string::npos) << e->what();
    EXPECT_EQ(e->file(), broken);
    EXPECT_EQ(e->line(), 6u);
}

TEST(TNEcoreImport, MalformedMetamodelsNameTheProblem) {
    const std::string string =
        R"(eType="ecore:EDataType http://www.eclipse.org/emf/2002/Ecore#//EString")";
    const std::pair<std::string, std::string> cases[] = {
        {R"(<eClassifiers xsi:type="ecore:EClass" name="A" eSuperTypes="#//B"/>
<eClassifiers xsi:type="ecore:EClass" name="B" eSuperTypes="#//A"/>)",
         "inherits from itself"},
        {R"(<eClassifiers xsi:type="ecore:EClass" name="A">
<eStructuralFeatures xsi:type="ecore:EAttribute" name="a" eType="#//A"/></eClassifiers>)",
         "typed by the class 'A'"},
        {R"(<eClassifiers xsi:type="ecore:EClass" name="A">
<eStructuralFeatures xsi:type="ecore:EReference" name="r" )" +
             string + "/></eClassifiers>",
         "not a class"},
        {R"(<eClassifiers xsi:type="ecore:EClass" name="A">
<eStructuralFeatures xsi:type="ecore:EReference" name="r" eType="#//A" eOpposite="#//A/s"/>
<eStructuralFeatures xsi:type="ecore:EReference" name="s" eType="#//A"/></eClassifiers>)",
         "does not name it back"},
        {R"(<eClassifiers xsi:type="ecore:EClass" name="A">
<eStructuralFeatures xsi:type="ecore:EAttribute" name="n" defaultValueLiteral="many"
  eType="ecore:EDataType http://www.eclipse.org/emf/2002/Ecore#//EInt"/></eClassifiers>)",
         "does not fit"},
        {R"(<eClassifiers xsi:type="ecore:EClass" name="A">
<eStructuralFeatures xsi:type="ecore:EAttribute" name="n" eType="http://nowhere/x#//Y"/>
</eClassifiers>)",
         "cannot resolve reference 'http://nowhere/x#//Y'"},
        {R"(<eClassifiers xsi:type="ecore:EClass" name="A"/>
<eClassifiers xsi:type="ecore:EEnum" name="A"/>)",
         "declared twice"},
        {"<eClassifiers name=\"A\"/>", "unknown kind"},
    };
    for (const auto& [body, expected] : cases) {
        ScratchDir dir;
        TNSchema schema;
        const auto e = raisedImport([&] {
            TNEcoreMetamodel::import(schema, dir.write("x.ecore", ecorePackage("x", body)));
        });
        ASSERT_TRUE(e) << body;
        EXPECT_NE(std::string(e->what()).find(expected), std::string::npos) << e->what();
        EXPECT_GT(e->line(), 0u) << e->what();
    }
}

} // namespace
