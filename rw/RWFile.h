// RWFile: a binary file of fixed-width little-endian values, and the adapters that let the
// virtual-stream code path write to it and read from it.
//
// An RWFile owns its open file and closes it when destroyed. It is opened either for reading
// ("rb": the file must exist) or for writing ("wb": created or truncated). Every typed Read and
// Write goes through RWFileOStream / RWFileIStream, that is through the encoding of RWvostream /
// RWvistream, so a file and a binary stream given the same values hold the same bytes. Reads
// check the bytes left in the file (its size when it was opened, minus what was read) and raise
// SgxException naming the file and byte offset on any shortfall; writes raise SgxException when
// the system refuses them.
#pragma once

#include "rw/RWvstream.h"
#include "rw/rwtools_export.h"
#include "sgx/general/SgxString.h"

#include <cstdint>
#include <cstdio>

class RWTOOLS_API RWFile {
public:
    // Opens `name` with `mode` "rb" or "wb". A file that cannot be opened leaves the object
    // invalid (isValid() false) rather than raising; any other mode raises SgxException.
    RWFile(const SgxString& name, const char* mode);
    RWFile(const RWFile&) = delete;
    RWFile& operator=(const RWFile&) = delete;
    // Closes the file; errors while closing are ignored here (call Close() to see them).
    ~RWFile();

    // Whether the file was opened.
    bool isValid() const { return m_file != nullptr; }
    // Whether a file of this name exists now.
    bool Exists() const;
    // Whether the file holds no bytes; true as well when it could not be opened.
    bool IsEmpty() const;
    const SgxString& GetName() const { return m_name; }
    // Bytes read or written so far.
    uint64_t CurOffset() const { return m_offset; }
    // Bytes left to read (0 for a file opened for writing).
    uint64_t bytesLeft() const { return m_file != nullptr && !m_writing ? m_size - m_offset : 0; }
    // Pushes buffered output to the system; raises SgxException when that fails.
    void Flush();
    // Closes the file (the object becomes invalid); raises SgxException when a buffered write
    // fails. Closing twice does nothing.
    void Close();

    void Write(char v);
    void Write(int8_t v);
    void Write(uint8_t v);
    void Write(int16_t v);
    void Write(uint16_t v);
    void Write(int32_t v);
    void Write(uint32_t v);
    void Write(int64_t v);
    void Write(uint64_t v);
    void Write(double v);
    // A 32-bit length, then the bytes.
    void Write(const SgxString& text);
    // `size` raw bytes.
    void Write(const void* data, size_t size);
    // A bare C string would otherwise silently pick an unintended overload.
    void Write(const char*) = delete;
    void Write(bool) = delete;

    void Read(char& v);
    void Read(int8_t& v);
    void Read(uint8_t& v);
    void Read(int16_t& v);
    void Read(uint16_t& v);
    void Read(int32_t& v);
    void Read(uint32_t& v);
    void Read(int64_t& v);
    void Read(uint64_t& v);
    void Read(double& v);
    void Read(SgxString& text);
    void Read(void* data, size_t size);

private:
    friend class RWFileOStream;
    friend class RWFileIStream;

    void writeRaw(const void* data, size_t size);
    void readRaw(void* data, size_t size);
    void requireOpen(bool forWriting) const {
        if (m_file == nullptr || m_writing != forWriting)
            raiseNotOpen(forWriting);
    }
    [[noreturn]] void raiseNotOpen(bool forWriting) const;

    SgxString m_name;
    std::FILE* m_file = nullptr;
    bool m_writing = false;
    uint64_t m_size = 0; // size at opening, for reads
    uint64_t m_offset = 0;
};

// The output stream view of an RWFile opened "wb": writes go straight to the file. Cheap to make;
// a store on an RWFile makes one for the duration of the call.
class RWTOOLS_API RWFileOStream : public RWvostream {
public:
    // Raises SgxException when `file` is not open for writing.
    explicit RWFileOStream(RWFile& file) : m_file(file) { file.requireOpen(true); }
    void flush() override { m_file.Flush(); }
    uint64_t offset() const override { return m_file.CurOffset(); }

protected:
    void writeBytes(const void* data, size_t size) override { m_file.writeRaw(data, size); }

private:
    RWFile& m_file;
};

// The input stream view of an RWFile opened "rb"; offsets are those of the file.
class RWTOOLS_API RWFileIStream : public RWvistream {
public:
    // Raises SgxException when `file` is not open for reading.
    explicit RWFileIStream(RWFile& file) : m_file(file) { file.requireOpen(false); }
    uint64_t bytesLeft() const override { return m_file.bytesLeft(); }
    uint64_t offset() const override { return m_file.CurOffset(); }

protected:
    void readBytes(void* data, size_t size) override { m_file.readRaw(data, size); }

private:
    RWFile& m_file;
};
