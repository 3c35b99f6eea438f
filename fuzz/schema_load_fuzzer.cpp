// Feeds arbitrary bytes to the schema reader, as a schema file would bring them. Every input must
// either load into a schema or be refused with SgxException, without crashing, leaking, touching
// freed memory or hanging. A schema that loads is also populated a little and written again, so
// that what the reader accepts is known to be usable.
#include "rw/RWbstream.h"
#include "sgx/general/SgxException.h"
#include "tarnel/instances/TNObject.h"
#include "tarnel/metamodel/TNClass.h"
#include "tarnel/metamodel/TNSchema.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RWbistream in(data, size);
    std::unique_ptr<TNSchema> schema;
    try {
        schema.reset(TNSchema::loadFrom(in).get());
    } catch (const SgxException&) {
        return 0;
    }
    try {
        for (const auto& cls : schema->classes())
            cls->newObject(false);
        schema->donePopulating();
        std::ostringstream out;
        RWbostream stream(out);
        schema->saveTo(stream);
    } catch (const SgxException&) {
        // A model error on a strange but well-formed schema is a clear refusal too.
    }
    return 0;
}
