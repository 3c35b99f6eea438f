#include "tarnel/metamodel/TNAttrDesc.h"

#include "sgx/persistence/SgxStringPersistence.h"
#include "tarnel/core/TNException.h"
#include "tarnel/core/TNRecords.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNEnumType.h"
#include "tarnel/metamodel/TNSchema.h"
#include "tarnel/metamodel/TNTaggedValues.h"

#include <algorithm>
#include <functional>

TN_DEFINE_COLLECTABLE(TNAttrDesc)

namespace {

// The defaults of every attribute descriptor's tagged values, for the life of the process.
TNTaggedValueMap& descriptorTaggedValueDefaults() {
    static TNTaggedValueMap defaults;
    return defaults;
}

} // namespace

TNAttrDesc::TNAttrDesc(SgxSimplePtr<TNClass> cls, const SgxString& name, TNAttrType type,
                       const SgxString& originClass, const SgxString& enumTypeName)
    : m_typeWord(type), m_class(cls), m_name(name), m_originClass(originClass) {
    if ((m_typeWord & kindMask) == TNAttrEnumeration)
        m_enumType = cls->schema()->getEnumType(enumTypeName);
}

TNAttrDesc::~TNAttrDesc() = default;

void TNAttrDesc::saveGuts(RWvostream& stream) const {
    SgxCollectable::saveGuts(stream);
    sgxStringToStream(stream, m_name);
    stream << m_typeWord;
    stream << static_cast<const RWCollectable*>(m_class.get());
    stream << static_cast<const RWCollectable*>(m_enumType.get());
    sgxStringToStream(stream, m_originClass);
}

void TNAttrDesc::restoreGuts(RWvistream& stream) {
    SgxCollectable::restoreGuts(stream);
    sgxStringFromStream(stream, m_name);
    stream >> m_typeWord;
    m_class = tnRestoreReference<TNClass>(stream, "attribute descriptor", "TNClass");
    m_enumType = tnRestoreReference<TNEnumType>(stream, "attribute descriptor", "TNEnumType");
    sgxStringFromStream(stream, m_originClass);
    m_position = -1;
}

bool TNAttrDesc::isEqual(const RWCollectable* other) const {
    const auto* desc = dynamic_cast<const TNAttrDesc*>(other);
    return desc != nullptr && *desc == *this;
}

int TNAttrDesc::compareTo(const RWCollectable* other) const {
    if (isEqual(other))
        return 0;
    const auto* desc = dynamic_cast<const TNAttrDesc*>(other);
    return desc != nullptr && m_name < desc->m_name ? -1 : 1;
}

unsigned TNAttrDesc::hash() const { return static_cast<unsigned>(std::hash<SgxString>{}(m_name)); }

bool TNAttrDesc::isInherited() const {
    const auto parents = m_class->parents();
    return std::any_of(parents.begin(), parents.end(), [&](const SgxSimplePtr<TNClass>& parent) {
        return parent->attributeExists(m_name);
    });
}

SgxString TNAttrDesc::alias() const {
    return tnAlias(m_taggedValues, descriptorTaggedValueDefaults(), m_name);
}

TNValue TNAttrDesc::taggedValue(const SgxString& name) const {
    if (const TNValue* value =
            tnFindTaggedValue(m_taggedValues, descriptorTaggedValueDefaults(), name))
        return *value;
    TNException(TNException::Access, TNException::TaggedValue, TNException::NameNotFound)
        .setAttr(m_name)
        .setInfo(name)
        .raise();
}

void TNAttrDesc::taggedValue(const SgxString& name, const TNValue& value) {
    m_taggedValues.insert_or_assign(name, value);
}

void TNAttrDesc::taggedValueDefault(const SgxString& name, const TNValue& value) {
    descriptorTaggedValueDefaults().insert_or_assign(name, value);
}

TNAttrEvaluator::~TNAttrEvaluator() = default;
