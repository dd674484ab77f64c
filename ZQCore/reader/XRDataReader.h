#pragma once

#include "ZQCore/foundation/Data.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace zq {

class DeviceFiles;

/// String encodings that readString accepts (CoreFoundation's identifiers for the two that the
/// database walks use).
enum class StringEncoding : std::uint32_t {
    UTF16LE = 0x14000100,
    UTF16BE = 0x10000100,
};

/// A forward cursor over a byte buffer that is wholly in memory (a database file, or a blob
/// taken out of one). Every parser of the binary databases reads through it, and every read is
/// bounds-checked here, in 64-bit arithmetic that cannot overflow.
///
/// Two rules are kept as the databases' readers have always had them:
/// - reads may reach the very end of the buffer, but setPosition() never goes past length - 1
///   (so a length field that points past the end lands on the last byte, and the next header
///   read there fails instead of silently reading nothing);
/// - eof() is already true while the cursor stands on the last byte.
///
/// A reader over a Data keeps its own reference to the buffer; spans it returns stay valid as
/// long as the reader (or any other holder of the same Data) lives.
///
/// A reader over a file (dataReaderWithFile) behaves the same but holds only a window of the
/// file in memory, read ahead as the cursor moves: a library database of a few hundred
/// megabytes is walked without ever being in memory whole, which saves both the memory and the
/// time of filling it. The price is that a span it returns is valid only until the next read;
/// a walk that keeps a record header while it reads the record's children copies it first
/// (readBlock).
class XRDataReader {
public:
    /// Throws "XRDataReaderDataIsNilException" when there is no buffer.
    static std::shared_ptr<XRDataReader> dataReaderWithData(const std::optional<Data>& data, bool isLittleEndian);

    /// A reader over the regular file at `path`, whose length is the file's length when it is
    /// opened. nullptr when the file cannot be opened or is not a regular file. A read that the
    /// file can no longer satisfy (it shrank, or the device went away) fails as a read past the
    /// end does.
    /// `windowSize` is the read-ahead (tests make it tiny to move the window at every read).
    static std::shared_ptr<XRDataReader> dataReaderWithFile(const std::string& path, bool isLittleEndian,
                                                            std::size_t windowSize = kDefaultWindowSize);
    /// The same over a file already open for reading (the reader owns the descriptor, and
    /// closes it on failure too); `path` names it in messages.
    static std::shared_ptr<XRDataReader> dataReaderWithDescriptor(int fd, const std::string& path, bool isLittleEndian,
                                                                  std::size_t windowSize = kDefaultWindowSize);

    /// A reader over a file of a device: walked through a window where the device's files have
    /// descriptors (a volume), else read whole first (over a session). nullptr when the file
    /// cannot be read or is no regular file.
    static std::shared_ptr<XRDataReader> dataReaderWithDeviceFile(const DeviceFiles& files, const std::string& path,
                                                                  bool isLittleEndian);

    /// Large enough that the system calls cost nothing next to the parsing, small enough to stay
    /// in the processor's caches while the walk goes through it.
    static constexpr std::size_t kDefaultWindowSize = std::size_t{1} << 20;

    ~XRDataReader();
    XRDataReader(const XRDataReader&) = delete;
    XRDataReader& operator=(const XRDataReader&) = delete;

    std::uint32_t position() const { return static_cast<std::uint32_t>(streamPosition_); }
    void setPosition(std::uint32_t position);
    void stepForwards(std::int32_t count);
    void stepBackwards(std::int32_t count);
    std::int64_t length() const { return length_; }
    bool eof() const;

    /// Caps the bytes that all reads together may hand out; past the cap a read fails as a read
    /// past the end does. Record walks over untrusted files set it to a few times the file's
    /// length: a real database never reads its bytes more than about twice (record headers are
    /// read as fixed blocks that may overlap their children), while a hostile one can point
    /// thousands of records or strings at the same bytes and so ask for work and memory far
    /// beyond its size.
    void setReadLimit(std::uint64_t bytes) { readLimit_ = bytes; }

    bool isLittleEndian() const { return fileIsLittleEndian_; }
    void setIsLittleEndian(bool littleEndian) { fileIsLittleEndian_ = littleEndian; }

    /// The next `count` bytes, in place, and the cursor moves past them. Throws
    /// "XRDataReaderInvalidRead" ("Length requested is greater than the remaining data.") and
    /// leaves the position alone when fewer remain. A negative count is refused the same way
    /// (it could only come from a corrupt length field).
    std::span<const std::uint8_t> readRawBytes(std::int32_t count);

    /// The next `count` bytes in place, without moving the cursor or counting them against
    /// the read limit; no bytes where readRawBytes would refuse them. Lets a walk look at a
    /// whole record before it decides how to read it.
    std::span<const std::uint8_t> peekRawBytes(std::uint32_t count);
    /// What reads may still hand out (see setReadLimit).
    std::uint64_t readLimit() const { return readLimit_; }
    /// Counts `count` bytes against the read limit, as reading them would have (for bytes a
    /// walk took through peekRawBytes; the caller has checked that the limit holds them).
    void countAsRead(std::uint64_t count) { readLimit_ -= count; }
    /// A copy of the next `count` bytes; no value when the read is refused (the failure is
    /// swallowed, as callers of this form treat an unreadable block as absent).
    std::optional<Data> readBytes(std::int32_t count);

    /// A copy of the next N bytes (a record header that must outlive further reads); fails as
    /// readRawBytes does.
    template <std::size_t N>
    std::array<std::uint8_t, N> readBlock()
    {
        auto bytes = readRawBytes(static_cast<std::int32_t>(N));
        std::array<std::uint8_t, N> block;
        std::memcpy(block.data(), bytes.data(), N);
        return block;
    }

    /// `count` bytes decoded in `encoding`. A refused read yields "" (the string of no bytes);
    /// bytes that are not text in that encoding yield no string.
    std::optional<std::string> readString(std::int32_t count, StringEncoding encoding);

    /// As readString, into a caller's buffer (reused across calls by the record walks).
    /// Returns false when the bytes are not text; `out` is "" after a refused read.
    bool readStringInto(std::string& out, std::int32_t count, StringEncoding encoding);

    std::uint8_t readUChar() { return readRawBytes(1)[0]; }
    std::int8_t readChar() { return static_cast<std::int8_t>(readUChar()); }
    std::uint16_t readUInt16();
    std::int16_t readInt16() { return static_cast<std::int16_t>(readUInt16()); }
    std::uint32_t readUInt32();
    std::int32_t readInt32() { return static_cast<std::int32_t>(readUInt32()); }
    /// Consumes eight bytes but, as these readers always have, builds the value from the first
    /// four only: a signed 32-bit number in host order, sign-extended, then byte-reversed as a
    /// whole when the reader's order is not the host's. The record walks never call it.
    std::uint64_t readUInt64();
    std::int64_t readInt64() { return static_cast<std::int64_t>(readUInt64()); }

private:
    class FileWindow;

    XRDataReader(Data data, bool isLittleEndian);
    XRDataReader(std::unique_ptr<FileWindow> file, std::int64_t length, bool isLittleEndian);
    bool needsSwap() const;

    std::int64_t streamPosition_ = 0;
    bool fileIsLittleEndian_;
    Data data_;
    std::int64_t length_;
    std::uint64_t readLimit_ = UINT64_MAX;
    std::unique_ptr<FileWindow> file_; // set for a reader over a file
};

/// A null pointer gives "" (never no string); other bytes give the string they spell, or no
/// string when they are not valid UTF-8.
std::optional<std::string> stringWithUTF8StringAllowingNULL(const char* text);

} // namespace zq
