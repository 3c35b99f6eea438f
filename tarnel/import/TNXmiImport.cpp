// Reads XMI model files into objects. The file is streamed: objects, attribute values and
// containment links are made as their elements arrive, so memory holds the model plus the
// references still to resolve (one record per reference), never the file's text. References are
// resolved by finish(), once every document they may name has been read.
#include "tarnel/import/internal/TNEcoreModel.h"
#include "tarnel/import/internal/TNXmlReader.h"

#include <cctype>
#include <charconv>
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

struct Document {
    std::string path;
    std::string canonical;
    std::vector<SgxSimplePtr<TNObject>> roots;
    StringMap<TNObject*> ids;
    std::vector<std::string> nsURIs; // the nsURI attributes of its root objects
};

// A reference met in a file, resolved by finish().
struct Pending {
    TNObject* source;
    const Feature* feature;
    uint32_t document;
    uint64_t line;
    uint64_t column;
    std::string target;
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
    uint64_t objects = 0;
    std::unordered_map<const TNClass*, const Classifier*> classifierOf;

    // A feature as objects of one class reach it: resolved once per class, since inherited
    // copies sit at positions of each class's own.
    struct Binding {
        const Feature* feature;
        const TNAttrDesc* desc;     // attributes
        const TNAssociation* assoc; // references
    };
    struct ClassInfo {
        StringMap<Binding> features;
        std::vector<const Binding*> defaults;
    };
    std::unordered_map<const Classifier*, ClassInfo> infos;

    Impl(const TNEcoreMetamodel::Impl& metamodel, const TNImportLimits& l)
        : mm(metamodel), limits(l) {
        for (const auto& c : mm.classifiers)
            if (c->kind == Classifier::Class)
                classifierOf.emplace(c->tnClass.get(), c.get());
        for (const auto& c : mm.classifiers) {
            if (c->kind != Classifier::Class)
                continue;
            ClassInfo& info = infos[c.get()];
            const TNClass& cls = *c->tnClass;
            for (const auto& [name, f] : c->allFeatures)
                info.features.emplace(
                    name, Binding{f, f->isReference ? nullptr : &cls[name],
                                  f->isReference ? cls.getAssociation(name).get() : nullptr});
            for (const Feature* f : c->defaults)
                info.defaults.push_back(&info.features.at(f->name));
        }
    }

    const Classifier& classOf(const TNObject& object) const {
        return *classifierOf.at(object.getClass().get());
    }

    const ClassInfo& info(const Classifier& cls) const { return infos.at(&cls); }
    const Binding* binding(const Classifier& cls, std::string_view name) const {
        const StringMap<Binding>& features = info(cls).features;
        const auto found = features.find(name);
        return found != features.end() ? &found->second : nullptr;
    }
    const TNAssociation& assocFor(const Classifier& cls, const Feature& f) const {
        return *info(cls).features.find(f.name)->second.assoc;
    }

    void finish();
    TNObject* resolve(const Pending& p);
    TNObject* walk(const Document& d, std::string_view fragment, const Pending& p);
    [[noreturn]] void fail(const Pending& p, const std::string& message) const {
        throw TNImportError(documents[p.document].path, p.line, p.column, message);
    }
};

namespace {

class ModelReader : public XmlHandler {
public:
    ModelReader(TNXmiImporter::Impl& importer, uint32_t document)
        : m(importer), m_document(document), m_doc(importer.documents[document]) {}
    XmlReader* reader = nullptr;

