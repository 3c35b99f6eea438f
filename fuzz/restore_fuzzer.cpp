// Feeds arbitrary bytes to the collectable restore. Every input must either be read or be refused
// with SgxException, without crashing, leaking or touching freed memory.
#include "rw/RWCollectable.h"
#include "rw/RWOrdered.h"
#include "rw/RWbstream.h"
#include "sgx/general/SgxException.h"

#include <cstddef>
#include <cstdint>
#include <unordered_set>
#include <vector>

namespace {

// Objects read by a successful restore belong to the caller; the built-in classes own nothing,
// so everything reachable through collections is deleted here, each object once.
void deleteGraph(RWCollectable* root) {
    std::unordered_set<RWCollectable*> seen;
    std::vector<RWCollectable*> pending{root};
    while (!pending.empty()) {
        RWCollectable* object = pending.back();
        pending.pop_back();
        if (object == nullptr || !seen.insert(object).second)
            continue;
        if (const auto* list = dynamic_cast<const RWOrdered*>(object))
            pending.insert(pending.end(), list->begin(), list->end());
    }
    for (RWCollectable* object : seen) {
        if (auto* list = dynamic_cast<RWOrdered*>(object))
            list->clear();
        delete object;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RWbistream in(data, size);
    RWCollectable* object = nullptr;
    try {
        in >> object;
    } catch (const SgxException&) {
        return 0;
    }
    deleteGraph(object);
    return 0;
}
