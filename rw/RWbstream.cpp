#include "rw/RWbstream.h"

#include "sgx/general/SgxException.h"

#include <cstring>
#include <istream>
#include <iterator>
#include <ostream>

void RWbostream::flush() {
    m_out.flush();
    if (!m_out)
        SgxException::raise("Write error at byte " + std::to_string(m_offset));
}

void RWbostream::writeBytes(const void* data, size_t size) {
    m_out.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    if (!m_out)
        SgxException::raise("Write error at byte " + std::to_string(m_offset));
    m_offset += size;
}

RWbistream::RWbistream(std::istream& in)
    : m_owned(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()),
      m_begin(reinterpret_cast<const unsigned char*>(m_owned.data())) {
    m_window = m_begin;
    m_windowEnd = m_begin + m_owned.size();
}

void RWbistream::readBytes(void* data, size_t size) {
    // Reached only when the window cannot serve, which is never for a valid request.
    std::memcpy(data, m_window, size);
    m_window += size;
}
