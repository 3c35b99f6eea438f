// SgxLogBase: the process-wide diagnostic log, reached through SgxException::getLog().
//
// Lines are written under named categories ("Throw", "Catch", ...); a category writes nothing
// until it is enabled. At start-up the categories listed in the environment variable SGX_LOG
// (comma-separated, e.g. SGX_LOG=Throw,Catch) are enabled. Output goes to standard error unless a
// host redirects it with setStream(); a null stream discards every line. Not thread-safe: like the
// rest of the library it is used by one thread at a time.
#pragma once

#include "sgx/general/SgxString.h"
#include "sgx/general/sgxgeneral_export.h"

#include <iosfwd>
#include <set>

class SGX_GENERAL_API SgxLogBase {
public:
    SgxLogBase();
    SgxLogBase(const SgxLogBase&) = delete;
    SgxLogBase& operator=(const SgxLogBase&) = delete;

    // Whether lines of `category` are written.
    bool isEnabled(const SgxString& category) const;
    // Turns `category` on or off.
    void enable(const SgxString& category, bool on = true);
    // Redirects output; the stream is borrowed and must outlive its use. Null discards output.
    void setStream(std::ostream* out);
    // Writes `text` followed by a line feed to the current stream.
    void writeLine(const SgxString& text);

    // Enables every category of a comma-separated list (the SGX_LOG syntax); blanks around names
    // are ignored.
    void enableList(const SgxString& commaSeparated);

private:
    std::set<SgxString, std::less<>> m_enabled;
    std::ostream* m_out;
};
