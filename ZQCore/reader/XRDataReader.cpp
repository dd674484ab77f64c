#include "ZQCore/reader/XRDataReader.h"

#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/UTF16.h"

#include <bit>
#include <cstring>

namespace zq {

namespace {

constexpr const char* kInvalidRead = "XRDataReaderInvalidRead";
constexpr const char* kInvalidReadReason = "Length requested is greater than the remaining data.";

bool validUTF8(const unsigned char* s, std::size_t n)
{
    std::size_t i = 0;
    while (i < n) {
        unsigned char c = s[i];
        if (c < 0x80) {
            ++i;
            continue;
        }
        std::size_t extra;
        char32_t code;
        if ((c & 0xE0) == 0xC0) {
            extra = 1;
            code = c & 0x1F;
        } else if ((c & 0xF0) == 0xE0) {
            extra = 2;
            code = c & 0x0F;
        } else if ((c & 0xF8) == 0xF0) {
            extra = 3;
            code = c & 0x07;
        } else {
            return false;
        }
        if (i + extra >= n)
            return false;
        for (std::size_t k = 1; k <= extra; ++k) {
            if ((s[i + k] & 0xC0) != 0x80)
                return false;
            code = (code << 6) | (s[i + k] & 0x3F);
        }
        static constexpr char32_t kMinimum[] = {0, 0x80, 0x800, 0x10000};
        if (code < kMinimum[extra] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
            return false;
        i += extra + 1;
    }
    return true;
}

} // namespace

XRDataReader::XRDataReader(Data data, bool isLittleEndian)
    : fileIsLittleEndian_(isLittleEndian),
      data_(std::move(data)),
      // The length is a 32-bit count widened, as the record walks address at most 4 GiB.
      length_(static_cast<std::int64_t>(static_cast<std::uint32_t>(data_.size())))
{
}

std::shared_ptr<XRDataReader> XRDataReader::dataReaderWithData(const std::optional<Data>& data, bool isLittleEndian)
{
    if (!data)
        throw Exception("XRDataReaderDataIsNilException", "Exception: Could not init XRDataReader - data is nil.");
    return std::shared_ptr<XRDataReader>(new XRDataReader(*data, isLittleEndian));
}

void XRDataReader::setPosition(std::uint32_t position)
{
    const std::uint32_t last = static_cast<std::uint32_t>(length_) - 1u; // wraps over an empty buffer
    if (position == 0)
        streamPosition_ = 0;
    else if (position >= last)
        streamPosition_ = last;
    else
        streamPosition_ = position;
}

void XRDataReader::stepForwards(std::int32_t count)
{
    setPosition(position() + static_cast<std::uint32_t>(count));
}

void XRDataReader::stepBackwards(std::int32_t count)
{
    setPosition(position() - static_cast<std::uint32_t>(count));
}

bool XRDataReader::eof() const
{
    const std::int64_t high = streamPosition_ >> 32;
    if (high > 0)
        return true;
    if (high < 0)
        return false;
    return position() >= static_cast<std::uint32_t>(length_) - 1u;
}

std::span<const std::uint8_t> XRDataReader::readRawBytes(std::int32_t count)
{
    const std::int64_t remaining = length_ - streamPosition_;
    if (count < 0 || static_cast<std::int64_t>(count) > remaining || static_cast<std::uint64_t>(count) > readLimit_)
        throw Exception(kInvalidRead, kInvalidReadReason);
    readLimit_ -= static_cast<std::uint64_t>(count);
    const std::uint8_t* start = data_.bytes() + position();
    streamPosition_ += count;
    return {count ? start : nullptr, static_cast<std::size_t>(count)};
}

std::optional<Data> XRDataReader::readBytes(std::int32_t count)
{
    try {
        auto bytes = readRawBytes(count);
        return Data(bytes.data(), bytes.size());
    } catch (const Exception&) {
        return std::nullopt;
    }
}

bool XRDataReader::readStringInto(std::string& out, std::int32_t count, StringEncoding encoding)
{
    std::span<const std::uint8_t> bytes;
    try {
        bytes = readRawBytes(count);
    } catch (const Exception&) {
        out.clear();
        return true;
    }
    return decodeUTF16Into(out, bytes.data(), bytes.size(), encoding == StringEncoding::UTF16LE);
}

std::optional<std::string> XRDataReader::readString(std::int32_t count, StringEncoding encoding)
{
    std::string text;
    if (!readStringInto(text, count, encoding))
        return std::nullopt;
    return text;
}

bool XRDataReader::needsSwap() const
{
    return fileIsLittleEndian_ != (std::endian::native == std::endian::little);
}

std::uint16_t XRDataReader::readUInt16()
{
    auto bytes = readRawBytes(2);
    std::uint16_t value;
    std::memcpy(&value, bytes.data(), sizeof value);
    return needsSwap() ? static_cast<std::uint16_t>((value >> 8) | (value << 8)) : value;
}

std::uint32_t XRDataReader::readUInt32()
{
    auto bytes = readRawBytes(4);
    std::uint32_t value;
    std::memcpy(&value, bytes.data(), sizeof value);
    return needsSwap() ? __builtin_bswap32(value) : value;
}

std::uint64_t XRDataReader::readUInt64()
{
    auto bytes = readRawBytes(8);
    std::int32_t low;
    std::memcpy(&low, bytes.data(), sizeof low);
    std::uint64_t value = static_cast<std::uint64_t>(static_cast<std::int64_t>(low));
    return needsSwap() ? __builtin_bswap64(value) : value;
}

std::optional<std::string> stringWithUTF8StringAllowingNULL(const char* text)
{
    if (!text)
        return std::string();
    const std::size_t length = std::strlen(text);
    if (!validUTF8(reinterpret_cast<const unsigned char*>(text), length))
        return std::nullopt;
    return std::string(text, length);
}

} // namespace zq
