#include "sgx/general/SgxVersion.h"

SgxVersion<General> General::getVersion() { return {1, 0, 1}; }

namespace {
SgxString versionText(int32_t major, int32_t minor, int32_t buildKind) {
    return std::to_string(major) + "." + std::to_string(minor) + " (build kind " +
           std::to_string(buildKind) + ")";
}
} // namespace

SgxString versionMismatchString(const SgxString& library, const SgxString& otherLibrary,
                                int32_t major, int32_t minor, int32_t buildKind,
                                int32_t actualMajor, int32_t actualMinor,
                                int32_t actualBuildKind) {
    return "Version mismatch: " + library + " requires " + otherLibrary + " " +
           versionText(major, minor, buildKind) + " or a later minor version; found " +
           versionText(actualMajor, actualMinor, actualBuildKind);
}
