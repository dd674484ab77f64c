#include "JsonStream.h"

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <mutex>
#include <ostream>
#include <stop_token>
#include <thread>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zqpod {

namespace {

/// The length of the well-formed UTF-8 sequence at s[i] (Unicode's table of well-formed byte
/// sequences), or 0.
std::size_t wellFormedSequence(std::string_view s, std::size_t i)
{
    auto at = [&](std::size_t k) { return i + k < s.size() ? static_cast<unsigned char>(s[i + k]) : 0u; };
    auto tail = [](unsigned b) { return b >= 0x80 && b <= 0xBF; };
    const unsigned c = at(0);
    if (c >= 0xC2 && c <= 0xDF)
        return tail(at(1)) ? 2 : 0;
    if (c >= 0xE0 && c <= 0xEF) {
        const unsigned b = at(1);
        const bool second = c == 0xE0 ? (b >= 0xA0 && b <= 0xBF) : c == 0xED ? (b >= 0x80 && b <= 0x9F) : tail(b);
        return second && tail(at(2)) ? 3 : 0;
    }
    if (c >= 0xF0 && c <= 0xF4) {
        const unsigned b = at(1);
        const bool second = c == 0xF0 ? (b >= 0x90 && b <= 0xBF) : c == 0xF4 ? (b >= 0x80 && b <= 0x8F) : tail(b);
        return second && tail(at(2)) && tail(at(3)) ? 4 : 0;
    }
    return 0;
}

} // namespace

void JsonBlock::grow(std::size_t length)
{
    const std::size_t grown = std::max(capacity_ * 2, size_ + length);
    std::unique_ptr<char[]> larger(new char[grown]);
    std::memcpy(larger.get(), data_.get(), size_);
    data_ = std::move(larger);
    capacity_ = grown;
}

void JsonStream::text(std::optional<std::string_view> value)
{
    if (!value) {
        null();
        return;
    }
    const std::string_view s = *value;
    const std::size_t mark = buffer_.size();
    buffer_ += '"';
    std::size_t i = 0, run = 0;
    while (i < s.size()) {
#if defined(__SSE2__)
        // Sixteen plain characters at a time: none below 0x20 or above 0x7F (a signed compare
        // catches both), no quote, no backslash.
        if (i + 16 <= s.size()) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s.data() + i));
            const __m128i special = _mm_or_si128(
                _mm_cmplt_epi8(v, _mm_set1_epi8(0x20)),
                _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('"')), _mm_cmpeq_epi8(v, _mm_set1_epi8('\\'))));
            if (_mm_movemask_epi8(special) == 0) {
                i += 16;
                continue;
            }
        }
#endif
        const auto c = static_cast<unsigned char>(s[i]);
        if (c >= 0x20 && c < 0x80 && c != '"' && c != '\\') {
            ++i;
            continue;
        }
        if (c >= 0x80) {
            const std::size_t length = wellFormedSequence(s, i);
            if (length == 0) {
                // Rare (a damaged or hostile device): the library's own replacement, whole.
                buffer_.resize(mark);
                buffer_ += Json(std::string(s)).dump(-1, ' ', false, Json::error_handler_t::replace);
                return;
            }
            i += length;
            continue;
        }
        buffer_.append(s.data() + run, i - run);
        escape(c);
        run = ++i;
    }
    buffer_.append(s.data() + run, s.size() - run);
    buffer_ += '"';
}

void JsonStream::escape(unsigned char c)
{
    switch (c) {
    case '\b': buffer_ += "\\b"; break;
    case '\t': buffer_ += "\\t"; break;
    case '\n': buffer_ += "\\n"; break;
    case '\f': buffer_ += "\\f"; break;
    case '\r': buffer_ += "\\r"; break;
    case '"': buffer_ += "\\\""; break;
    case '\\': buffer_ += "\\\\"; break;
    default: {
        static constexpr char hex[] = "0123456789abcdef";
        const char code[] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 0xF]};
        buffer_.append(code, sizeof code);
    }
    }
}

void JsonStream::value(const Json& json, unsigned indent)
{
    // The dump is made at the left margin; every line after its first moves in by `indent`.
    // Its only line breaks are between elements: inside strings they are escaped.
    const std::string text = json.dump(2, ' ', false, Json::error_handler_t::replace);
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        buffer_.append(text.data() + start, end + 1 - start);
        buffer_.append(indent, ' ');
    }
    buffer_.append(text.data() + start, text.size() - start);
    first_ = false;
}

void JsonStream::flush()
{
    if (!out_)
        return;
    out_->write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    buffer_.clear();
}

void JsonStream::write(const JsonBlock& text)
{
    flush();
    out_->write(text.data(), static_cast<std::streamsize>(text.size()));
}

void writeElementsInPieces(JsonStream& json, std::size_t count,
                           const std::function<void(JsonStream& into, std::size_t index)>& element)
{
    constexpr std::size_t kPiece = 256;
    const std::size_t pieces = (count + kPiece - 1) / kPiece;
    auto make = [&](JsonStream& into, std::size_t piece) {
        const std::size_t end = std::min(count, (piece + 1) * kPiece);
        for (std::size_t i = piece * kPiece; i < end; ++i)
            element(into, i);
    };
    if (pieces < 4 || std::thread::hardware_concurrency() < 2) {
        for (std::size_t piece = 0; piece < pieces; ++piece)
            make(json, piece);
        return;
    }

    constexpr std::size_t kNone = SIZE_MAX;
    std::mutex mutex;
    std::condition_variable_any changed;
    JsonBlock ready(0);  // the odd piece made last, until it is written
    std::size_t readyPiece = kNone;
    std::exception_ptr failure;
    // Asked to stop and waited for on every way out, as a jthread is when it goes.
    std::jthread other([&](std::stop_token stop) {
        try {
            // Its blocks go back and forth with this thread's, so each piece is made in place in
            // memory that is already there and is written straight from it.
            JsonStream into;
            for (std::size_t piece = 1; piece < pieces; piece += 2) {
                into.gathered().clear();
                make(into, piece);
                std::unique_lock lock(mutex);
                if (!changed.wait(lock, stop, [&] { return readyPiece == kNone; }))
                    return;
                ready.swap(into.gathered());
                readyPiece = piece;
                changed.notify_all();
            }
        } catch (...) {
            std::lock_guard lock(mutex);
            failure = std::current_exception();
            changed.notify_all();
        }
    });

    JsonBlock text(0);
    for (std::size_t piece = 0; piece < pieces; piece += 2) {
        make(json, piece);
        if (piece + 1 == pieces)
            break;
        {
            std::unique_lock lock(mutex);
            changed.wait(lock, [&] { return readyPiece == piece + 1 || failure; });
            if (failure)
                std::rethrow_exception(failure);
            text.swap(ready);
            readyPiece = kNone;
        }
        changed.notify_all();
        json.write(text);
    }
}

} // namespace zqpod
