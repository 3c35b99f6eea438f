#include "sgx/persistence/SgxCollectable.h"
#include "sgx/persistence/SgxStringPersistence.h"

#include "rw/RWFile.h"

#include "PersistenceTestSupport.h"

#include <gtest/gtest.h>

namespace {

TEST(SgxCollectable, RecordsStartWithTheRevisionByteOnFilesAndStreamsAlike) {
    TestRecord record(0x0A0B);
    // Tag, class name, revision, word, nil reference.
    EXPECT_EQ(storeToBytes(record), std::string("\x02\x0A\x00\x00\x00"
                                                "TestRecord"
                                                "\x01\x0B\x0A\x00",
                                                19));
    EXPECT_EQ(record.binaryStoreSize(), 4u);
    // The RWFile overloads, inherited, write and read the same guts as the stream overloads.
    TempPath path;
    {
        RWFile out(path.str(), "wb");
        record.saveGuts(out);
    }
    EXPECT_EQ(path.contents(), std::string("\x01\x0B\x0A\x00", 4));
    RWFile in(path.str(), "rb");
    TestRecord back;
    back.restoreGuts(in);
    EXPECT_EQ(back.word, 0x0A0B);

    // Any other revision is refused, and nothing read before it leaks.
    TestRecord first(1), second(2);
    first.next = &second;
    std::string bytes = storeToBytes(first);
    const size_t secondRevision = bytes.size() - 4; // then its word and its nil reference
    bytes[secondRevision] = 2;
    const int before = TestRecord::live();
    EXPECT_TRUE(
        raisesWith([&] { delete restoreFrom(bytes); },
                   "Unsupported record revision 2 at byte " + std::to_string(secondRevision)));
    EXPECT_EQ(TestRecord::live(), before);
}

TEST(SgxStringPersistence, FileAndStreamHoldTheSameBytesAndReadBack) {
    const SgxString texts[] = {"", "1.8", SgxString("nul\0inside", 10)};
    TempPath path;
    Bytes stream;
    {
        RWFile file(path.str(), "wb");
        for (const SgxString& text : texts) {
            sgxStringToFile(file, text);
            sgxStringToStream(stream.stream, text);
        }
    }
    const std::string bytes = stream;
    EXPECT_EQ(path.contents(), bytes);
    RWFile file(path.str(), "rb");
    RWbistream in(bytes.data(), bytes.size());
    for (const SgxString& text : texts) {
        SgxString fromFile, fromStream;
        sgxStringFromFile(file, fromFile);
        sgxStringFromStream(in, fromStream);
        EXPECT_EQ(fromFile, text);
        EXPECT_EQ(fromStream, text);
    }
}

} // namespace
