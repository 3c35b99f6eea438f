#include "rw/RWCollectable.h"

#include "rw/RWFile.h"
#include "sgx/general/SgxException.h"
#include "sgx/general/SgxPointerIndex.h"

#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

// ---------------------------------------------------------------------------------------------
// The factory

namespace {

struct FactoryEntry {
    RWuserCreator create;
    RWStringID name;
    RWClassID id;
};

struct Factory {
    std::unordered_map<RWClassID, FactoryEntry> byId;
    std::unordered_map<RWStringID, RWClassID> byName;
};

// Never destroyed: libraries remove their classes from their own static destructors, which may
// run after this library's.
Factory& factory() {
    static Factory* const instance = new Factory;
    return *instance;
}

const FactoryEntry* findEntry(RWClassID id) {
    const auto found = factory().byId.find(id);
    return found == factory().byId.end() ? nullptr : &found->second;
}

// Constant-initialised, so classes of any library may draw ids during static initialisation.
uint32_t g_nextAtom = 0x8000;

} // namespace

void rwAddToFactory(RWuserCreator create, RWClassID id, const RWStringID& name) {
    if (create == nullptr || id == 0 || name.empty() || name.size() > RWMaxClassNameLength)
        SgxException::raise("Invalid factory registration of class \"" + name + "\" (id " +
                            std::to_string(id) + ")");
    Factory& f = factory();
    const auto byId = f.byId.find(id);
    const auto byName = f.byName.find(name);
    if ((byId != f.byId.end() && byId->second.name != name) ||
        (byName != f.byName.end() && byName->second != id))
        SgxException::raise("Class \"" + name + "\" (id " + std::to_string(id) +
                            ") conflicts with a class already in the factory");
    f.byId[id] = FactoryEntry{create, name, id};
    f.byName[name] = id;
}

void rwRemoveFromFactory(RWClassID id) {
    Factory& f = factory();
    const auto found = f.byId.find(id);
    if (found == f.byId.end())
        return;
    f.byName.erase(found->second.name);
    f.byId.erase(found);
}

RWCollectable* rwCreateFromFactory(const RWStringID& name) {
    const auto found = factory().byName.find(name);
    return found == factory().byName.end() ? nullptr : rwCreateFromFactory(found->second);
}

RWCollectable* rwCreateFromFactory(RWClassID id) {
    const FactoryEntry* entry = findEntry(id);
    return entry == nullptr ? nullptr : entry->create();
}

RWStringID rwClassName(RWClassID id) {
    const FactoryEntry* entry = findEntry(id);
    return entry == nullptr ? RWStringID() : entry->name;
}

// ---------------------------------------------------------------------------------------------
// Store and restore contexts

struct RWStreamAccess {
    static RWSaveContext*& context(RWvostream& stream) { return stream.m_saveContext; }
    static RWRestoreContext*& context(RWvistream& stream) { return stream.m_restoreContext; }
    // The next `size` bytes, consumed, when the stream's window holds them; else null and nothing
    // consumed. The bytes stay valid while the stream reads on.
    static const char* take(RWvistream& stream, size_t size) {
        if (static_cast<size_t>(stream.m_windowEnd - stream.m_window) < size)
            return nullptr;
        const auto* bytes = reinterpret_cast<const char*>(stream.m_window);
        stream.m_window += size;
        return bytes;
    }
};

namespace {

// The contexts running on this thread, innermost first: a destructor of a collectable must find
// every table that could still name the object.
class ContextBase;
thread_local ContextBase* t_innermost = nullptr;

class ContextBase {
public:
    ContextBase() : m_outer(t_innermost) { t_innermost = this; }
    ContextBase(const ContextBase&) = delete;
    ContextBase& operator=(const ContextBase&) = delete;
    // Contexts belong to outermost calls, which end in reverse order of their start.
    virtual ~ContextBase() { t_innermost = m_outer; }

