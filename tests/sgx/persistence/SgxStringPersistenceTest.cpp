#include "sgx/persistence/SgxStringPersistence.h"

#include "rw/RWbstream.h"

#include "PersistenceTestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include <unistd.h>

namespace {

TEST(SgxStringPersistence, FileAndStreamHoldTheSameBytesAndReadBack) {
    const SgxString texts[] = {"", "1.8", SgxString("nul\0inside", 10)};
    const std::string path =
        (std::filesystem::temp_directory_path() / ("sgxstrings-" + std::to_string(::getpid())))
            .string();
    std::ostringstream out;
    RWbostream stream(out);
    {
        RWFile file(path, "wb");
        for (const SgxString& text : texts) {
            sgxStringToFile(file, text);
            sgxStringToStream(stream, text);
        }
    }
    std::ifstream raw(path, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(raw), std::istreambuf_iterator<char>()),
              out.str());

    RWFile file(path, "rb");
    const std::string bytes = out.str();
    RWbistream in(bytes.data(), bytes.size());
    for (const SgxString& text : texts) {
        SgxString fromFile, fromStream;
        sgxStringFromFile(file, fromFile);
        sgxStringFromStream(in, fromStream);
        EXPECT_EQ(fromFile, text);
        EXPECT_EQ(fromStream, text);
    }
    SgxString past;
    EXPECT_TRUE(raisesWith([&] { sgxStringFromFile(file, past); }, "Unexpected end of data"));
    std::filesystem::remove(path);
}

TEST(SgxStringPersistence, LengthBeyondTheDataIsRefused) {
    const char bytes[] = {5, 0, 0, 0, 'a', 'b'};
    RWbistream in(bytes, sizeof bytes);
    SgxString text;
    EXPECT_TRUE(raisesWith([&] { sgxStringFromStream(in, text); },
                           "String length 5 exceeds the 2 bytes left at byte 0"));
}

} // namespace
