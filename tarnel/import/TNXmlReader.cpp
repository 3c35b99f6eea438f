#include "tarnel/import/internal/TNXmlReader.h"

#include <libxml/parser.h>
#include <libxml/xmlerror.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

namespace tn_import {

namespace {
// Big enough that a read and a parse call are rare next to the events in them; small enough to
// keep memory flat (libxml2 keeps what it has not parsed yet, plus a little behind it).
constexpr size_t chunkSize = 1 << 18;

xmlParserCtxtPtr context(void* parser) { return static_cast<xmlParserCtxtPtr>(parser); }

// The number of characters (not bytes) in UTF-8 text, as libxml2 counts columns.
uint64_t characters(const unsigned char* begin, const unsigned char* end) {
    uint64_t n = 0;
    for (; begin < end; ++begin)
        n += (*begin & 0xC0) != 0x80;
    return n;
}

// Prefixed namespace declarations are named "xmlns:prefix"; this text keys them among the
// qualified names (its address is no libxml2 name's).
constexpr unsigned char xmlnsPrefix[] = "xmlns";
} // namespace

// Exceptions never cross libxml2's C frames: each callback catches, records the first error and
// stops the parser; parsed() raises it once libxml2 has returned.
struct XmlReader::Callbacks {
    template <class F> static void guarded(void* data, F&& f) {
        auto& reader = *static_cast<XmlReader*>(data);
        if (reader.m_error)
            return;
        try {
            f(reader);
        } catch (...) {
            reader.m_error = std::current_exception();
            xmlStopParser(context(reader.m_parser));
        }
    }
    // libxml2's own position: where it stands in the text it has read.
    static Position here(const XmlReader& r) {
        const xmlParserInputPtr in = context(r.m_parser)->input;
        if (!in)
            return {};
        return {static_cast<uint64_t>(std::max(in->line, 1)),
                static_cast<uint64_t>(std::max(in->col, 1))};
    }
    static void start(void* data, const xmlChar* local, const xmlChar* prefix, const xmlChar*,
                      int namespaces, const xmlChar** declarations, int count, int,
                      const xmlChar** attributes) {
        guarded(data, [&](XmlReader& r) {
            r.m_event = Event::Tag;
            r.m_sawElement = true;
            // libxml2 stands on the tag's '>' (or the "/>", whose end event follows).
            r.m_afterEvent = here(r);
            if (*context(r.m_parser)->input->cur == '>')
                ++r.m_afterEvent.column;
            if (++r.m_depth > r.m_limits.maxDepth)
                r.fail("elements nested deeper than " + std::to_string(r.m_limits.maxDepth));
            r.collectAttributes(namespaces, declarations, count, attributes);
            r.m_handler.startElement(prefix ? r.qualified(prefix, local)
                                            : reinterpret_cast<const char*>(local),
                                     r.m_attributes.data());
        });
    }
    static void end(void* data, const xmlChar*, const xmlChar*, const xmlChar*) {
        guarded(data, [&](XmlReader& r) {
            r.m_event = Event::Tag;
            r.m_afterEvent = here(r);
            --r.m_depth;
            r.m_handler.endElement();
        });
    }
    // libxml2 reports a text once it has passed it (entities and character references already
    // replaced, so its length is no measure of the source): it starts where the event before
    // it ended.
    static void text(void* data, const xmlChar* chars, int length) {
        guarded(data, [&](XmlReader& r) {
            r.m_event = Event::Text;
            r.m_textStart = r.m_afterEvent;
            r.m_afterEvent = here(r);
            r.m_handler.text(std::string_view(reinterpret_cast<const char*>(chars),
                                              static_cast<size_t>(length)));
        });
    }
    // Comments and processing instructions are ignored, but a text after one starts behind it.
    static void comment(void* data, const xmlChar*) {
        guarded(data, [&](XmlReader& r) { r.m_afterEvent = here(r); });
    }
    static void instruction(void* data, const xmlChar*, const xmlChar*) {
        guarded(data, [&](XmlReader& r) { r.m_afterEvent = here(r); });
    }
    // Called as soon as the declaration's name is read, before any of its declarations.
    static void doctype(void* data, const xmlChar*, const xmlChar*, const xmlChar*) {
        guarded(data, [&](XmlReader& r) {
            r.m_event = Event::None;
            r.fail("document type declarations are not accepted");
        });
    }
    // Warnings and namespace errors do not stop libxml2, nor the reader: prefixes are the
    // handlers' business. The first error is kept for parsed(), unless a fatal one follows it.
    template <class Error> static void error(void* data, Error* e) {
        auto& r = *static_cast<XmlReader*>(data);
        if (!e || e->level < XML_ERR_ERROR || e->domain == XML_FROM_NAMESPACE)
            return;
        const bool fatal = e->level == XML_ERR_FATAL;
        if (!r.m_xmlError.empty() && (r.m_xmlErrorFatal || !fatal))
            return;
        r.m_xmlErrorFatal = fatal;
        r.m_xmlErrorCode = e->code;
        r.m_xmlErrorAt = {static_cast<uint64_t>(std::max(e->line, 1)),
                          static_cast<uint64_t>(std::max(e->int2, 1))};
        keep(r, e->message);
    }
    // The few messages libxml2 raises outside any parser (such as a failed character
    // conversion) reach the thread's generic handler.
    static void generic(void* data, const char* format, ...) {
        auto& r = *static_cast<XmlReader*>(data);
        if (!r.m_xmlError.empty())
            return;
        char text[256];
        va_list args;
        va_start(args, format);
        std::vsnprintf(text, sizeof text, format, args);
        va_end(args);
        r.m_xmlErrorAt = here(r);
        keep(r, text);
    }
    // libxml2 ends its texts with a line break and may add a line of detail. Nothing may be
    // raised into libxml2's frames: without memory for the text, a fixed one stands in.
    static void keep(XmlReader& r, const char* message) {
        const std::string_view text = message ? message : "";
        try {
            r.m_xmlError = text.substr(0, text.find('\n'));
        } catch (...) {
            r.m_xmlError.clear();
        }
        if (r.m_xmlError.empty())
            r.m_xmlError = "malformed XML"; // fits the short-string buffer: never allocates
    }
};

namespace {
// libxml2 sends errors raised outside a parser to the thread's handlers, printing to stderr by
// default. While a chunk is parsed they come to the reader; the host's handlers are put back
// afterwards.
class ErrorChannel {
public:
    ErrorChannel(void* reader, xmlStructuredErrorFunc structured, xmlGenericErrorFunc generic)
        : m_generic(xmlGenericError), m_genericContext(xmlGenericErrorContext),
          m_structured(xmlStructuredError), m_structuredContext(xmlStructuredErrorContext) {
        xmlSetGenericErrorFunc(reader, generic);
        xmlSetStructuredErrorFunc(reader, structured);
    }
    ~ErrorChannel() {
        xmlSetGenericErrorFunc(m_genericContext, m_generic);
        xmlSetStructuredErrorFunc(m_structuredContext, m_structured);
    }
    ErrorChannel(const ErrorChannel&) = delete;
    ErrorChannel& operator=(const ErrorChannel&) = delete;

private:
    xmlGenericErrorFunc m_generic;
    void* m_genericContext;
    xmlStructuredErrorFunc m_structured;
    void* m_structuredContext;
};
} // namespace

XmlReader::XmlReader(std::string fileName, const TNImportLimits& limits, XmlHandler& handler)
    : m_fileName(std::move(fileName)), m_limits(limits), m_handler(handler), m_parser(nullptr) {
    // libxml2's one-time set-up of its tables; never undone, since the host may use libxml2 too.
    static const bool initialised = (xmlInitParser(), true);
    (void)initialised;
    xmlSAXHandler sax;
    std::memset(&sax, 0, sizeof sax);
    sax.initialized = XML_SAX2_MAGIC;
    sax.startElementNs = &Callbacks::start;
    sax.endElementNs = &Callbacks::end;
    // Blanks too go to the handler, as they are, without libxml2 judging them ignorable.
    sax.characters = &Callbacks::text;
    sax.ignorableWhitespace = &Callbacks::text;
    sax.comment = &Callbacks::comment;
    sax.processingInstruction = &Callbacks::instruction;
    sax.internalSubset = &Callbacks::doctype;
    sax.serror = &Callbacks::error;
    // With no handler for entity declarations or references and no document type accepted, only
    // the predefined entities and character references are ever replaced.
    xmlParserCtxtPtr parser = xmlCreatePushParserCtxt(&sax, this, nullptr, 0, m_fileName.c_str());
    if (!parser)
        throw TNImportError(m_fileName, 0, 0, "out of memory creating the XML parser");
    m_parser = parser;
    // No network, no external subset. XML_PARSE_HUGE lifts libxml2's own caps on nesting (256)
    // and on the length of one text: TNImportLimits bound both instead, as the host chose, and
    // the expansion those caps also guard against cannot happen without a document type.
    xmlCtxtUseOptions(parser, XML_PARSE_NONET | XML_PARSE_HUGE);
}

XmlReader::~XmlReader() { xmlFreeParserCtxt(context(m_parser)); }

const char* XmlReader::qualified(const unsigned char* prefix, const unsigned char* local) {
    RecentName& recent = m_recentNames[((reinterpret_cast<uintptr_t>(prefix) >> 3) ^
                                        (reinterpret_cast<uintptr_t>(local) >> 4)) %
                                       std::size(m_recentNames)];
    if (recent.prefix == prefix && recent.local == local)
        return recent.name;
    std::string& name = m_qualified[{prefix, local}];
    if (name.empty())
        ((name = reinterpret_cast<const char*>(prefix)) += ':') +=
            reinterpret_cast<const char*>(local);
    recent = {prefix, local, name.c_str()};
    return name.c_str();
}

// libxml2 hands attribute values as ranges, not NUL-terminated, so they are copied. A value it
// had to rewrite lies outside its input buffer; without entity replacement it writes an '&' there
// as "&#38;" (any other '&' would be a malformed reference, refused before), which the copy
// turns back into '&'. A value inside the buffer is the source text as it stands, with no '&'.
void XmlReader::collectAttributes(int namespaces, const xmlChar** declarations, int count,
                                  const xmlChar** attributes) {
    const size_t n = static_cast<size_t>(namespaces), k = static_cast<size_t>(count);
    m_attributes.resize(2 * (n + k) + 1);
    const char** out = m_attributes.data();
    for (size_t i = 0; i < n; ++i) {
        const xmlChar* prefix = declarations[2 * i];
        *out++ = prefix ? qualified(xmlnsPrefix, prefix) : "xmlns";
        *out++ = reinterpret_cast<const char*>(declarations[2 * i + 1]);
    }
    size_t total = k;
    for (size_t i = 0; i < k; ++i)
        total += static_cast<size_t>(attributes[5 * i + 4] - attributes[5 * i + 3]);
    if (m_values.size() < total)
        m_values.resize(std::max(total, 2 * m_values.size()));
    const xmlParserInputPtr in = context(m_parser)->input;
    char* to = m_values.data();
    for (size_t i = 0; i < k; ++i, attributes += 5) {
        *out++ = attributes[1] ? qualified(attributes[1], attributes[0])
                               : reinterpret_cast<const char*>(attributes[0]);
        *out++ = to;
        const char* value = reinterpret_cast<const char*>(attributes[3]);
        const char* end = reinterpret_cast<const char*>(attributes[4]);
        if (value != end && (attributes[3] < in->base || attributes[3] >= in->end)) {
            while (const void* found = std::memchr(value, '&', static_cast<size_t>(end - value))) {
                const char* amp = static_cast<const char*>(found);
                to = std::copy(value, amp, to);
                *to++ = '&';
                value = end - amp >= 5 && std::memcmp(amp, "&#38;", 5) == 0 ? amp + 5 : amp + 1;
            }
        }
        if (value != end)
            to = static_cast<char*>(std::memcpy(to, value, static_cast<size_t>(end - value))) +
                 (end - value);
        *to++ = '\0';
    }
    *out = nullptr;
}

XmlReader::Position XmlReader::position() const {
    const Position now = Callbacks::here(*this);
    const xmlParserInputPtr in = context(m_parser)->input;
    if (m_event == Event::Text)
        return m_textStart;
    if (m_event != Event::Tag || !in || !in->cur || !in->base)
        return now;
    // libxml2 stands at the tag's end, with the whole tag in its buffer; the tag starts at the
    // last '<' before, since no attribute value holds a raw '<'.
    const unsigned char* lt = in->cur;
    do {
        if (lt == in->base)
            return now;
        --lt;
    } while (*lt != '<');
    const uint64_t breaks = static_cast<uint64_t>(std::count(lt, in->cur, '\n'));
    if (breaks == 0) {
        const uint64_t back = characters(lt, in->cur);
        return {now.line, now.column > back ? now.column - back : 1};
    }
    // A tag over several lines: count from the line break before it (libxml2 keeps at least a
    // short stretch before the tag).
    const unsigned char* lineStart = lt;
    while (lineStart > in->base && lineStart[-1] != '\n')
        --lineStart;
    return {now.line > breaks ? now.line - breaks : 1, characters(lineStart, lt) + 1};
}

uint64_t XmlReader::line() const { return position().line; }

uint64_t XmlReader::column() const { return position().column; }

void XmlReader::fail(const std::string& message) const {
    const Position at = position();
    throw TNImportError(m_fileName, at.line, at.column, message);
}

void XmlReader::feed(const char* bytes, size_t size, bool last) {
    m_bytes += size;
    m_event = Event::None;
    if (m_bytes > m_limits.maxBytes)
        fail("file larger than " + std::to_string(m_limits.maxBytes) + " bytes");
    int status;
    {
        const ErrorChannel channel(this, &Callbacks::error, &Callbacks::generic);
        status = xmlParseChunk(context(m_parser), bytes, static_cast<int>(size), last);
    }
    parsed(status);
}

void XmlReader::parsed(int status) {
    if (m_error)
        std::rethrow_exception(m_error);
    m_event = Event::None;
    if (status == 0 && context(m_parser)->wellFormed)
        return;
    if (m_xmlError.empty())
        fail("malformed XML");
    // libxml2 names a document without any element by where it stopped looking for one.
    const bool noRoot = !m_sawElement && (m_xmlErrorCode == XML_ERR_DOCUMENT_EMPTY ||
                                          m_xmlErrorCode == XML_ERR_DOCUMENT_END);
    throw TNImportError(m_fileName, m_xmlErrorAt.line, m_xmlErrorAt.column,
                        noRoot ? "no root element" : m_xmlError);
}

void XmlReader::readFile() {
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(m_fileName.c_str(), "rb"), &std::fclose);
    if (!file)
        throw TNImportError(m_fileName, 0, 0, "cannot open the file");
    // Whole chunks are read, so a stdio buffer would only add a copy.
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    const std::unique_ptr<char[]> buffer(new char[chunkSize]);
    for (;;) {
        const size_t got = std::fread(buffer.get(), 1, chunkSize, file.get());
        if (got < chunkSize && std::ferror(file.get()))
            throw TNImportError(m_fileName, 0, 0, "cannot read the file");
        const bool last = got < chunkSize;
        feed(buffer.get(), got, last);
        if (last)
            return;
    }
}

void XmlReader::readBuffer(std::string_view bytes) {
    // libxml2 copies what it is given: pieces keep that copy small.
    do {
        const size_t take = std::min(bytes.size(), chunkSize);
        feed(bytes.data(), take, take == bytes.size());
        bytes.remove_prefix(take);
    } while (!bytes.empty());
}

} // namespace tn_import
