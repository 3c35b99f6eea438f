#include "tarnel/instances/TNObject.h"

#include "sgx/general/SgxAssertion.h"
#include "tarnel/core/TNChecked.h"
#include "tarnel/core/TNException.h"
#include "tarnel/core/TNValue.h"
#include "tarnel/metamodel/TNSchema.h"
#include "tarnel/navigation/TNAssociation.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <new>

namespace {

constexpr const char* unitName = "TNObject";
constexpr std::string_view fullyQualifiedName = "fullyQualifiedName";

using tn_detail::linkListTag, tn_detail::linkSingleTag, tn_detail::linkTagMask;

struct LinkNode {
    TNObject* object;
    const LinkNode* next; // older link, or null
};

const LinkNode* listHead(uintptr_t word) {
    return reinterpret_cast<const LinkNode*>(word & ~linkTagMask);
}

size_t listLength(const LinkNode* node) {
    size_t length = 0;
    for (; node != nullptr; node = node->next)
        ++length;
    return length;
}

LinkNode* newNode(SgxMemoryRegion& region, TNObject* object, const LinkNode* next) {
    auto* node = static_cast<LinkNode*>(region.allocate(sizeof(LinkNode), alignof(LinkNode)));
    node->object = object;
    node->next = next;
    return node;
}

// Places a list's objects in out[0..n) oldest first (the list holds the newest first).
void copyListOldestFirst(const LinkNode* node, size_t n, SgxSimplePtr<TNObject>* out) {
    for (; node != nullptr; node = node->next)
        ::new (static_cast<void*>(out + --n)) SgxSimplePtr<TNObject>(node->object);
}

// A frozen array's elements and count.
const SgxSimplePtr<TNObject>* arrayElements(uintptr_t word) { return tn_detail::linkArray(word); }
size_t arrayCount(uintptr_t word) { return tn_detail::linkArrayCount(word); }

// Whether `cls` is `target` or received its members from it (a descendant).
[[maybe_unused]] bool isOrDerivesFrom(const TNClass& cls, const TNClass* target) {
    if (&cls == target)
        return true;
    for (const auto& parent : cls.parents())
        if (isOrDerivesFrom(*parent, target))
            return true;
    return false;
}

TNObjectStatistics statisticsTotals;
bool statisticsFileWritten = false;

void writeStatisticsFile() {
    const char* named = std::getenv("TARNEL_OBJECTCOUNT_FILE");
    const std::filesystem::path path =
        named != nullptr ? std::filesystem::path(named)
                         : std::filesystem::temp_directory_path() / "objectcount.txt";
    std::ofstream out(path, std::ios::out | std::ios::trunc);
    const TNObjectStatistics& s = statisticsTotals;
    out << "Objects: " << s.objects << '\n'
        << "Attributes: " << s.attributes << '\n'
        << "Associations: " << s.associations << '\n'
        << "Objects in objects: " << s.links << '\n'
        << "Size of objects: " << s.objectBytes << '\n'
        << "Size of attributes: " << s.attributeBytes << '\n'
        << "Size of associations: " << s.associationBytes << '\n';
}

} // namespace

void* TNObject::operator new(size_t size) {
    return TNSchema::primaryMemoryRegion().allocate(size, alignof(TNObject));
}

TNObject* TNObject::create(TNClass& cls, bool /*flag*/) {
    const size_t n = cls.m_attributes.size();
    const size_t m = cls.m_associations.size();
    // One block: the m link words, the object, the n attribute slots (see linkWord and slots).
    static_assert(sizeof(TNObject) == sizeof(uintptr_t) &&
                  alignof(TNAttribute) == alignof(TNObject));
    void* block = TNSchema::primaryMemoryRegion().allocate(
        m * sizeof(uintptr_t) + sizeof(TNObject) + n * sizeof(TNAttribute), alignof(TNObject));
    if (block == nullptr) {
        // What fails first is the storage of the slots, or of the links for a class without
        // attributes.
        if (n > 0 || m == 0)
            SgxAssertion::raise("m_attributes != 0", unitName, 284);
        SgxAssertion::raise("m_associations != 0", unitName, 304);
    }
    std::memset(block, 0, m * sizeof(uintptr_t));
    auto* object = ::new (static_cast<uintptr_t*>(block) + m) TNObject(cls);
    TNAttribute* slots = object->slots();
    for (size_t i = 0; i < n; ++i)
        (::new (static_cast<void*>(slots + i)) TNAttribute)->initialize(*cls.m_attributes[i].get());
    ++statisticsTotals.objects;
    statisticsTotals.attributeBytes += 16 * n;
    statisticsTotals.attributes += n;
    statisticsTotals.associations += m;
    return object;
}

