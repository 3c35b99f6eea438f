// TNSchema: the metamodel registry. It owns every metaclass (TNClass) and every enumeration type
// (TNEnumType) of a model, holds the model's root object and the object directory, and manages
// the process-wide memory regions from which model instances draw their storage.
//
// Ownership: the schema creates its classes and enumeration types and deletes them, exactly once,
// when it is cleared or destroyed; every SgxSimplePtr it hands out borrows. The root object and
// the object directory refer to instances that live in the memory regions, never owned one by
// one. The four memory regions are static: all schemas of the process share them, and
// unpopulating, clearing or destroying any schema frees them for all.
//
// Life cycle: build (newClass, newEnumType, then the classes' addAttr/addChild/...), freeze with
// donePopulating(), create instances, optionally unpopulate() and populate again, destroy.
// Not thread-safe: a schema and the regions are used by one thread at a time.
#pragma once

#include "sgx/general/SgxMemoryRegion.h"
#include "sgx/general/SgxSimplePtr.h"
#include "sgx/general/SgxString.h"
#include "sgx/persistence/SgxCollectable.h"
#include "tarnel/core/TNCollectable.h"
#include "tarnel/metamodel/TNNameIndex.h"
#include "tarnel/tarnel_export.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>
#include <vector>

class TNClass;
class TNEnumType;
class TNObject;

class TARNEL_API TNSchema : public SgxCollectable {
    TN_DECLARE_COLLECTABLE(TNSchema)
public:
    // The schema-format version this software writes and accepts.
    static constexpr const char* softwareVersion = "1.8";

    // An empty schema: no classes, no enumeration types, version "1.8", not populated, no root.
    TNSchema();
    // A schema owns its classes, which point back at it; a member-wise copy would share and
    // delete them twice, so schemas are not copied.
    TNSchema(const TNSchema&) = delete;
    TNSchema& operator=(const TNSchema&) = delete;
    // Deletes every class (creation order), then every enumeration type, then frees all memory
    // regions. Never raises: a failure is caught and logged under "Catch" (an exception that is
    // not an SgxException as "Unexpected error deleting TNSchema").
    ~TNSchema() noexcept override;

    // Identity: true only for the very same schema object.
    bool operator==(const TNSchema& other) const { return this == &other; }
    // True when `other` is this schema.
    bool isEqual(const RWCollectable* other) const override;

    // --- Registry --------------------------------------------------------------------------

    // Creates a class named `name` (names are case-sensitive), owned by this schema. Raises
    // TNException (Create, Class, DuplicateName) with the class name when one of that exact name
    // exists; nothing changes then.
    SgxSimplePtr<TNClass> newClass(const SgxString& name);
    // Creates an empty enumeration type named `name`, owned by this schema. Raises TNException
    // (Create, EnumType, DuplicateName) with the enumeration type name when the name is taken.
    SgxSimplePtr<TNEnumType> newEnumType(const SgxString& name);
    // The class named `name` (borrowed). Raises TNException (Access, Class, NameNotFound) with the
    // class name when there is none.
    SgxSimplePtr<TNClass> getClass(const SgxString& name) const;
    // The enumeration type named `name` (borrowed). Raises TNException (Access, EnumType,
    // NameNotFound) with the enumeration type name when there is none.
    SgxSimplePtr<TNEnumType> getEnumType(const SgxString& name) const;
    // Membership tests; never raise.
    bool classExists(const SgxString& name) const { return m_classIndex.contains(name); }
    // The class named `name`, or null: one lookup, no copy of the name, nothing raised.
    SgxSimplePtr<TNClass> findClass(std::string_view name) const noexcept {
        const auto found = m_classIndex.find(name);
        return found != m_classIndex.end() ? found->second : SgxSimplePtr<TNClass>();
    }
    bool enumExists(const SgxString& name) const { return m_enumIndex.contains(name); }
    // Copies of the handles in creation order.
    std::vector<SgxSimplePtr<TNClass>> classes() const { return m_classes; }
    std::vector<SgxSimplePtr<TNEnumType>> enums() const { return m_enums; }
    size_t classCount() const { return m_classes.size(); }
    size_t enumCount() const { return m_enums.size(); }

