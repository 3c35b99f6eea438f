#include "tarnel/core/Tarnel.h"

#include "sgx/general/SgxException.h"
#include "sgx/persistence/Persistence.h"
#include "sgx/persistence/StartPersistence.h"

#include <cstdlib>

SgxVersion<Tarnel> Tarnel::getVersion() { return {1, 0, 1}; }

void tnRequireVersion(const SgxString& library, int32_t major, int32_t minor, int32_t buildKind,
                      int32_t actualMajor, int32_t actualMinor, int32_t actualBuildKind) {
    if (tnVersionCompatible(major, minor, buildKind,
                            SgxVersion<void>(actualMajor, actualMinor, actualBuildKind)))
        return;
    SgxException(versionMismatchString("Tarnel", library, major, minor, buildKind, actualMajor,
                                       actualMinor, actualBuildKind))
        .showWhy();
    std::exit(1);
}

void tnStartUp() {
    // A function-local static runs the checks exactly once, whichever translation unit's static
    // initialisation reaches here first.
    static const bool checked = [] {
        tnRequireVersion("General", 1, 0, 1, General::getVersion());
        tnRequireVersion("Persistence", 2, 0, 1, Persistence::getVersion());
        return true;
    }();
    (void)checked;
    // The process-wide persistence guard. Made here, after the checks and before the first class
    // registers, it ends after every class has left the factory and frees what is left over.
    static StartPersistence processWide;
}

namespace {
// Loading the library runs the checks even before any persistable class registers.
[[maybe_unused]] const bool startedAtLoad = (tnStartUp(), true);
} // namespace
