#include "sgx/persistence/SgxStringPersistence.h"

// One encoding: the file forms go through the file's stream view, as every RWFile write does.
void sgxStringToFile(RWFile& file, const SgxString& text) { file.Write(text); }
void sgxStringFromFile(RWFile& file, SgxString& text) { file.Read(text); }
void sgxStringToStream(RWvostream& stream, const SgxString& text) { stream << text; }
void sgxStringFromStream(RWvistream& stream, SgxString& text) { stream >> text; }
