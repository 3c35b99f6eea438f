#include "sgx/general/SgxInstanceId.h"

#include <atomic>

uint64_t SgxInstanceId::next() noexcept {
    static std::atomic<uint64_t> given{0};
    return given.fetch_add(1, std::memory_order_relaxed) + 1;
}
