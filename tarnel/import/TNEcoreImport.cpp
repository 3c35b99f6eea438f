// Reads .ecore files into a TNSchema. The files are small, so each is read whole into a light
// element tree; the classifiers of every file reached are collected, their references resolved
// (loading the files they name), and only then is the schema built, in the order inheritance by
// copying needs: enumeration types, classes, inheritance links, attributes, associations, tags.
#include "tarnel/import/internal/TNEcoreModel.h"
#include "tarnel/import/internal/TNXmlReader.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>

namespace fs = std::filesystem;

TNImportError::TNImportError(std::string file, uint64_t line, uint64_t column,
                             const std::string& message)
    : SgxException(file + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " +
                   message),
      m_file(std::move(file)), m_line(line), m_column(column) {}

namespace tn_import {

namespace {

constexpr std::string_view ecoreNsURI = "http://www.eclipse.org/emf/2002/Ecore";

std::string_view localName(std::string_view qname) {
    const size_t colon = qname.find(':');
    return colon == std::string_view::npos ? qname : qname.substr(colon + 1);
}

struct Node {
    std::string name; // local name
    std::vector<std::pair<std::string, std::string>> attributes;
    std::vector<std::unique_ptr<Node>> children;
    Position where;

    const std::string* attribute(std::string_view key) const {
        for (const auto& [k, v] : attributes)
            if (k == key)
                return &v;
        return nullptr;
    }
    std::string attributeOr(std::string_view key, std::string_view otherwise) const {
        const std::string* v = attribute(key);
        return v ? *v : std::string(otherwise);
    }
    std::string_view xsiType() const {
        const std::string* v = attribute("xsi:type");
        return v ? localName(*v) : std::string_view();
    }
};

class TreeBuilder : public XmlHandler {
public:
    explicit TreeBuilder(const std::string& file) : m_file(file) {}
    XmlReader* reader = nullptr;
    std::unique_ptr<Node> root;

