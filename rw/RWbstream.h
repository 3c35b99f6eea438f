// RWbostream and RWbistream: the binary implementations of the virtual streams, over standard
// streams and byte buffers. They write and read exactly the bytes that RWFile does.
//
// RWbostream borrows the std::ostream it writes to. RWbistream either borrows a byte buffer or
// takes the rest of a std::istream into a buffer of its own when it is constructed, so that the
// bytes left are always known and every length read can be checked against them.
#pragma once

#include "rw/RWvstream.h"

#include <iosfwd>
#include <string>

class RWTOOLS_API RWbostream : public RWvostream {
public:
    // Writes to `out`, which must outlive the stream.
    explicit RWbostream(std::ostream& out) : m_out(out) {}

    // Flushes `out`; raises SgxException when it is in a failed state.
    void flush() override;
    uint64_t offset() const override { return m_offset; }

protected:
    // Raises SgxException "Write error at byte N" when the std::ostream fails.
    void writeBytes(const void* data, size_t size) override;

private:
    std::ostream& m_out;
    uint64_t m_offset = 0;
};

class RWTOOLS_API RWbistream : public RWvistream {
public:
    // Reads from `size` bytes at `data`, borrowed: they must outlive the stream.
    RWbistream(const void* data, size_t size)
        : m_begin(static_cast<const unsigned char*>(data)) {
        m_window = m_begin;
        m_windowEnd = m_begin + size;
    }
    // Reads everything that is left in `in` into a buffer owned by this stream.
    explicit RWbistream(std::istream& in);

    uint64_t bytesLeft() const override { return static_cast<uint64_t>(m_windowEnd - m_window); }
    uint64_t offset() const override { return static_cast<uint64_t>(m_window - m_begin); }

protected:
    void readBytes(void* data, size_t size) override;

private:
    std::string m_owned; // the bytes taken from a std::istream; empty when borrowing
    const unsigned char* m_begin; // the bytes left are the window of RWvistream
};