    void startElement(std::string_view name, const XmlAttributes& attributes) override {
        m_nsMarks.push_back(m_namespaces.size());
        for (const auto& [key, value] : attributes) {
            if (key == "xmlns")
                m_namespaces.emplace_back("", value);
            else if (key.starts_with("xmlns:"))
                m_namespaces.emplace_back(key.substr(6), value);
        }
        Frame frame;
        frame.line = reader->line();
        frame.column = reader->column();
        const Frame* parent = m_frames.empty() ? nullptr : &m_frames.back();
        if (!parent || parent->kind == Frame::Wrapper) {
            if (isXmiNamespace(prefixOf(name))) {
                frame.kind = !parent && localOf(name) == "XMI" ? Frame::Wrapper : Frame::Skip;
            } else {
                const Classifier& cls = classFor(name, attributes, nullptr);
                makeObject(cls, attributes, frame);
                m_doc.roots.push_back(frame.object);
            }
        } else if (parent->kind == Frame::Object) {
            const Classifier& owner = *parent->cls;
            const auto* found = m.binding(owner, localOf(name));
            if (!found) {
                if (!isXmiNamespace(prefixOf(name)))
                    reader->fail("class '" + owner.tnName + "' has no feature '" +
                                 std::string(name) + "'");
                frame.kind = Frame::Skip;
            } else {
                const Feature& f = *found->feature;
                frame.feature = &f;
                frame.binding = found;
                if (f.containment) {
                    const Classifier& cls = classFor({}, attributes, &f);
                    TNObject* container = parent->object;
                    makeObject(cls, attributes, frame);
                    container->associate(frame.object, *found->assoc);
                } else if (f.isReference) {
                    frame.kind = isContainerEnd(f) ? Frame::Skip : Frame::Reference;
                    frame.object = parent->object;
                    for (const auto& [key, value] : attributes)
                        if (key == "href" && frame.kind == Frame::Reference)
                            addPending(parent->object, f, value, frame);
                } else {
                    frame.kind = Frame::Value;
                    frame.object = parent->object;
                }
            }
        } else if (parent->kind == Frame::Skip) {
            frame.kind = Frame::Skip;
        } else {
            reader->fail("element '" + std::string(name) + "' inside a value");
        }
        m_frames.push_back(std::move(frame));
    }

    void endElement() override {
        Frame& frame = m_frames.back();
        if (frame.kind == Frame::Value && frame.feature->many) {
            m_frames[m_frames.size() - 2].addValue(*frame.binding, frame.text);
        } else if (frame.kind == Frame::Value) {
            setValue(*frame.object, *frame.binding, frame.text, frame);
        } else if (frame.kind == Frame::Object) {
            // Many-valued attributes gather their values while the element is open (one
            // assignment each, not one per value).
            for (auto& [b, text] : frame.many)
                (*frame.object)[*b->desc] = text;
        } else if (frame.kind == Frame::Reference) {
            for (const std::string& token : referenceList(frame.text))
                addPending(frame.object, *frame.feature, token, frame);
        }
        m_frames.pop_back();
        m_namespaces.resize(m_nsMarks.back());
        m_nsMarks.pop_back();
    }

    void text(std::string_view chars) override {
        if (m_frames.empty())
            return;
        Frame& frame = m_frames.back();
        if (frame.kind == Frame::Value || frame.kind == Frame::Reference)
            frame.text.append(chars);
        else if (frame.kind == Frame::Object && !isBlank(chars))
            reader->fail("text inside the element of a '" + frame.cls->tnName + "'");
    }

private:
    struct Frame {
        enum Kind : uint8_t { Wrapper, Object, Value, Reference, Skip } kind = Skip;
        TNObject* object = nullptr;
        const Classifier* cls = nullptr;
        const Feature* feature = nullptr;
        const TNXmiImporter::Impl::Binding* binding = nullptr;
        std::string text;
        uint64_t line = 0;
        uint64_t column = 0;
        // values of many-valued attributes, one per line
        std::vector<std::pair<const TNXmiImporter::Impl::Binding*, std::string>> many;