    void startElement(const char* name, const char* const* attributes) override {
        auto node = std::make_unique<Node>();
        node->name = localName(name);
        for (const char* const* a = attributes; *a; a += 2)
            node->attributes.emplace_back(a[0], a[1]);
        node->where = {m_file, reader->line(), reader->column()};
        Node* raw = node.get();
        if (m_stack.empty())
            root = std::move(node);
        else
            m_stack.back()->children.push_back(std::move(node));
        m_stack.push_back(raw);
    }
    void endElement() override { m_stack.pop_back(); }
    void text(std::string_view) override {}

private:
    const std::string& m_file;
    std::vector<Node*> m_stack;
};

std::unique_ptr<Node> readTree(const std::string& path, const TNImportLimits& limits) {
    TreeBuilder builder(path);
    XmlReader reader(path, limits, builder);
    builder.reader = &reader;
    reader.readFile();
    return std::move(builder.root);
}

[[noreturn]] void fail(const Position& where, const std::string& message) {
    throw TNImportError(where.file, where.line, where.column, message);
}

// The Ecore data types that need no file, by the Java class their values have.
constexpr std::pair<std::string_view, std::string_view> builtinDataTypes[] = {
    {"EBigDecimal", "java.math.BigDecimal"},
    {"EBigInteger", "java.math.BigInteger"},
    {"EBoolean", "boolean"},
    {"EBooleanObject", "java.lang.Boolean"},
    {"EByte", "byte"},
    {"EByteArray", "byte[]"},
    {"EByteObject", "java.lang.Byte"},
    {"EChar", "char"},
    {"ECharacterObject", "java.lang.Character"},
    {"EDate", "java.util.Date"},
    {"EDouble", "double"},
    {"EDoubleObject", "java.lang.Double"},
    {"EFloat", "float"},
    {"EFloatObject", "java.lang.Float"},
    {"EInt", "int"},
    {"EIntegerObject", "java.lang.Integer"},
    {"EJavaClass", "java.lang.Class"},
    {"EJavaObject", "java.lang.Object"},
    {"ELong", "long"},
    {"ELongObject", "java.lang.Long"},
    {"EShort", "short"},
    {"EShortObject", "java.lang.Short"},
    {"EString", "java.lang.String"},
};

// The slot kind for values of a data type, by its Java class: integers up to 32 bits are
// integers; longs, big numbers and floating point are reals (exact to 2^53); Booleans are
// Booleans; everything else (strings, characters, dates, other types) keeps its text form.
std::pair<ValueKind, TNAttrType> slotKindOf(std::string_view javaClass) {
    static const std::map<std::string_view, ValueKind> kinds = {
        {"int", ValueKind::Integer},
        {"java.lang.Integer", ValueKind::Integer},
        {"short", ValueKind::Integer},
        {"java.lang.Short", ValueKind::Integer},
        {"byte", ValueKind::Integer},
        {"java.lang.Byte", ValueKind::Integer},
        {"long", ValueKind::Real},
        {"java.lang.Long", ValueKind::Real},
        {"float", ValueKind::Real},
        {"java.lang.Float", ValueKind::Real},
        {"double", ValueKind::Real},
        {"java.lang.Double", ValueKind::Real},
        {"java.math.BigInteger", ValueKind::Real},
        {"java.math.BigDecimal", ValueKind::Real},
        {"boolean", ValueKind::Boolean},
        {"java.lang.Boolean", ValueKind::Boolean},
    };
    const auto found = kinds.find(javaClass);
    const ValueKind kind = found != kinds.end() ? found->second : ValueKind::String;
    switch (kind) {
    case ValueKind::Integer:
        return {kind, TNAttrInteger};
    case ValueKind::Real:
        return {kind, TNAttrReal};
    case ValueKind::Boolean:
        return {kind, TNAttrBoolean};
    default:
        return {ValueKind::String, TNAttrString};
    }
}

Tags readAnnotations(const Node& node) {
    Tags tags;
    for (const auto& child : node.children) {
        if (child->name != "eAnnotations")
            continue;
        const std::string source = child->attributeOr("source", "");
        bool any = false;
        for (const auto& detail : child->children)
            if (detail->name == "details") {
                tags.emplace_back(source + "#" + detail->attributeOr("key", ""),
                                  TNValue(detail->attributeOr("value", "")));
                any = true;
            }
        if (!any)
            tags.emplace_back(source, TNValue(true));
    }
    return tags;
}

int32_t intAttribute(const Node& node, std::string_view key, int32_t otherwise) {
    const std::string* text = node.attribute(key);
    if (!text)
        return otherwise;
    int32_t value = 0;
    const auto [end, ec] = std::from_chars(text->data(), text->data() + text->size(), value);
    if (ec != std::errc() || end != text->data() + text->size())
        fail(node.where, std::string(key) + " '" + *text + "' is not an integer");
    return value;
}

bool boolAttribute(const Node& node, std::string_view key) {
    const std::string* text = node.attribute(key);
    return text && *text == "true";
}

class Loader {
public:
    Loader(TNEcoreMetamodel::Impl& model, const TNImportLimits& limits)
        : m(model), m_limits(limits) {}

    void run(const std::string& path) {
        loadFile(path, Position{path, 0, 0});
        // Resolution may load further files, whose classifiers join the end of the list.
        for (size_t i = 0; i < m.classifiers.size(); ++i)
            resolve(*m.classifiers[i]);
        checkInheritance();
        assignNames();
        build();
    }

private:
    struct File {
        std::string path;
        std::unique_ptr<Node> tree;
        std::vector<Package*> roots;
    };

    fs::path canonical(const std::string& path) {
        std::error_code ec;
        fs::path p = fs::weakly_canonical(fs::path(path), ec);
        return ec ? fs::path(path) : p;
    }

    File& loadFile(const std::string& path, const Position& from) {
        const std::string key = canonical(path).string();
        if (auto found = m_files.find(key); found != m_files.end())
            return *found->second;
        if (m_files.size() >= m_limits.maxFiles)
            fail(from, "more than " + std::to_string(m_limits.maxFiles) + " .ecore files");
        auto file = std::make_unique<File>();
        file->path = path;
        file->tree = readTree(path, m_limits);
        File& f = *file;
        m_current = &f;
        m_files.emplace(key, std::move(file));
        m.files.push_back(path);
        const Node& root = *f.tree;
        if (root.name == "EPackage")
            f.roots.push_back(&readPackage(root, "", path));
        else if (root.name == "XMI")
            for (const auto& child : root.children)
                if (child->name == "EPackage")
                    f.roots.push_back(&readPackage(*child, "", path));
        if (f.roots.empty())
            fail(root.where, "no EPackage in the file (root element '" + root.name + "')");
        return f;
    }