    ContextBase* outer() const { return m_outer; }
    // Called when `object` is being deleted.
    virtual void forget(const RWCollectable* object) noexcept = 0;
    virtual void adopt(const RWCollectable*, const RWCollectable*) {}

private:
    ContextBase* m_outer;
};

// Resets a stream's context pointer when the outermost call ends.
template <class Context> struct ContextSlotReset {
    Context*& slot;
    ~ContextSlotReset() { slot = nullptr; }
};

// Marks an object of a restore as being read for the duration of its restoreGuts.
template <class Context> class ReadingGuard {
public:
    ReadingGuard(Context& context, size_t index) : m_context(context), m_index(index) {
        context.setReading(index, true);
    }
    ReadingGuard(const ReadingGuard&) = delete;
    ReadingGuard& operator=(const ReadingGuard&) = delete;
    ~ReadingGuard() { m_context.setReading(m_index, false); }

private:
    Context& m_context;
    size_t m_index;
};

// Counts the nesting of new objects in a store or restore.
class DepthGuard {
public:
    explicit DepthGuard(unsigned& depth) : m_depth(depth) { ++m_depth; }
    DepthGuard(const DepthGuard&) = delete;
    DepthGuard& operator=(const DepthGuard&) = delete;
    ~DepthGuard() { --m_depth; }

private:
    unsigned& m_depth;
};

enum ReferenceTag : uint8_t {
    TagNil = 0,
    TagBackReference = 1,
    TagNewObject = 2,
    TagDeclaredObject = 3 // a new object whose guts come later
};

} // namespace

class RWSaveContext : public ContextBase {
public:
    void forget(const RWCollectable* object) noexcept override {
        uint32_t index;
        m_indexOf.erase(object, index);
    }

    // The index of `object` when it was written earlier in this store.
    const uint32_t* find(const RWCollectable* object) const { return m_indexOf.find(object); }
    void add(const RWCollectable* object) {
        if (m_next == std::numeric_limits<uint32_t>::max())
            SgxException::raise("Too many objects in one store");
        m_indexOf.insert(object, m_next++);
    }

    unsigned depth = 0;
    // Objects declared with their guts deferred, in declaration order; those before `nextDeferred`
    // are written.
    std::vector<const RWCollectable*> deferred;
    size_t nextDeferred = 0;

private:
    SgxPointerIndex m_indexOf;
    uint32_t m_next = 0;
};

class RWRestoreContext : public ContextBase {
public:
    void forget(const RWCollectable* object) noexcept override {
        uint32_t index;
        if (m_indexOf.erase(object, index))
            m_objects[index].object = nullptr;
    }

    void adopt(const RWCollectable* object, const RWCollectable* owner) override {
        const uint32_t* found = m_indexOf.find(object);
        if (found == nullptr)
            return;
        const uint32_t index = *found;
        Entry& entry = m_objects[index];
        // The object restored into belongs to the caller; one still being read must outlive
        // its read, which nobody outside the data would wait for.
        if (!entry.created)
            SgxException::raise("Object " + std::to_string(index) +
                                " of the data is the object restored into, which nothing in it may "
                                "own");
        if (owner == nullptr && entry.reading)
            SgxException::raise("Object " + std::to_string(index) +
                                " of the data is claimed while it is still being read");
        if (entry.adopted)
            SgxException::raise("Object " + std::to_string(index) +
                                " of the data is claimed by two owners");
        uint32_t ownerIndex = NoOwner;
        if (const uint32_t* byOwner = m_indexOf.find(owner); owner != nullptr && byOwner != nullptr)
            ownerIndex = *byOwner;
        // Adoptions so far form a forest, so this walk up from the owner ends.
        for (uint32_t i = ownerIndex; i != NoOwner; i = m_objects[i].owner)
            if (i == index)
                SgxException::raise("Object " + std::to_string(index) +
                                    " of the data would own itself");
        entry.adopted = true;
        entry.owner = ownerIndex;
    }

    size_t size() const { return m_objects.size(); }
    // Marks the object read with `index` as being read (or no longer).
    void setReading(size_t index, bool reading) { m_objects[index].reading = reading; }
    // The object read with `index`; null when it has been deleted since or was read in place.
    RWCollectable* at(size_t index) const { return m_objects[index].object; }
    bool readInPlace(size_t index) const { return m_objects[index].inPlace; }

