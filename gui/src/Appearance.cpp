#include "Appearance.h"

#include <QApplication>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>

namespace gui {

QImage drawApplicationIcon(int side)
{
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal s = side;
    // A player's body: a rounded slab, its screen, and the click wheel below.
    const QRectF body(s * 0.18, s * 0.04, s * 0.64, s * 0.92);
    QLinearGradient metal(body.topLeft(), body.bottomRight());
    metal.setColorAt(0, QColor(0xf4, 0xf4, 0xf6));
    metal.setColorAt(1, QColor(0xb8, 0xbc, 0xc4));
    painter.setPen(QPen(QColor(0x60, 0x64, 0x70), std::max(1.0, s / 64)));
    painter.setBrush(metal);
    painter.drawRoundedRect(body, s * 0.09, s * 0.09);
    const QRectF screen(s * 0.26, s * 0.11, s * 0.48, s * 0.34);
    QLinearGradient glass(screen.topLeft(), screen.bottomLeft());
    glass.setColorAt(0, QColor(0x3d, 0x8b, 0xfd));
    glass.setColorAt(1, QColor(0x1a, 0x4f, 0xb8));
    painter.setPen(Qt::NoPen);
    painter.setBrush(glass);
    painter.drawRoundedRect(screen, s * 0.03, s * 0.03);
    // A note on the screen.
    painter.setBrush(Qt::white);
    painter.drawEllipse(QPointF(s * 0.45, s * 0.35), s * 0.055, s * 0.045);
    painter.drawRect(QRectF(s * 0.485, s * 0.17, s * 0.025, s * 0.18));
    painter.drawRect(QRectF(s * 0.485, s * 0.17, s * 0.10, s * 0.03));
    const QPointF centre(s * 0.5, s * 0.71);
    painter.setBrush(QColor(0xfd, 0xfd, 0xfe));
    painter.setPen(QPen(QColor(0x90, 0x94, 0xa0), std::max(1.0, s / 96)));
    painter.drawEllipse(centre, s * 0.19, s * 0.19);
    painter.setBrush(QColor(0xd8, 0xdb, 0xe2));
    painter.drawEllipse(centre, s * 0.07, s * 0.07);
    return image;
}

QIcon applicationIcon()
{
    QIcon icon;
    for (int side : {16, 24, 32, 48, 64, 128, 256, 512})
        icon.addPixmap(QPixmap::fromImage(drawApplicationIcon(side)));
    return icon;
}

QString appearanceKey(Appearance appearance)
{
    switch (appearance) {
    case Appearance::Light: return QStringLiteral("light");
    case Appearance::Dark: return QStringLiteral("dark");
    case Appearance::System: break;
    }
    return QStringLiteral("system");
}

Appearance appearanceFromKey(const QString& key)
{
    if (key == QLatin1String("light"))
        return Appearance::Light;
    if (key == QLatin1String("dark"))
        return Appearance::Dark;
    return Appearance::System;
}

void applyAppearance(QApplication& application, Appearance appearance)
{
    static const QString platformStyle = application.style()->name();
    static const QPalette platformPalette = application.palette();
    if (appearance == Appearance::System) {
        application.setStyle(QStyleFactory::create(platformStyle));
        application.setPalette(platformPalette);
        return;
    }
    // Fusion draws with the palette alone, so both palettes look the same on every desktop.
    application.setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QPalette palette;
    if (appearance == Appearance::Dark) {
        const QColor window(0x2b, 0x2d, 0x31), base(0x1e, 0x1f, 0x22), text(0xe8, 0xe8, 0xea);
        palette.setColor(QPalette::Window, window);
        palette.setColor(QPalette::WindowText, text);
        palette.setColor(QPalette::Base, base);
        palette.setColor(QPalette::AlternateBase, QColor(0x26, 0x27, 0x2b));
        palette.setColor(QPalette::ToolTipBase, window);
        palette.setColor(QPalette::ToolTipText, text);
        palette.setColor(QPalette::PlaceholderText, QColor(0x9a, 0x9c, 0xa3));
        palette.setColor(QPalette::Text, text);
        palette.setColor(QPalette::Button, window);
        palette.setColor(QPalette::ButtonText, text);
        palette.setColor(QPalette::BrightText, Qt::red);
        palette.setColor(QPalette::Link, QColor(0x5a, 0x9c, 0xff));
        palette.setColor(QPalette::Highlight, QColor(0x2f, 0x6f, 0xd6));
        palette.setColor(QPalette::HighlightedText, Qt::white);
        palette.setColor(QPalette::Mid, QColor(0x44, 0x46, 0x4c));
        palette.setColor(QPalette::Disabled, QPalette::Text, QColor(0x70, 0x72, 0x78));
        palette.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x70, 0x72, 0x78));
        palette.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x70, 0x72, 0x78));
    } else {
        palette = application.style()->standardPalette();
        palette.setColor(QPalette::Highlight, QColor(0x2f, 0x6f, 0xd6));
        palette.setColor(QPalette::AlternateBase, QColor(0xf4, 0xf5, 0xf7));
    }
    application.setPalette(palette);
}

} // namespace gui