    Package& readPackage(const Node& node, const std::string& outer, const std::string& file) {
        auto owned = std::make_unique<Package>();
        Package& p = *owned;
        m.packages.push_back(std::move(owned));
        p.name = node.attributeOr("name", "");
        p.nsURI = node.attributeOr("nsURI", "");
        p.nsPrefix = node.attributeOr("nsPrefix", "");
        p.path = outer.empty() ? p.name : outer + "." + p.name;
        p.file = file;
        m_fileOf.emplace(&p, m_current);
        if (!p.nsURI.empty() && !m.byNsURI.emplace(p.nsURI, &p).second)
            fail(node.where, "namespace URI '" + p.nsURI + "' is declared twice");
        for (const auto& child : node.children) {
            if (child->name == "eClassifiers")
                readClassifier(*child, p);
            else if (child->name == "eSubpackages")
                p.subpackages.push_back(&readPackage(*child, p.path, file));
        }
        return p;
    }

    void readClassifier(const Node& node, Package& p) {
        auto owned = std::make_unique<Classifier>();
        Classifier& c = *owned;
        c.name = node.attributeOr("name", "");
        c.package = &p;
        c.where = node.where;
        if (c.name.empty())
            fail(node.where, "classifier without a name");
        const std::string_view type = node.xsiType();
        if (type == "EClass") {
            c.kind = Classifier::Class;
            c.isAbstract = boolAttribute(node, "abstract");
            c.isInterface = boolAttribute(node, "interface");
            if (const std::string* supers = node.attribute("eSuperTypes"))
                c.superRefs = referenceList(*supers);
            for (const auto& child : node.children) {
                if (child->name == "eStructuralFeatures")
                    readFeature(*child, c);
                else if (child->name == "eGenericSuperTypes" || child->name == "eSuperTypes") {
                    const std::string* ref = child->attribute("eClassifier");
                    if (!ref)
                        ref = child->attribute("href");
                    if (ref)
                        c.superRefs.push_back(*ref);
                }
            }
        } else if (type == "EEnum") {
            c.kind = Classifier::Enumeration;
            for (const auto& child : node.children) {
                if (child->name != "eLiterals")
                    continue;
                const std::string name = child->attributeOr("name", "");
                const auto index = static_cast<int32_t>(c.literals.size());
                if (name.empty() || c.literalIndex.contains(name))
                    fail(child->where, "enumeration literal '" + name + "' of '" + c.name +
                                           "' is empty or repeated");
                c.literals.push_back(name);
                c.literalIndex.emplace(name, index);
                c.literalIndex.emplace(child->attributeOr("literal", name), index);
            }
        } else if (type == "EDataType") {
            c.kind = Classifier::DataType;
            c.instanceClassName = node.attributeOr("instanceClassName", "");
        } else {
            fail(node.where,
                 "classifier '" + c.name + "' of unknown kind '" + std::string(type) + "'");
        }
        c.tags = readAnnotations(node);
        if (!p.byName.emplace(c.name, &c).second)
            fail(node.where,
                 "classifier '" + c.name + "' is declared twice in package '" + p.path + "'");
        p.classifiers.push_back(&c);
        m.classifiers.push_back(std::move(owned));
    }

