#include "tarnel/metamodel/TNMetamodelVersion.h"

#include "tarnel/core/TNValue.h"
#include "tarnel/metamodel/TNAttrDesc.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNSchema.h"

#include <string_view>

namespace {

// The number after a prefix, read as C atoi reads it (TNValue's text-to-integer rule: leading
// blanks, optional sign, digits, clamped to 32 bits; 0 when there is none).
int32_t numberAfter(const SgxString& name, size_t prefixLength) {
    return TNValue(name.substr(prefixLength)).asLongInt();
}

} // namespace

TNMetamodelVersion::TNMetamodelVersion(const TNSchema& schema) {
    // A schema that states no version keeps the defaults, which meet no real requirement.
    if (!schema.classExists("MetamodelVersion"))
        return;
    for (const auto& desc : schema.getClass("MetamodelVersion")->attributes()) {
        const SgxString name = desc->name();
        const std::string_view view(name);
        if (view.starts_with("kind_"))
            m_kind = name.substr(5);
        else if (view.starts_with("major_"))
            m_major = numberAfter(name, 6);
        else if (view.starts_with("minor_"))
            m_minor = numberAfter(name, 6);
    }
}