TNObject::~TNObject() {
    if (statisticsFileWritten)
        return;
    statisticsFileWritten = true;
    try {
        writeStatisticsFile();
    } catch (...) {
        // The file is a diagnostic; nothing depends on it being written.
    }
}

TNObjectStatistics TNObject::statistics() noexcept { return statisticsTotals; }

size_t TNObject::checkedAttrIndex(std::string_view name) const {
    const TNClass& cls = *getClass();
    const int32_t index = cls.findAttrIndex(name);
    // A "fullyQualifiedName" entry may stand for no descriptor (TNClass::attrIndex records one
    // at position 0 for classes without it); it counts only when slot 0 really is that attribute.
    const bool found =
        index >= 0 && (name != fullyQualifiedName ||
                       (static_cast<size_t>(index) < cls.m_attributes.size() &&
                        cls.m_attributes[static_cast<size_t>(index)]->m_name == name));
    if (!found) [[unlikely]]
        TNException(TNException::Access, TNException::AttrDescriptor, TNException::NameNotFound)
            .setAttr(SgxString(name))
            .setClass1(cls.m_name)
            .raise();
    return static_cast<size_t>(index);
}

std::vector<SgxSimplePtr<TNAttribute>> TNObject::attributes() const {
    const size_t n = cls() == nullptr ? 0 : cls()->attrCount();
    std::vector<SgxSimplePtr<TNAttribute>> slots;
    slots.reserve(n);
    for (size_t i = 0; i < n; ++i)
        slots.emplace_back(this->slots() + i);
    return slots;
}

void TNObject::raiseAssociationNotFound(std::string_view name) const {
    TNException(TNException::Access, TNException::Association, TNException::NameNotFound)
        .setAssoc(SgxString(name))
        .setClass1(cls()->m_name)
        .raise();
}

int32_t TNObject::linkSlot(const TNAssociation& assoc) const {
    const TNClass& cls = *getClass();
    // The association's own position, when this class holds it there, is the position its other
    // role name has in the index.
    const int32_t cached = assoc.m_slot;
    if (cached >= 0 && static_cast<size_t>(cached) < cls.m_associations.size() &&
        cls.m_associations[static_cast<size_t>(cached)].get() == &assoc) [[likely]]
        return cached;
    const int32_t slot = cls.findAssocIndex(assoc.m_otherRoleName);
    if (slot < 0)
        raiseAssociationNotFound(assoc.m_otherRoleName);
    return slot;
}

int32_t TNObject::reverseSlot(const SgxSimplePtr<TNObject>& other, const TNAssociation& assoc) {
    if (other.get() != nullptr && other.get()->cls() == assoc.m_reverseClass) [[likely]]
        return assoc.m_reverseSlot;
    const TNClass& declared = *assoc.m_otherClass;
    const int32_t declaredSlot = declared.findAssocIndex(assoc.m_roleName);
    if (declaredSlot < 0)
        return -1;
    const TNClass& target = *other->getClass();
    if (&target != &declared)
        return target.assocIndex(assoc.m_roleName);
    // Index keys and positions never change, so this holds until the role name or the other
    // class of the association is changed (whose setters clear it).
    assoc.m_reverseClass = &declared;
    assoc.m_reverseSlot = declaredSlot;
    return declaredSlot;
}

void TNObject::associate(SgxSimplePtr<TNObject> other, const TNAssociation& assoc) {
    const int32_t slot = linkSlot(assoc);
    // Compound links are computed, not stored.
    if (!assoc.isSimple())
        return;
#if TARNEL_CHECKED_BUILD
    // An object of another class would be linked through a slot meant for other objects, and
    // its reverse link recorded in whatever slot its class keeps under the near role name.
    if (const TNObject* target = other.get();
        target != nullptr && !isOrDerivesFrom(*target->cls(), assoc.m_otherClass.get()))
        TNException(TNException::Create, TNException::Association, TNException::Invalid)
            .setClass1(cls()->m_name)
            .setClass2(target->cls()->m_name)
            .setAssoc(assoc.m_otherRoleName)
            .setInfo("Role " + assoc.m_otherRoleName + " of class " + cls()->m_name +
                     " leads to objects of class " +
                     (assoc.m_otherClass.isNull() ? SgxString() : assoc.m_otherClass->m_name) +
                     " or of a class derived from it, not of class " + target->cls()->m_name + ".")
            .raise();
#endif
    // Everything that can raise happens before the first link is recorded.
    const int32_t reverse = reverseSlot(other, assoc);
    addLink(slot, other.get());
    if (reverse >= 0)
        other.get()->addLink(reverse, this);
}

