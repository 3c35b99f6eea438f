#include "tarnel/navigation/TNClassIdentifier.h"

#include "sgx/general/SgxException.h"
#include "sgx/persistence/SgxStringPersistence.h"
#include "sgx/persistence/StartPersistence.h"
#include "tarnel/core/TNException.h"
#include "tarnel/core/TNRecords.h"

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
    tnSaveStrings(stream, m_attributes);
}

void TNClassIdentifier::restoreGuts(RWvistream& stream) {
    SgxCollectable::restoreGuts(stream);
    sgxStringFromStream(stream, m_className);
    // Read whole before any name is taken, so a bad record leaves the list as it was.
    const std::vector<SgxString> names = tnRestoreStrings(stream, "class identifier");
    m_attributes.insert(m_attributes.end(), names.begin(), names.end());
}