    // Takes the next number for an object read in place: nothing is made, so nothing is owned,
    // and a back-reference to the number finds no object.
    void addInPlace() { m_objects.push_back(Entry{nullptr, NoOwner, false, false, false, true}); }

    // Enters a new object; when `created`, the context owns it until it is adopted (and deletes
    // it here if entering fails).
    void add(RWCollectable* object, bool created) {
        std::unique_ptr<RWCollectable> owner(created ? object : nullptr);
        m_objects.push_back(Entry{object, NoOwner, created, false, false, false});
        try {
            m_indexOf.insert(object, static_cast<uint32_t>(m_objects.size() - 1));
        } catch (...) {
            m_objects.pop_back();
            throw;
        }
        owner.release();
    }

    // Deletes every object this restore created that nobody adopted. Deleting one object may
    // delete others (those it adopted); forget() clears their entries before the loop gets there.
    void releaseAfterFailure() noexcept {
        for (Entry& entry : m_objects) {
            RWCollectable* object = entry.object;
            if (object == nullptr || !entry.created || entry.adopted)
                continue;
            forget(object);
            delete object;
        }
    }

    // The class registered under `name` (its create function and id), or null. The few classes
    // of a restore are looked up in the factory once each, then found here by a short scan.
    const FactoryEntry* entryOf(std::string_view name) {
        // Records come in runs of one class (the elements of a list): try the last one first.
        if (m_lastCreator < m_creators.size() && m_creators[m_lastCreator].first == name)
            return &m_creators[m_lastCreator].second;
        for (size_t i = 0; i < m_creators.size(); ++i)
            if (m_creators[i].first == name) {
                m_lastCreator = i;
                return &m_creators[i].second;
            }
        const auto found = factory().byName.find(RWStringID(name));
        if (found == factory().byName.end())
            return nullptr;
        const FactoryEntry* entry = findEntry(found->second);
        if (entry == nullptr || m_creators.size() >= 16)
            return entry;
        m_creators.emplace_back(name, *entry);
        return &m_creators.back().second;
    }

    unsigned depth = 0;
    // The class name being read; a buffer kept across objects.
    RWStringID className;
    // Indexes of the objects declared with their guts deferred, in declaration order; those
    // before `nextDeferred` are read.
    std::vector<uint32_t> deferred;
    size_t nextDeferred = 0;

private:
    static constexpr uint32_t NoOwner = std::numeric_limits<uint32_t>::max();
    struct Entry {
        RWCollectable* object;
        uint32_t owner; // index of the adopting object, NoOwner when none or outside the data
        bool created;
        bool adopted;
        bool reading; // its restoreGuts is running
        bool inPlace; // read without an object (rwRestoreInPlace)
    };
    std::vector<Entry> m_objects;
    // Entered once per object and searched for objects it holds (adoptions): see Placement.
    SgxPointerIndex m_indexOf{SgxPointerIndex::Placement::ByPage};
    // The classes met so far (at most 16), with their factory entries.
    std::vector<std::pair<RWStringID, FactoryEntry>> m_creators;
    size_t m_lastCreator = 0;
};

