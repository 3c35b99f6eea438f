#include "tarnel/navigation/TNClassIdentifier.h"

#include "rw/RWCollectableString.h"
#include "rw/RWOrdered.h"
#include "sgx/general/SgxException.h"
#include "sgx/persistence/SgxStringPersistence.h"
#include "sgx/persistence/StartPersistence.h"
#include "tarnel/core/TNException.h"

TN_DEFINE_COLLECTABLE(TNClassIdentifier)

TNClassIdentifier::~TNClassIdentifier() = default;

int TNClassIdentifier::compareTo(const RWCollectable* /*other*/) const { return 0; }

unsigned TNClassIdentifier::hash() const { return 1; }

bool TNClassIdentifier::isEqual(const RWCollectable* /*other*/) const { return false; }

RWspace TNClassIdentifier::binaryStoreSize() const { return 0; }

void TNClassIdentifier::addAttr(const SgxString& name) {
    if (m_positions.contains(name))
        TNException(TNException::Create, TNException::AttrDescriptor, TNException::DuplicateName)
            .setAttr(name)
            .setClass1(m_className + " Identifier")
            .raise();
    tnReserveOneMore(m_attributes);
    m_positions.emplace(name, static_cast<int32_t>(m_attributes.size()));
    m_attributes.push_back(name);
}

SgxString TNClassIdentifier::operator[](std::string_view name) const {
    const auto found = m_positions.find(name);
    if (found == m_positions.end())
        TNException(TNException::Access, TNException::AttrDescriptor, TNException::NameNotFound)
            .setAttr(SgxString(name))
            .raise();
    return m_attributes[static_cast<size_t>(found->second)];
}

void TNClassIdentifier::saveGuts(RWvostream& stream) const {
    SgxCollectable::saveGuts(stream);
    sgxStringToStream(stream, m_className);
    auto* names = new RWOrdered;
    registerCollectable(names);
    for (const SgxString& name : m_attributes) {
        auto* text = new RWCollectableString(name);
        registerCollectable(text);
        names->insert(text);
    }
    stream << names;
}

void TNClassIdentifier::restoreGuts(RWvistream& stream) {
    SgxCollectable::restoreGuts(stream);
    sgxStringFromStream(stream, m_className);
    RWCollectable* read = nullptr;
    stream >> read;
    // The persistence library owns what was read from here on, whatever follows.
    registerCollectable(read);
    auto* names = dynamic_cast<RWOrdered*>(read);
    if (names == nullptr)
        SgxException::raise("Invalid class identifier: expected RWOrdered; got " +
                            (read == nullptr ? SgxString("nil") : read->stringID()));
    // Check and hand over every entry before taking any name, so a bad record leaves the list as
    // it was; the strings belong to the persistence library once the collection lets go of them.
    for (RWCollectable* entry : *names) {
        if (dynamic_cast<const RWCollectableString*>(entry) == nullptr)
            SgxException::raise("Invalid class identifier: expected RWCollectableString; got " +
                                (entry == nullptr ? SgxString("nil") : entry->stringID()));
        registerCollectable(entry);
    }
    m_attributes.reserve(m_attributes.size() + names->entries());
    for (const RWCollectable* entry : *names)
        m_attributes.push_back(static_cast<const RWCollectableString*>(entry)->str());
    names->clear();
}
