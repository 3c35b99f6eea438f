// Reads XMI model files into objects. The file is streamed: objects, attribute values and
// containment links are made as their elements arrive, so memory holds the model plus the
// references still to resolve (one record per reference), never the file's text. References are
// resolved by finish(), once every document they may name has been read.
#include "tarnel/import/internal/TNEcoreModel.h"
#include "tarnel/import/internal/TNXmlReader.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <unordered_set>

namespace fs = std::filesystem;
using namespace tn_import;

namespace {

std::string_view prefixOf(std::string_view qname) {
    const size_t colon = qname.find(':');
    return colon == std::string_view::npos ? std::string_view() : qname.substr(0, colon);
}

std::string_view localOf(std::string_view qname) {
    const size_t colon = qname.find(':');
    return colon == std::string_view::npos ? qname : qname.substr(colon + 1);
}

bool isBlank(std::string_view text) {
    for (char c : text)
        if (!std::isspace(static_cast<unsigned char>(c)))
            return false;
    return true;
}

std::string canonicalPath(const std::string& path) {
    std::error_code ec;
    const fs::path p = fs::weakly_canonical(fs::path(path), ec);
    return ec ? path : p.string();
}

// Names to values, built once from the metamodel and then only read. The reader looks up every
// element and attribute name of a file in one of these, so a look-up is a word-wise hash and
// one or two compares in a flat array, not a byte-wise hash and a walk of nodes. Keys borrow
// texts that outlive the table (the metamodel's). Its size follows the metamodel, never the
// file, so no input can make a look-up long.
template <class T> class NameTable {
public:
    void insert(std::string_view key, T value) {
        if ((m_count + 1) * 2 > m_slots.size())
            rehash(m_slots.empty() ? 16 : m_slots.size() * 2);
        place(key, std::move(value));
        ++m_count;
    }
    const T* find(std::string_view key) const {
        if (m_count == 0)
            return nullptr;
        for (size_t i = hash(key) & m_mask;; i = (i + 1) & m_mask) {
            const Slot& slot = m_slots[i];
            if (!slot.used)
                return nullptr;
            if (slot.key == key)
                return &slot.value;
        }
    }

private:
    struct Slot {
        std::string_view key;
        T value{};
        bool used = false;
    };
    static size_t hash(std::string_view key) {
        constexpr uint64_t mix = 0x9E3779B97F4A7C15ull;
        uint64_t h = key.size() * mix;
        size_t i = 0;
        for (; i + 8 <= key.size(); i += 8) {
            uint64_t word;
            std::memcpy(&word, key.data() + i, 8);
            h = (h ^ word) * mix;
            h ^= h >> 29;
        }
        // The last 0 to 7 bytes in at most two loads (overlapping when fewer than 8), not a
        // loop: most names are that short. The length is in `h`, so the overlap is harmless.
        const char* rest = key.data() + i;
        const size_t left = key.size() - i;
        uint64_t tail = 0;
        if (left >= 4) {
            uint32_t first, last;
            std::memcpy(&first, rest, 4);
            std::memcpy(&last, rest + left - 4, 4);
            tail = uint64_t(first) << 32 | last;
        } else if (left > 0) {
            const auto byte = [&](size_t k) {
                return uint64_t(static_cast<unsigned char>(rest[k]));
            };
            tail = byte(0) << 16 | byte(left / 2) << 8 | byte(left - 1);
        }
        h = (h ^ tail) * mix;
        return static_cast<size_t>(h ^ (h >> 32));
    }
    void place(std::string_view key, T value) {
        size_t i = hash(key) & m_mask;
        while (m_slots[i].used)
            i = (i + 1) & m_mask;
        m_slots[i] = Slot{key, std::move(value), true};
    }
    void rehash(size_t size) {
        std::vector<Slot> old = std::move(m_slots);
        m_slots.assign(size, Slot{});
        m_mask = size - 1;
        for (Slot& slot : old)
            if (slot.used)
                place(slot.key, std::move(slot.value));
    }

    std::vector<Slot> m_slots;
    size_t m_mask = 0;
    size_t m_count = 0;
};

// Copies of texts a read keeps (xmi:ids, references), packed in large blocks: one allocation
// per block instead of one per text, and no per-text header.
class TextArena {
public:
    std::string_view keep(std::string_view text) {
        if (text.empty())
            return {};
        if (text.size() > m_left) {
            const size_t size = std::max(blockSize, text.size());
            m_blocks.push_back(std::make_unique<char[]>(size));
            m_next = m_blocks.back().get();
            m_left = size;
        }
        std::memcpy(m_next, text.data(), text.size());
        const std::string_view kept(m_next, text.size());
        m_next += text.size();
        m_left -= text.size();
        return kept;
    }
    void clear() {
        m_blocks.clear();
        m_next = nullptr;
        m_left = 0;
    }

private:
    static constexpr size_t blockSize = 1 << 16;
    std::vector<std::unique_ptr<char[]>> m_blocks;
    char* m_next = nullptr;
    size_t m_left = 0;
};

// The objects of a document by xmi:id: a flat table (a key and a pointer per slot, half full at
// most) over texts kept in an arena.
class IdTable {
public:
    // False when `id` is already taken.
    bool insert(std::string_view id, TNObject* object, TextArena& texts) {
        if ((m_count + 1) * 2 > m_slots.size())
            rehash(m_slots.empty() ? 64 : m_slots.size() * 2);
        Slot& slot = m_slots[indexOf(id)];
        if (slot.object)
            return false;
        slot = Slot{texts.keep(id), object};
        ++m_count;
        return true;
    }
    TNObject* find(std::string_view id) const {
        return m_slots.empty() ? nullptr : m_slots[indexOf(id)].object;
    }

private:
    struct Slot {
        std::string_view id;
        TNObject* object = nullptr;
    };
    // The slot of `id`, or the empty one where it would go.
    size_t indexOf(std::string_view id) const {
        const size_t mask = m_slots.size() - 1;
        for (size_t i = std::hash<std::string_view>{}(id)&mask;; i = (i + 1) & mask)
            if (!m_slots[i].object || m_slots[i].id == id)
                return i;
    }
    void rehash(size_t size) {
        std::vector<Slot> old = std::move(m_slots);
        m_slots.assign(size, Slot{});
        for (const Slot& slot : old)
            if (slot.object)
                m_slots[indexOf(slot.id)] = slot;
    }

