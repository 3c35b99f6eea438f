#include "sgx/general/SgxStatistics.h"

#include <atomic>
#include <limits>

namespace {
std::atomic<uint64_t> s_shrinkCount{0};
std::atomic<uint64_t> s_bytesReleased{0};

uint64_t saturatingAdd(uint64_t a, uint64_t b) {
    uint64_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? std::numeric_limits<uint64_t>::max() : sum;
}
} // namespace

void countShrinks(size_t oldCapacity, size_t newSize, size_t elementSize) noexcept {
    if (oldCapacity <= newSize)
        return;
    uint64_t bytes = 0;
    if (__builtin_mul_overflow(uint64_t{oldCapacity - newSize}, uint64_t{elementSize}, &bytes))
        bytes = std::numeric_limits<uint64_t>::max();
    s_shrinkCount.fetch_add(1, std::memory_order_relaxed);
    uint64_t total = s_bytesReleased.load(std::memory_order_relaxed);
    while (!s_bytesReleased.compare_exchange_weak(total, saturatingAdd(total, bytes),
                                                  std::memory_order_relaxed)) {
    }
}

SgxShrinkStatistics shrinkStatistics() noexcept {
    return {s_shrinkCount.load(std::memory_order_relaxed),
            s_bytesReleased.load(std::memory_order_relaxed)};
}