    void readFeature(const Node& node, Classifier& owner) {
        auto f = std::make_unique<Feature>();
        f->name = node.attributeOr("name", "");
        f->owner = &owner;
        f->where = node.where;
        const std::string_view kind = node.xsiType();
        if (kind != "EAttribute" && kind != "EReference")
            fail(node.where, "structural feature '" + f->name + "' of unknown kind '" +
                                 std::string(kind) + "'");
        if (f->name.empty())
            fail(node.where, "structural feature without a name in '" + owner.name + "'");
        for (const auto& other : owner.features)
            if (other->name == f->name)
                fail(node.where,
                     "feature '" + f->name + "' is declared twice in '" + owner.name + "'");
        f->isReference = kind == "EReference";
        f->containment = f->isReference && boolAttribute(node, "containment");
        f->lower = intAttribute(node, "lowerBound", 0);
        f->upper = intAttribute(node, "upperBound", 1);
        f->many = f->upper > 1 || f->upper < 0;
        if (const std::string* type = node.attribute("eType")) {
            const auto refs = referenceList(*type);
            if (!refs.empty())
                f->typeRef = refs.front();
        }
        for (const auto& child : node.children) {
            if (f->typeRef.empty() && child->name == "eGenericType")
                f->typeRef = child->attributeOr("eClassifier", "");
            else if (f->typeRef.empty() && child->name == "eType")
                f->typeRef = child->attributeOr("href", "");
        }
        if (const std::string* opposite = node.attribute("eOpposite"))
            f->oppositeRef = *opposite;
        if (const std::string* literal = node.attribute("defaultValueLiteral")) {
            f->hasDefault = true;
            f->defaultLiteral = *literal;
        }
        f->tags = readAnnotations(node);
        if (boolAttribute(node, "derived"))
            f->tags.emplace_back("derived", TNValue(true));
        if (boolAttribute(node, "transient"))
            f->tags.emplace_back("transient", TNValue(true));
        if (boolAttribute(node, "iD"))
            f->tags.emplace_back("id", TNValue(true));
        owner.features.push_back(std::move(f));
    }

    // The file's root packages for the part of a reference before '#': the referring file
    // itself; a package by namespace URI; a file by path relative to the referring file; or a
    // .ecore file in the referring file's folder that declares that namespace URI.
    const std::vector<Package*>* rootsFor(std::string_view uri, const Position& from) {
        if (uri.empty())
            return &fileOf(from.file).roots;
        if (auto p = m.byNsURI.find(uri); p != m.byNsURI.end())
            return &m_fileOf.at(p->second)->roots;
        const fs::path dir = fs::path(from.file).parent_path();
        std::error_code ec;
        if (uri.find("://") == std::string_view::npos) {
            const fs::path candidate = dir / fs::path(uri);
            if (fs::is_regular_file(candidate, ec))
                return &loadFile(candidate.string(), from).roots;
        }
        for (const auto& entry : fs::directory_iterator(dir.empty() ? "." : dir, ec)) {
            if (entry.path().extension() != ".ecore")
                continue;
            const std::string key = canonical(entry.path().string()).string();
            if (m_files.contains(key))
                continue;
            std::string& declared = m_scanned[key];
            if (declared.empty()) {
                try {
                    const auto tree = readTree(entry.path().string(), m_limits);
                    declared = tree->attributeOr("nsURI", "-");
                } catch (const TNImportError&) {
                    declared = "-"; // not a file we could use; the reference fails below
                }
            }
            if (declared == uri)
                return &loadFile(entry.path().string(), from).roots;
        }
        return nullptr;
    }

    File& fileOf(const std::string& path) { return *m_files.at(canonical(path).string()); }

    Classifier* builtin(std::string_view name) {
        for (const auto& [builtinName, javaClass] : builtinDataTypes) {
            if (builtinName != name)
                continue;
            if (!m_builtins) {
                auto p = std::make_unique<Package>();
                p->name = "ecore";
                p->path = "ecore";
                p->nsURI = ecoreNsURI;
                m_builtins = p.get();
                m.packages.push_back(std::move(p));
            }
            if (auto found = m_builtins->byName.find(name); found != m_builtins->byName.end())
                return found->second;
            auto c = std::make_unique<Classifier>();
            c->kind = Classifier::DataType;
            c->name = name;
            c->package = m_builtins;
            c->instanceClassName = javaClass;
            m_builtins->byName.emplace(c->name, c.get());
            m_builtins->classifiers.push_back(c.get());
            Classifier* raw = c.get();
            m.classifiers.push_back(std::move(c));
            return raw;
        }
        return nullptr;
    }