namespace {

void writeReference(RWvostream& stream, RWSaveContext& context, const RWCollectable* object) {
    if (object == nullptr) {
        stream << uint8_t{TagNil};
        return;
    }
    if (const uint32_t* index = context.find(object)) {
        stream << uint8_t{TagBackReference} << *index;
        return;
    }
    const FactoryEntry* entry = findEntry(object->isA());
    if (entry == nullptr)
        SgxException::raise("Cannot store an object of class id " + std::to_string(object->isA()) +
                            ": the class is not registered");
    if (context.depth >= RWMaxNestingDepth)
        SgxException::raise("Cannot store objects nested deeper than " +
                            std::to_string(RWMaxNestingDepth));
    context.add(object);
    if (context.depth >= RWDeferredGutsDepth && object->canDeferGuts()) {
        stream << uint8_t{TagDeclaredObject} << entry->name;
        context.deferred.push_back(object);
        return;
    }
    stream << uint8_t{TagNewObject} << entry->name;
    DepthGuard nested(context.depth);
    object->saveGuts(stream);
}

// Writes the deferred guts in declaration order, each at the depth of an outermost object's
// guts; guts written here may defer more, which the loop reaches too.
void writeDeferred(RWvostream& stream, RWSaveContext& context) {
    const unsigned depth = context.depth;
    context.depth = 0;
    try {
        while (context.nextDeferred < context.deferred.size()) {
            const RWCollectable* object = context.deferred[context.nextDeferred++];
            DepthGuard nested(context.depth);
            object->saveGuts(stream);
        }
    } catch (...) {
        context.depth = depth;
        throw;
    }
    context.depth = depth;
}

void saveReference(RWvostream& stream, const RWCollectable* object) {
    RWSaveContext*& slot = RWStreamAccess::context(stream);
    if (slot != nullptr) {
        writeReference(stream, *slot, object);
        return;
    }
    RWSaveContext context;
    slot = &context;
    ContextSlotReset<RWSaveContext> reset{slot};
    writeReference(stream, context, object);
    writeDeferred(stream, context);
}

// A request to read a new object of class `id` without making it (rwRestoreInPlace); `done`
// tells whether the reference was one.
struct InPlaceRead {
    RWClassID id;
    void (*readGuts)(RWvistream&, void*);
    void* state;
    bool done = false;
};

// Reads one reference. With a `target`, the reference must be a new object of the target's class,
// restored into the target. With an `inPlace` request, a new object of its class is read by the
// request instead of being made.
// Offsets for messages are worked out from the bytes read so far only when a message is made.
RWCollectable* readReference(RWvistream& stream, RWRestoreContext& context, RWCollectable* target,
                             InPlaceRead* inPlace = nullptr) {
    uint8_t tag;
    stream >> tag;
    if (tag == TagNil || tag == TagBackReference) {
        if (target != nullptr)
            RWvistream::raiseFormatError("Expected a new object of class \"" + target->stringID() +
                                             "\", found a " + (tag == TagNil ? "nil" : "back-") +
                                             "reference",
                                         stream.offset() - 1);
        if (tag == TagNil)
            return nullptr;
        uint32_t index;
        stream >> index;
        if (index >= context.size())
            RWvistream::raiseFormatError("Back-reference to object " + std::to_string(index) +
                                             " when " + std::to_string(context.size()) +
                                             " objects have been read",
                                         stream.offset() - 5);
        RWCollectable* object = context.at(index);
        if (object == nullptr)
            RWvistream::raiseFormatError("Back-reference to object " + std::to_string(index) +
                                             (context.readInPlace(index)
                                                  ? ", which was read in place and is not kept"
                                                  : ", which no longer exists"),
                                         stream.offset() - 5);
        return object;
    }
    if (tag != TagNewObject && tag != TagDeclaredObject)
        RWvistream::raiseFormatError("Invalid reference tag " + std::to_string(tag),
                                     stream.offset() - 1);
    if (tag == TagDeclaredObject && target != nullptr)
        RWvistream::raiseFormatError("Expected a new object of class \"" + target->stringID() +
                                         "\", found a declaration",
                                     stream.offset() - 1);

    uint32_t nameLength;
    stream >> nameLength;
    if (nameLength > RWMaxClassNameLength)
        RWvistream::raiseFormatError("Class name of " + std::to_string(nameLength) +
                                         " bytes is longer than " +
                                         std::to_string(RWMaxClassNameLength),
                                     stream.offset() - 4);
    // Seen where it lies when the stream is in memory, else read into the context's buffer: no
    // allocation per object either way.
    std::string_view name;
    if (const char* bytes = RWStreamAccess::take(stream, nameLength)) {
        name = std::string_view(bytes, nameLength);
    } else {
        stream.checkCount(nameLength, 1, "class name bytes");
        context.className.resize(nameLength);
        stream.get(context.className.data(), nameLength);
        name = context.className;
    }
    const uint64_t referenceBytes = 1 + 4 + uint64_t{nameLength};
    if (context.depth >= RWMaxNestingDepth)
        RWvistream::raiseFormatError("Objects nested deeper than " +
                                         std::to_string(RWMaxNestingDepth),
                                     stream.offset() - referenceBytes);

    RWCollectable* object = target;
    if (target != nullptr) {
        if (name != std::string_view(target->stringID()))
            RWvistream::raiseFormatError("Expected an object of class \"" + target->stringID() +
                                             "\", found \"" + SgxString(name) + "\"",
                                         stream.offset() - referenceBytes + 1);
        context.add(target, false);
    } else {
        const FactoryEntry* entry = context.entryOf(name);
        if (entry != nullptr && inPlace != nullptr && tag == TagNewObject &&
            entry->id == inPlace->id) {
            context.addInPlace();
            inPlace->done = true;
            DepthGuard nested(context.depth);
            inPlace->readGuts(stream, inPlace->state);
            return nullptr;
        }
        object = entry != nullptr ? entry->create() : nullptr;
        if (object == nullptr)
            RWvistream::raiseFormatError("Unknown class \"" + SgxString(name) + "\"",
                                         stream.offset() - referenceBytes + 1);
        context.add(object, true);
    }
    if (tag == TagDeclaredObject) {
        // Only a class that allows it may arrive without its guts: any other would be read by
        // its holder before it has them.
        if (!object->canDeferGuts())
            RWvistream::raiseFormatError("Class \"" + SgxString(name) +
                                             "\" cannot be declared ahead",
                                         stream.offset() - referenceBytes + 1);
        context.deferred.push_back(static_cast<uint32_t>(context.size() - 1));
        return object;
    }
    DepthGuard nested(context.depth);
    ReadingGuard<RWRestoreContext> reading(context, context.size() - 1);
    object->restoreGuts(stream);
    return object;
}

// Reads the deferred guts in declaration order; see writeDeferred.
void readDeferred(RWvistream& stream, RWRestoreContext& context) {
    const unsigned depth = context.depth;
    context.depth = 0;
    try {
        while (context.nextDeferred < context.deferred.size()) {
            const uint32_t index = context.deferred[context.nextDeferred++];
            RWCollectable* object = context.at(index);
            if (object == nullptr)
                stream.raiseFormatError("Guts of object " + std::to_string(index) +
                                        ", which no longer exists");
            DepthGuard nested(context.depth);
            ReadingGuard<RWRestoreContext> reading(context, index);
            object->restoreGuts(stream);
        }
    } catch (...) {
        context.depth = depth;
        throw;
    }
    context.depth = depth;
}

RWCollectable* restoreReference(RWvistream& stream, RWCollectable* target,
                                InPlaceRead* inPlace = nullptr) {
    RWRestoreContext*& slot = RWStreamAccess::context(stream);
    if (slot != nullptr)
        return readReference(stream, *slot, target, inPlace);
    RWRestoreContext context;
    slot = &context;
    ContextSlotReset<RWRestoreContext> reset{slot};
    try {
        RWCollectable* object = readReference(stream, context, target, inPlace);
        readDeferred(stream, context);
        return object;
    } catch (...) {
        context.releaseAfterFailure();
        throw;
    }
}

} // namespace

