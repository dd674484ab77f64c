#pragma once
// The application's icon (drawn, so it is sharp at every size and on HiDPI screens) and its
// light and dark palettes.

#include <QIcon>
#include <QImage>
#include <QString>

class QApplication;

namespace gui {

enum class Appearance { System, Light, Dark };

/// The application icon at `side` pixels.
QImage drawApplicationIcon(int side);
/// The application icon at the sizes a desktop asks for.
QIcon applicationIcon();
/// Applies a palette (System: the platform's own).
void applyAppearance(QApplication& application, Appearance appearance);
QString appearanceKey(Appearance appearance);
Appearance appearanceFromKey(const QString& key);

} // namespace gui
