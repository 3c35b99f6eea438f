#include "tarnel/metamodel/TNSchema.h"

#include "sgx/general/CSignal2Exception.h"
#include "sgx/general/SgxException.h"
#include "sgx/general/SgxStatistics.h"
#include "tarnel/core/TNException.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNEnumType.h"

#include <memory>

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
