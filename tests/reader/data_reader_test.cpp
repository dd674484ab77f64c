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

} // namespace