    // Resolves "uri#//Package/Classifier" (with `featureSegment`, one more segment naming a
    // feature of that classifier is expected and returned through it).
    Classifier* resolveClassifier(const std::string& ref, const Position& from,
                                  Feature** featureSegment = nullptr) {
        const size_t hash = ref.find('#');
        const auto bad = [&](const std::string& why) -> Classifier* {
            fail(from, "cannot resolve reference '" + ref + "': " + why);
        };
        if (hash == std::string::npos)
            return bad("not a URI with a fragment");
        const std::string_view uri = std::string_view(ref).substr(0, hash);
        std::string_view fragment = std::string_view(ref).substr(hash + 1);
        if (!fragment.starts_with("//"))
            return bad("the fragment does not start with //");
        fragment.remove_prefix(2);
        std::vector<std::string_view> segments;
        for (size_t start = 0;;) {
            const size_t slash = fragment.find('/', start);
            segments.push_back(fragment.substr(start, slash - start));
            if (slash == std::string_view::npos)
                break;
            start = slash + 1;
        }
        const std::vector<Package*>* roots = rootsFor(uri, from);
        if (!roots) {
            if (uri == ecoreNsURI && segments.size() == 1 && !featureSegment)
                if (Classifier* c = builtin(segments[0]))
                    return c;
            return bad("no loaded package or .ecore file beside '" + from.file +
                       "' has that namespace URI or path");
        }
        const size_t classifierAt = segments.size() - (featureSegment ? 2 : 1);
        if (featureSegment && segments.size() < 2)
            return bad("no feature segment");
        Package* p = roots->front();
        for (size_t i = 0; i < classifierAt; ++i) {
            Package* next = nullptr;
            for (Package* sub : p->subpackages)
                if (sub->name == segments[i])
                    next = sub;
            if (!next)
                return bad("no package '" + std::string(segments[i]) + "'");
            p = next;
        }
        const auto found = p->byName.find(segments[classifierAt]);
        if (found == p->byName.end())
            return bad("no classifier '" + std::string(segments[classifierAt]) + "' in package '" +
                       p->path + "'");
        if (featureSegment) {
            *featureSegment = nullptr;
            for (const auto& f : found->second->features)
                if (f->name == segments.back())
                    *featureSegment = f.get();
            if (!*featureSegment)
                return bad("no feature '" + std::string(segments.back()) + "'");
        }
        return found->second;
    }

    void resolve(Classifier& c) {
        for (const std::string& ref : c.superRefs) {
            Classifier* s = resolveClassifier(ref, c.where);
            if (s->kind != Classifier::Class)
                fail(c.where, "supertype '" + ref + "' of '" + c.name + "' is not a class");
            c.supers.push_back(s);
        }
        for (const auto& f : c.features) {
            if (f->typeRef.empty()) {
                if (f->isReference)
                    fail(f->where, "reference '" + f->name + "' has no type");
                f->type = builtin("EJavaObject"); // a type parameter: kept as text
            } else {
                f->type = resolveClassifier(f->typeRef, f->where);
            }
            if (f->isReference && f->type->kind != Classifier::Class)
                fail(f->where, "reference '" + f->name + "' is typed by '" + f->type->name +
                                   "', which is not a class");
            if (!f->isReference && f->type->kind == Classifier::Class)
                fail(f->where,
                     "attribute '" + f->name + "' is typed by the class '" + f->type->name + "'");
            if (!f->oppositeRef.empty())
                resolveClassifier(f->oppositeRef, f->where, &f->opposite);
        }
    }

    // Refuses cycles and very deep hierarchies, and lists each class's ancestors once (so that
    // conformance tests do not walk every path of a lattice).
    void checkInheritance() {
        constexpr size_t maxDepth = 1000;
        std::map<const Classifier*, int> state; // 1 visiting, 2 done
        std::function<void(Classifier&, size_t)> visit = [&](Classifier& c, size_t depth) {
            int& s = state[&c];
            if (s == 2)
                return;
            if (s == 1)
                fail(c.where, "class '" + c.name + "' inherits from itself");
            if (depth > maxDepth)
                fail(c.where, "inheritance deeper than " + std::to_string(maxDepth) + " levels");
            s = 1;
            c.ancestors = {&c};
            for (Classifier* p : c.supers) {
                visit(*p, depth + 1);
                for (const Classifier* a : p->ancestors)
                    if (std::find(c.ancestors.begin(), c.ancestors.end(), a) == c.ancestors.end())
                        c.ancestors.push_back(a);
            }
            state[&c] = 2;
        };
        for (const auto& c : m.classifiers)
            visit(*c, 0);
    }

