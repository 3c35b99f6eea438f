// Importing models from the modelling world: Ecore metamodels (.ecore files) into a TNSchema, and
// XMI model files that conform to them into objects of that schema. docs/ecore-import.md gives
// the mapping of every Ecore construct and what is lost.
//
// This is the library `tarnelimport` (target Tarnel::tarnelimport), separate from Tarnel::tarnel
// because it reads XML through libxml2; a host that imports links it explicitly.
//
// Both readers treat their files as untrusted: sizes and nesting are limited (TNImportLimits),
// no document type declaration is accepted, and every error raises TNImportError naming the
// file, line and column. Memory stays proportional to the model built, not to the file's text.
//
// Ownership: a TNEcoreMetamodel borrows the schema it filled and must not outlive it; the schema
// owns the classes and enumeration types made. Objects made by TNXmiImporter live in the
// schema's memory regions like any others; the importer only borrows them.
#pragma once
#include "sgx/general/SgxException.h"
#include "sgx/general/SgxSimplePtr.h"
#include "tarnel/import/tarnelimport_export.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class TNSchema;
class TNObject;

// Limits of one read; a file beyond them is refused with TNImportError.
struct TNImportLimits {
    uint64_t maxBytes = uint64_t(1) << 36; // bytes of one file (64 GiB)
    uint32_t maxDepth = 10000;             // element nesting of one file
    uint32_t maxFiles = 256;               // .ecore files one metamodel import may read
};

// An import failure: the message reads "file:line:column: what was wrong" (line and column 0
// when no position applies, such as a file that cannot be opened).
class TARNEL_IMPORT_API TNImportError : public SgxException {
public:
    TNImportError(std::string file, uint64_t line, uint64_t column, const std::string& message);
    const std::string& file() const noexcept { return m_file; }
    uint64_t line() const noexcept { return m_line; }
    uint64_t column() const noexcept { return m_column; }

private:
    std::string m_file;
    uint64_t m_line;
    uint64_t m_column;
};

// An Ecore metamodel imported into a schema, with what the XMI importer needs beyond the schema
// (features by their Ecore names, containment, defaults, namespaces).
class TARNEL_IMPORT_API TNEcoreMetamodel {
public:
    // Reads the .ecore file `path`, and every .ecore file it refers to (found relative to the
    // file that refers, or by namespace URI among the .ecore files of that file's folder), into
    // `schema`, which must not yet hold classes or enumeration types of the names made and must
    // have no objects. Built-in Ecore data types need no file. Raises TNImportError for an
    // unreadable or malformed file, a reference that cannot be resolved (naming it), or a
    // construct the schema cannot hold; the schema may then hold part of the metamodel.
    static std::unique_ptr<TNEcoreMetamodel> import(TNSchema& schema, const std::string& path,
                                                    const TNImportLimits& limits = {});
    ~TNEcoreMetamodel();
    TNEcoreMetamodel(const TNEcoreMetamodel&) = delete;
    TNEcoreMetamodel& operator=(const TNEcoreMetamodel&) = delete;

    TNSchema& schema() const noexcept;
    // The schema class made for EClass `name` of the package with namespace URI `nsURI`, or
    // empty when there is none.
    std::string className(std::string_view nsURI, std::string_view name) const;
    // Every .ecore file read, the importing one first.
    std::vector<std::string> files() const;

    struct Impl;
    const Impl& impl() const noexcept { return *m_impl; }

private:
    explicit TNEcoreMetamodel(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
};

// Reads XMI model files of an imported metamodel into objects of its schema. Objects, attribute
// values and containment links are made while a file is read; references to other objects (by
// xmi:id, by path fragment such as //@a.0/@b.1, or by href into another file read by the same
// importer) are resolved by finish(). Freeze the model with TNSchema::donePopulating afterwards.
class TARNEL_IMPORT_API TNXmiImporter {
public:
    explicit TNXmiImporter(const TNEcoreMetamodel& metamodel, const TNImportLimits& limits = {});
    ~TNXmiImporter();
    TNXmiImporter(const TNXmiImporter&) = delete;
    TNXmiImporter& operator=(const TNXmiImporter&) = delete;

    // Reads one model file. Raises TNImportError naming file, line and column for malformed XML,
    // an unknown class or feature, an abstract class without a concrete xsi:type, or a value that
    // does not fit its attribute; objects made before the error stay in the schema.
    void read(const std::string& path);
    // The same for a document held in memory; `name` names it in errors and in references.
    void readBuffer(std::string_view bytes, const std::string& name);
    // Links every reference of the documents read. Raises TNImportError at the position of the
    // first reference that names no object, or an object of a class the reference does not take.
    void finish();

    size_t documentCount() const noexcept;
    // The root objects of document `index` (in reading order), in document order.
    std::vector<SgxSimplePtr<TNObject>> roots(size_t index) const;
    // Objects made so far, over all documents.
    uint64_t objectCount() const noexcept;

    struct Impl;

private:
    std::unique_ptr<Impl> m_impl;
};
