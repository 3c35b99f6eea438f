#include "rw/RWFile.h"

#include "RWTestSupport.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

namespace {

std::string contents(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(RWFile, ModesExistenceAndEmptiness) {
    TempPath path("rwfile-modes");
    {
        RWFile missing(path.str(), "rb");
        EXPECT_FALSE(missing.isValid());
        EXPECT_FALSE(missing.Exists());
        EXPECT_TRUE(missing.IsEmpty());
        int32_t v;
        EXPECT_TRUE(raisesWith([&] { missing.Read(v); }, "is not open for reading"));
    }
    {
        RWFile created(path.str(), "wb");
        EXPECT_TRUE(created.isValid());
        EXPECT_TRUE(created.Exists());
        EXPECT_TRUE(created.IsEmpty());
        created.Write(uint8_t{1});
        EXPECT_FALSE(created.IsEmpty());
        uint8_t v;
        EXPECT_TRUE(raisesWith([&] { created.Read(v); }, "is not open for reading"));
    }
    {
        RWFile reader(path.str(), "rb");
        EXPECT_TRUE(reader.isValid());
        EXPECT_FALSE(reader.IsEmpty());
        EXPECT_EQ(reader.bytesLeft(), 1u);
        EXPECT_TRUE(raisesWith([&] { reader.Write(int32_t{1}); }, "is not open for writing"));
    }
    {
        RWFile truncated(path.str(), "wb"); // "wb" empties an existing file
    }
    EXPECT_TRUE(RWFile(path.str(), "rb").IsEmpty());
    EXPECT_TRUE(raisesWith([&] { RWFile(path.str(), "r+"); }, "Unsupported file mode"));
    // A directory is not a file to read.
    EXPECT_FALSE(RWFile(std::filesystem::temp_directory_path().string(), "rb").isValid());
}

TEST(RWFile, ValuesAreLittleEndianInFixedWidthsAndReadBack) {
    TempPath path("rwfile-values");
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
        EXPECT_EQ(out.CurOffset(), 1u + 2 + 4 + 4 + 8 + 8 + 6 + 1);
    }
    const std::string expected("\xFE"
                               "\x02\x01"
                               "\xFF\xFF\xFF\xFF"
                               "\x04\x03\x02\x01"
                               "\x08\x07\x06\x05\x04\x03\x02\x01"
                               "\x00\x00\x00\x00\x00\x00\xF8\x3F"
                               "\x02\x00\x00\x00hi"
                               "z",
                               34);
    EXPECT_EQ(contents(path.str()), expected);

    RWFile in(path.str(), "rb");
    int8_t i8;
    uint16_t u16;
    int32_t i32;
    uint32_t u32;
    int64_t i64;
    double d;
    SgxString s;
    char c;
    in.Read(i8);
    in.Read(u16);
    in.Read(i32);
    in.Read(u32);
    in.Read(i64);
    in.Read(d);
    in.Read(s);
    in.Read(c);
    EXPECT_EQ(i8, -2);
    EXPECT_EQ(u16, 0x0102);
    EXPECT_EQ(i32, -1);
    EXPECT_EQ(u32, 0x01020304u);
    EXPECT_EQ(i64, 0x0102030405060708);
    EXPECT_EQ(d, 1.5);
    EXPECT_EQ(s, "hi");
    EXPECT_EQ(c, 'z');
    EXPECT_TRUE(raisesWith([&] { in.Read(c); },
                           "Unexpected end of data: 1 bytes needed, 0 left at byte 34"));
}

TEST(RWFile, StringLongerThanTheFileIsRefused) {
    TempPath path("rwfile-string");
    {
        RWFile out(path.str(), "wb");
        out.Write(uint32_t{1000});
        out.Write("abc", 3);
    }
    RWFile in(path.str(), "rb");
    SgxString s;
    EXPECT_TRUE(
        raisesWith([&] { in.Read(s); }, "String length 1000 exceeds the 3 bytes left at byte 0"));
}

} // namespace
