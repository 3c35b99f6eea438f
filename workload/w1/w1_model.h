// Workload W1, a UML-like report model, built the same way on this library and on a hand-written
// C++ baseline, so that benchmarks and demos can put the systems side by side.
//
// The model of size n (a multiple of 10,000): 111 packages (a root, 10 top packages under it, 10
// subpackages under each top package), n / 10 classes (class i in package i mod 111, packages
// numbered in creation order), and right after each class its 6 operations and 3 attributes.
// Object k of a kind gets name Kind_k, quid Q<global creation index>, a 40-character
// documentation when k mod 5 == 0, stereotype "entity" when k mod 10 == 3, visibility literal
// k mod 4, isAbstract k mod 7 == 0, order k and weight k * 0.5. Links are set by navigation name
// from the owning side; the reverse end is recorded too.
//
// Header-only: the benchmark and the query and demo programs include it.
#pragma once

#include "tarnel/tarnel.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace w1 {

inline constexpr const char* lorem = "Lorem ipsum dolor sit amet, consectetur.";
inline constexpr size_t packageCount = 111;
inline constexpr size_t operationsPerClass = 6;
inline constexpr size_t attributesPerClass = 3;

// The objects a model of size n holds.
inline size_t objectCount(size_t n) { return packageCount + n / 10 * 10; }

// Builds "prefix<number>" NUL-terminated in a buffer of its own; both systems pay the same.
class Text {
public:
    std::string_view make(std::string_view prefix, uint64_t number) {
        std::memcpy(m_buffer.data(), prefix.data(), prefix.size());
        char* end =
            std::to_chars(m_buffer.data() + prefix.size(), m_buffer.data() + 63, number).ptr;
        *end = '\0';
        return std::string_view(m_buffer.data(), static_cast<size_t>(end - m_buffer.data()));
    }

private:
    std::array<char, 64> m_buffer{};
};

// The per-object values of W1, handed to a sink that stores them in its system's objects.
struct Values {
    std::string_view name;
    std::string_view quid;
    bool hasDocumentation;
    bool isEntity;
    int32_t visibility;
    bool isAbstract;
    int32_t order;
    double weight;
};

// Runs the W1 creation order over `sink`, which offers make<Kind>(const Values&) returning a
// handle and link(owner, role, object) for the owning side's navigation name.
template <class Sink> void generate(Sink& sink, size_t n) {
    Text name;
    Text quid;
    uint64_t created = 0;
    uint64_t counters[4] = {};
    auto values = [&](int kind, std::string_view prefix) {
        const uint64_t k = counters[kind]++;
        Values v;
        v.name = name.make(prefix, k);
        v.quid = quid.make("Q", created++);
        v.hasDocumentation = k % 5 == 0;
        v.isEntity = k % 10 == 3;
        v.visibility = static_cast<int32_t>(k % 4);
        v.isAbstract = k % 7 == 0;
        v.order = static_cast<int32_t>(k);
        v.weight = static_cast<double>(k) * 0.5;
        return v;
    };

    std::vector<typename Sink::Package> packages;
    packages.reserve(packageCount);
    packages.push_back(sink.makePackage(values(0, "Package_")));
    for (size_t top = 0; top < 10; ++top) {
        packages.push_back(sink.makePackage(values(0, "Package_")));
        sink.linkSubpackage(packages.front(), packages.back());
    }
    for (size_t top = 1; top <= 10; ++top)
        for (size_t sub = 0; sub < 10; ++sub) {
            packages.push_back(sink.makePackage(values(0, "Package_")));
            sink.linkSubpackage(packages[top], packages.back());
        }
    const size_t classes = n / 10;
    for (size_t i = 0; i < classes; ++i) {
        const auto cls = sink.makeClass(values(1, "Class_"));
        sink.linkClass(packages[i % packageCount], cls);
        for (size_t j = 0; j < operationsPerClass; ++j)
            sink.linkOperation(cls, sink.makeOperation(values(2, "Operation_")));
        for (size_t j = 0; j < attributesPerClass; ++j)
            sink.linkAttribute(cls, sink.makeAttribute(values(3, "Attribute_")));
    }
}

