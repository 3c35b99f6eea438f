#include "sgx/persistence/SgxCollectable.h"

#include "rw/RWFile.h"
#include "rw/RWbstream.h"

#include "PersistenceTestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include <unistd.h>

namespace {

std::string storeToBytes(const RWCollectable& object) {
    std::ostringstream out;
    RWbostream stream(out);
    object.recursiveSaveOn(stream);
    return out.str();
}

TEST(SgxCollectable, RecordsStartWithTheRevisionByteOnFilesAndStreamsAlike) {
    TestRecord record(0x0A0B);
    const std::string bytes = storeToBytes(record);
    // Tag, class name, revision, word, nil reference.
    EXPECT_EQ(bytes, std::string("\x02\x0A\x00\x00\x00"
                                 "TestRecord"
                                 "\x01\x0B\x0A\x00",
                                 19));
    EXPECT_EQ(record.binaryStoreSize(), 4u);

    // The RWFile overloads, inherited, write the same guts as the stream overloads.
    const std::string path =
        (std::filesystem::temp_directory_path() / ("sgxcollectable-" + std::to_string(::getpid())))
            .string();
    {
        RWFile file(path, "wb");
        record.saveGuts(file);
    }
    {
        RWFile file(path, "rb");
        EXPECT_EQ(file.bytesLeft(), 4u);
        TestRecord back;
        back.restoreGuts(file);
        EXPECT_EQ(back.word(), 0x0A0B);
    }
    std::filesystem::remove(path);
}

TEST(SgxCollectable, UnknownRevisionIsRefusedAndNothingLeaks) {
    TestRecord first(1), second(2);
    first.setNext(&second);
    std::string bytes = storeToBytes(first);
    const size_t secondRevision = bytes.size() - 4; // then its word and its nil reference
    bytes[secondRevision] = 2;
    const int before = TestRecord::live();
    RWbistream in(bytes.data(), bytes.size());
    RWCollectable* read = nullptr;
    EXPECT_TRUE(raisesWith([&] { in >> read; }, "Unsupported record revision 2 at byte " +
                                                    std::to_string(secondRevision)));
    EXPECT_EQ(TestRecord::live(), before);
}

} // namespace
