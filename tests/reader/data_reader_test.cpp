// The byte reader every database walk goes through: its cursor rules (the clamp one short of
// the end, end-of-data on the last byte), bounds, byte order and the read allowance.

#include "ZQCore/reader/XRDataReader.h"
#include "tests/support/TestLibrary.h"

#include <gtest/gtest.h>

namespace {

using zq::StringEncoding;
using zq::XRDataReader;

std::shared_ptr<XRDataReader> readerOver(std::vector<std::uint8_t> bytes, bool littleEndian = true)
{
    return XRDataReader::dataReaderWithData(zq::Data(std::move(bytes)), littleEndian);
}

const std::vector<std::uint8_t> kTen = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};

// A read past the end fails by name and message and leaves the cursor alone.
void expectInvalidRead(XRDataReader& reader, const std::function<void()>& read)
{
    const std::uint32_t before = reader.position();
    zq::test::expectThrown(read, "XRDataReaderInvalidRead", "Length requested is greater than the remaining data.");
    EXPECT_EQ(reader.position(), before);
}

TEST(ReaderDataReader, NoBufferOrAnEmptyOne)
{
    zq::test::expectThrown([] { XRDataReader::dataReaderWithData(std::nullopt, true); },
                           "XRDataReaderDataIsNilException", "Exception: Could not init XRDataReader - data is nil.");
    auto reader = readerOver({});
    EXPECT_FALSE(reader->eof()); // length - 1 wraps in 32 bits
    EXPECT_TRUE(reader->readRawBytes(0).empty());
    expectInvalidRead(*reader, [&] { reader->readRawBytes(1); });
    reader->setPosition(5);
    EXPECT_EQ(reader->position(), 5u);
    expectInvalidRead(*reader, [&] { reader->readRawBytes(0); });
}

TEST(ReaderDataReader, PositionClampsOneShortOfTheEnd)
{
    auto reader = readerOver(kTen);
    for (auto [requested, position, eof] : {std::tuple{0u, 0u, false}, {8u, 8u, false}, {9u, 9u, true},
                                            {10u, 9u, true}, {UINT32_MAX, 9u, true}}) {
        reader->setPosition(requested);
        EXPECT_EQ(std::pair(reader->position(), reader->eof()), std::pair(position, eof)) << requested;
    }
    reader->setPosition(2);
    reader->stepForwards(3);
    EXPECT_EQ(reader->position(), 5u);
    reader->stepForwards(50);
    EXPECT_EQ(reader->position(), 9u);
    reader->setPosition(2);
    reader->stepBackwards(5); // wraps below 0, so clamps to the last byte
    EXPECT_EQ(reader->position(), 9u);
}

TEST(ReaderDataReader, ReadsMayReachTheEndButNotBeyond)
{
    auto reader = readerOver(kTen);
    expectInvalidRead(*reader, [&] { reader->readRawBytes(11); });
    auto all = reader->readRawBytes(10);
    EXPECT_EQ(std::vector<std::uint8_t>(all.begin(), all.end()), kTen);
    EXPECT_TRUE(reader->readRawBytes(0).empty());
    expectInvalidRead(*reader, [&] { reader->readUChar(); });
    reader->setPosition(7);
    expectInvalidRead(*reader, [&] { reader->readUInt32(); });
    expectInvalidRead(*reader, [&] { reader->readUInt64(); });
    EXPECT_EQ(reader->readUInt16(), 0x0807);
    // A negative count can only come from a corrupt length field.
    expectInvalidRead(*reader, [&] { reader->readRawBytes(-1); });
    expectInvalidRead(*reader, [&] { reader->readRawBytes(INT32_MIN); });
}

TEST(ReaderDataReader, SwallowingReadsGiveNothingOrEmptyText)
{
    auto reader = readerOver({'A', 0, 'B', 0, 'C'});
    EXPECT_EQ(reader->readBytes(6), std::nullopt);
    EXPECT_EQ(reader->readBytes(-2), std::nullopt);
    EXPECT_EQ(reader->readString(6, StringEncoding::UTF16LE), "");
    EXPECT_EQ(reader->readString(-2, StringEncoding::UTF16LE), "");
    EXPECT_EQ(reader->position(), 0u);
    EXPECT_EQ(reader->readBytes(0), zq::Data()); // zero bytes are empty data, not no data
    EXPECT_EQ(reader->readString(4, StringEncoding::UTF16LE), "AB");
    reader->setPosition(0);
    EXPECT_EQ(reader->readString(4, StringEncoding::UTF16BE), "\xE4\x84\x80\xE4\x88\x80"); // U+4100 U+4200
    reader->setPosition(0);
    EXPECT_EQ(reader->readString(3, StringEncoding::UTF16LE), std::nullopt); // consumed, but no text
    EXPECT_EQ(reader->readBytes(2), zq::Data(std::vector<std::uint8_t>{0, 'C'}));
}

TEST(ReaderDataReader, NumbersFollowTheReadersByteOrder)
{
    auto reader = readerOver({0x01, 0x02, 0x03, 0x04, 0xFE, 0xFF, 0x80});
    EXPECT_EQ(reader->readUInt32(), 0x04030201u);
    EXPECT_EQ(reader->readInt16(), -2);
    EXPECT_EQ(reader->readChar(), -128);
    reader->setPosition(0);
    reader->setIsLittleEndian(false);
    EXPECT_EQ(reader->readUInt32(), 0x01020304u);
    EXPECT_EQ(reader->readUInt16(), 0xFEFF);
    // 64-bit reads use only their first four bytes, sign-extended; big-endian widens the
    // host-order 32-bit value, then reverses the whole.
    auto little = readerOver({0x01, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0});
    EXPECT_EQ(little->readUInt64(), 1u);
    EXPECT_EQ(little->position(), 8u);
    EXPECT_EQ(little->readUInt64(), UINT64_MAX);
    EXPECT_EQ(readerOver({0, 0, 0, 0x01, 0x12, 0x34, 0x56, 0x78}, false)->readInt64(), 0x0000000100000000);
}

TEST(ReaderDataReader, ReadAllowanceCapsTheBytesHandedOut)
{
    auto reader = readerOver(kTen);
    reader->setReadLimit(6);
    reader->readRawBytes(4);
    reader->setPosition(0); // re-reading the same bytes counts again
    expectInvalidRead(*reader, [&] { reader->readRawBytes(4); });
    EXPECT_EQ(reader->readRawBytes(2).size(), 2u);
    expectInvalidRead(*reader, [&] { reader->readUChar(); });
    EXPECT_EQ(reader->readString(2, StringEncoding::UTF16LE), "");
}

TEST(ReaderDataReader, UTF8StringAllowingNull)
{
    EXPECT_EQ(zq::stringWithUTF8StringAllowingNULL(nullptr), "");
    EXPECT_EQ(zq::stringWithUTF8StringAllowingNULL("Bj\xC3\xB6rk \xF0\x9F\x8E\xB5"), "Bj\xC3\xB6rk \xF0\x9F\x8E\xB5");
    for (const char* invalid : {"\xC3\x28", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "abc\xE2\x82"})
        EXPECT_EQ(zq::stringWithUTF8StringAllowingNULL(invalid), std::nullopt) << invalid;
}

} // namespace