// --- This library --------------------------------------------------------------------------

// The W1 metamodel in a schema, with every class's descriptors resolved once (a host looks them
// up when it prepares, not per object).
class TarnelModel {
public:
    using Package = TNObject*;
    using Class = TNObject*;
    using Operation = TNObject*;
    using Attribute = TNObject*;

    // Marks a schema that already holds the W1 metamodel (one read back from a file, say).
    struct Defined {};

    // Defines the W1 metamodel in the empty `schema`, then prepares to populate it.
    explicit TarnelModel(TNSchema& schema) : TarnelModel(schema, (define(schema), Defined{})) {}
    // Prepares to populate a schema that already holds the W1 metamodel.
    TarnelModel(TNSchema& schema, Defined) : m_schema(schema) {
        m_kinds[0] = Kind(schema.getClass("Package"));
        m_kinds[1] = Kind(schema.getClass("Class"));
        m_kinds[2] = Kind(schema.getClass("Operation"));
        m_kinds[3] = Kind(schema.getClass("Attribute"));
        m_subpackages = schema.getClass("Package")->getAssociation("subpackages");
        m_classes = schema.getClass("Package")->getAssociation("classes");
        m_operations = schema.getClass("Class")->getAssociation("operations");
        m_attributes = schema.getClass("Class")->getAssociation("attributes");
    }

    // The W1 metamodel: an enumeration, a root class whose attributes four kinds copy, and the
    // links between the kinds.
    static void define(TNSchema& schema) {
        const auto visibility = schema.newEnumType("Visibility");
        for (const char* literal : {"public", "protected", "private", "implementation"})
            visibility->addName(literal);
        const auto element = schema.newClass("Element");
        element->addAttr("name", TNAttrString, "", "");
        element->addAttr("quid", TNAttrString, "", "");
        element->addAttr("documentation", TNAttrString, "", "");
        element->addAttr("stereotype", TNAttrString, "", "");
        element->addAttr("visibility", TNAttrEnumeration, "Visibility", "");
        element->addAttr("isAbstract", TNAttrBoolean, "", "");
        element->addAttr("order", TNAttrInteger, "", "");
        element->addAttr("weight", TNAttrReal, "", "");
        for (const char* kind : {"Package", "Class", "Operation", "Attribute"})
            element->addChild(schema.newClass(kind));
        schema.getClass("Package")->addAssociation("packageTree", "Package", {0, -1}, {0, 1},
                                                   "parent", "subpackages");
        schema.getClass("Package")->addAssociation("packageClasses", "Class", {0, -1}, {1, 1},
                                                   "package", "classes");
        schema.getClass("Class")->addAssociation("classOperations", "Operation", {0, -1}, {1, 1},
                                                 "owner", "operations");
        schema.getClass("Class")->addAssociation("classAttributes", "Attribute", {0, -1}, {1, 1},
                                                 "owner", "attributes");
    }

    // The first package made, the root of the package tree, is the model's root object.
    TNObject* makePackage(const Values& v) {
        TNObject* package = make(m_kinds[0], v);
        if (m_schema.rootObject().get() == nullptr)
            m_schema.setRoot(package);
        return package;
    }
    TNObject* makeClass(const Values& v) { return make(m_kinds[1], v); }
    TNObject* makeOperation(const Values& v) { return make(m_kinds[2], v); }
    TNObject* makeAttribute(const Values& v) { return make(m_kinds[3], v); }
    // Links go by navigation name: the name is resolved to its association once, here, as a host
    // resolves descriptors once, not on every link.
    void linkSubpackage(TNObject* parent, TNObject* child) {
        parent->associate(child, *m_subpackages);
    }
    void linkClass(TNObject* package, TNObject* cls) { package->associate(cls, *m_classes); }
    void linkOperation(TNObject* cls, TNObject* op) { cls->associate(op, *m_operations); }
    void linkAttribute(TNObject* cls, TNObject* attr) { cls->associate(attr, *m_attributes); }

