#include "ZQCore/reader/XRDataReader.h"

#include "ZQCore/foundation/Application.h"
#include "ZQCore/foundation/Exception.h"
#include "ZQCore/foundation/UTF16.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

// The part of a file that is in memory. A request outside it moves the window so that it
// starts at the requested byte: the walks go forwards, and step back only within the record
// they have just read, which the window still holds.
class XRDataReader::FileWindow {
public:
    FileWindow(int fd, std::size_t windowSize, std::string path)
        : fd_(fd), windowSize_(windowSize ? windowSize : 1), path_(std::move(path))
    {
    }
    ~FileWindow() { ::close(fd_); }
    FileWindow(const FileWindow&) = delete;
    FileWindow& operator=(const FileWindow&) = delete;

    // The bytes [offset, offset + count) of the file, or nullptr when the file cannot supply
    // them. `fileLength` bounds the read-ahead.
    const std::uint8_t* bytesAt(std::int64_t offset, std::size_t count, std::int64_t fileLength)
    {
        if (offset >= start_ && offset + static_cast<std::int64_t>(count) <= start_ + static_cast<std::int64_t>(filled_))
            return buffer_.data() + (offset - start_);
        // A request larger than the window (a long string) gets a buffer of its own size; it is
        // within the file's length, which the caller has checked.
        const std::size_t want = std::max<std::size_t>(
            count, std::min<std::int64_t>(static_cast<std::int64_t>(windowSize_), fileLength - offset));
        if (buffer_.size() < want)
            buffer_.resize(want);
        start_ = offset;
        filled_ = 0;
        while (filled_ < want) {
            ssize_t got = ::pread(fd_, buffer_.data() + filled_, want - filled_, static_cast<off_t>(offset) + static_cast<off_t>(filled_));
            if (got < 0 && errno == EINTR)
                continue;
            // A failed read is the device's fault, not the file's: it is said so, never taken
            // for a file that ends early.
            if (got < 0)
                throw Exception(kindOfErrno(errno), applicationIdentifier() + ".FileReadError",
                                "Could not read " + path_ + " at byte " + std::to_string(offset + static_cast<std::int64_t>(filled_)) +
                                    ": " + std::strerror(errno) + ". The device may have been disconnected, or its volume is damaged.");
            if (got == 0)
                break;
            filled_ += static_cast<std::size_t>(got);
        }
        return filled_ >= count ? buffer_.data() : nullptr;
    }

private:
    int fd_;
    std::size_t windowSize_;
    std::string path_;
    std::vector<std::uint8_t> buffer_;
    std::int64_t start_ = 0;
    std::size_t filled_ = 0;
};

XRDataReader::~XRDataReader() = default;

XRDataReader::XRDataReader(std::unique_ptr<FileWindow> file, std::int64_t length, bool isLittleEndian)
    : fileIsLittleEndian_(isLittleEndian), length_(length), file_(std::move(file))
{
}

std::shared_ptr<XRDataReader> XRDataReader::dataReaderWithFile(const std::string& path, bool isLittleEndian,
                                                               std::size_t windowSize)
{
    return dataReaderWithDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC), path, isLittleEndian, windowSize);
}

std::shared_ptr<XRDataReader> XRDataReader::dataReaderWithDescriptor(int fd, const std::string& path,
                                                                     bool isLittleEndian, std::size_t windowSize)
{
    if (fd < 0)
        return nullptr;
    auto window = std::make_unique<FileWindow>(fd, windowSize, path);
    struct stat info {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))
        return nullptr;
    // As for a buffer, the length is a 32-bit count: the record walks address at most 4 GiB.
    const auto length = static_cast<std::int64_t>(static_cast<std::uint32_t>(info.st_size));
    return std::shared_ptr<XRDataReader>(new XRDataReader(std::move(window), length, isLittleEndian));
}

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
        throw Exception(ErrorKind::NotFound, "XRDataReaderDataIsNilException", "Exception: Could not init XRDataReader - data is nil.");
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
        throw Exception(ErrorKind::Damaged, kInvalidRead, kInvalidReadReason);
    const std::uint8_t* start;
    if (file_) {
        start = count ? file_->bytesAt(streamPosition_, static_cast<std::size_t>(count), length_) : nullptr;
        if (count && !start)
            throw Exception(ErrorKind::Damaged, kInvalidRead, kInvalidReadReason);
    } else {
        start = data_.bytes() + position();
    }
    readLimit_ -= static_cast<std::uint64_t>(count);
    streamPosition_ += count;
    return {count ? start : nullptr, static_cast<std::size_t>(count)};
}

std::span<const std::uint8_t> XRDataReader::peekRawBytes(std::uint32_t count)
{
    const std::int64_t remaining = length_ - streamPosition_;
    if (count == 0 || count > static_cast<std::uint32_t>(INT32_MAX) || static_cast<std::int64_t>(count) > remaining ||
        count > readLimit_)
        return {};
    const std::uint8_t* start =
        file_ ? file_->bytesAt(streamPosition_, count, length_) : data_.bytes() + position();
    return start ? std::span<const std::uint8_t>(start, count) : std::span<const std::uint8_t>();
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