    // A new instance of the class named `className`: getClass (which raises for an unknown name),
    // then TNClass::newObject(flag), which see.
    SgxSimplePtr<TNObject> newObject(const SgxString& className, bool flag);

    // --- Object directory ----------------------------------------------------------------------
    // Three lookup tables for the host that populates a model: objects by name, a second object
    // per object, a directory text per object. Nothing in them is owned; unpopulate() empties
    // them. The library itself never reads them.

    // Records `object` under `name` unless the name is present (the first entry wins); true when
    // recorded. Any failure inside raises SgxException "Fatal Error! Exception in
    // Object->TNObject" instead.
    bool put_object(SgxString name, SgxSimplePtr<TNObject>& object);
    // When `name` is present: copies its object into `object` and returns whether it is not null.
    // When absent: false, `object` untouched.
    bool get_object(SgxString name, SgxSimplePtr<TNObject>& object) const;
    // As put_object and get_object, keyed by an object; put_association's failure text is "Fatal
    // Error! Exception in Object->TNAssoc".
    bool put_association(SgxSimplePtr<TNObject>& key, SgxSimplePtr<TNObject>& value);
    bool get_association(SgxSimplePtr<TNObject>& key, SgxSimplePtr<TNObject>& value) const;
    // Sets (inserting or replacing) the directory text of `object`. Any failure inside raises
    // SgxException "Fatal Error! Exception in set_objectDirectory" instead.
    void set_objectDirectory(const SgxSimplePtr<TNObject>& object, const SgxString& directory);
    // The directory text of `object`; empty when none was set.
    SgxString get_objectDirectory(const SgxSimplePtr<TNObject>& object) const;

    // The model's root object (borrowed; null until set and after unpopulate or clear).
    void setRoot(const SgxSimplePtr<TNObject>& root) { m_root = root; }
    SgxSimplePtr<TNObject> rootObject() const { return m_root; }

    // The schema-format version: "1.8", or what a schema file stated when read.
    SgxString version() const { return m_version; }

    // --- Schema files ----------------------------------------------------------------------

    // Reads the schema file `fileName` (written by save) into a new schema, which the caller
    // owns and deletes. The file is untrusted: whatever it holds, the load either succeeds with
    // a complete schema (objects can be populated on it as on the schema saved) or raises
    // SgxException, having freed everything it read: "Empty schema file " + fileName for a
    // file of no bytes, "Error reading schema file " + fileName for anything else (a missing or
    // unreadable file, a foreign file, a version other than "1.8", a damaged record).
    static SgxSimplePtr<TNSchema> load(const SgxString& fileName);
    // Writes this schema (the metamodel: classes, enumeration types, associations, class
    // identifiers; not tagged values nor instances) to the file `fileName`, replacing it. The new
    // file takes the old one's place only once it is complete. Raises SgxException "Error
    // writing schema file " + fileName when it cannot be written; the old file then stays.
    void save(const SgxString& fileName) const;
    // The same contents on any binary stream (an RWbistream over bytes in memory, say), as a file
    // holds them: a fixed header, then the store of the schema. loadFrom returns a new schema,
    // owned by the caller, or raises SgxException saying what was wrong and at which byte, having
    // freed everything it read; it reads the stream to its end. saveTo raises what the stream
    // raises.
    static SgxSimplePtr<TNSchema> loadFrom(RWvistream& stream);
    void saveTo(RWvostream& stream) const;

    // Persisted record: the collectable base, the version "1.8", then one RWOrdered of two
    // string-mapped vectors: the enumeration types and the classes, each in name order. Restoring
    // fills an empty schema (SgxException otherwise) and raises SgxException "Version mismatch:
    // Software version 1.8; persisted version " + the version read, the texts of the
    // string-mapped vectors ("Invalid type in string mapped vector! Expected TNClass; got ...")
    // and others for a record that does not make a consistent schema (a class or enumeration type
    // referred to but not listed, an inheritance cycle). A failed restore leaves the schema
    // holding what it had read; delete or clear() it.
    using SgxCollectable::restoreGuts;
    using SgxCollectable::saveGuts;
    void saveGuts(RWvostream& stream) const override;
    void restoreGuts(RWvistream& stream) override;

    // --- Life cycle ------------------------------------------------------------------------