    std::vector<Slot> m_slots;
    size_t m_count = 0;
};

struct Document {
    std::string path;
    std::string canonical;
    std::vector<SgxSimplePtr<TNObject>> roots;
    IdTable ids;
    std::vector<std::string> nsURIs; // the nsURI attributes of its root objects
};

// A reference met in a file, resolved by finish(); the target text is kept in an arena.
struct Pending {
    TNObject* source;
    const Feature* feature;
    uint32_t document;
    uint64_t line;
    uint64_t column;
    std::string_view target;
};

struct PairHash {
    size_t operator()(const std::tuple<const void*, const void*, const void*>& t) const noexcept {
        const auto h = [](const void* p) { return std::hash<const void*>{}(p); };
        return h(std::get<0>(t)) * 31 + h(std::get<1>(t)) * 17 + h(std::get<2>(t));
    }
};

} // namespace

struct TNXmiImporter::Impl {
    const TNEcoreMetamodel::Impl& mm;
    TNImportLimits limits;
    std::vector<Document> documents;
    std::vector<Pending> pending;
    TextArena idTexts;      // the xmi:ids of every document read
    TextArena pendingTexts; // the targets of `pending`
    uint64_t objects = 0;
    std::unordered_map<const TNClass*, const Classifier*> classifierOf;

    struct ClassInfo;
    // A feature as objects of one class reach it: resolved once per class, since inherited
    // copies sit at positions of each class's own.
    struct Binding {
        const Feature* feature = nullptr;
        const TNAttrDesc* desc = nullptr;     // attributes
        const TNAssociation* assoc = nullptr; // references
        const ClassInfo* typeInfo = nullptr;  // containments: the class of an untyped element
        const NameTable<int32_t>* literals = nullptr; // enumerations: literal text to index
    };
    struct ClassInfo {
        const Classifier* cls = nullptr;
        TNClass* tnClass = nullptr;
        NameTable<Binding> features; // own and inherited, by Ecore name
        std::vector<const Binding*> defaults;
    };
    // Node-based: bindings and frames point at the infos.
    std::unordered_map<const Classifier*, ClassInfo> infos;
    std::unordered_map<const Classifier*, NameTable<int32_t>> literalTables;

