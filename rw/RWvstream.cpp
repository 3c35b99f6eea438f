#include "rw/RWvstream.h"

#include "sgx/general/SgxException.h"

#include <bit>
#include <limits>

RWvostream::~RWvostream() = default;

void RWvostream::flush() {}

RWvostream& RWvostream::operator<<(double v) { return putLE(std::bit_cast<uint64_t>(v)); }

RWvostream& RWvostream::operator<<(const SgxString& text) {
    if (text.size() > std::numeric_limits<uint32_t>::max())
        SgxException::raise("String of " + std::to_string(text.size()) +
                            " bytes is too long to store");
    putLE(static_cast<uint32_t>(text.size()));
    return put(text.data(), text.size());
}

RWvistream::~RWvistream() = default;

RWvistream& RWvistream::operator>>(double& v) {
    uint64_t bits;
    getLE<uint64_t>(bits);
    v = std::bit_cast<double>(bits);
    return *this;
}

RWvistream& RWvistream::getText(SgxString& text, uint32_t length) {
    if (length > bytesLeft())
        raiseFormatError("String length " + std::to_string(length) + " exceeds the " +
                             std::to_string(bytesLeft()) + " bytes left",
                         offset() - sizeof length);
    text.resize(length);
    if (length != 0)
        readBytes(text.data(), length);
    return *this;
}

RWvistream& RWvistream::getThroughStream(void* data, size_t size) {
    if (size > bytesLeft())
        raiseFormatError("Unexpected end of data: " + std::to_string(size) + " bytes needed, " +
                         std::to_string(bytesLeft()) + " left");
    if (size != 0)
        readBytes(data, size);
    return *this;
}

void RWvistream::checkCount(uint64_t count, uint64_t minBytesEach, const char* what) const {
    // Divide rather than multiply, so a huge count cannot wrap around and pass. What fits in the
    // window fits in the bytes left.
    if (minBytesEach == 0 || count <= static_cast<uint64_t>(m_windowEnd - m_window) / minBytesEach)
        return;
    if (count > bytesLeft() / minBytesEach)
        raiseFormatError("Count of " + std::to_string(count) + " " + what + " exceeds the " +
                         std::to_string(bytesLeft()) + " bytes left");
}

void RWvistream::raiseFormatError(const SgxString& problem) const {
    raiseFormatError(problem, offset());
}

void RWvistream::raiseFormatError(const SgxString& problem, uint64_t at) {
    SgxException::raise(problem + " at byte " + std::to_string(at));
}
