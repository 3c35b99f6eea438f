// TNXmlReader: the untrusted XML reader under the Ecore and XMI importers, a thin layer over expat.
// Internal to the importer library: not installed, nothing here is exported.
//
// It streams a file in fixed-size chunks read straight into expat's own buffer, so memory stays
// proportional to what the handler keeps, never to the file's text. It refuses document type
// declarations (no entity can expand, no external file is fetched), and enforces a limit on the
// file's size and on element nesting. The first error ends the read and raises TNImportError naming
// the file, line and column.
#pragma once
#include "tarnel/import/TNImport.h"

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

namespace tn_import {

// What a reader reports. A handler may raise anything; the reader stops and passes it on.
class XmlHandler {
public:
    virtual ~XmlHandler() = default;
    // `name` and the attributes are expat's NUL-terminated texts, valid during the call only:
    // `attributes` holds name, value, name, value, ... and ends with a null. They are handed on
    // as they are, since measuring and copying every name and value costs more than most
    // handlers spend on them.
    virtual void startElement(const char* name, const char* const* attributes) = 0;
    virtual void endElement() = 0;
    virtual void text(std::string_view chars) = 0;
};

class XmlReader {
public:
    XmlReader(std::string fileName, const TNImportLimits& limits, XmlHandler& handler);
    ~XmlReader();
    XmlReader(const XmlReader&) = delete;
    XmlReader& operator=(const XmlReader&) = delete;

    // Reads the whole file named at construction.
    void readFile();
    // Reads `bytes` as the whole document (the file name only names it in errors).
    void readBuffer(std::string_view bytes);

    // The position of the event being reported (1-based line and column).
    uint64_t line() const;
    uint64_t column() const;
    const std::string& fileName() const { return m_fileName; }
    // Raises TNImportError at the current position.
    [[noreturn]] void fail(const std::string& message) const;

private:
    struct Callbacks;
    void feed(const char* bytes, size_t size, bool last);
    void parsed(int status);

    std::string m_fileName;
    TNImportLimits m_limits;
    XmlHandler& m_handler;
    void* m_parser;
    uint32_t m_depth = 0;
    uint64_t m_bytes = 0;
    std::exception_ptr m_error;
};

} // namespace tn_import