    // Plain Ecore names where they are unique among the classes (or enumerations) imported;
    // otherwise the package path qualifies them ("library.sub.Book").
    void assignNames() {
        for (const Classifier::Kind kind : {Classifier::Class, Classifier::Enumeration}) {
            std::map<std::string, int> counts;
            for (const auto& c : m.classifiers)
                if (c->kind == kind)
                    ++counts[c->name];
            std::set<std::string> used;
            for (const auto& c : m.classifiers) {
                if (c->kind != kind)
                    continue;
                c->tnName = counts[c->name] == 1 ? c->name : c->package->path + "." + c->name;
                if (!used.insert(c->tnName).second)
                    fail(c->where, "two classifiers would both be named '" + c->tnName + "'");
            }
        }
    }

    template <class F> void schemaStep(const Position& where, const std::string& what, F&& step) {
        try {
            step();
        } catch (const TNImportError&) {
            throw;
        } catch (const SgxException& e) {
            fail(where, what + ": " + e.reasonText());
        }
    }

    void build() {
        TNSchema& schema = *m.schema;
        for (const auto& c : m.classifiers)
            if (c->kind == Classifier::Enumeration)
                schemaStep(c->where, "cannot declare enumeration '" + c->tnName + "'", [&] {
                    SgxSimplePtr<TNEnumType> e = schema.newEnumType(c->tnName);
                    for (const std::string& literal : c->literals)
                        e->addName(literal);
                });
        for (const auto& c : m.classifiers)
            if (c->kind == Classifier::Class)
                schemaStep(c->where, "cannot declare class '" + c->tnName + "'",
                           [&] { c->tnClass = schema.newClass(c->tnName); });
        // Inheritance first: a class hands down what it gains, so members added afterwards
        // reach every descendant, associations included.
        for (const auto& c : m.classifiers)
            for (const Classifier* s : c->supers)
                schemaStep(c->where, "cannot make '" + c->tnName + "' a subclass",
                           [&] { s->tnClass->addChild(c->tnClass); });
        std::set<std::string> featureNames;
        for (const auto& c : m.classifiers)
            for (const auto& f : c->features)
                featureNames.insert(f->name);
        for (const auto& c : m.classifiers)
            for (const auto& f : c->features)
                if (!f->isReference)
                    declareAttribute(*f);
        for (const auto& c : m.classifiers)
            for (const auto& f : c->features)
                if (f->isReference)
                    declareReference(*f, featureNames);
        for (const auto& c : m.classifiers)
            if (c->kind == Classifier::Class)
                collectFeatures(*c);
        applyTags();
    }

    void declareAttribute(Feature& f) {
        std::string enumName;
        if (f.type->kind == Classifier::Enumeration) {
            f.valueKind = ValueKind::Enumeration;
            f.attrType = TNAttrEnumeration;
            enumName = f.type->tnName;
        } else {
            std::tie(f.valueKind, f.attrType) = slotKindOf(f.type->instanceClassName);
        }
        // A slot holds one value: a many-valued attribute keeps its values' text forms in one
        // text, one value per line.
        const TNAttrType slotType = f.many ? TNAttrString : f.attrType;
        schemaStep(f.where,
                   "cannot declare attribute '" + f.name + "' of '" + f.owner->tnName + "'", [&] {
                       SgxSimplePtr<TNAttrDesc> desc =
                           f.owner->tnClass->addAttr(f.name, slotType, f.many ? "" : enumName, "");
                       if (f.hasDefault && !f.many) {
                           TNAttribute probe;
                           probe.initialize(*desc);
                           if (!assignValue(probe, f.valueKind, f.type, f.defaultLiteral))
                               fail(f.where, "default value '" + f.defaultLiteral +
                                                 "' does not fit attribute '" + f.name + "'");
                       }
                   });
    }

