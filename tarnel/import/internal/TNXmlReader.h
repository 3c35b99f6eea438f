// TNXmlReader: the untrusted XML reader under the Ecore and XMI importers, a thin layer over
// libxml2's SAX2 push parser. Internal to the importer library: not installed, nothing here is
// exported.
//
// It streams a file in fixed-size chunks, so memory stays proportional to what the handler keeps,
// never to the file's text. It refuses document type declarations (no entity can expand, no
// external file is fetched), never touches the network, and enforces a limit on the file's size
// and on element nesting. The first error ends the read and raises TNImportError naming the file,
// line and column. libxml2's process-wide settings are left as the host set them: its error
// output is collected here rather than printed, and everything else is set per parser.
#pragma once
#include "tarnel/import/TNImport.h"

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tn_import {

// What a reader reports. A handler may raise anything; the reader stops and passes it on.
class XmlHandler {
public:
    virtual ~XmlHandler() = default;
    // `name` and the attributes are NUL-terminated texts valid during the call only: `attributes`
    // holds name, value, name, value, ... and ends with a null. Names are qualified as written
    // ("xmi:id", "xsi:type"); namespace declarations come first, as attributes "xmlns" or
    // "xmlns:prefix" whose value is the URI, so a handler resolves the prefixes it needs itself.
    // A given element or attribute name is always handed as the same text (the same address) for
    // the whole document, so a handler may cache by address, checking the content on a hit.
    virtual void startElement(const char* name, const char* const* attributes) = 0;
    virtual void endElement() = 0;
    virtual void text(std::string_view chars) = 0;
};

class XmlReader {
public:
    // Raises TNImportError when the parser cannot be made.
    XmlReader(std::string fileName, const TNImportLimits& limits, XmlHandler& handler);
    ~XmlReader();
    XmlReader(const XmlReader&) = delete;
    XmlReader& operator=(const XmlReader&) = delete;

    // Reads the whole file named at construction.
    void readFile();
    // Reads `bytes` as the whole document (the file name only names it in errors).
    void readBuffer(std::string_view bytes);

    // The position of the event being reported (1-based line and column, in characters): the
    // '<' of an element's start or end tag, the first character of a text.
    uint64_t line() const;
    uint64_t column() const;
    const std::string& fileName() const { return m_fileName; }
    // Raises TNImportError at the current position.
    [[noreturn]] void fail(const std::string& message) const;

private:
    struct Callbacks;
    struct Position {
        uint64_t line = 1;
        uint64_t column = 1;
    };
    enum class Event : uint8_t { None, Tag, Text };

    Position position() const;
    void feed(const char* bytes, size_t size, bool last);
    void parsed(int status);
    // "prefix:local", for a non-null prefix.
    const char* qualified(const unsigned char* prefix, const unsigned char* local);
    void collectAttributes(int namespaces, const unsigned char** declarations, int count,
                           const unsigned char** attributes);

    std::string m_fileName;
    TNImportLimits m_limits;
    XmlHandler& m_handler;
    void* m_parser; // the libxml2 parser context
    uint32_t m_depth = 0;
    uint64_t m_bytes = 0;
    bool m_sawElement = false;
    std::exception_ptr m_error;
    // The error libxml2 reported that ended the parse (the first fatal one, else the first), with
    // where it was.
    std::string m_xmlError;
    int m_xmlErrorCode = 0;
    bool m_xmlErrorFatal = false;
    Position m_xmlErrorAt;

    // Where the event being reported is: for a text, the end of the event before it (texts come
    // straight after the markup or text before them), kept as each event ends.
    Event m_event = Event::None;
    Position m_textStart;
    Position m_afterEvent;

    // The attributes of the element being reported: pointers into m_values, names from
    // m_qualified or libxml2's own name table (both live as long as the document).
    std::vector<const char*> m_attributes;
    std::vector<char> m_values;
    struct PairHash {
        size_t operator()(const std::pair<const void*, const void*>& p) const {
            return std::hash<const void*>()(p.first) * 31 + std::hash<const void*>()(p.second);
        }
    };
    // "prefix:local" by the parser's interned prefix and local name ("xmlns:prefix" keyed by the
    // reader's own "xmlns" text); the small table in front answers most lookups without hashing.
    std::unordered_map<std::pair<const void*, const void*>, std::string, PairHash> m_qualified;
    struct RecentName {
        const void* prefix = nullptr;
        const void* local = nullptr;
        const char* name = nullptr;
    };
    RecentName m_recentNames[64];
};

} // namespace tn_import
