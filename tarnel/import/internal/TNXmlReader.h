// TNXmlReader: the untrusted XML reader under the Ecore and XMI importers, a thin layer over expat.
// Internal to the importer library: not installed, nothing here is exported.
//
// It streams a file in fixed-size chunks, so memory stays proportional to what the handler keeps,
// never to the file's text. It refuses document type declarations (no entity can expand, no
// external file is fetched), and enforces a limit on the file's size and on element nesting. The
// first error ends the read and raises TNImportError naming the file, line and column.
#pragma once
#include "tarnel/import/TNImport.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tn_import {

using XmlAttributes = std::vector<std::pair<std::string_view, std::string_view>>;

// What a reader reports. A handler may raise anything; the reader stops and passes it on.
class XmlHandler {
public:
    virtual ~XmlHandler() = default;
    virtual void startElement(std::string_view name, const XmlAttributes& attributes) = 0;
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
    void finishFeed();

    std::string m_fileName;
    TNImportLimits m_limits;
    XmlHandler& m_handler;
    void* m_parser;
    uint32_t m_depth = 0;
    uint64_t m_bytes = 0;
    std::exception_ptr m_error;
    XmlAttributes m_attributes;
};

} // namespace tn_import