    void declareReference(Feature& f, std::set<std::string>& featureNames) {
        Feature* opposite = f.opposite;
        if (opposite) {
            if (opposite->opposite != &f || !f.owner->conformsTo(opposite->type) ||
                !f.type->conformsTo(opposite->owner))
                fail(f.where, "the opposite of reference '" + f.name + "' does not name it back");
            // A containment end is the forward one; otherwise the end met first.
            if (opposite->containment || (!f.containment && opposite->forward))
                return;
        }
        f.forward = true;
        std::string role;
        if (opposite) {
            role = opposite->name;
        } else {
            std::string owner = f.owner->tnName;
            std::replace(owner.begin(), owner.end(), '.', '_');
            role = f.name + "Of" + owner;
            for (int n = 2; featureNames.contains(role); ++n)
                role = f.name + "Of" + owner + "_" + std::to_string(n);
            featureNames.insert(role);
        }
        // The far end is declared where the opposite is (a supertype of the type, maybe).
        const Classifier* target = opposite ? opposite->owner : f.type;
        f.reverseRole = role;
        if (opposite)
            opposite->reverseRole = f.name;
        const TNMultiplicity mine = opposite ? TNMultiplicity(opposite->lower, opposite->upper)
                                    : f.containment ? TNMultiplicity(0, 1)
                                                    : TNMultiplicity(0, -1);
        schemaStep(
            f.where, "cannot declare reference '" + f.name + "' of '" + f.owner->tnName + "'", [&] {
                f.owner->tnClass->addAssociation(f.name, target->tnName, mine,
                                                 TNMultiplicity(f.lower, f.upper), role, f.name);
            });
    }

    void collectFeatures(Classifier& c) {
        if (!c.allFeatures.empty() || m_collected.contains(&c))
            return;
        m_collected.insert(&c);
        for (const auto& f : c.features) {
            c.allFeatures.emplace(f->name, f.get());
            if (f->hasDefault && !f->isReference && !f->many)
                c.defaults.push_back(f.get());
        }
        for (Classifier* s : c.supers) {
            collectFeatures(*s);
            for (const auto& [name, f] : s->allFeatures)
                if (c.allFeatures.emplace(name, f).second && f->hasDefault && !f->isReference &&
                    !f->many)
                    c.defaults.push_back(f);
        }
    }

    // Tagged values live on each element, copies included (a class does not see its parents'
    // values): every descriptor and association end gets the tags of the feature it came from.
    void applyTags() {
        std::map<std::pair<std::string, std::string>, Tags> ends;       // (first class, far role)
        std::map<std::pair<std::string, std::string>, Tags> attributes; // (origin, name)
        for (const auto& c : m.classifiers) {
            if (c->kind != Classifier::Class)
                continue;
            Tags classTags = c->tags;
            classTags.emplace_back("abstract", TNValue(c->isAbstract));
            classTags.emplace_back("interface", TNValue(c->isInterface));
            classTags.emplace_back("nsURI", TNValue(c->package->nsURI));
            for (auto& [name, value] : classTags)
                c->tnClass->taggedValue(name, value);
            for (const auto& f : c->features) {
                Tags tags = f->tags;
                if (!f->isReference) {
                    tags.emplace_back("many", TNValue(f->many));
                    if (f->hasDefault)
                        tags.emplace_back("defaultValue", TNValue(f->defaultLiteral));
                    attributes[{c->tnName, f->name}] = std::move(tags);
                    continue;
                }
                if (!f->forward)
                    continue;
                tags.emplace_back("containment", TNValue(f->containment));
                tags.emplace_back("container", TNValue(false));
                ends[{c->tnName, f->name}] = std::move(tags);
                Tags back = f->opposite ? f->opposite->tags : Tags();
                back.emplace_back("containment", TNValue(false));
                back.emplace_back("container", TNValue(f->containment));
                const Classifier* target = f->opposite ? f->opposite->owner : f->type;
                ends[{target->tnName, f->reverseRole}] = std::move(back);
            }
        }
        for (const auto& c : m.classifiers) {
            if (c->kind != Classifier::Class)
                continue;
            for (const auto& desc : c->tnClass->attributes())
                if (auto t = attributes.find({desc->originClass(), desc->name()});
                    t != attributes.end())
                    for (const auto& [name, value] : t->second)
                        desc->taggedValue(name, value);
            for (const auto& assoc : c->tnClass->associations())
                if (auto t = ends.find({assoc->firstClass()->name(), assoc->otherRoleName()});
                    t != ends.end())
                    for (const auto& [name, value] : t->second)
                        assoc->taggedValue(name, value);
        }
    }

