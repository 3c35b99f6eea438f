// SgxVersion: the version record each library reports through its static getVersion(), and the
// text that start-up checks show when a library is not compatible.
//
// The record holds three signed 32-bit numbers: major, minor and build kind. The tag type T names
// the library the record belongs to, so versions of different libraries do not mix by accident.
#pragma once

#include "sgx/general/SgxString.h"
#include "sgx/general/sgxgeneral_export.h"

#include <cstdint>

template <class T> class SgxVersion {
public:
    constexpr SgxVersion(int32_t major, int32_t minor, int32_t buildKind)
        : m_major(major), m_minor(minor), m_buildKind(buildKind) {}

    constexpr int32_t getMajor() const { return m_major; }
    constexpr int32_t getMinor() const { return m_minor; }
    constexpr int32_t getBuildKind() const { return m_buildKind; }

    friend constexpr bool operator==(const SgxVersion&, const SgxVersion&) = default;

private:
    int32_t m_major;
    int32_t m_minor;
    int32_t m_buildKind;
};

// The text shown when `library` finds `otherLibrary` at version `actual` but needs `major`,
// at least `minor`, and `buildKind`.
SGX_GENERAL_API SgxString versionMismatchString(const SgxString& library,
                                                const SgxString& otherLibrary, int32_t major,
                                                int32_t minor, int32_t buildKind,
                                                int32_t actualMajor, int32_t actualMinor,
                                                int32_t actualBuildKind);

template <class T>
SgxString versionMismatchString(const SgxString& library, const SgxString& otherLibrary,
                                int32_t major, int32_t minor, int32_t buildKind,
                                const SgxVersion<T>& actual) {
    return versionMismatchString(library, otherLibrary, major, minor, buildKind,
                                 actual.getMajor(), actual.getMinor(), actual.getBuildKind());
}

// The general library's own version, (1, 0, 1).
class SGX_GENERAL_API General {
public:
    static SgxVersion<General> getVersion();
};
