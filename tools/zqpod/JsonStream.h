#pragma once

// JSON written as it is produced, in the JSON library's pretty-printed form (two-space indent,
// one element per line, "[]" for an empty array), so that the text is the very text of a
// whole-document dump without a document of 100,000 tracks ever being held in memory. Only the
// JSON library's public interface is used: its dump writes the few values made as documents
// (a model, a smart playlist's rules) and strings that are not well-formed UTF-8.

#include "ZQCore/foundation/Date.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace zqpod {

/// Characters gathered for one write to the stream: the JSON of a large library is a great
/// many short appends, and each here checks its room once and copies.
class JsonBlock {
public:
    explicit JsonBlock(std::size_t capacity) : data_(new char[capacity]), capacity_(capacity) {}

    const char* data() const { return data_.get(); }
    std::size_t size() const { return size_; }
    std::string_view view() const { return {data_.get(), size_}; }
    void clear() { size_ = 0; }
    /// Drops what came after `size` (never grows).
    void resize(std::size_t size) { size_ = std::min(size, size_); }
    void swap(JsonBlock& other) noexcept
    {
        data_.swap(other.data_);
        std::swap(capacity_, other.capacity_);
        std::swap(size_, other.size_);
    }

    void append(const char* text, std::size_t length)
    {
        std::memcpy(room(length), text, length);
        size_ += length;
    }
    void append(std::size_t count, char c)
    {
        std::memset(room(count), c, count);
        size_ += count;
    }
    JsonBlock& operator+=(std::string_view text)
    {
        append(text.data(), text.size());
        return *this;
    }
    JsonBlock& operator+=(const char* text) { return *this += std::string_view(text); }
    JsonBlock& operator+=(char c)
    {
        *room(1) = c;
        ++size_;
        return *this;
    }

private:
    char* room(std::size_t length)
    {
        if (capacity_ - size_ < length)
            grow(length);
        return data_.get() + size_;
    }
    void grow(std::size_t length);

    std::unique_ptr<char[]> data_;
    std::size_t capacity_;
    std::size_t size_ = 0;
};

/// The writer. Containers are opened and closed with their indent; members and elements start
/// with the line break and indent before them. Member names are plain ASCII and never escaped.
class JsonStream {
public:
    using Json = nlohmann::ordered_json;

    explicit JsonStream(std::ostream& out) : JsonStream(&out) {}
    /// A stream that only gathers, for a piece made on another thread: the text stays in its
    /// block (see gathered) for the writing stream to take whole. It continues a list whose
    /// first element is written already.
    JsonStream() : JsonStream(nullptr) { first_ = false; }

    /// "{" or "[" opening a container; an empty one is written whole ("[]") by open and close
    /// together.
    void open(char bracket, bool empty = false)
    {
        buffer_ += bracket;
        if (empty)
            buffer_ += bracket == '[' ? ']' : '}';
        first_ = true;
    }
    /// Closes the container whose opening line stands at `indent`.
    void close(char bracket, unsigned indent, bool empty = false)
    {
        if (empty) {
            first_ = false;
            return;
        }
        buffer_ += '\n';
        buffer_.append(indent, ' ');
        buffer_ += bracket;
        first_ = false;
        flushIfFull();
    }
    /// Starts an array element that is a container, at `indent`.
    void element(unsigned indent)
    {
        breakLine(indent);
        first_ = true;
    }
    /// Starts an array element that is a single value, at `indent`.
    void item(unsigned indent)
    {
        breakLine(indent);
        first_ = false;
    }
    /// Starts an object member at `indent`.
    void key(std::string_view name, unsigned indent)
    {
        breakLine(indent);
        buffer_ += '"';
        buffer_ += name;
        buffer_ += "\": ";
        first_ = false;
    }
    /// Starts a member whose line break, indent, name and colon are written out in `prefix`
    /// (",\n..." for every member but an object's first): the fast way for fixed layouts.
    void member(std::string_view prefix)
    {
        buffer_ += prefix;
        first_ = false;
    }

    void text(const std::optional<std::string>& value)
    {
        text(value ? std::optional<std::string_view>(*value) : std::nullopt);
    }
    /// A string as the JSON library writes it (ensure_ascii off): well-formed UTF-8 as it is,
    /// quote, backslash and control characters escaped; what is not well-formed UTF-8 is
    /// replaced as the library's dump replaces it. Null for no value.
    void text(std::optional<std::string_view> value);
    void date(const std::optional<zq::Date>& value)
    {
        if (!value) {
            null();
            return;
        }
        char digits[zq::Date::kISO8601Capacity];
        buffer_ += '"';
        buffer_.append(digits, value->iso8601(digits));
        buffer_ += '"';
    }
    template <class Integer>
    void number(Integer value)
    {
        char digits[24];
        const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
        buffer_.append(digits, static_cast<std::size_t>(end - digits));
    }
    void boolean(bool value) { buffer_ += value ? "true" : "false"; }
    void null() { buffer_ += "null"; }
    /// A value made as a document, written as the library's dump writes it at `indent`.
    void value(const Json& json, unsigned indent);
    void raw(std::string_view text) { buffer_ += text; }

    /// Writes out what is gathered.
    void flush();
    /// Text gathered by another stream, after what is written so far.
    void write(const JsonBlock& text);
    JsonBlock& gathered() { return buffer_; }

private:
    static constexpr std::size_t kBlock = 1 << 16;

    explicit JsonStream(std::ostream* out) : out_(out), buffer_(kBlock + 4096) {}

    void breakLine(unsigned indent)
    {
        buffer_ += first_ ? "\n" : ",\n";
        buffer_.append(indent, ' ');
    }
    void escape(unsigned char c);
    void flushIfFull()
    {
        if (out_ && buffer_.size() >= kBlock)
            flush();
    }

    std::ostream* out_;  // null for a stream that only gathers
    JsonBlock buffer_;
    bool first_ = true;
};

/// The elements of a long array, `count` of them, each begun and written by `element(into, i)`
/// (which starts it with element() or item()). Making their text is most of the time of a large
/// listing, so a second thread makes every other piece of elements while this one makes the
/// piece before it; the pieces go out in order as they are done. The text is the same as from
/// one thread, and no more than two pieces are held at once.
void writeElementsInPieces(JsonStream& json, std::size_t count,
                           const std::function<void(JsonStream& into, std::size_t index)>& element);

} // namespace zqpod
