// RWvostream and RWvistream: the abstract binary streams that persistable objects write their
// guts to and read them from.
//
// Every primitive has exactly one encoding, fixed here and shared by every stream and by RWFile:
// integers little-endian in their own width (8, 16, 32 or 64 bits), doubles as the 64-bit
// IEEE-754 pattern, strings as a 32-bit length followed by the bytes. The encoding functions are
// not virtual; a concrete stream supplies only where bytes go (writeBytes) or come from
// (readBytes, bytesLeft, offset). So two streams given the same calls hold the same bytes.
//
// An input stream trusts nothing it reads: every length is checked against bytesLeft() before
// anything is allocated, and every failure raises SgxException naming what was wrong and the byte
// offset where it was found. Streams are used by one thread at a time; they borrow whatever they
// read from or write to.
#pragma once

#include "rw/rwtools_export.h"
#include "sgx/general/SgxString.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

class RWSaveContext;
class RWRestoreContext;
struct RWStreamAccess;

class RWTOOLS_API RWvostream {
public:
    RWvostream() = default;
    RWvostream(const RWvostream&) = delete;
    RWvostream& operator=(const RWvostream&) = delete;
    virtual ~RWvostream();

    RWvostream& operator<<(char v) { return put8(static_cast<uint8_t>(v)); }
    RWvostream& operator<<(int8_t v) { return put8(static_cast<uint8_t>(v)); }
    RWvostream& operator<<(uint8_t v) { return put8(v); }
    RWvostream& operator<<(int16_t v) { return putLE(static_cast<uint16_t>(v)); }
    RWvostream& operator<<(uint16_t v) { return putLE(v); }
    RWvostream& operator<<(int32_t v) { return putLE(static_cast<uint32_t>(v)); }
    RWvostream& operator<<(uint32_t v) { return putLE(v); }
    RWvostream& operator<<(int64_t v) { return putLE(static_cast<uint64_t>(v)); }
    RWvostream& operator<<(uint64_t v) { return putLE(v); }
    RWvostream& operator<<(double v);
    // A bool would otherwise be widened to 32 bits silently; write it as a sized integer.
    RWvostream& operator<<(bool) = delete;
    // A 32-bit length, then the bytes. Raises SgxException when the text is 4 GiB or longer.
    RWvostream& operator<<(const SgxString& text);

    // Writes `size` raw bytes.
    RWvostream& put(const void* data, size_t size) {
        writeBytes(data, size);
        return *this;
    }
    // Passes buffered bytes on to the destination; raises SgxException when that fails.
    virtual void flush();
    // Bytes written through this stream so far.
    virtual uint64_t offset() const = 0;

protected:
    // Writes `size` bytes or raises SgxException.
    virtual void writeBytes(const void* data, size_t size) = 0;

private:
    friend struct RWStreamAccess;

    RWvostream& put8(uint8_t v) { return put(&v, 1); }
    template <class U> RWvostream& putLE(U v) {
        unsigned char bytes[sizeof(U)];
        for (size_t i = 0; i < sizeof(U); ++i)
            bytes[i] = static_cast<unsigned char>(v >> (8 * i));
        return put(bytes, sizeof(U));
    }

    RWSaveContext* m_saveContext = nullptr; // set while a recursive store runs on this stream
};

class RWTOOLS_API RWvistream {
public:
    RWvistream() = default;
    RWvistream(const RWvistream&) = delete;
    RWvistream& operator=(const RWvistream&) = delete;
    virtual ~RWvistream();

    RWvistream& operator>>(char& v) { return get8(v); }
    RWvistream& operator>>(int8_t& v) { return get8(v); }
    RWvistream& operator>>(uint8_t& v) { return get8(v); }
    RWvistream& operator>>(int16_t& v) { return getLE<uint16_t>(v); }
    RWvistream& operator>>(uint16_t& v) { return getLE<uint16_t>(v); }
    RWvistream& operator>>(int32_t& v) { return getLE<uint32_t>(v); }
    RWvistream& operator>>(uint32_t& v) { return getLE<uint32_t>(v); }
    RWvistream& operator>>(int64_t& v) { return getLE<uint64_t>(v); }
    RWvistream& operator>>(uint64_t& v) { return getLE<uint64_t>(v); }
    RWvistream& operator>>(double& v);
    // Reads a 32-bit length and that many bytes; raises SgxException when the length exceeds the
    // bytes left.
    RWvistream& operator>>(SgxString& text) {
        uint32_t length;
        getLE<uint32_t>(length);
        // The window holds no more than the bytes left, so text it holds needs no further check.
        if (static_cast<size_t>(m_windowEnd - m_window) >= length) [[likely]] {
            text.assign(reinterpret_cast<const char*>(m_window), length);
            m_window += length;
            return *this;
        }
        return getText(text, length);
    }

    // Reads exactly `size` raw bytes; raises SgxException when fewer are left.
    RWvistream& get(void* data, size_t size) {
        if (static_cast<size_t>(m_windowEnd - m_window) >= size) [[likely]] {
            if (size != 0)
                std::memcpy(data, m_window, size);
            m_window += size;
            return *this;
        }
        return getThroughStream(data, size);
    }

    // Bytes that can still be read.
    virtual uint64_t bytesLeft() const = 0;
    // Bytes read through this stream so far; error messages cite it.
    virtual uint64_t offset() const = 0;

    // Raises SgxException unless `count` items of at least `minBytesEach` bytes each fit in the
    // bytes left (checked without overflow). Call it before reserving room for a count read from
    // the stream. `what` names the items in the message ("elements", "characters").
    void checkCount(uint64_t count, uint64_t minBytesEach, const char* what) const;
    // Raises SgxException with `problem` + " at byte " + offset() (or + `at`).
    [[noreturn]] void raiseFormatError(const SgxString& problem) const;
    [[noreturn]] static void raiseFormatError(const SgxString& problem, uint64_t at);

protected:
    // Reads `size` bytes; called only when `size` <= bytesLeft() and the window (below) is empty.
    virtual void readBytes(void* data, size_t size) = 0;

    // A stream over bytes in memory points the window at the bytes it has left; reads then take
    // them from there without a virtual call per value (a schema file is hundreds of thousands of
    // small values). The stream's bytesLeft() and offset() must count what the window consumed.
    // Other streams leave the window empty.
    const unsigned char* m_window = nullptr;
    const unsigned char* m_windowEnd = nullptr;

private:
    friend struct RWStreamAccess;
    RWvistream& getThroughStream(void* data, size_t size);
    // The rest of operator>>(SgxString&) when the window cannot serve.
    RWvistream& getText(SgxString& text, uint32_t length);

    template <class T> RWvistream& get8(T& v) {
        unsigned char byte;
        get(&byte, 1);
        v = static_cast<T>(byte);
        return *this;
    }
    template <class U, class T> RWvistream& getLE(T& v) {
        unsigned char bytes[sizeof(U)];
        get(bytes, sizeof(U));
        U u = 0;
        for (size_t i = 0; i < sizeof(U); ++i)
            u = static_cast<U>(u | (static_cast<U>(bytes[i]) << (8 * i)));
        v = static_cast<T>(u);
        return *this;
    }

    RWRestoreContext* m_restoreContext =
        nullptr; // set while a recursive restore runs on this stream
};

// An output stream that keeps nothing and counts the bytes; binary store sizes are measured by
// writing to one.
class RWTOOLS_API RWCountingOStream : public RWvostream {
public:
    uint64_t offset() const override { return m_count; }

protected:
    void writeBytes(const void*, size_t size) override { m_count += size; }

private:
    uint64_t m_count = 0;
};
