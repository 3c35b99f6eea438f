#include "tarnel/metamodel/TNSchema.h"

#include "rw/RWFile.h"
#include "rw/RWOrdered.h"
#include "rw/RWbstream.h"
#include "sgx/general/CSignal2Exception.h"
#include "sgx/general/SgxException.h"
#include "sgx/general/SgxStatistics.h"
#include "sgx/persistence/SgxStringPersistence.h"
#include "sgx/persistence/StartPersistence.h"
#include "tarnel/core/TNException.h"
#include "tarnel/core/TNRecords.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNEnumType.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sstream>
#include <unordered_map>
#include <unordered_set>

#include <unistd.h>

TN_DEFINE_COLLECTABLE(TNSchema)

SgxMemoryRegion* TNSchema::s_primaryMemoryRegion = nullptr;
SgxMemoryRegion* TNSchema::s_stringMemoryRegion = nullptr;
SgxMemoryRegion* TNSchema::s_doubleMemoryRegion = nullptr;
SgxMemoryRegion* TNSchema::s_temporaryMemoryRegion = nullptr;
uint64_t TNSchema::s_modelSize = 1;

namespace {

// Block sizes of the four regions, in bytes.
constexpr size_t primaryBlockSize = 26214400;   // 25 MiB, times the model-size factor
constexpr size_t stringBlockSize = 10485760;    // 10 MiB
constexpr size_t doubleBlockSize = 5242880;     // 5 MiB
constexpr size_t temporaryBlockSize = 52428800; // 50 MiB, times the model-size factor

void freeRegion(SgxMemoryRegion*& region) noexcept {
    delete region;
    region = nullptr;
}

} // namespace

TNSchema::TNSchema() : m_version(softwareVersion) {}

TNSchema::~TNSchema() noexcept {
    try {
        CSignal2Exception guard;
        deleteMetamodel();
        freeAllMemoryRegions();
    } catch (const SgxException& e) {
        SgxException::logCatch(&e);
    } catch (...) {
        const SgxException unexpected("Unexpected error deleting TNSchema");
        SgxException::logCatch(&unexpected);
    }
}

bool TNSchema::isEqual(const RWCollectable* other) const {
    // Identity: the schema itself is the only one equal to it.
    return other == this;
}

SgxSimplePtr<TNClass> TNSchema::newClass(const SgxString& name) {
    if (classExists(name))
        TNException(TNException::Create, TNException::Class, TNException::DuplicateName)
            .setClass1(name)
            .raise();
    // The index takes the entry first and the vector has room reserved, so a failing allocation
    // leaves neither a half-entered class nor a leaked one.
    tnReserveOneMore(m_classes);
    std::unique_ptr<TNClass> owned(new TNClass(SgxSimplePtr<TNSchema>(this), name));
    SgxSimplePtr<TNClass> cls(owned.get());
    m_classIndex.emplace(name, cls);
    m_classes.push_back(cls);
    owned.release();
    return cls;
}

SgxSimplePtr<TNEnumType> TNSchema::newEnumType(const SgxString& name) {
    if (enumExists(name))
        TNException(TNException::Create, TNException::EnumType, TNException::DuplicateName)
            .setEnumType(name)
            .raise();
    tnReserveOneMore(m_enums);
    auto owned = std::make_unique<TNEnumType>(name);
    SgxSimplePtr<TNEnumType> type(owned.get());
    m_enumIndex.emplace(name, type);
    m_enums.push_back(type);
    owned.release();
    return type;
}

SgxSimplePtr<TNClass> TNSchema::getClass(const SgxString& name) const {
    const auto found = m_classIndex.find(name);
    if (found == m_classIndex.end())
        TNException(TNException::Access, TNException::Class, TNException::NameNotFound)
            .setClass1(name)
            .raise();
    return found->second;
}

SgxSimplePtr<TNEnumType> TNSchema::getEnumType(const SgxString& name) const {
    const auto found = m_enumIndex.find(name);
    if (found == m_enumIndex.end())
        TNException(TNException::Access, TNException::EnumType, TNException::NameNotFound)
            .setEnumType(name)
            .raise();
    return found->second;
}

SgxSimplePtr<TNObject> TNSchema::newObject(const SgxString& className, bool flag) {
    return getClass(className)->newObject(flag);
}

namespace {

// Runs a directory update under the fault guard; whatever it raises becomes `message`.
template <class F> auto guarded(const char* message, F&& update) {
    try {
        CSignal2Exception guard;
        return update();
    } catch (...) {
        SgxException::raise(message);
    }
}

// Looks `key` up in `table`: copies a present entry into `value` and says whether it is set.
template <class Map, class Key>
bool lookUp(const Map& table, const Key& key, SgxSimplePtr<TNObject>& value) {
    const auto found = table.find(key);
    if (found == table.end())
        return false;
    value = found->second;
    return !value.isNull();
}

} // namespace