    TNEcoreMetamodel::Impl& m;
    TNImportLimits m_limits;
    std::map<std::string, std::unique_ptr<File>> m_files;
    std::map<const Package*, File*> m_fileOf;
    std::map<std::string, std::string> m_scanned;
    Package* m_builtins = nullptr;
    File* m_current = nullptr; // the file being read
    std::set<const Classifier*> m_collected;
};

} // namespace

// The references of a reference-valued XML attribute: white-space separated URIs, each maybe
// preceded by a type qualifier ("ecore:EDataType http://...#//EString").
std::vector<std::string> referenceList(std::string_view text) {
    std::vector<std::string> tokens;
    forEachToken(text, [&](std::string_view token) { tokens.emplace_back(token); });
    std::vector<std::string> refs;
    for (size_t k = 0; k < tokens.size(); ++k) {
        const bool qualifier = tokens[k].find('#') == std::string::npos && k + 1 < tokens.size() &&
                               tokens[k + 1].find('#') != std::string::npos;
        if (!qualifier)
            refs.push_back(tokens[k]);
    }
    return refs;
}

namespace {
// Reads a plain decimal ("-12.5", "3", ".25": no exponent, at most 15 digits) exactly as
// from_chars would, without its cost: the digits make an integer below 2^53 and the point a
// division by a power of ten of at most 10^15, both exact in a double, so the quotient is
// correctly rounded. False for any other form, which from_chars then reads.
bool plainDecimal(std::string_view text, double& value) {
    static constexpr double powers[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                        1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    const char* p = text.data();
    const char* const end = p + text.size();
    const bool negative = p != end && *p == '-';
    p += negative;
    uint64_t digits = 0;
    int count = 0;
    int fraction = 0;
    for (; p != end && *p >= '0' && *p <= '9'; ++p, ++count)
        digits = digits * 10 + uint64_t(*p - '0');
    if (p != end && *p == '.') {
        const char* const point = ++p;
        for (; p != end && *p >= '0' && *p <= '9'; ++p, ++count)
            digits = digits * 10 + uint64_t(*p - '0');
        fraction = static_cast<int>(p - point);
        if (fraction == 0)
            return false;
    }
    if (p != end || count == 0 || count > 15)
        return false;
    const double magnitude = static_cast<double>(digits) / powers[fraction];
    value = negative ? -magnitude : magnitude;
    return true;
}
} // namespace

bool assignValue(TNAttribute& slot, ValueKind kind, const Classifier* type, std::string_view text) {
    switch (kind) {
    case ValueKind::Enumeration: {
        const auto found = type->literalIndex.find(text);
        if (found == type->literalIndex.end())
            return false;
        slot = static_cast<int>(found->second);
        return true;
    }
    case ValueKind::Integer: {
        int32_t value = 0;
        const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (ec != std::errc() || end != text.data() + text.size())
            return false;
        slot = static_cast<int>(value);
        return true;
    }
    case ValueKind::Real: {
        double value = 0;
        if (text == "NaN")
            value = std::nan("");
        else if (text == "Infinity" || text == "-Infinity")
            value = text[0] == '-' ? -HUGE_VAL : HUGE_VAL;
        else if (!plainDecimal(text, value)) {
            const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
            if (ec != std::errc() || end != text.data() + text.size())
                return false;
        }
        slot = value;
        return true;
    }
    case ValueKind::Boolean:
        if (text != "true" && text != "false")
            return false;
        slot = text == "true";
        return true;
    case ValueKind::String:
        slot = text;
        return true;
    }
    return false;
}

} // namespace tn_import

TNEcoreMetamodel::TNEcoreMetamodel(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}
TNEcoreMetamodel::~TNEcoreMetamodel() = default;

std::unique_ptr<TNEcoreMetamodel>
TNEcoreMetamodel::import(TNSchema& schema, const std::string& path, const TNImportLimits& limits) {
    auto impl = std::make_unique<Impl>();
    impl->schema = &schema;
    tn_import::Loader(*impl, limits).run(path);
    return std::unique_ptr<TNEcoreMetamodel>(new TNEcoreMetamodel(std::move(impl)));
}

TNSchema& TNEcoreMetamodel::schema() const noexcept { return *m_impl->schema; }

std::string TNEcoreMetamodel::className(std::string_view nsURI, std::string_view name) const {
    const tn_import::Classifier* c = m_impl->findClass(nsURI, name);
    return c ? c->tnName : std::string();
}

std::vector<std::string> TNEcoreMetamodel::files() const { return m_impl->files; }
