#pragma once

#include "ZQCore/foundation/Export.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zq {

/// An immutable run of bytes. Copies share one buffer (copying a Data is cheap and never
/// copies the bytes), so a reader, a blob taken out of a database and the library object that
/// read the file can all hold the same bytes. "No data" (nil) is spelled std::optional<Data>;
/// an empty Data is a value of its own.
class ZQ_EXPORT Data {
public:
    Data() = default;
    explicit Data(std::vector<std::uint8_t> bytes);
    Data(const void* bytes, std::size_t length);
    explicit Data(std::string_view bytes);

    /// Reads a whole regular file. No value when the file cannot be opened or read.
    static std::optional<Data> contentsOfFile(const std::string& path);
    /// The same for a file already open for reading; the descriptor is closed in every case
    /// (a negative one gives no value).
    static std::optional<Data> contentsOfDescriptor(int fd);

    const std::uint8_t* bytes() const noexcept { return length_ ? bytes_.get() : nullptr; }
    std::size_t size() const noexcept { return length_; }
    bool empty() const noexcept { return length_ == 0; }
    std::span<const std::uint8_t> span() const noexcept { return {bytes(), length_}; }
    std::string_view stringView() const noexcept
    {
        return {reinterpret_cast<const char*>(bytes()), length_};
    }

    /// A copy of [offset, offset + length), clamped to the bytes that exist.
    Data subdata(std::size_t offset, std::size_t length) const;

    friend ZQ_EXPORT bool operator==(const Data& a, const Data& b) noexcept;

private:
    Data(std::shared_ptr<std::uint8_t[]> bytes, std::size_t length)
        : bytes_(std::move(bytes)), length_(length) {}

    std::shared_ptr<std::uint8_t[]> bytes_;
    std::size_t length_ = 0;
};

} // namespace zq
