#include "Text.h"

#include <ZQCore/foundation/Date.h>
#include <ZQCore/foundation/Image.h>

#include <QDateTime>
#include <QLocale>

namespace gui {

QString formatDuration(std::uint64_t milliseconds)
{
    const std::uint64_t seconds = milliseconds / 1000;
    const std::uint64_t hours = seconds / 3600;
    if (hours > 0)
        return QStringLiteral("%1:%2:%3")
            .arg(hours)
            .arg((seconds / 60) % 60, 2, 10, QLatin1Char('0'))
            .arg(seconds % 60, 2, 10, QLatin1Char('0'));
    return QStringLiteral("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

QString formatSize(std::uint64_t bytes)
{
    return QLocale().formattedDataSize(static_cast<qint64>(bytes), 1, QLocale::DataSizeSIFormat);
}

QString formatRating(std::int32_t rating)
{
    const int stars = std::clamp(rating, 0, 100) / 20;
    return QString(stars, QChar(0x2605));
}

QString formatDate(std::optional<double> secondsSinceReferenceDate)
{
    // The library database's dates count from 1904; a field never set reads as that start.
    constexpr double k1904 = -3061152000.0;
    if (!secondsSinceReferenceDate || *secondsSinceReferenceDate < k1904 + 2 * 86400)
        return {};
    const double unix = *secondsSinceReferenceDate + zq::Date::kReferenceDateUnixTime;
    const auto when = QDateTime::fromSecsSinceEpoch(static_cast<qint64>(unix));
    return QLocale().toString(when, QLocale::ShortFormat);
}

QImage toQImage(const zq::Image* image)
{
    if (!image || image->width() == 0 || image->height() == 0)
        return {};
    QImage result(static_cast<int>(image->width()), static_cast<int>(image->height()), QImage::Format_ARGB32);
    const std::uint8_t* source = image->bytes();
    for (int y = 0; y < result.height(); ++y) {
        auto* line = reinterpret_cast<QRgb*>(result.scanLine(y));
        for (int x = 0; x < result.width(); ++x, source += 4)
            line[x] = qRgba(source[1], source[2], source[3], source[0]);
    }
    return result;
}

std::string foldedUtf8(std::string_view text)
{
    // Plain ASCII, which most tags are, is folded without the detour through UTF-16.
    bool ascii = true;
    for (char c : text)
        if (static_cast<unsigned char>(c) >= 0x80) {
            ascii = false;
            break;
        }
    if (ascii) {
        std::string result(text);
        for (char& c : result)
            if (c >= 'A' && c <= 'Z')
                c = static_cast<char>(c - 'A' + 'a');
        return result;
    }
    const QByteArray folded =
        QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())).toCaseFolded().toUtf8();
    return std::string(folded.constData(), static_cast<std::size_t>(folded.size()));
}

} // namespace gui