void TNObject::associate(SgxSimplePtr<TNObject> other, std::string_view name) {
    const TNClass& cls = *getClass();
    const int32_t slot = cls.findAssocIndex(name);
    if (slot < 0)
        raiseAssociationNotFound(name);
    associate(other, *cls.m_associations[static_cast<size_t>(slot)]);
}

void TNObject::addAssociation(SgxSimplePtr<TNObject> other, const SgxString& name) {
    addLink(getClass()->assocIndex(name), other.get());
}

void TNObject::addLink(int32_t slot, TNObject* other) {
    uintptr_t& word = linkWord(slot);
    ++statisticsTotals.links;
    if (word == 0) [[likely]] {
        // Most slots only ever hold one link (an owner): it stays in the word, no node needed.
        word = reinterpret_cast<uintptr_t>(other) | linkSingleTag;
        return;
    }
    SgxMemoryRegion& region = TNSchema::temporaryMemoryRegion();
    const LinkNode* older = nullptr;
    if ((word & linkListTag) != 0) {
        older = listHead(word);
    } else if ((word & linkSingleTag) != 0) {
        older = newNode(region, reinterpret_cast<TNObject*>(word & ~linkTagMask), nullptr);
    } else {
        // A slot frozen already becomes a list again, oldest link deepest, so that the next
        // freeze (or any read before it) sees the links in the order they were added.
        const SgxSimplePtr<TNObject>* elements = arrayElements(word);
        for (size_t i = 0, n = arrayCount(word); i < n; ++i)
            older = newNode(region, elements[i].get(), older);
    }
    word = reinterpret_cast<uintptr_t>(newNode(region, other, older)) | linkListTag;
}

std::vector<SgxSimplePtr<TNObject>> TNObject::linkedObjects(int32_t slot) const {
    const uintptr_t word = linkWord(slot);
    if (word == 0)
        return {};
    if ((word & linkSingleTag) != 0)
        return {SgxSimplePtr<TNObject>(reinterpret_cast<TNObject*>(word & ~linkTagMask))};
    if ((word & linkListTag) != 0) {
        const LinkNode* head = listHead(word);
        std::vector<SgxSimplePtr<TNObject>> result(listLength(head));
        copyListOldestFirst(head, result.size(), result.data());
        return result;
    }
    const SgxSimplePtr<TNObject>* elements = arrayElements(word);
    return std::vector<SgxSimplePtr<TNObject>>(elements, elements + arrayCount(word));
}

std::vector<SgxSimplePtr<TNObject>> TNObject::objects(const TNAssociation& assoc) const {
    if (!assoc.isSimple())
        return assoc.objects(SgxSimplePtr<TNObject>(const_cast<TNObject*>(this)));
    return linkedObjects(linkSlot(assoc));
}

TNLinkView TNObject::links(const TNAssociation& assoc) const {
    if (!assoc.isSimple()) {
        TNLinkView view;
        view.m_copy = objects(assoc);
        view.m_count = view.m_copy.size();
        return view;
    }
    return linksAt(linkSlot(assoc));
}

TNLinkView TNObject::linksAt(int32_t slot) const {
    TNLinkView view;
    const uintptr_t word = linkWord(slot);
    if (word == 0)
        return view;
    if ((word & linkSingleTag) != 0) {
        view.m_single = reinterpret_cast<TNObject*>(word & ~linkTagMask);
        view.m_count = 1;
    } else if ((word & linkListTag) != 0) {
        view.m_copy = linkedObjects(slot);
        view.m_count = view.m_copy.size();
    } else {
        view.m_first = arrayElements(word);
        view.m_count = arrayCount(word);
    }
    return view;
}

size_t TNObject::linkCount(const TNAssociation& assoc) const {
    if (!assoc.isSimple())
        return assoc.count(SgxSimplePtr<TNObject>(const_cast<TNObject*>(this)));
    return linkCountAt(linkSlot(assoc));
}

size_t TNObject::listLinkCount(uintptr_t word) noexcept { return listLength(listHead(word)); }

std::vector<SgxSimplePtr<TNObject>> TNObject::objects(std::string_view name) const {
    return objects(*getClass()->getAssociation(name));
}