    Impl(const TNEcoreMetamodel::Impl& metamodel, const TNImportLimits& l)
        : mm(metamodel), limits(l) {
        for (const auto& c : mm.classifiers) {
            if (c->kind == Classifier::Enumeration) {
                NameTable<int32_t>& table = literalTables[c.get()];
                for (const auto& [text, index] : c->literalIndex)
                    table.insert(text, index);
            } else if (c->kind == Classifier::Class) {
                classifierOf.emplace(c->tnClass.get(), c.get());
                ClassInfo& info = infos[c.get()];
                info.cls = c.get();
                info.tnClass = c->tnClass.get();
            }
        }
        for (auto& [c, info] : infos) {
            const TNClass& cls = *info.tnClass;
            for (const auto& [name, f] : c->allFeatures) {
                Binding b;
                b.feature = f;
                if (f->isReference) {
                    b.assoc = cls.getAssociation(name).get();
                    if (const auto type = infos.find(f->type);
                        f->containment && type != infos.end())
                        b.typeInfo = &type->second;
                } else {
                    b.desc = &cls[name];
                    if (const auto type = literalTables.find(f->type); type != literalTables.end())
                        b.literals = &type->second;
                }
                info.features.insert(name, b);
            }
            for (const Feature* f : c->defaults)
                info.defaults.push_back(info.features.find(f->name));
        }
    }

    const Classifier& classOf(const TNObject& object) const {
        return *classifierOf.at(object.getClass().get());
    }

    const ClassInfo& info(const Classifier& cls) const { return infos.at(&cls); }
    const TNAssociation& assocFor(const Classifier& cls, const Feature& f) const {
        return *info(cls).features.find(f.name)->assoc;
    }

    void finish();
    TNObject* resolve(const Pending& p);
    TNObject* walk(const Document& d, std::string_view fragment, const Pending& p);
    [[noreturn]] void fail(const Pending& p, const std::string& message) const {
        throw TNImportError(documents[p.document].path, p.line, p.column, message);
    }
};

namespace {

using Binding = TNXmiImporter::Impl::Binding;
using ClassInfo = TNXmiImporter::Impl::ClassInfo;

// Parses `text` into the slot of `b`; false when it does not fit.
bool assign(TNAttribute& slot, const Binding& b, std::string_view text) {
    if (b.literals) {
        const int32_t* index = b.literals->find(text);
        if (!index)
            return false;
        slot = static_cast<int>(*index);
        return true;
    }
    return assignValue(slot, b.feature->valueKind, b.feature->type, text);
}

// Whether an attribute name is one of the XML and XMI attributes that carry no feature.
bool isReserved(const char* name) {
    return name[0] == 'x' &&
           (std::strncmp(name, "xmlns", 5) == 0 || std::strncmp(name, "xmi:", 4) == 0 ||
            std::strncmp(name, "xsi:", 4) == 0);
}

class ModelReader : public XmlHandler {
public:
    ModelReader(TNXmiImporter::Impl& importer, uint32_t document)
        : m(importer), m_document(document), m_doc(importer.documents[document]) {}
    XmlReader* reader = nullptr;