void rwSaveDeferredGuts(RWvostream& stream) {
    if (RWSaveContext* context = RWStreamAccess::context(stream))
        writeDeferred(stream, *context);
}

void rwRestoreDeferredGuts(RWvistream& stream) {
    if (RWRestoreContext* context = RWStreamAccess::context(stream))
        readDeferred(stream, *context);
}

RWCollectable* rwRestoreInPlace(RWvistream& stream, RWClassID id,
                                void (*readGuts)(RWvistream&, void*), void* state,
                                bool& readInPlace) {
    InPlaceRead request{id, readGuts, state};
    RWCollectable* object = restoreReference(stream, nullptr, &request);
    readInPlace = request.done;
    return object;
}

void rwAdopt(const RWCollectable* object, const RWCollectable* owner) {
    if (object == nullptr)
        return;
    for (ContextBase* context = t_innermost; context != nullptr; context = context->outer())
        context->adopt(object, owner);
}

// ---------------------------------------------------------------------------------------------
// RWCollectable

RWCollectable::~RWCollectable() {
    for (ContextBase* context = t_innermost; context != nullptr; context = context->outer())
        context->forget(this);
}

RWCollectable* RWCollectable::newSpecies() const { return rwCreateFromFactory(isA()); }

RWCollectable* RWCollectable::copy() const {
    SgxException::raise("copy() is not available for class \"" + stringID() + "\"");
}