bool TNSchema::put_object(SgxString name, SgxSimplePtr<TNObject>& object) {
    return guarded("Fatal Error! Exception in Object->TNObject",
                   [&] { return m_objectTable.try_emplace(std::move(name), object).second; });
}

bool TNSchema::get_object(SgxString name, SgxSimplePtr<TNObject>& object) const {
    return lookUp(m_objectTable, name, object);
}

bool TNSchema::put_association(SgxSimplePtr<TNObject>& key, SgxSimplePtr<TNObject>& value) {
    return guarded("Fatal Error! Exception in Object->TNAssoc",
                   [&] { return m_associationTable.try_emplace(key, value).second; });
}

bool TNSchema::get_association(SgxSimplePtr<TNObject>& key, SgxSimplePtr<TNObject>& value) const {
    return lookUp(m_associationTable, key, value);
}

void TNSchema::set_objectDirectory(const SgxSimplePtr<TNObject>& object,
                                   const SgxString& directory) {
    guarded("Fatal Error! Exception in set_objectDirectory",
            [&] { m_directoryTable.insert_or_assign(object, directory); });
}

SgxString TNSchema::get_objectDirectory(const SgxSimplePtr<TNObject>& object) const {
    const auto found = m_directoryTable.find(object);
    return found == m_directoryTable.end() ? SgxString() : found->second;
}

void TNSchema::donePopulating() {
    // Handles are one pointer wide; the statistics count them at that size.
    constexpr size_t handleSize = sizeof(SgxSimplePtr<TNClass>);
    const size_t classCapacity = tnCompact(m_classes);
    if (classCapacity != m_classes.size())
        countShrinks(classCapacity, m_classes.size(), handleSize);
    const size_t enumCapacity = tnCompact(m_enums);
    if (enumCapacity != m_enums.size())
        countShrinks(enumCapacity, m_enums.size(), handleSize);

    for (const auto& cls : m_classes)
        cls->donePopulating();
    for (const auto& type : m_enums)
        type->donePopulating();
    m_populated = true;
    freeTemporaryMemoryRegions();
}

void TNSchema::unpopulate() {
    for (const auto& cls : m_classes)
        cls->cleanUpObjects();
    m_populated = false;
    m_root = nullptr;
    m_objectTable.clear();
    m_associationTable.clear();
    m_directoryTable.clear();
    freeAllMemoryRegions();
}

void TNSchema::clear() {
    deleteMetamodel();
    m_populated = false;
    m_root = nullptr;
    freeAllMemoryRegions();
}

void TNSchema::deleteMetamodel() noexcept {
    // Each object is deleted once: the vectors hold every owned object exactly once, and the
    // indexes only borrow the same handles.
    for (const auto& cls : m_classes)
        delete cls.get();
    for (const auto& type : m_enums)
        delete type.get();
    m_classes.clear();
    m_classIndex.clear();
    m_enums.clear();
    m_enumIndex.clear();
}

SgxMemoryRegion& TNSchema::makePrimaryMemoryRegion() {
    s_primaryMemoryRegion = new SgxMemoryRegion(primaryBlockSize, s_modelSize);
    return *s_primaryMemoryRegion;
}

SgxMemoryRegion& TNSchema::makeStringMemoryRegion() {
    s_stringMemoryRegion = new SgxMemoryRegion(stringBlockSize);
    return *s_stringMemoryRegion;
}

SgxMemoryRegion& TNSchema::makeDoubleMemoryRegion() {
    s_doubleMemoryRegion = new SgxMemoryRegion(doubleBlockSize);
    return *s_doubleMemoryRegion;
}

SgxMemoryRegion& TNSchema::makeTemporaryMemoryRegion() {
    s_temporaryMemoryRegion = new SgxMemoryRegion(temporaryBlockSize, s_modelSize);
    return *s_temporaryMemoryRegion;
}

void TNSchema::set_ModelSize(size_t modelSize) {
    if (modelSize != 0)
        s_modelSize = modelSize;
}

void TNSchema::freeAllMemoryRegions() noexcept {
    // No object of the region survives it, so none of them is overwritten any more.
    tn_detail::overwrittenOriginals.store(0, std::memory_order_relaxed);
    freeRegion(s_primaryMemoryRegion);
    freeRegion(s_stringMemoryRegion);
    freeRegion(s_doubleMemoryRegion);
    freeRegion(s_temporaryMemoryRegion);
}

void TNSchema::freeTemporaryMemoryRegions() noexcept { freeRegion(s_temporaryMemoryRegion); }