    void startElement(const char* qname, const char* const* attributes) override {
        // Frames are kept for reuse (their texts keep their capacity): reserve this one before
        // taking references to the parent.
        if (m_top == m_frames.size())
            m_frames.emplace_back();
        Frame& frame = m_frames[m_top];
        const Frame* parent = m_top == 0 ? nullptr : &m_frames[m_top - 1];
        frame.nsMark = static_cast<uint32_t>(m_namespaces.size());
        bool typed = false;
        for (const char* const* a = attributes; *a; a += 2) {
            if (a[0][0] != 'x')
                continue;
            const std::string_view key = a[0];
            if (key == "xmlns")
                m_namespaces.emplace_back("", a[1]);
            else if (key.starts_with("xmlns:"))
                m_namespaces.emplace_back(key.substr(6), a[1]);
            else if (key == "xsi:type" || key == "xmi:type")
                typed = true;
        }
        frame.kind = Frame::Skip;
        frame.object = nullptr;
        frame.info = nullptr;
        frame.binding = nullptr;
        frame.text.clear();
        frame.many.clear();
        const std::string_view name = qname;
        if (!parent || parent->kind == Frame::Wrapper) {
            if (isXmiNamespace(prefixOf(name))) {
                frame.kind = !parent && localOf(name) == "XMI" ? Frame::Wrapper : Frame::Skip;
            } else {
                const ClassInfo& info = classFor(name, attributes, typed, nullptr);
                makeObject(info, attributes, frame);
                m_doc.roots.push_back(frame.object);
            }
        } else if (parent->kind == Frame::Object) {
            const ClassInfo& owner = *parent->info;
            const Binding* found = owner.features.find(localOf(name));
            if (!found) {
                if (!isXmiNamespace(prefixOf(name)))
                    reader->fail("class '" + owner.cls->tnName + "' has no feature '" +
                                 std::string(name) + "'");
            } else {
                const Feature& f = *found->feature;
                frame.binding = found;
                if (f.containment) {
                    const ClassInfo& info = classFor({}, attributes, typed, found);
                    TNObject* container = parent->object;
                    makeObject(info, attributes, frame);
                    container->associate(frame.object, *found->assoc);
                } else if (f.isReference) {
                    frame.object = parent->object;
                    if (!isContainerEnd(f)) {
                        frame.kind = Frame::Reference;
                        frame.line = reader->line();
                        frame.column = reader->column();
                        for (const char* const* a = attributes; *a; a += 2)
                            if (std::strcmp(a[0], "href") == 0)
                                addPending(parent->object, f, a[1], frame.line, frame.column);
                    }
                } else {
                    frame.kind = Frame::Value;
                    frame.object = parent->object;
                    frame.line = reader->line();
                    frame.column = reader->column();
                }
            }
        } else if (parent->kind != Frame::Skip) {
            reader->fail("element '" + std::string(name) + "' inside a value");
        }
        ++m_top;
    }

    void endElement() override {
        Frame& frame = m_frames[m_top - 1];
        if (frame.kind == Frame::Object) {
            // Many-valued attributes gather their values while the element is open (one
            // assignment each, not one per value).
            for (auto& [b, text] : frame.many)
                (*frame.object)[*b->desc] = std::string_view(text);
        } else if (frame.kind == Frame::Value && frame.binding->feature->many) {
            m_frames[m_top - 2].addValue(*frame.binding, frame.text);
        } else if (frame.kind == Frame::Value) {
            if (!assign((*frame.object)[*frame.binding->desc], *frame.binding, frame.text))
                throw TNImportError(reader->fileName(), frame.line, frame.column,
                                    notFitting(*frame.binding, frame.text));
        } else if (frame.kind == Frame::Reference) {
            for (const std::string& token : referenceList(frame.text))
                addPending(frame.object, *frame.binding->feature, token, frame.line, frame.column);
        }
        // A reused frame keeps a text's capacity, but not that of one long value.
        if (frame.text.capacity() > (size_t(1) << 16))
            std::string().swap(frame.text);
        m_namespaces.resize(frame.nsMark);
        --m_top;
    }

    void text(std::string_view chars) override {
        if (m_top == 0)
            return;
        Frame& frame = m_frames[m_top - 1];
        if (frame.kind == Frame::Value || frame.kind == Frame::Reference)
            frame.text.append(chars);
        else if (frame.kind == Frame::Object && !isBlank(chars))
            reader->fail("text inside the element of a '" + frame.info->cls->tnName + "'");
    }

private:
    struct Frame {
        enum Kind : uint8_t { Wrapper, Object, Value, Reference, Skip } kind = Skip;
        uint32_t nsMark = 0; // the namespaces declared outside the element
        TNObject* object = nullptr;
        const ClassInfo* info = nullptr; // objects
        const Binding* binding = nullptr;
        uint64_t line = 0; // values and references: where the element starts
        uint64_t column = 0;
        std::string text;
        // objects: the values of many-valued attributes, one per line
        std::vector<std::pair<const Binding*, std::string>> many;

        void addValue(const Binding& b, std::string_view value) {
            for (auto& [bound, text] : many)
                if (bound == &b) {
                    (text += '\n') += value;
                    return;
                }
            many.emplace_back(&b, std::string(value));
        }
    };

    // The value of a container end is implied by the nesting of the element in its container.
    static bool isContainerEnd(const Feature& f) { return f.opposite && f.opposite->containment; }

