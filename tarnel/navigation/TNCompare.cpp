#include "tarnel/navigation/TNCompare.h"

#include "rw/RWOrdered.h"
#include "sgx/general/SgxException.h"
#include "sgx/persistence/SgxStringPersistence.h"
#include "sgx/persistence/StartPersistence.h"

#include <functional>

TN_DEFINE_COLLECTABLE(TNCompareElement)
TN_DEFINE_COLLECTABLE(TNCompare)

// ---------------------------------------------------------------------------------------------
// TNCompareElement

TNCompareElement::~TNCompareElement() = default;

int TNCompareElement::compareTo(const RWCollectable* other) const { return other == this ? 0 : 1; }

bool TNCompareElement::isEqual(const RWCollectable* other) const { return other != this; }

unsigned TNCompareElement::hash() const { return 1; }

RWspace TNCompareElement::binaryStoreSize() const { return 0; }

void TNCompareElement::saveGuts(RWvostream& stream) const {
    RWCollectable::saveGuts(stream);
    sgxStringToStream(stream, m_key);
    stream << static_cast<char>(m_option1 ? 1 : 0) << static_cast<char>(m_option2 ? 1 : 0)
           << static_cast<char>(m_option3 ? 1 : 0);
}

void TNCompareElement::restoreGuts(RWvistream& stream) {
    RWCollectable::restoreGuts(stream);
    sgxStringFromStream(stream, m_key);
    char options[3];
    stream >> options[0] >> options[1] >> options[2];
    m_option1 = options[0] != 0;
    m_option2 = options[1] != 0;
    m_option3 = options[2] != 0;
}

// ---------------------------------------------------------------------------------------------
// TNCompare

namespace {

// The collection that saveGuts writes: the addresses of the elements, in order. It only borrows
// them, and RWOrdered holds non-const pointers, which the store never writes through.
void fillWithElements(RWOrdered& list, const std::vector<TNCompareElement>& elements) {
    for (const TNCompareElement& element : elements)
        list.insert(const_cast<TNCompareElement*>(&element));
}

} // namespace

TNCompare::TNCompare(const SgxString& key, bool option1, bool option2, bool option3) {
    m_elements.emplace_back(key, option1, option2, option3);
}

TNCompare::~TNCompare() = default;

void TNCompare::append(const SgxString& key, bool option1, bool option2, bool option3) {
    m_elements.emplace_back(key, option1, option2, option3);
}

bool TNCompare::isEqual(const RWCollectable* other) const {
    return other != nullptr && other->isA() == isA() && other == this;
}

int TNCompare::compareTo(const RWCollectable* other) const {
    if (other == nullptr || other->isA() != isA())
        return -1;
    if (other == this)
        return 0;
    // Ordered by where the element lists sit in memory. The list is a member here rather than a
    // block of its own, so its address is as stable and as distinct as that block's would be.
    const auto& theirs = static_cast<const TNCompare*>(other)->m_elements;
    return std::less<const void*>()(&m_elements, &theirs) ? -1 : 1;
}

unsigned TNCompare::hash() const { return 1; }

RWspace TNCompare::binaryStoreSize() const {
    RWOrdered list;
    fillWithElements(list, m_elements);
    return sizeof(SgxCollectable::recordRevision) + list.recursiveStoreSize();
}

void TNCompare::saveGuts(RWvostream& stream) const {
    SgxCollectable::saveGuts(stream);
    auto* list = new RWOrdered;
    registerCollectable(list);
    fillWithElements(*list, m_elements);
    stream << list;
}

void TNCompare::restoreGuts(RWvistream& stream) {
    SgxCollectable::restoreGuts(stream);
    RWCollectable* read = nullptr;
    stream >> read;
    // Types are checked before anything is handed to the persistence library: a reference back
    // to an object this restore did not create (the sort order itself, say) must not be
    // registered, as the registry would delete it. Until then a failure leaves what was read to
    // the restore, which deletes it.
    auto* list = dynamic_cast<RWOrdered*>(read);
    if (list == nullptr)
        SgxException::raise("Invalid sort order: expected RWOrdered; got " +
                            (read == nullptr ? SgxString("nil") : read->stringID()));
    for (const RWCollectable* entry : *list)
        if (dynamic_cast<const TNCompareElement*>(entry) == nullptr)
            SgxException::raise("Invalid sort order: expected TNCompareElement; got " +
                                (entry == nullptr ? SgxString("nil") : entry->stringID()));
    registerCollectable(list);
    // The entries belong to the persistence library once the collection lets go of them. Every
    // entry is checked before any is taken, so a bad record leaves the elements as they were.
    for (RWCollectable* entry : *list)
        registerCollectable(entry);
    m_elements.reserve(m_elements.size() + list->entries());
    for (const RWCollectable* entry : *list)
        m_elements.push_back(*static_cast<const TNCompareElement*>(entry));
    list->clear();
}
