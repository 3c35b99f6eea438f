// Process-wide statistics of the general library: container shrinks.
//
// Code that trims a container's capacity to its size reports it through countShrinks(); benchmarks
// and diagnostics read the totals with shrinkStatistics(). The totals are process-wide and safe
// to update from any thread.
#pragma once

#include "sgx/general/sgxgeneral_export.h"

#include <cstddef>
#include <cstdint>

// Totals of the shrinks reported so far in this process.
struct SgxShrinkStatistics {
    uint64_t count = 0;         // shrinks reported
    uint64_t bytesReleased = 0; // (old capacity - new size) x element size, summed
};

// Records one shrink of a container from `oldCapacity` elements of `elementSize` bytes to
// `newSize` elements. A call that releases nothing (oldCapacity <= newSize) records nothing.
// Never raises; totals saturate instead of wrapping.
SGX_GENERAL_API void countShrinks(size_t oldCapacity, size_t newSize, size_t elementSize) noexcept;

// A snapshot of the totals.
SGX_GENERAL_API SgxShrinkStatistics shrinkStatistics() noexcept;