    static std::string notFitting(const Binding& b, std::string_view text) {
        const Feature& f = *b.feature;
        return "value '" + std::string(text) + "' does not fit attribute '" + f.name + "' of '" +
               f.owner->tnName + "'";
    }

    std::string_view uriOf(std::string_view prefix) const {
        for (auto it = m_namespaces.rbegin(); it != m_namespaces.rend(); ++it)
            if (it->first == prefix)
                return it->second;
        reader->fail("undeclared namespace prefix '" + std::string(prefix) + "'");
    }

    bool isXmiNamespace(std::string_view prefix) const {
        if (prefix.empty())
            return false;
        for (auto it = m_namespaces.rbegin(); it != m_namespaces.rend(); ++it)
            if (it->first == prefix)
                return it->second.starts_with("http://www.omg.org/");
        return false;
    }

    const Classifier& classByQName(std::string_view qname) const {
        const std::string_view uri = uriOf(prefixOf(qname));
        const Classifier* cls = m.mm.findClass(uri, localOf(qname));
        if (!cls)
            reader->fail("unknown class '" + std::string(localOf(qname)) + "' of namespace '" +
                         std::string(uri) + "'");
        return *cls;
    }

    // The class of an object element: its xsi:type, else the element's own name (a root) or the
    // containment's type; it must fit the containment and be concrete.
    const ClassInfo& classFor(std::string_view elementName, const char* const* attributes,
                              bool typed, const Binding* containment) const {
        const ClassInfo* info = containment ? containment->typeInfo : nullptr;
        const Classifier* cls = containment ? containment->feature->type : nullptr;
        if (typed) {
            for (const char* const* a = attributes; *a; a += 2)
                if (std::strcmp(a[0], "xsi:type") == 0 || std::strcmp(a[0], "xmi:type") == 0)
                    cls = &classByQName(a[1]);
            info = &m.info(*cls);
        } else if (!containment) {
            cls = &classByQName(elementName);
            info = &m.info(*cls);
        }
        const Feature* f = containment ? containment->feature : nullptr;
        if (f && !cls->conformsTo(f->type))
            reader->fail("'" + cls->tnName + "' is not a '" + f->type->tnName + "', which '" +
                         f->name + "' contains");
        if (cls->isAbstract || cls->isInterface)
            reader->fail("class '" + cls->tnName + "' is abstract: give a concrete xsi:type");
        if (!info)
            reader->fail("'" + cls->tnName + "' is not a class that objects can be made of");
        return *info;
    }

    // Makes the object of `here` (an element of the class of `info`), with its defaults and the
    // values and references of its XML attributes. Errors here are at the element's start, where
    // the reader stands.
    void makeObject(const ClassInfo& info, const char* const* attributes, Frame& here) {
        TNObject* object = info.tnClass->newObject(false).get();
        ++m.objects;
        here.kind = Frame::Object;
        here.object = object;
        here.info = &info;
        for (const Binding* b : info.defaults)
            assign((*object)[*b->desc], *b, b->feature->defaultLiteral);
        for (const char* const* a = attributes; *a; a += 2) {
            const char* key = a[0];
            if (isReserved(key)) {
                if (std::strcmp(key, "xmi:id") == 0 && !m_doc.ids.insert(a[1], object, m.idTexts))
                    reader->fail("xmi:id '" + std::string(a[1]) + "' is used twice");
                continue;
            }
            const Binding* b = bindingOf(info, key);
            if (!b)
                reader->fail("class '" + info.cls->tnName + "' has no feature '" +
                             std::string(key) + "'");
            const Feature& f = *b->feature;
            const std::string_view value = a[1];
            if (b->desc && !f.many) {
                if (!assign((*object)[*b->desc], *b, value))
                    reader->fail(notFitting(*b, value));
            } else if (f.containment) {
                reader->fail("containment '" + f.name + "' given as an XML attribute");
            } else if (f.isReference) {
                if (!isContainerEnd(f)) {
                    const uint64_t line = reader->line(), column = reader->column();
                    for (const std::string& token : referenceList(value))
                        addPending(object, f, token, line, column);
                }
            } else {
                forEachToken(value, [&](std::string_view token) { here.addValue(*b, token); });
            }
        }
    }

