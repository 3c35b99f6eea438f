#include "tarnel/metamodel/TNEnumType.h"

#include "sgx/general/SgxException.h"
#include "sgx/persistence/SgxStringPersistence.h"
#include "sgx/persistence/StartPersistence.h"
#include "tarnel/core/TNException.h"
#include "tarnel/core/TNRecords.h"

#include <functional>

TN_DEFINE_COLLECTABLE(TNEnumType)

TNEnumType::~TNEnumType() = default;

bool TNEnumType::isEqual(const RWCollectable* other) const {
    const auto* type = dynamic_cast<const TNEnumType*>(other);
    return type != nullptr && *type == *this;
}

int TNEnumType::compareTo(const RWCollectable* other) const {
    const auto* type = dynamic_cast<const TNEnumType*>(other);
    if (type == nullptr)
        return 1;
    if (m_name == type->m_name)
        return 0;
    return m_name < type->m_name ? -1 : 1;
}

unsigned TNEnumType::hash() const { return static_cast<unsigned>(std::hash<SgxString>{}(m_name)); }

void TNEnumType::addName(const SgxString& literal) {
    if (!okToAdd(literal))
        // The literal, not this type's name, goes in the enumeration type field: callers that
        // read the field expect the offending literal there.
        TNException(TNException::Create, TNException::EnumType, TNException::DuplicateName)
            .setEnumType(literal)
            .raise();
    tnReserveOneMore(m_literals);
    m_literalIndex.emplace(literal, static_cast<uint32_t>(m_literals.size()));
    m_literals.push_back(literal);
}

unsigned long TNEnumType::operator[](std::string_view literal) const {
    const auto found = m_literalIndex.find(literal);
    if (found == m_literalIndex.end())
        TNException(TNException::Access, TNException::EnumType, TNException::NameNotFound)
            .setEnumType(m_name)
            .setEnumAttr(SgxString(literal))
            .raise();
    return found->second;
}

SgxString TNEnumType::operator[](unsigned long index) const {
    if (!check(index))
        TNException(TNException::Access, TNException::EnumType, TNException::NameNotFound)
            .setEnumType(m_name)
            .raise();
    return m_literals[index];
}

void TNEnumType::donePopulating() { tnCompact(m_literals); }

void TNEnumType::saveGuts(RWvostream& stream) const {
    StartPersistence guard;
    SgxCollectable::saveGuts(stream);
    sgxStringToStream(stream, m_name);
    tnSaveStrings(stream, m_literals);
}

void TNEnumType::restoreGuts(RWvistream& stream) {
    // No guard of its own: the lists are read in place (TNRecords.h), and what their readers
    // hand to registerCollectable on a failure is freed by the enclosing guard (the schema's).
    if (!m_literals.empty())
        SgxException::raise("An enumeration type is restored only into an empty one");
    SgxCollectable::restoreGuts(stream);
    sgxStringFromStream(stream, m_name);
    std::vector<SgxString> literals = tnRestoreStrings(stream, "enumeration type");
    TNNameMap<uint32_t> index;
    index.reserve(literals.size());
    for (size_t i = 0; i < literals.size(); ++i)
        if (!index.emplace(literals[i], static_cast<uint32_t>(i)).second)
            SgxException::raise("Invalid enumeration type " + m_name + ": literal " + literals[i] +
                                " occurs twice");
    m_literals = std::move(literals);
    m_literalIndex = std::move(index);
}
