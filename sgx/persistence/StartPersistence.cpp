#include "sgx/persistence/StartPersistence.h"

#include "sgx/general/SgxPointerIndex.h"

#include <vector>

namespace {

struct Registry {
    std::vector<RWCollectable*> objects; // in registration order
    SgxPointerIndex known;                // the same objects, for the check of a second entry
    std::vector<size_t> marks; // objects.size() when each live guard began, outermost first
};

// Never destroyed: a process-wide guard in another library may end after this library's statics.
Registry& registry() {
    static Registry* const instance = new Registry;
    return *instance;
}

} // namespace

void registerCollectable(RWCollectable* object) {
    Registry& r = registry();
    if (object == nullptr || r.known.find(object) != nullptr)
        return;
    // Adopt first: when the data claimed the object twice, the restore fails and still owns it.
    rwAdopt(object);
    r.objects.push_back(object);
    try {
        r.known.insert(object, 0);
    } catch (...) {
        r.objects.pop_back();
        throw;
    }
}

void cleanUpAfterPersistence() {
    Registry& r = registry();
    const size_t from = r.marks.empty() ? 0 : r.marks.back();
    while (r.objects.size() > from) {
        RWCollectable* object = r.objects.back();
        r.objects.pop_back();
        uint32_t unused;
        r.known.erase(object, unused);
        delete object;
    }
}

size_t registeredCollectables() { return registry().objects.size(); }

StartPersistence::StartPersistence() : m_level(registry().marks.size()) {
    registry().marks.push_back(registry().objects.size());
}

StartPersistence::~StartPersistence() {
    Registry& r = registry();
    // Guards end innermost first. An enclosing guard that ended before this one already cleaned
    // up this one's objects; one that this guard outlived left marks to drop with this one.
    if (r.marks.size() <= m_level)
        return;
    if (r.marks.size() > m_level + 1)
        r.marks.resize(m_level + 1);
    cleanUpAfterPersistence();
    r.marks.pop_back();
}