    TNSchema& schema() { return m_schema; }

private:
    struct Kind {
        Kind() = default;
        explicit Kind(SgxSimplePtr<TNClass> c) : cls(c) {
            const char* names[] = {"name",       "quid",       "documentation", "stereotype",
                                   "visibility", "isAbstract", "order",         "weight"};
            for (size_t i = 0; i < 8; ++i)
                attrs[i] = &(*c)[names[i]];
        }
        SgxSimplePtr<TNClass> cls;
        const TNAttrDesc* attrs[8] = {};
    };

    static TNObject* make(const Kind& kind, const Values& v) {
        TNObject& o = *kind.cls->newObject(false).get();
        o[*kind.attrs[0]] = v.name;
        o[*kind.attrs[1]] = v.quid;
        if (v.hasDocumentation)
            o[*kind.attrs[2]] = lorem;
        if (v.isEntity)
            o[*kind.attrs[3]] = "entity";
        o[*kind.attrs[4]] = v.visibility;
        o[*kind.attrs[5]] = v.isAbstract;
        o[*kind.attrs[6]] = v.order;
        o[*kind.attrs[7]] = v.weight;
        return &o;
    }

    TNSchema& m_schema;
    Kind m_kinds[4];
    SgxSimplePtr<TNAssociation> m_subpackages;
    SgxSimplePtr<TNAssociation> m_classes;
    SgxSimplePtr<TNAssociation> m_operations;
    SgxSimplePtr<TNAssociation> m_attributes;
};

// --- The hand-written baseline ------------------------------------------------------------

namespace baseline {

struct Element {
    std::string name;
    std::string quid;
    std::string documentation;
    std::string stereotype;
    int32_t visibility = 0;
    bool isAbstract = false;
    int32_t order = 0;
    double weight = 0.0;
};
struct Class;
struct Operation : Element {
    Class* owner = nullptr;
};
struct Attribute : Element {
    Class* owner = nullptr;
};
struct Package : Element {
    Package* parent = nullptr;
    std::vector<Package*> subpackages;
    std::vector<Class*> classes;
};
struct Class : Element {
    Package* package = nullptr;
    std::vector<Operation*> operations;
    std::vector<Attribute*> attributes;
};

// Every object in a deque per kind (stable addresses, no allocation per object), links as
// pointers and vectors of pointers.
class Model {
public:
    using Package = baseline::Package*;
    using Class = baseline::Class*;
    using Operation = baseline::Operation*;
    using Attribute = baseline::Attribute*;

    Package makePackage(const Values& v) { return fill(packages.emplace_back(), v); }
    Class makeClass(const Values& v) { return fill(classes.emplace_back(), v); }
    Operation makeOperation(const Values& v) { return fill(operations.emplace_back(), v); }
    Attribute makeAttribute(const Values& v) { return fill(attributes.emplace_back(), v); }
    void linkSubpackage(Package parent, Package child) {
        parent->subpackages.push_back(child);
        child->parent = parent;
    }
    void linkClass(Package package, Class cls) {
        package->classes.push_back(cls);
        cls->package = package;
    }
    void linkOperation(Class cls, Operation op) {
        cls->operations.push_back(op);
        op->owner = cls;
    }
    void linkAttribute(Class cls, Attribute attr) {
        cls->attributes.push_back(attr);
        attr->owner = cls;
    }

    std::deque<baseline::Package> packages;
    std::deque<baseline::Class> classes;
    std::deque<baseline::Operation> operations;
    std::deque<baseline::Attribute> attributes;

private:
    template <class T> static T* fill(T& e, const Values& v) {
        e.name = v.name;
        e.quid = v.quid;
        if (v.hasDocumentation)
            e.documentation = lorem;
        if (v.isEntity)
            e.stereotype = "entity";
        e.visibility = v.visibility;
        e.isAbstract = v.isAbstract;
        e.order = v.order;
        e.weight = v.weight;
        return &e;
    }
};

} // namespace baseline
} // namespace w1