// --- Schema files --------------------------------------------------------------------------

namespace {

// What a schema file begins with, before the store of the schema: a magic that refuses other
// files at once (its CR LF catches text-mode line-ending damage) and the format revision.
constexpr char fileMagic[8] = {'T', 'A', 'R', 'N', 'E', 'L', '\r', '\n'};
constexpr uint16_t fileRevision = 1;

// Enters restored objects in a registry vector and index, each owned by `schema` from then on.
template <class T>
void takeAll(const TNSchema& schema, std::vector<std::pair<SgxString, T*>> entries,
             std::vector<SgxSimplePtr<T>>& items, TNNameMap<SgxSimplePtr<T>>& index) {
    items.reserve(items.size() + entries.size());
    index.reserve(index.size() + entries.size());
    for (auto& [name, object] : entries) {
        rwAdopt(object, &schema); // owned before anything else can raise
        items.push_back(object);
        if (!index.emplace(std::move(name), object).second)
            SgxException::raise("Invalid schema: " + object->name() + " listed twice");
    }
}

} // namespace

void TNSchema::saveGuts(RWvostream& stream) const {
    StartPersistence guard;
    SgxCollectable::saveGuts(stream);
    sgxStringToStream(stream, softwareVersion);
    auto* registry = new RWOrdered;
    registerCollectable(registry);
    registry->insert(
        tnMappedVector(tnByName(m_enums, [](const TNEnumType& t) { return t.name(); })));
    registry->insert(
        tnMappedVector(tnByName(m_classes, [](const TNClass& c) { return c.name(); })));
    stream << registry;
    // The guts of classes that the classes' references reached deep down come here, so that the
    // schema's record is whole when it ends.
    rwSaveDeferredGuts(stream);
}

void TNSchema::restoreGuts(RWvistream& stream) {
    StartPersistence guard;
    if (!m_classes.empty() || !m_enums.empty())
        SgxException::raise("A schema is restored only into an empty one");
    SgxCollectable::restoreGuts(stream);
    sgxStringFromStream(stream, m_version);
    if (m_version != softwareVersion)
        SgxException::raise(SgxString("Version mismatch: Software version ") + softwareVersion +
                            "; persisted version " + m_version);
    // The registry and the string-mapped vectors in it are read in place: only the enumeration
    // types and classes they list are made.
    std::vector<std::pair<SgxString, RWCollectable*>> lists[2];
    tnRestoreList(
        stream,
        [] { return SgxString("Invalid schema: expected an RWOrdered of 2 elements; got "); },
        [](uint32_t count) {
            if (count != 2)
                SgxException::raise("Invalid schema: expected an RWOrdered of 2 elements");
        },
        [&lists](RWvistream& in, uint32_t i) {
            lists[i] = i == 0 ? tnRestoreMappedVector(in, "TNEnumType", &tnIsA<TNEnumType>)
                              : tnRestoreMappedVector(in, "TNClass", &tnIsA<TNClass>);
        });
    takeAll(*this, tnCastEntries<TNEnumType>(std::move(lists[0])), m_enums, m_enumIndex);
    for (const auto& [name, type] : m_enumIndex)
        if (type->name() != name)
            SgxException::raise("Invalid schema: enumeration type " + type->name() + " listed as " +
                                name);
    takeAll(*this, tnCastEntries<TNClass>(std::move(lists[1])), m_classes, m_classIndex);
    rwRestoreDeferredGuts(stream);
    checkRestored();
}

