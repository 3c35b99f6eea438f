// TNMetamodelVersion: the kind and version of metamodel that a schema states it describes, and
// requirement checks against it.
//
// A schema states its version through a marker class named "MetamodelVersion" whose attribute
// names carry the values: "kind_<text>", "major_<number>", "minor_<number>" (prefixes matched
// case-sensitively; numbers read as C atoi reads them, so trailing text is ignored and a missing
// number reads 0; when a prefix occurs twice, the later attribute wins). A plain value type: it
// copies its three fields and borrows nothing.
#pragma once

#include "sgx/general/SgxString.h"
#include "tarnel/tarnel_export.h"

#include <cstdint>

class TNSchema;

class TARNEL_API TNMetamodelVersion {
public:
    // Kind "<<none>>", major and minor -1.
    TNMetamodelVersion() = default;
    TNMetamodelVersion(const SgxString& kind, int major, int minor)
        : m_kind(kind), m_major(major), m_minor(minor) {}
    // The defaults, then whatever the attributes of `schema`'s class "MetamodelVersion" state, in
    // attribute order. A schema without that class yields the defaults. Never raises.
    explicit TNMetamodelVersion(const TNSchema& schema);

    SgxString getKind() const { return m_kind; }
    int getMajorVersion() const { return m_major; }
    int getMinorVersion() const { return m_minor; }

    // True exactly when `kind` and `major` equal this version's and `minor` is at most this
    // minor (a newer minor is compatible, a different major in either direction is not).
    bool meetsRequirement(const SgxString& kind, int major, int minor) const {
        return kind == m_kind && major == m_major && minor <= m_minor;
    }

private:
    SgxString m_kind = "<<none>>";
    int32_t m_major = -1;
    int32_t m_minor = -1;
};