        void addValue(const TNXmiImporter::Impl::Binding& b, std::string_view value) {
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
    const Classifier& classFor(std::string_view elementName, const XmlAttributes& attributes,
                               const Feature* containment) const {
        const Classifier* cls = nullptr;
        for (const auto& [key, value] : attributes)
            if (key == "xsi:type" || key == "xmi:type")
                cls = &classByQName(value);
        if (!cls)
            cls = containment ? containment->type : &classByQName(elementName);
        if (containment && !cls->conformsTo(containment->type))
            reader->fail("'" + cls->tnName + "' is not a '" + containment->type->tnName +
                         "', which '" + containment->name + "' contains");
        if (cls->isAbstract || cls->isInterface)
            reader->fail("class '" + cls->tnName + "' is abstract: give a concrete xsi:type");
        return *cls;
    }

    // Makes the object of `frame` (an element of class `cls`), with its defaults and the values
    // and references of its XML attributes.
    void makeObject(const Classifier& cls, const XmlAttributes& attributes, Frame& here) {
        TNObject* object = cls.tnClass->newObject(false).get();
        ++m.objects;
        here.kind = Frame::Object;
        here.object = object;
        here.cls = &cls;
        const TNXmiImporter::Impl::ClassInfo& info = m.info(cls);
        for (const auto* b : info.defaults)
            assignValue((*object)[*b->desc], b->feature->valueKind, b->feature->type,
                        b->feature->defaultLiteral);
        for (const auto& [key, value] : attributes) {
            if (key == "xmi:id") {
                if (!m_doc.ids.emplace(std::string(value), object).second)
                    reader->fail("xmi:id '" + std::string(value) + "' is used twice");
                continue;
            }
            if (key.starts_with("xmlns") || key.starts_with("xmi:") || key.starts_with("xsi:"))
                continue;
            const auto found = info.features.find(key);
            if (found == info.features.end())
                reader->fail("class '" + cls.tnName + "' has no feature '" + std::string(key) +
                             "'");
            const TNXmiImporter::Impl::Binding& b = found->second;
            const Feature& f = *b.feature;
            if (f.containment)
                reader->fail("containment '" + f.name + "' given as an XML attribute");
            if (f.isReference) {
                if (!isContainerEnd(f))
                    for (const std::string& token : referenceList(value))
                        addPending(object, f, token, here);
            } else if (f.many) {
                forEachToken(value, [&](std::string_view token) { here.addValue(b, token); });
            } else {
                setValue(*object, b, value, here);
            }
        }
    }

    void setValue(TNObject& object, const TNXmiImporter::Impl::Binding& b, std::string_view text,
                  const Frame& at) {
        const Feature& f = *b.feature;
        TNAttribute& slot = object[*b.desc];
        if (!assignValue(slot, f.valueKind, f.type, text))
            throw TNImportError(reader->fileName(), at.line, at.column,
                                "value '" + std::string(text) + "' does not fit attribute '" +
                                    f.name + "' of '" + f.owner->tnName + "'");
    }

    void addPending(TNObject* source, const Feature& f, std::string_view target, const Frame& at) {
        m.pending.push_back({source, &f, m_document, at.line, at.column, std::string(target)});
    }

    TNXmiImporter::Impl& m;
    uint32_t m_document;
    Document& m_doc;
    std::vector<Frame> m_frames;
    std::vector<std::pair<std::string, std::string>> m_namespaces;
    std::vector<size_t> m_nsMarks;
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
                        "', not the '" + targetClass.tnName + "' that '" + p.target + "' names");
        const Feature* f = p.feature->forward ? p.feature : p.feature->opposite;
        TNObject* from = p.feature->forward ? p.source : target;
        TNObject* to = p.feature->forward ? target : p.source;
        if (f->opposite && !made.emplace(from, to, f).second)
            continue;
        from->associate(to, assocFor(classOf(*from), *f));
    }
    pending.clear();
    pending.shrink_to_fit();
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
                fail(p, "reference '" + p.target + "' names a document that was not read");
        }
    }
    if (!fragment.starts_with('/')) {
        const auto found = d->ids.find(fragment);
        if (found == d->ids.end())
            fail(p, "no object has the xmi:id of reference '" + p.target + "'");
        return found->second;
    }
    return walk(*d, fragment.substr(1), p);
}

// A path fragment: the root's index ("" for the first), then one segment per containment step:
// "@feature.index", "@feature" (the only object), or the name of a contained object.
TNObject* TNXmiImporter::Impl::walk(const Document& d, std::string_view path, const Pending& p) {
    const auto bad = [&](const std::string& why) -> TNObject* {
        fail(p, "reference '" + p.target + "' names no object: " + why);
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