    // Freezes the metamodel: trims the class and enumeration-type vectors to their size
    // (reporting each trim through countShrinks), calls donePopulating() on every class and then
    // every enumeration type in creation order, marks the schema populated and frees the
    // temporary memory region. Raises only what the classes raise.
    void donePopulating();
    // Drops the model and keeps the metamodel: every class forgets its instances, the populated
    // flag and the root are cleared, the object directory is emptied, and all four memory regions
    // are freed (handles to instances dangle from then on).
    void unpopulate();
    bool isFullyPopulated() const { return m_populated; }
    // Deletes every class and enumeration type (creation order), empties the registry, clears
    // the populated flag and the root, and frees all memory regions. The schema stays usable.
    void clear();

    // --- Memory regions (process-wide) -------------------------------------------------------

    // The regions, each created on first use and kept until freed: primary (25 MiB blocks times
    // the model-size factor) for objects and their slots; string (10 MiB) and double (5 MiB) for
    // attribute texts and reals; temporary (50 MiB times the factor) for link lists while a model
    // is populated. The references stay valid until the region is freed.
    // Inline: every object, slot text and link asks for a region.
    static SgxMemoryRegion& primaryMemoryRegion() {
        return s_primaryMemoryRegion ? *s_primaryMemoryRegion : makePrimaryMemoryRegion();
    }
    static SgxMemoryRegion& stringMemoryRegion() {
        return s_stringMemoryRegion ? *s_stringMemoryRegion : makeStringMemoryRegion();
    }
    static SgxMemoryRegion& doubleMemoryRegion() {
        return s_doubleMemoryRegion ? *s_doubleMemoryRegion : makeDoubleMemoryRegion();
    }
    static SgxMemoryRegion& temporaryMemoryRegion() {
        return s_temporaryMemoryRegion ? *s_temporaryMemoryRegion : makeTemporaryMemoryRegion();
    }
    // The model-size factor (initially 1), which scales the block size of primary and temporary
    // regions created afterwards. Setting 0 keeps the old value.
    static uint64_t get_ModelSize() { return s_modelSize; }
    static void set_ModelSize(size_t modelSize);

private:
    // Create the region on first use (out of line: once per region).
    static SgxMemoryRegion& makePrimaryMemoryRegion();
    static SgxMemoryRegion& makeStringMemoryRegion();
    static SgxMemoryRegion& makeDoubleMemoryRegion();
    static SgxMemoryRegion& makeTemporaryMemoryRegion();
    // Deletes the primary, string, double and temporary regions (those that exist), in that order.
    static void freeAllMemoryRegions() noexcept;
    // Deletes the temporary region if it exists; the next temporaryMemoryRegion() makes a new one.
    static void freeTemporaryMemoryRegions() noexcept;
    // Deletes the classes and enumeration types and empties the registry.
    void deleteMetamodel() noexcept;
    // Raises SgxException unless every class, enumeration type and inheritance link that the
    // restored classes refer to belongs to this schema, and inheritance has no cycle.
    void checkRestored() const;

    // The object directory (filled and read by the instances' operations; empty until then).
    std::map<SgxString, SgxSimplePtr<TNObject>, std::less<>> m_objectTable;
    std::map<SgxSimplePtr<TNObject>, SgxSimplePtr<TNObject>> m_associationTable;
    std::map<SgxSimplePtr<TNObject>, SgxString> m_directoryTable;

    bool m_populated = false;
    SgxString m_version;
    // Creation order lives in the vectors; the hashed indexes are the lookup path (see
    // TNNameIndex.h). Both always hold the same objects, which this schema owns.
    std::vector<SgxSimplePtr<TNClass>> m_classes;
    TNNameMap<SgxSimplePtr<TNClass>> m_classIndex;
    std::vector<SgxSimplePtr<TNEnumType>> m_enums;
    TNNameMap<SgxSimplePtr<TNEnumType>> m_enumIndex;
    SgxSimplePtr<TNObject> m_root;

    static SgxMemoryRegion* s_primaryMemoryRegion;
    static SgxMemoryRegion* s_stringMemoryRegion;
    static SgxMemoryRegion* s_doubleMemoryRegion;
    static SgxMemoryRegion* s_temporaryMemoryRegion;
    static uint64_t s_modelSize;
};
