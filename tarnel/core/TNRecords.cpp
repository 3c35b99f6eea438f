#include "tarnel/core/TNRecords.h"

#include "rw/RWCollectableString.h"
#include "rw/RWOrdered.h"
#include "sgx/general/SgxException.h"
#include "sgx/persistence/StartPersistence.h"

namespace {

SgxString classOf(const RWCollectable* object) {
    return object == nullptr ? SgxString("nil") : object->stringID();
}

// A new RWOrdered that the persistence library frees after the store.
RWOrdered* registeredList() {
    auto* list = new RWOrdered;
    registerCollectable(list);
    return list;
}

RWOrdered* stringList(const std::vector<SgxString>& texts) {
    RWOrdered* list = registeredList();
    for (const SgxString& text : texts) {
        auto* item = new RWCollectableString(text);
        registerCollectable(item);
        list->insert(item);
    }
    return list;
}

// Reads a reference that must be an RWOrdered; registers it, so it is freed with the guard.
RWOrdered* restoreList(RWvistream& stream, const SgxString& problem) {
    RWCollectable* read = nullptr;
    stream >> read;
    registerCollectable(read);
    auto* list = dynamic_cast<RWOrdered*>(read);
    if (list == nullptr)
        SgxException::raise(problem + classOf(read));
    return list;
}

// The texts of a list of RWCollectableString, each registered; raises `problem` + the class of
// the first element that is not one.
std::vector<SgxString> listTexts(const RWOrdered& list, const SgxString& problem) {
    for (RWCollectable* entry : list) {
        if (dynamic_cast<const RWCollectableString*>(entry) == nullptr)
            SgxException::raise(problem + classOf(entry));
        registerCollectable(entry);
    }
    std::vector<SgxString> texts;
    texts.reserve(list.entries());
    for (const RWCollectable* entry : list)
        texts.push_back(static_cast<const RWCollectableString*>(entry)->str());
    return texts;
}

} // namespace

void tnSaveStrings(RWvostream& stream, const std::vector<SgxString>& texts) {
    stream << stringList(texts);
}

std::vector<SgxString> tnRestoreStrings(RWvistream& stream, const SgxString& record) {
    RWOrdered* list = restoreList(stream, "Invalid " + record + ": expected RWOrdered; got ");
    std::vector<SgxString> texts =
        listTexts(*list, "Invalid " + record + ": expected RWCollectableString; got ");
    list->clear();
    return texts;
}

RWCollectable* tnRestoreReference(RWvistream& stream, const char* record, const char* typeName,
                                  bool (*isType)(const RWCollectable*)) {
    RWCollectable* read = nullptr;
    stream >> read;
    if (read != nullptr && !isType(read))
        SgxException::raise(SgxString("Invalid ") + record + ": expected " + typeName + "; got " +
                            classOf(read));
    return read;
}

void tnSaveVector(RWvostream& stream, const std::vector<const RWCollectable*>& objects) {
    RWOrdered* list = registeredList();
    for (const RWCollectable* object : objects)
        list->insert(const_cast<RWCollectable*>(object)); // written, never changed
    stream << list;
}

RWOrdered* tnMappedVector(
    const std::vector<std::pair<SgxString, const RWCollectable*>>& entries) {
    std::vector<SgxString> names;
    names.reserve(entries.size());
    RWOrdered* objects = registeredList();
    for (const auto& [name, object] : entries) {
        names.push_back(name);
        objects->insert(const_cast<RWCollectable*>(object)); // written, never changed
    }
    RWOrdered* pair = registeredList();
    pair->insert(stringList(names));
    pair->insert(objects);
    return pair;
}

void tnSaveMappedVector(RWvostream& stream,
                        const std::vector<std::pair<SgxString, const RWCollectable*>>& entries) {
    stream << tnMappedVector(entries);
}

std::vector<RWCollectable*> tnRestoreVector(RWvistream& stream, const char* typeName,
                                            bool (*isType)(const RWCollectable*)) {
    RWOrdered* list = restoreList(stream, "Invalid vector: expected RWOrdered; got ");
    for (const RWCollectable* entry : *list)
        if (!isType(entry))
            SgxException::raise(SgxString("Invalid type in vector! Expected ") + typeName +
                                "; got " + classOf(entry));
    std::vector<RWCollectable*> objects(list->begin(), list->end());
    list->clear();
    return objects;
}

std::vector<std::pair<SgxString, RWCollectable*>>
tnMappedEntries(RWCollectable* read, const char* typeName, bool (*isType)(const RWCollectable*)) {
    const SgxString invalid = "Invalid string mapped vector: ";
    registerCollectable(read);
    auto* pair = dynamic_cast<RWOrdered*>(read);
    if (pair == nullptr)
        SgxException::raise(invalid + "expected RWOrdered; got " + classOf(read));
    if (pair->entries() != 2)
        SgxException::raise(invalid + "expected 2 lists; got " + std::to_string(pair->entries()));
    auto* names = dynamic_cast<RWOrdered*>(pair->at(0));
    auto* objects = dynamic_cast<RWOrdered*>(pair->at(1));
    registerCollectable(names);
    registerCollectable(objects);
    if (names == nullptr || objects == nullptr || names == objects)
        SgxException::raise(invalid + "expected two RWOrdered");
    if (names->entries() != objects->entries())
        SgxException::raise(invalid + std::to_string(names->entries()) + " names for " +
                            std::to_string(objects->entries()) + " objects");
    std::vector<std::pair<SgxString, RWCollectable*>> entries;
    entries.reserve(names->entries());
    for (size_t i = 0; i < names->entries(); ++i) {
        const RWCollectable* entry = names->at(i);
        if (!tnIsA<RWCollectableString>(entry))
            SgxException::raise("Invalid type in string mapped vector! Expected String; got " +
                                classOf(names->at(i)));
        registerCollectable(names->at(i));
        RWCollectable* object = objects->at(i);
        if (!isType(object))
            SgxException::raise(SgxString("Invalid type in string mapped vector! Expected ") +
                                typeName + "; got " + classOf(object));
        entries.emplace_back(static_cast<const RWCollectableString*>(entry)->str(), object);
    }
    names->clear();
    objects->clear();
    pair->clear();
    return entries;
}

std::vector<std::pair<SgxString, RWCollectable*>>
tnRestoreMappedVector(RWvistream& stream, const char* typeName,
                      bool (*isType)(const RWCollectable*)) {
    RWCollectable* read = nullptr;
    stream >> read;
    return tnMappedEntries(read, typeName, isType);
}