    // The binding of attribute `name` in objects of `info`, or null. The reader hands every
    // attribute name as the same text of its own for the whole document, so a small cache keyed
    // by the text's address and the class usually answers; a hit is still checked by content, so
    // the cache is only ever a shortcut.
    const Binding* bindingOf(const ClassInfo& info, const char* name) {
        const auto slot =
            (reinterpret_cast<uintptr_t>(name) ^ reinterpret_cast<uintptr_t>(&info) >> 4) %
            std::size(m_recent);
        Recent& recent = m_recent[slot];
        if (recent.name == name && recent.info == &info &&
            std::strcmp(name, recent.binding->feature->name.c_str()) == 0)
            return recent.binding;
        const Binding* b = info.features.find(name);
        if (b)
            recent = Recent{name, &info, b};
        return b;
    }

    void addPending(TNObject* source, const Feature& f, std::string_view target, uint64_t line,
                    uint64_t column) {
        m.pending.push_back({source, &f, m_document, line, column, m.pendingTexts.keep(target)});
    }

    TNXmiImporter::Impl& m;
    uint32_t m_document;
    Document& m_doc;
    std::vector<Frame> m_frames; // the open elements are the first m_top
    size_t m_top = 0;
    std::vector<std::pair<std::string, std::string>> m_namespaces;
    struct Recent {
        const char* name = nullptr;
        const ClassInfo* info = nullptr;
        const Binding* binding = nullptr;
    };
    Recent m_recent[64];
};

} // namespace

TNXmiImporter::TNXmiImporter(const TNEcoreMetamodel& metamodel, const TNImportLimits& limits)
    : m_impl(std::make_unique<Impl>(metamodel.impl(), limits)) {}

TNXmiImporter::~TNXmiImporter() = default;

namespace {
template <class Read>
void readDocument(TNXmiImporter::Impl& m, const std::string& name, Read&& read) {
    Document d;
    d.path = name;
    d.canonical = canonicalPath(name);
    m.documents.push_back(std::move(d));
    const auto index = static_cast<uint32_t>(m.documents.size() - 1);
    ModelReader handler(m, index);
    XmlReader reader(name, m.limits, handler);
    handler.reader = &reader;
    try {
        read(reader);
    } catch (...) {
        // The references of a document that failed are never resolved.
        std::erase_if(m.pending, [&](const Pending& p) { return p.document == index; });
        throw;
    }
    Document& doc = m.documents[index];
    for (const auto& root : doc.roots) {
        const TNClass& cls = *root->getClass();
        if (cls.attributeExists("nsURI"))
            doc.nsURIs.push_back((*root)["nsURI"].asString());
    }
}
} // namespace

void TNXmiImporter::read(const std::string& path) {
    readDocument(*m_impl, path, [](XmlReader& r) { r.readFile(); });
}

void TNXmiImporter::readBuffer(std::string_view bytes, const std::string& name) {
    readDocument(*m_impl, name, [&](XmlReader& r) { r.readBuffer(bytes); });
}

size_t TNXmiImporter::documentCount() const noexcept { return m_impl->documents.size(); }

std::vector<SgxSimplePtr<TNObject>> TNXmiImporter::roots(size_t index) const {
    return m_impl->documents.at(index).roots;
}

uint64_t TNXmiImporter::objectCount() const noexcept { return m_impl->objects; }

void TNXmiImporter::finish() { m_impl->finish(); }

void TNXmiImporter::Impl::finish() {
    // Both ends of a pair of opposite references may be written; each link is made once, from
    // the forward end, so the reverse end reads its links in the forward end's order.
    std::unordered_set<std::tuple<const void*, const void*, const void*>, PairHash> made;
    for (const Pending& p : pending) {
        TNObject* target = resolve(p);
        const Classifier& targetClass = classOf(*target);
        if (!targetClass.conformsTo(p.feature->type))
            fail(p, "reference '" + p.feature->name + "' takes a '" + p.feature->type->tnName +
                        "', not the '" + targetClass.tnName + "' that '" + std::string(p.target) +
                        "' names");
        const Feature* f = p.feature->forward ? p.feature : p.feature->opposite;
        TNObject* from = p.feature->forward ? p.source : target;
        TNObject* to = p.feature->forward ? target : p.source;
        if (f->opposite && !made.emplace(from, to, f).second)
            continue;
        from->associate(to, assocFor(classOf(*from), *f));
    }
    pending.clear();
    pending.shrink_to_fit();
    pendingTexts.clear();
}

