// The persistence library's string persistence: a 32-bit length, then the bytes, the same on a
// file and on a virtual stream. Readers raise SgxException when the length exceeds what is left.
#pragma once

#include "rw/RWFile.h"
#include "rw/RWvstream.h"
#include "sgx/general/SgxString.h"
#include "sgx/persistence/sgxpersistence_export.h"

SGX_PERSISTENCE_API void sgxStringToFile(RWFile& file, const SgxString& text);
SGX_PERSISTENCE_API void sgxStringFromFile(RWFile& file, SgxString& text);
SGX_PERSISTENCE_API void sgxStringToStream(RWvostream& stream, const SgxString& text);
SGX_PERSISTENCE_API void sgxStringFromStream(RWvistream& stream, SgxString& text);
