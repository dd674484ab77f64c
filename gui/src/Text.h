#pragma once
// The small conversions between the framework's values and Qt's, in one place so that every
// view shows a missing value, a duration or a size the same way.

#include <QImage>
#include <QString>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zq {
class Image;
}

namespace gui {

inline QString toQString(std::optional<std::string_view> text)
{
    return text ? QString::fromUtf8(text->data(), static_cast<qsizetype>(text->size())) : QString();
}

inline QString toQString(const std::optional<std::string>& text)
{
    return text ? QString::fromUtf8(text->data(), static_cast<qsizetype>(text->size())) : QString();
}

/// "3:07", "1:02:03" for a length in milliseconds.
QString formatDuration(std::uint64_t milliseconds);
/// "4.2 MB" in the units a file manager shows.
QString formatSize(std::uint64_t bytes);
/// Stars for a rating of 0-100 (20 a star); empty for unrated.
QString formatRating(std::int32_t rating);
/// A date of the framework (seconds since 2001) in the locale's short form.
QString formatDate(std::optional<double> secondsSinceReferenceDate);

/// The framework's pixels (alpha, red, green, blue bytes) as a QImage; null for no image.
QImage toQImage(const zq::Image* image);

/// Case-folded UTF-8, the form the filter and the text sort compare.
std::string foldedUtf8(std::string_view text);

} // namespace gui
