// The six metamodels that Debian's Ecore package ships in its jar, imported as metamodels and, with
// Ecore.ecore as the metamodel, as models. Every expected figure comes from a plain text scan of
// the file here, not from the importer.
#include "ImportTestSupport.h"

#include <algorithm>
#include <functional>
#include <regex>
#include <sstream>

namespace {

constexpr const char* jar = "/usr/share/java/eclipse-emf-ecore.jar";
const char* const files[] = {"Ecore.ecore",           "XMLType.ecore",
                             "XMLNamespace.ecore",    "ExtendedMetaData.ecore",
                             "EcoreAnnotation.ecore", "DateConversionDelegateAnnotation.ecore"};

// What a text scan of a .ecore file finds.
struct Scan {
    std::string nsURI;
    size_t classes = 0;
    size_t attributes = 0;
    size_t opposites = 0;
    std::vector<std::string> abstractClasses; // sorted
};

std::string attributeOf(const std::string& tag, const std::string& key) {
    std::smatch m;
    return std::regex_search(tag, m, std::regex("\\s" + key + "=\"([^\"]*)\"")) ? m[1].str() : "";
}

Scan scan(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    const std::string s = text.str();
    Scan result;
    const std::regex startTag("<(ecore:EPackage|eClassifiers|eStructuralFeatures)\\s[^>]*>");
    for (auto it = std::sregex_iterator(s.begin(), s.end(), startTag); it != std::sregex_iterator();
         ++it) {
        const std::string tag = it->str();
        const std::string type = attributeOf(tag, "xsi:type");
        if (it->str(1) == "ecore:EPackage")
            result.nsURI = attributeOf(tag, "nsURI");
        if (type == "ecore:EClass") {
            ++result.classes;
            if (attributeOf(tag, "abstract") == "true")
                result.abstractClasses.push_back(attributeOf(tag, "name"));
        }
        result.attributes += type == "ecore:EAttribute";
        result.opposites += !attributeOf(tag, "eOpposite").empty();
    }
    std::sort(result.abstractClasses.begin(), result.abstractClasses.end());
    return result;
}

class EcoreJar : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_dir = new ScratchDir;
        const std::string command = std::string("unzip -q -o ") + jar + " 'model/*.ecore' -d '" +
                                    s_dir->dir().string() + "'";
        ASSERT_EQ(std::system(command.c_str()), 0)
            << command << " failed: scripts/install-deps installs the package and unzip";
    }
    static void TearDownTestSuite() { delete s_dir; }
    static std::string model(const std::string& name) { return s_dir->path("model/" + name); }
    static ScratchDir* s_dir;
};
ScratchDir* EcoreJar::s_dir = nullptr;

TEST_F(EcoreJar, EachFileImportsAsAMetamodel) {
    for (const char* file : files) {
        SCOPED_TRACE(file);
        const Scan expected = scan(model(file));
        TNSchema schema;
        TNEcoreMetamodel::import(schema, model(file));
        size_t classes = 0, attributes = 0;
        std::vector<std::string> abstractClasses;
        for (const auto& cls : schema.classes()) {
            if (cls->taggedValue("nsURI").asString() != expected.nsURI)
                continue; // a class of a file this one refers to
            ++classes;
            if (cls->taggedValue("abstract").asBoolean())
                abstractClasses.push_back(cls->name());
            for (const auto& desc : cls->attributes())
                attributes += desc->originClass() == cls->name();
        }
        std::sort(abstractClasses.begin(), abstractClasses.end());
        EXPECT_EQ(classes, expected.classes);
        EXPECT_EQ(attributes, expected.attributes);
        EXPECT_EQ(abstractClasses, expected.abstractClasses);
        schema.donePopulating();
    }
}

// Every object of a document: its roots and what they contain, depth first.
std::vector<TNObject*> contents(const std::vector<SgxSimplePtr<TNObject>>& roots) {
    std::vector<TNObject*> all;
    std::function<void(TNObject*)> visit = [&](TNObject* o) {
        all.push_back(o);
        for (const auto& a : o->getClass()->associations())
            if (a->taggedValue("containment").asBoolean())
                for (const auto& child : o->objects(*a))
                    visit(child.get());
    };
    for (const auto& root : roots)
        visit(root.get());
    return all;
}

TEST_F(EcoreJar, EachFileImportsAsAModelOfEcore) {
    for (const char* file : files) {
        SCOPED_TRACE(file);
        const Scan expected = scan(model(file));
        TNSchema schema;
        const auto ecore = TNEcoreMetamodel::import(schema, model("Ecore.ecore"));
        TNXmiImporter importer(*ecore);
        // References to Ecore's own data types name Ecore.ecore by its namespace URI.
        if (std::string(file) != "Ecore.ecore")
            importer.read(model("Ecore.ecore"));
        if (std::string(file) == "XMLNamespace.ecore")
            importer.read(model("XMLType.ecore"));
        importer.read(model(file));
        importer.finish();
        schema.donePopulating();
        size_t classes = 0, attributes = 0, opposites = 0;
        std::vector<std::string> abstractClasses;
        for (TNObject* o : contents(importer.roots(importer.documentCount() - 1))) {
            const std::string cls = o->getClass()->name();
            if (cls == "EClass") {
                ++classes;
                if ((*o)["abstract"].asBoolean())
                    abstractClasses.push_back((*o)["name"].asString());
            }
            attributes += cls == "EAttribute";
            opposites += cls == "EReference" && o->object("eOpposite");
        }
        std::sort(abstractClasses.begin(), abstractClasses.end());
        EXPECT_EQ(classes, expected.classes);
        EXPECT_EQ(attributes, expected.attributes);
        EXPECT_EQ(opposites, expected.opposites);
        EXPECT_EQ(abstractClasses, expected.abstractClasses);
    }
}

} // namespace