void TNSchema::checkRestored() const {
    const auto invalid = [](const SgxString& problem) {
        SgxException::raise("Invalid schema: " + problem);
    };
    std::unordered_set<const TNClass*> known;
    for (const auto& cls : m_classes)
        known.insert(cls.get());
    std::unordered_set<const TNEnumType*> knownTypes;
    for (const auto& type : m_enums)
        knownTypes.insert(type.get());
    const auto isKnown = [&](const TNClass* cls) { return cls == nullptr || known.contains(cls); };

    for (const auto& [name, handle] : m_classIndex)
        if (handle->m_name != name)
            invalid("class " + handle->m_name + " listed as " + name);
    // Walked in list order rather than hash order: a class's members were made one after another
    // and lie together in memory.
    for (const auto& handle : m_classes) {
        const TNClass& cls = *handle;
        const SgxString& name = cls.m_name;
        // Null while the class's own record is still being read, when the class was what the
        // restore started from and this schema came in through it.
        if (cls.m_schema.get() != this && !cls.m_schema.isNull())
            invalid("class " + name + " belongs to another schema");
        for (const auto& desc : cls.m_attributes) {
            const TNEnumType* type = desc->enumType().get();
            if (type != nullptr && !knownTypes.contains(type))
                invalid("attribute " + desc->name() + " of class " + name +
                        " has an enumeration type the schema lacks");
            if (desc->type() == TNAttrEnumeration && (type == nullptr || type->literalCount() == 0))
                invalid("attribute " + desc->name() + " of class " + name +
                        " has an enumeration type without literals");
        }
        for (const auto& assoc : cls.m_associations)
            if (!isKnown(assoc->firstClass().get()) || !isKnown(assoc->otherClass().get()))
                invalid("association " + assoc->otherRoleName() + " of class " + name +
                        " leads to a class the schema lacks");
        for (const auto& related : {std::cref(cls.m_children), std::cref(cls.m_parents)})
            for (const auto& other : related.get())
                if (!known.contains(other.get()))
                    invalid("class " + name + " inherits from or to a class the schema lacks");
    }

    // Members are handed down the children, so a cycle would hand them round for ever.
    enum class Mark : uint8_t { Unvisited, Open, Done };
    std::unordered_map<const TNClass*, Mark> marks;
    for (const auto& root : m_classes) {
        if (marks[root.get()] != Mark::Unvisited)
            continue;
        std::vector<std::pair<const TNClass*, size_t>> path{{root.get(), 0}};
        marks[root.get()] = Mark::Open;
        while (!path.empty()) {
            auto& [cls, next] = path.back();
            if (next == cls->m_children.size()) {
                marks[cls] = Mark::Done;
                path.pop_back();
                continue;
            }
            const TNClass* child = cls->m_children[next++].get();
            Mark& mark = marks[child];
            if (mark == Mark::Open)
                invalid("class " + child->m_name + " inherits from itself");
            if (mark == Mark::Unvisited) {
                mark = Mark::Open;
                path.emplace_back(child, 0);
            }
        }
    }
}

SgxSimplePtr<TNSchema> TNSchema::loadFrom(RWvistream& stream) {
    auto schema = std::make_unique<TNSchema>();
    char magic[sizeof fileMagic];
    stream.get(magic, sizeof magic);
    if (std::memcmp(magic, fileMagic, sizeof magic) != 0)
        stream.raiseFormatError("Not a schema file", 0);
    const uint64_t revisionAt = stream.offset();
    uint16_t revision = 0;
    stream >> revision;
    if (revision != fileRevision)
        stream.raiseFormatError("Unknown schema file revision " + std::to_string(revision),
                                revisionAt);
    schema->recursiveRestoreFrom(stream);
    for (const auto& cls : schema->m_classes)
        if (cls->m_schema.get() != schema.get())
            SgxException::raise("Invalid schema: class " + cls->m_name + " has no schema");
    if (stream.bytesLeft() != 0)
        stream.raiseFormatError("Unexpected bytes after the schema");
    return schema.release();
}

void TNSchema::saveTo(RWvostream& stream) const {
    stream.put(fileMagic, sizeof fileMagic);
    stream << fileRevision;
    recursiveSaveOn(stream);
}

SgxSimplePtr<TNSchema> TNSchema::load(const SgxString& fileName) {
    bool empty = false;
    try {
        RWFile file(fileName, "rb");
        if (!file.isValid() || !file.Exists()) {
            SgxException::raise("Empty file");
        } else if (file.IsEmpty()) {
            empty = true;
            SgxException::raise("Empty file");
        }
        // Read whole, then parsed in memory: a schema file is small beside the schema it makes,
        // and one read costs less than the many small ones of its records.
        // Not zero-filled first: the read fills it or raises.
        const size_t size = file.bytesLeft();
        const std::unique_ptr<char[]> bytes(new char[size]);
        file.Read(bytes.get(), size);
        file.Close();
        RWbistream stream(bytes.get(), size);
        return loadFrom(stream);
    } catch (...) {
        SgxException::raise((empty ? "Empty schema file " : "Error reading schema file ") +
                            fileName);
    }
}

void TNSchema::save(const SgxString& fileName) const {
    // Written beside the target and renamed over it when complete, so a failed save never
    // leaves a damaged file where a good one was.
    const SgxString partName = fileName + ".part-" + std::to_string(::getpid());
    try {
        // Made in memory and written in one piece, as load reads it.
        std::ostringstream bytes;
        RWbostream stream(bytes);
        saveTo(stream);
        const std::string data = std::move(bytes).str();
        RWFile file(partName, "wb");
        if (!file.isValid())
            SgxException::raise("Cannot open " + partName);
        file.Write(data.data(), data.size());
        file.Close();
        std::filesystem::rename(partName, fileName);
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove(partName, ignored);
        SgxException::raise("Error writing schema file " + fileName);
    }
}
