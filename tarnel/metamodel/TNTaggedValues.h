// Tagged-value storage shared by the element kinds that carry tagged values (classes, attribute
// descriptors, associations): each element owns one map, and each kind has one process-wide map
// of defaults. These helpers give the lookup order that all kinds share: the element's own value,
// else the kind's default; no inheritance between elements.
#pragma once

#include "sgx/general/SgxString.h"
#include "tarnel/core/TNValue.h"

#include <functional>
#include <map>
#include <string_view>

// Tag name -> value; ordered, small, and off every per-object path.
using TNTaggedValueMap = std::map<SgxString, TNValue, std::less<>>;

// The value of tag `name` (borrowed from one of the maps), or null when neither holds it.
inline const TNValue* tnFindTaggedValue(const TNTaggedValueMap& own,
                                        const TNTaggedValueMap& defaults, std::string_view name) {
    if (const auto found = own.find(name); found != own.end())
        return &found->second;
    if (const auto found = defaults.find(name); found != defaults.end())
        return &found->second;
    return nullptr;
}

// The "alias" tag as text, falling back to `name` when it is missing or its text is empty.
inline SgxString tnAlias(const TNTaggedValueMap& own, const TNTaggedValueMap& defaults,
                         const SgxString& name) {
    const TNValue* alias = tnFindTaggedValue(own, defaults, "alias");
    SgxString text = alias != nullptr ? alias->asString() : SgxString();
    return text.empty() ? name : text;
}
