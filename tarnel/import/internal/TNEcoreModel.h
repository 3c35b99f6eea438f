// The Ecore metamodel as the importers hold it: packages, classifiers and features read from
// .ecore files, each tied to the schema element made for it. Internal to the importer library.
// Everything is owned by TNEcoreMetamodel::Impl; the pointers between records borrow.
#pragma once

#include "tarnel/import/TNImport.h"
#include "tarnel/tarnel.h"

#include <cctype>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tn_import {

struct Node; // an element of a .ecore file (TNEcoreImport.cpp)
struct Package;
struct Classifier;

// How an attribute's text in a model file becomes a slot value.
enum class ValueKind : uint8_t { Enumeration, Integer, Real, String, Boolean };

struct StringHash {
    using is_transparent = void;
    size_t operator()(std::string_view s) const noexcept {
        return std::hash<std::string_view>{}(s);
    }
};
template <class V>
using StringMap = std::unordered_map<std::string, V, StringHash, std::equal_to<>>;

// Where a file element sits, for messages.
struct Position {
    std::string file;
    uint64_t line = 0;
    uint64_t column = 0;
};

using Tags = std::vector<std::pair<std::string, TNValue>>;

struct Feature {
    std::string name;
    Classifier* owner = nullptr;
    Classifier* type = nullptr;
    bool isReference = false;
    bool containment = false;
    bool many = false;
    int32_t lower = 0;
    int32_t upper = 1;
    Feature* opposite = nullptr;
    // The end whose association was declared forward (on its owner); the other end of a pair
    // reaches the same links through the reverse association.
    bool forward = false;
    std::string reverseRole; // the role name of the owner's end, as seen from the type
    ValueKind valueKind = ValueKind::String;
    TNAttrType attrType = TNAttrString;
    bool hasDefault = false;
    std::string defaultLiteral;
    Tags tags;
    Position where;
    std::string typeRef; // unresolved forms, kept until resolution
    std::string oppositeRef;
};

struct Classifier {
    enum Kind : uint8_t { Class, Enumeration, DataType } kind = Class;
    std::string name;   // the Ecore name
    std::string tnName; // the schema's class or enumeration type name
    Package* package = nullptr;
    Position where;
    // Classes
    bool isAbstract = false;
    bool isInterface = false;
    std::vector<std::string> superRefs;
    std::vector<Classifier*> supers;
    std::vector<const Classifier*> ancestors; // itself first, then every class above it
    std::vector<std::unique_ptr<Feature>> features;
    StringMap<Feature*> allFeatures; // own and inherited, by Ecore name
    std::vector<Feature*> defaults;  // own and inherited attributes with a default value
    SgxSimplePtr<TNClass> tnClass;
    // Enumerations: literal names in order, and literal texts (as model files write them)
    // and names to their index.
    std::vector<std::string> literals;
    StringMap<int32_t> literalIndex;
    // Data types
    std::string instanceClassName;
    Tags tags;

    bool conformsTo(const Classifier* type) const {
        for (const Classifier* a : ancestors)
            if (a == type)
                return true;
        return false;
    }
};

struct Package {
    std::string name;
    std::string nsURI;
    std::string nsPrefix;
    std::string path; // names from the file's root package, joined by "."
    std::string file;
    std::vector<Package*> subpackages;
    std::vector<Classifier*> classifiers;
    StringMap<Classifier*> byName;
};

// Parses `text` as a value of `kind` into `slot`; false when the text does not fit.
bool assignValue(TNAttribute& slot, ValueKind kind, const Classifier* enumeration,
                 std::string_view text);

// Calls `f` with each white-space separated token of `text`, in order.
template <class F> void forEachToken(std::string_view text, F&& f) {
    size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i])))
            ++i;
        size_t j = i;
        while (j < text.size() && !std::isspace(static_cast<unsigned char>(text[j])))
            ++j;
        if (j > i)
            f(text.substr(i, j - i));
        i = j;
    }
}

// The references of a reference-valued XML attribute: white-space separated URIs or ids, each
// maybe preceded by a type qualifier ("ecore:EDataType http://...#//EString").
std::vector<std::string> referenceList(std::string_view text);

} // namespace tn_import

struct TNEcoreMetamodel::Impl {
    TNSchema* schema = nullptr;
    std::vector<std::string> files;
    std::vector<std::unique_ptr<tn_import::Package>> packages;
    std::vector<std::unique_ptr<tn_import::Classifier>> classifiers;
    tn_import::StringMap<tn_import::Package*> byNsURI;

    const tn_import::Classifier* findClass(std::string_view nsURI, std::string_view name) const {
        const auto p = byNsURI.find(nsURI);
        if (p == byNsURI.end())
            return nullptr;
        const auto c = p->second->byName.find(name);
        return c != p->second->byName.end() && c->second->kind == tn_import::Classifier::Class
                   ? c->second
                   : nullptr;
    }
};