TNObject* TNXmiImporter::Impl::resolve(const Pending& p) {
    const std::string_view target = p.target;
    const size_t hash = target.find('#');
    const Document* d = &documents[p.document];
    std::string_view fragment = target;
    if (hash != std::string_view::npos) {
        const std::string_view uri = target.substr(0, hash);
        fragment = target.substr(hash + 1);
        if (!uri.empty()) {
            const std::string path =
                uri.find("://") == std::string_view::npos
                    ? canonicalPath((fs::path(d->path).parent_path() / fs::path(uri)).string())
                    : std::string();
            d = nullptr;
            for (const Document& candidate : documents) {
                if (!path.empty() && candidate.canonical == path)
                    d = &candidate;
                for (const std::string& ns : candidate.nsURIs)
                    if (ns == uri)
                        d = &candidate;
            }
            if (!d)
                fail(p, "reference '" + std::string(p.target) +
                            "' names a document that was not read");
        }
    }
    if (!fragment.starts_with('/')) {
        TNObject* found = d->ids.find(fragment);
        if (!found)
            fail(p, "no object has the xmi:id of reference '" + std::string(p.target) + "'");
        return found;
    }
    return walk(*d, fragment.substr(1), p);
}

// A path fragment: the root's index ("" for the first), then one segment per containment step:
// "@feature.index", "@feature" (the only object), or the name of a contained object.
TNObject* TNXmiImporter::Impl::walk(const Document& d, std::string_view path, const Pending& p) {
    const auto bad = [&](const std::string& why) -> TNObject* {
        fail(p, "reference '" + std::string(p.target) + "' names no object: " + why);
    };
    const size_t slash = path.find('/');
    const std::string_view first = path.substr(0, slash);
    size_t rootIndex = 0;
    if (!first.empty()) {
        const auto [end, ec] =
            std::from_chars(first.data(), first.data() + first.size(), rootIndex);
        if (ec != std::errc() || end != first.data() + first.size())
            return bad("bad root index '" + std::string(first) + "'");
    }
    if (rootIndex >= d.roots.size())
        return bad("no root " + std::to_string(rootIndex));
    TNObject* object = d.roots[rootIndex].get();
    std::string_view rest =
        slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
    while (!rest.empty()) {
        const size_t next = rest.find('/');
        const std::string_view segment = rest.substr(0, next);
        rest = next == std::string_view::npos ? std::string_view() : rest.substr(next + 1);
        const Classifier& cls = classOf(*object);
        if (segment.starts_with('@')) {
            const size_t dot = segment.find('.');
            const std::string_view name =
                segment.substr(1, dot == std::string_view::npos ? dot : dot - 1);
            size_t index = 0;
            if (dot != std::string_view::npos) {
                const std::string_view digits = segment.substr(dot + 1);
                const auto [end, ec] =
                    std::from_chars(digits.data(), digits.data() + digits.size(), index);
                if (ec != std::errc() || end != digits.data() + digits.size())
                    return bad("bad index in '" + std::string(segment) + "'");
            }
            const auto found = cls.allFeatures.find(name);
            if (found == cls.allFeatures.end() || !found->second->containment)
                return bad("'" + cls.tnName + "' contains nothing by '" + std::string(name) + "'");
            const TNLinkView links = object->links(assocFor(cls, *found->second));
            if (index >= links.size())
                return bad("'" + std::string(segment) + "' is past the last contained object");
            object = links.begin()[index].get();
        } else {
            TNObject* named = nullptr;
            for (const auto& c : mm.classifiers) {
                if (named)
                    break;
                if (c->kind != Classifier::Class || !cls.conformsTo(c.get()))
                    continue;
                for (const auto& f : c->features) {
                    if (!f->containment)
                        continue;
                    for (const auto& child : object->links(assocFor(cls, *f))) {
                        const TNClass& childClass = *child->getClass();
                        if (childClass.attributeExists("name") &&
                            (*child)["name"].asString() == segment) {
                            named = child.get();
                            break;
                        }
                    }
                    if (named)
                        break;
                }
            }
            if (!named)
                return bad("'" + cls.tnName + "' contains nothing named '" + std::string(segment) +
                           "'");
            object = named;
        }
    }
    return object;
}
