#include "rw/RWFile.h"

#include "rw/RWbstream.h"

#include "RWTestSupport.h"

#include <gtest/gtest.h>

namespace {

template <class T> T read(RWFile& file) {
    T value{};
    file.Read(value);
    return value;
}

TEST(RWFile, ModesExistenceAndEmptiness) {
    TempPath path;
    {
        RWFile missing(path.str(), "rb");
        EXPECT_FALSE(missing.isValid() || missing.Exists());
        EXPECT_TRUE(missing.IsEmpty());
        EXPECT_TRUE(raisesWith([&] { read<int32_t>(missing); }, "is not open for reading"));
    }
    {
        RWFile created(path.str(), "wb");
        EXPECT_TRUE(created.isValid() && created.Exists() && created.IsEmpty());
        created.Write(uint8_t{1});
        EXPECT_FALSE(created.IsEmpty());
        EXPECT_TRUE(raisesWith([&] { read<uint8_t>(created); }, "is not open for reading"));
    }
    {
        RWFile reader(path.str(), "rb");
        EXPECT_TRUE(reader.isValid() && !reader.IsEmpty());
        EXPECT_EQ(reader.bytesLeft(), 1u);
        EXPECT_TRUE(raisesWith([&] { reader.Write(int32_t{1}); }, "is not open for writing"));
    }
    RWFile(path.str(), "wb"); // "wb" empties an existing file
    EXPECT_TRUE(RWFile(path.str(), "rb").IsEmpty());
    EXPECT_TRUE(raisesWith([&] { RWFile(path.str(), "r+"); }, "Unsupported file mode"));
    // A directory is not a file to read.
    EXPECT_FALSE(RWFile(std::filesystem::temp_directory_path().string(), "rb").isValid());
}

TEST(RWFile, ValuesAreLittleEndianInFixedWidthsAndReadBack) {
    TempPath path;
    {
        RWFile out(path.str(), "wb");
        out.Write(int8_t{-2});
        out.Write(uint16_t{0x0102});
        out.Write(int32_t{-1});
        out.Write(uint32_t{0x01020304});
        out.Write(int64_t{0x0102030405060708});
        out.Write(1.5);
        out.Write(SgxString("hi"));
        out.Write('z');
        EXPECT_EQ(out.CurOffset(), 34u);
    }
    EXPECT_EQ(path.contents(), std::string("\xFE\x02\x01\xFF\xFF\xFF\xFF\x04\x03\x02\x01"
                                           "\x08\x07\x06\x05\x04\x03\x02\x01"
                                           "\x00\x00\x00\x00\x00\x00\xF8\x3F"
                                           "\x02\x00\x00\x00hiz",
                                           34));
    RWFile in(path.str(), "rb");
    EXPECT_EQ(read<int8_t>(in), -2);
    EXPECT_EQ(read<uint16_t>(in), 0x0102);
    EXPECT_EQ(read<int32_t>(in), -1);
    EXPECT_EQ(read<uint32_t>(in), 0x01020304u);
    EXPECT_EQ(read<int64_t>(in), 0x0102030405060708);
    EXPECT_EQ(read<double>(in), 1.5);
    EXPECT_EQ(read<SgxString>(in), "hi");
    EXPECT_EQ(read<char>(in), 'z');
    EXPECT_TRUE(raisesWith([&] { read<char>(in); },
                           "Unexpected end of data: 1 bytes needed, 0 left at byte 34"));

    // A string longer than the file is refused.
    {
        RWFile out(path.str(), "wb");
        out.Write(uint32_t{1000});
        out.Write("abc", 3);
    }
    RWFile shortFile(path.str(), "rb");
    EXPECT_TRUE(raisesWith([&] { read<SgxString>(shortFile); },
                           "String length 1000 exceeds the 3 bytes left at byte 0"));
}

TEST(RWvstream, CountsAreCheckedAgainstTheBytesLeftAndWriteErrorsRaise) {
    const char data[16] = {};
    RWbistream in(data, sizeof data);
    in.checkCount(4, 4, "ints");
    in.checkCount(0, 1000, "ints");
    EXPECT_TRUE(raisesWith([&] { in.checkCount(5, 4, "ints"); },
                           "Count of 5 ints exceeds the 16 bytes left at byte 0"));
    // count x size wraps to 0 in 64 bits; the check must still refuse it.
    EXPECT_TRUE(raisesWith([&] { in.checkCount(uint64_t{1} << 62, 4, "ints"); }, "exceeds"));
    uint64_t skip;
    in >> skip;
    EXPECT_TRUE(raisesWith([&] { in.checkCount(3, 4, "ints"); }, "8 bytes left at byte 8"));

    std::ostringstream out;
    out.setstate(std::ios::badbit);
    RWbostream os(out);
    EXPECT_TRUE(raisesWith([&] { os << int32_t{1}; }, "Write error at byte 0"));
    RWCountingOStream counter;
    counter << SgxString("abc") << 2.0;
    EXPECT_EQ(counter.offset(), 15u);
}

} // namespace
