#include "tarnel/import/internal/TNXmlReader.h"

#include <expat.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>

namespace tn_import {

namespace {
// Big enough that a read and a parse call are rare next to the events in them; small enough to
// keep memory flat. Files are read straight into expat's buffer, which then needs no copy.
constexpr size_t chunkSize = 1 << 18;
// Documents held in memory go to expat in pieces, since expat copies what it is given.
constexpr size_t bufferPiece = 1 << 16;
} // namespace

// Exceptions never cross expat's C frames: each callback catches, records the first error and
// stops the parser; parsed() raises it once expat has returned.
struct XmlReader::Callbacks {
    template <class F> static void guarded(void* data, F&& f) {
        auto& reader = *static_cast<XmlReader*>(data);
        if (reader.m_error)
            return;
        try {
            f(reader);
        } catch (...) {
            reader.m_error = std::current_exception();
            XML_StopParser(static_cast<XML_Parser>(reader.m_parser), XML_FALSE);
        }
    }
    static void start(void* data, const XML_Char* name, const XML_Char** attrs) {
        guarded(data, [&](XmlReader& r) {
            if (++r.m_depth > r.m_limits.maxDepth)
                r.fail("elements nested deeper than " + std::to_string(r.m_limits.maxDepth));
            r.m_handler.startElement(name, attrs);
        });
    }
    static void end(void* data, const XML_Char*) {
        guarded(data, [&](XmlReader& r) {
            --r.m_depth;
            r.m_handler.endElement();
        });
    }
    static void text(void* data, const XML_Char* chars, int length) {
        guarded(data, [&](XmlReader& r) {
            r.m_handler.text(std::string_view(chars, static_cast<size_t>(length)));
        });
    }
    static void doctype(void* data, const XML_Char*, const XML_Char*, const XML_Char*, int) {
        guarded(data, [&](XmlReader& r) { r.fail("document type declarations are not accepted"); });
    }
};

XmlReader::XmlReader(std::string fileName, const TNImportLimits& limits, XmlHandler& handler)
    : m_fileName(std::move(fileName)), m_limits(limits), m_handler(handler),
      m_parser(XML_ParserCreate(nullptr)) {
    if (!m_parser)
        throw TNImportError(m_fileName, 0, 0, "out of memory creating the XML parser");
    auto parser = static_cast<XML_Parser>(m_parser);
    XML_SetUserData(parser, this);
    XML_SetElementHandler(parser, &Callbacks::start, &Callbacks::end);
    XML_SetCharacterDataHandler(parser, &Callbacks::text);
    XML_SetStartDoctypeDeclHandler(parser, &Callbacks::doctype);
}

XmlReader::~XmlReader() { XML_ParserFree(static_cast<XML_Parser>(m_parser)); }

uint64_t XmlReader::line() const {
    return XML_GetCurrentLineNumber(static_cast<XML_Parser>(m_parser));
}

uint64_t XmlReader::column() const {
    return XML_GetCurrentColumnNumber(static_cast<XML_Parser>(m_parser)) + 1;
}

void XmlReader::fail(const std::string& message) const {
    throw TNImportError(m_fileName, line(), column(), message);
}

void XmlReader::feed(const char* bytes, size_t size, bool last) {
    m_bytes += size;
    if (m_bytes > m_limits.maxBytes)
        fail("file larger than " + std::to_string(m_limits.maxBytes) + " bytes");
    parsed(XML_Parse(static_cast<XML_Parser>(m_parser), bytes, static_cast<int>(size), last));
}

void XmlReader::parsed(int status) {
    if (m_error)
        std::rethrow_exception(m_error);
    if (status != XML_STATUS_OK)
        fail(XML_ErrorString(XML_GetErrorCode(static_cast<XML_Parser>(m_parser))));
}

void XmlReader::readFile() {
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(m_fileName.c_str(), "rb"), &std::fclose);
    if (!file)
        throw TNImportError(m_fileName, 0, 0, "cannot open the file");
    auto parser = static_cast<XML_Parser>(m_parser);
    for (;;) {
        void* buffer = XML_GetBuffer(parser, static_cast<int>(chunkSize));
        if (!buffer)
            fail(XML_ErrorString(XML_GetErrorCode(parser)));
        const size_t got = std::fread(buffer, 1, chunkSize, file.get());
        if (got < chunkSize && std::ferror(file.get()))
            throw TNImportError(m_fileName, 0, 0, "cannot read the file");
        const bool last = got < chunkSize;
        m_bytes += got;
        if (m_bytes > m_limits.maxBytes)
            fail("file larger than " + std::to_string(m_limits.maxBytes) + " bytes");
        parsed(XML_ParseBuffer(parser, static_cast<int>(got), last));
        if (last)
            return;
    }
}

void XmlReader::readBuffer(std::string_view bytes) {
    do {
        const size_t take = std::min(bytes.size(), bufferPiece);
        feed(bytes.data(), take, take == bytes.size());
        bytes.remove_prefix(take);
    } while (!bytes.empty());
}

} // namespace tn_import