SgxSimplePtr<TNObject> TNObject::singleLinkedObject(int32_t slot, std::string_view name) const {
    const uintptr_t word = linkWord(slot);
    if (word == 0)
        return nullptr;
    if ((word & linkSingleTag) != 0)
        return reinterpret_cast<TNObject*>(word & ~linkTagMask);
    const bool one =
        (word & linkListTag) != 0 ? listHead(word)->next == nullptr : arrayCount(word) == 1;
    if (one)
        return (word & linkListTag) != 0 ? listHead(word)->object : arrayElements(word)->get();
    TNException(TNException::Access, TNException::Association, TNException::Invalid)
        .setAssoc(SgxString(name))
        .setClass1(cls()->m_name)
        .raise();
}

SgxSimplePtr<TNObject> TNObject::object(const TNAssociation& assoc) const {
    if (assoc.isSimple())
        return singleLinkedObject(linkSlot(assoc), assoc.m_otherRoleName);
    const auto found = objects(assoc);
    if (found.size() > 1)
        TNException(TNException::Access, TNException::Association, TNException::Invalid)
            .setAssoc(assoc.m_otherRoleName)
            .setClass1(cls()->m_name)
            .raise();
    return found.empty() ? nullptr : found.front();
}

SgxSimplePtr<TNObject> TNObject::object(std::string_view name) const {
    const SgxSimplePtr<TNAssociation> assoc = getClass()->getAssociation(name);
    if (assoc->isSimple())
        return singleLinkedObject(linkSlot(*assoc), name);
    const auto found = objects(*assoc);
    if (found.size() > 1)
        TNException(TNException::Access, TNException::Association, TNException::Invalid)
            .setAssoc(SgxString(name))
            .setClass1(cls()->m_name)
            .raise();
    return found.empty() ? nullptr : found.front();
}

bool TNObject::getObject(const SgxString& text) const {
    const TNValue value(text);
    // Eight at most, and never past the class's slots.
    const size_t n = std::min<size_t>(8, cls() == nullptr ? 0 : cls()->attrCount());
    for (size_t i = 0; i < n; ++i)
        if (slots()[i] == value)
            return true;
    return false;
}

std::atomic<uint64_t> tn_detail::overwrittenOriginals{0};

bool TNObject::isUniform(const SgxSimplePtr<TNObject>* elements, size_t count) noexcept {
    // Objects made by a class hold the class itself in their word, copies a tagged address.
    const uintptr_t first = elements[0].get() != nullptr ? elements[0]->m_word : 0;
    if (first == 0 || (first & copyTag) != 0)
        return false;
    for (size_t i = 1; i < count; ++i)
        if (elements[i].get() == nullptr || elements[i]->m_word != first)
            return false;
    return true;
}

void TNObject::donePopulating() {
    const TNClass& cls = *getClass();
    // Attribute slots need no freezing (see TNAttribute::donePopulating), so only links are
    // touched here.
    const size_t m = cls.m_associations.size();
    if (m == 0)
        return;
    statisticsTotals.associationBytes += 8 * m;
    for (size_t i = 0; i < m; ++i) {
        // A compound association has no word to freeze, and one added after this object was
        // made has no word at all (TNClass::instancesGainingAssoc).
        if (!cls.m_associations[i]->isSimple()) [[unlikely]]
            continue;
        uintptr_t& word = linkWord(static_cast<int32_t>(i));
        if (word == 0)
            continue;
        if ((word & linkSingleTag) != 0) {
            // One link kept in the word: counted as the one-element array it stands for.
            statisticsTotals.associationBytes += 16;
            continue;
        }
        if ((word & linkListTag) == 0)
            continue; // an array frozen before
        const LinkNode* head = listHead(word);
        const size_t count = listLength(head);
        statisticsTotals.associationBytes += 8 * count + 8;
        auto* array = static_cast<uint64_t*>(
            TNSchema::primaryMemoryRegion().allocate(8 * (count + 1), alignof(uint64_t)));
        if (array == nullptr)
            SgxAssertion::raise("array != 0", unitName, 850);
        array[0] = count;
        auto* elements = reinterpret_cast<SgxSimplePtr<TNObject>*>(array + 1);
        copyListOldestFirst(head, count, elements);
        const auto address = reinterpret_cast<uintptr_t>(elements);
        if ((address & ~tn_detail::linkAddressMask) != 0)
            SgxAssertion::raise("(address & ~linkAddressMask) == 0", unitName, __LINE__);
        word = address |
               std::min<uintptr_t>(count, tn_detail::linkCountElsewhere)
                   << tn_detail::linkCountShift |
               (isUniform(elements, count) ? tn_detail::linkUniformTag : 0);
    }
}
