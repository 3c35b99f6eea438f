// Tarnel: this library's version record and its start-up checks of the general and persistence
// libraries it was built against.
//
// The checks run once per process, during static initialisation of the library and in any case
// before the first persistable class registers itself with the collectable factory. An
// incompatible library is fatal: the mismatch is shown on standard error and the process exits
// with status 1; no exception reaches the host.
#pragma once

#include "sgx/general/SgxString.h"
#include "sgx/general/SgxVersion.h"
#include "tarnel/tarnel_export.h"

#include <cstdint>

class TARNEL_API Tarnel {
public:
    // This library's own version, (1, 0, 1).
    static SgxVersion<Tarnel> getVersion();
};

// Whether a library reporting `actual` serves a client built for version (major, minor,
// buildKind): the major and the build kind must be equal, the minor at least `minor`.
template <class T>
constexpr bool tnVersionCompatible(int32_t major, int32_t minor, int32_t buildKind,
                                   const SgxVersion<T>& actual) {
    return actual.getMajor() == major && actual.getBuildKind() == buildKind &&
           actual.getMinor() >= minor;
}

// Returns when `actual` is compatible with (major, minor, buildKind); otherwise shows
// versionMismatchString("Tarnel", library, ...) through SgxException::showWhy() and ends the
// process with exit status 1.
TARNEL_API void tnRequireVersion(const SgxString& library, int32_t major, int32_t minor,
                                 int32_t buildKind, int32_t actualMajor, int32_t actualMinor,
                                 int32_t actualBuildKind);

template <class T>
void tnRequireVersion(const SgxString& library, int32_t major, int32_t minor, int32_t buildKind,
                      const SgxVersion<T>& actual) {
    tnRequireVersion(library, major, minor, buildKind, actual.getMajor(), actual.getMinor(),
                     actual.getBuildKind());
}

// Runs the start-up checks of the general library (1, at least 0, build kind 1) and the
// persistence library (2, at least 0, build kind 1) the first time it is called, then begins the
// process-wide StartPersistence guard, whose end at unload calls cleanUpAfterPersistence().
// Later calls return at once.
TARNEL_API void tnStartUp();