RWClassID RWCollectable::isA() const { return classIsA(); }

RWspace RWCollectable::binaryStoreSize() const {
    // Measured by writing, so the size can never disagree with what saveGuts writes. The object
    // is entered first, as a store would have entered it, so references to it count as
    // back-references.
    RWCountingOStream counter;
    RWSaveContext context;
    RWSaveContext*& slot = RWStreamAccess::context(counter);
    slot = &context;
    ContextSlotReset<RWSaveContext> reset{slot};
    context.add(this);
    {
        DepthGuard nested(context.depth);
        saveGuts(counter);
    }
    writeDeferred(counter, context);
    return counter.offset();
}

int RWCollectable::compareTo(const RWCollectable* other) const {
    const std::less<const RWCollectable*> before;
    return before(this, other) ? -1 : before(other, this) ? 1 : 0;
}

unsigned RWCollectable::hash() const {
    return static_cast<unsigned>(std::hash<const RWCollectable*>()(this));
}

bool RWCollectable::isEqual(const RWCollectable* other) const { return this == other; }

void RWCollectable::restoreGuts(RWvistream&) {}

void RWCollectable::restoreGuts(RWFile& file) {
    RWFileIStream stream(file);
    restoreGuts(stream);
}

void RWCollectable::saveGuts(RWvostream&) const {}

void RWCollectable::saveGuts(RWFile& file) const {
    RWFileOStream stream(file);
    saveGuts(stream);
}

RWClassID RWCollectable::nextAtom() {
    if (g_nextAtom > std::numeric_limits<RWClassID>::max())
        SgxException::raise("No class ids left");
    return static_cast<RWClassID>(g_nextAtom++);
}

RWStringID RWCollectable::stringID() const { return rwClassName(isA()); }

void RWCollectable::recursiveSaveOn(RWvostream& stream) const { saveReference(stream, this); }

void RWCollectable::recursiveSaveOn(RWFile& file) const {
    RWFileOStream stream(file);
    saveReference(stream, this);
}

RWspace RWCollectable::recursiveStoreSize() const {
    RWCountingOStream counter;
    saveReference(counter, this);
    return counter.offset();
}

void RWCollectable::recursiveRestoreFrom(RWvistream& stream) { restoreReference(stream, this); }

void RWCollectable::recursiveRestoreFrom(RWFile& file) {
    RWFileIStream stream(file);
    restoreReference(stream, this);
}

// ---------------------------------------------------------------------------------------------
// Reference operators

RWvostream& operator<<(RWvostream& stream, const RWCollectable* object) {
    saveReference(stream, object);
    return stream;
}

RWvostream& operator<<(RWvostream& stream, const RWCollectable& object) {
    return stream << &object;
}

RWFile& operator<<(RWFile& file, const RWCollectable* object) {
    RWFileOStream stream(file);
    saveReference(stream, object);
    return file;
}

RWFile& operator<<(RWFile& file, const RWCollectable& object) { return file << &object; }

RWvistream& operator>>(RWvistream& stream, RWCollectable*& object) {
    object = restoreReference(stream, nullptr);
    return stream;
}

RWFile& operator>>(RWFile& file, RWCollectable*& object) {
    RWFileIStream stream(file);
    object = restoreReference(stream, nullptr);
    return file;
}
