#include "rw/RWFile.h"

#include "sgx/general/SgxException.h"

#include <cstring>
#include <filesystem>
#include <sys/stat.h>

RWFile::RWFile(const SgxString& name, const char* mode) : m_name(name) {
    const bool reading = mode != nullptr && std::strcmp(mode, "rb") == 0;
    m_writing = mode != nullptr && std::strcmp(mode, "wb") == 0;
    if (!reading && !m_writing)
        SgxException::raise("Unsupported file mode \"" + SgxString(mode ? mode : "") + "\" for " +
                            name + "; use \"rb\" or \"wb\"");
    m_file = std::fopen(name.c_str(), mode);
    if (m_file == nullptr || m_writing)
        return;
    // The size is taken once: reads are checked against it, and a reader needs a regular file
    // whose size means something (a directory or a pipe is refused like a missing file).
    struct stat info {};
    if (::fstat(fileno(m_file), &info) != 0 || !S_ISREG(info.st_mode)) {
        std::fclose(m_file);
        m_file = nullptr;
        return;
    }
    m_size = static_cast<uint64_t>(info.st_size);
}

RWFile::~RWFile() {
    if (m_file != nullptr)
        std::fclose(m_file);
}

bool RWFile::Exists() const {
    std::error_code error;
    return std::filesystem::exists(m_name, error);
}

bool RWFile::IsEmpty() const {
    if (m_file == nullptr)
        return true;
    return m_writing ? m_offset == 0 : m_size == 0;
}

void RWFile::Flush() {
    if (m_file != nullptr && std::fflush(m_file) != 0)
        SgxException::raise("Error writing file " + m_name);
}

void RWFile::Close() {
    if (m_file == nullptr)
        return;
    const int result = std::fclose(m_file);
    m_file = nullptr;
    if (result != 0)
        SgxException::raise("Error writing file " + m_name);
}

void RWFile::Write(char v) { RWFileOStream(*this) << v; }
void RWFile::Write(int8_t v) { RWFileOStream(*this) << v; }
void RWFile::Write(uint8_t v) { RWFileOStream(*this) << v; }
void RWFile::Write(int16_t v) { RWFileOStream(*this) << v; }
void RWFile::Write(uint16_t v) { RWFileOStream(*this) << v; }
void RWFile::Write(int32_t v) { RWFileOStream(*this) << v; }
void RWFile::Write(uint32_t v) { RWFileOStream(*this) << v; }
void RWFile::Write(int64_t v) { RWFileOStream(*this) << v; }
void RWFile::Write(uint64_t v) { RWFileOStream(*this) << v; }
void RWFile::Write(double v) { RWFileOStream(*this) << v; }
void RWFile::Write(const SgxString& text) { RWFileOStream(*this) << text; }
void RWFile::Write(const void* data, size_t size) { writeRaw(data, size); }

void RWFile::Read(char& v) { RWFileIStream(*this) >> v; }
void RWFile::Read(int8_t& v) { RWFileIStream(*this) >> v; }
void RWFile::Read(uint8_t& v) { RWFileIStream(*this) >> v; }
void RWFile::Read(int16_t& v) { RWFileIStream(*this) >> v; }
void RWFile::Read(uint16_t& v) { RWFileIStream(*this) >> v; }
void RWFile::Read(int32_t& v) { RWFileIStream(*this) >> v; }
void RWFile::Read(uint32_t& v) { RWFileIStream(*this) >> v; }
void RWFile::Read(int64_t& v) { RWFileIStream(*this) >> v; }
void RWFile::Read(uint64_t& v) { RWFileIStream(*this) >> v; }
void RWFile::Read(double& v) { RWFileIStream(*this) >> v; }
void RWFile::Read(SgxString& text) { RWFileIStream(*this) >> text; }
void RWFile::Read(void* data, size_t size) { RWFileIStream(*this).get(data, size); }

void RWFile::writeRaw(const void* data, size_t size) {
    requireOpen(true);
    if (size != 0 && std::fwrite(data, 1, size, m_file) != size)
        SgxException::raise("Error writing file " + m_name + " at byte " +
                            std::to_string(m_offset));
    m_offset += size;
}

void RWFile::readRaw(void* data, size_t size) {
    requireOpen(false);
    if (size != 0 && std::fread(data, 1, size, m_file) != size)
        SgxException::raise("Error reading file " + m_name + " at byte " +
                            std::to_string(m_offset));
    m_offset += size;
}

void RWFile::raiseNotOpen(bool forWriting) const {
    SgxException::raise("File " + m_name + " is not open for " +
                        (forWriting ? "writing" : "reading"));
}
