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

// Reads a reference that must be a new RWCollectableString, in place, into `text`. False, with
// what was found instead in `other`, for anything else; called for the elements of a list read
// in place, so the running restore frees what it made there when the caller raises.
bool restoreText(RWvistream& stream, SgxString& text, RWCollectable*& other) {
    bool inPlace = false;
    other = rwRestoreInPlace(
        stream, RWCollectableString::classIsA(),
        [&text](RWvistream& s) { RWCollectableString::restoreText(s, text); }, inPlace);
    return inPlace;
}

constexpr const char* invalidMappedVector = "Invalid string mapped vector: ";

// Room for the elements of a list of `count` objects with texts: each takes at least a tag, a
// class name length and a text length, so a damaged count cannot make a large reservation.
size_t textRoom(const RWvistream& stream, uint32_t count) {
    return static_cast<size_t>(std::min<uint64_t>(count, stream.bytesLeft() / 9));
}

} // namespace

void tnSaveStrings(RWvostream& stream, const std::vector<SgxString>& texts) {
    stream << stringList(texts);
}

std::vector<SgxString> tnRestoreStrings(RWvistream& stream, const SgxString& record) {
    std::vector<SgxString> texts;
    tnRestoreList(
        stream, [&] { return "Invalid " + record + ": expected RWOrdered; got "; },
        [&](uint32_t count) { texts.reserve(textRoom(stream, count)); },
        [&](RWvistream& s, uint32_t) {
            RWCollectable* other = nullptr;
            if (!restoreText(s, texts.emplace_back(), other))
                SgxException::raise("Invalid " + record + ": expected RWCollectableString; got " +
                                    classOf(other));
        });
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

RWOrdered* tnMappedVector(const std::vector<std::pair<SgxString, const RWCollectable*>>& entries) {
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
    std::vector<RWCollectable*> objects;
    tnRestoreList(
        stream, [] { return SgxString("Invalid vector: expected RWOrdered; got "); },
        [&](uint32_t count) { objects.reserve(count); },
        [&](RWvistream& s, uint32_t) {
            RWCollectable* object = nullptr;
            s >> object;
            if (!isType(object))
                SgxException::raise(SgxString("Invalid type in vector! Expected ") + typeName +
                                    "; got " + classOf(object));
            objects.push_back(object);
        });
    return objects;
}

std::vector<std::pair<SgxString, RWCollectable*>>
tnRestoreMappedVector(RWvistream& stream, const char* typeName,
                      bool (*isType)(const RWCollectable*)) {
    std::vector<std::pair<SgxString, RWCollectable*>> entries;
    const auto names = [&](RWvistream& s) {
        tnRestoreList(
            s, [] { return SgxString(invalidMappedVector) + "expected two RWOrdered; got "; },
            [&](uint32_t count) { entries.reserve(textRoom(s, count)); },
            [&](RWvistream& in, uint32_t) {
                RWCollectable* other = nullptr;
                if (!restoreText(in, entries.emplace_back().first, other))
                    SgxException::raise(
                        "Invalid type in string mapped vector! Expected String; got " +
                        classOf(other));
            });
    };
    const auto objects = [&](RWvistream& s) {
        tnRestoreList(
            s, [] { return SgxString(invalidMappedVector) + "expected two RWOrdered; got "; },
            [&](uint32_t count) {
                if (count != entries.size())
                    SgxException::raise(invalidMappedVector + std::to_string(entries.size()) +
                                        " names for " + std::to_string(count) + " objects");
            },
            [&](RWvistream& in, uint32_t i) {
                RWCollectable* object = nullptr;
                in >> object;
                if (!isType(object))
                    SgxException::raise(
                        SgxString("Invalid type in string mapped vector! Expected ") + typeName +
                        "; got " + classOf(object));
                entries[i].second = object;
            });
    };
    tnRestoreList(
        stream, [] { return SgxString(invalidMappedVector) + "expected RWOrdered; got "; },
        [&](uint32_t count) {
            if (count != 2)
                SgxException::raise(SgxString(invalidMappedVector) + "expected 2 lists; got " +
                                    std::to_string(count));
        },
        [&](RWvistream& s, uint32_t i) { i == 0 ? names(s) : objects(s); });
    return entries;
}

SgxString tnClassOf(const RWCollectable* object) { return classOf(object); }

void tnRaiseNotAList(RWCollectable* other, const SgxString& problem) {
    // When the list was the outermost read, what came instead is the caller's: the guard frees
    // it. Inside a restore, registering takes it from the restore, which would free it too.
    registerCollectable(other);
    SgxException::raise(problem + classOf(other));
}
