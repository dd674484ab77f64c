#pragma once
// `zqpod-gui --screenshot FILE [DEVICE]`: the main window showing DEVICE's library, rendered to
// a PNG (for the README and the tests), then exit.

#include <QString>

namespace gui {

class MainWindow;

/// Loads `device` (a device folder, or the name or serial number of a connected device; none:
/// the first connected device) into `window` and waits until its list and covers are shown.
/// Answers an error message, empty on success.
QString showDeviceAndWait(MainWindow& window, const QString& device, int timeoutMilliseconds = 60000);

/// The whole screenshot run; the process's exit status.
int runScreenshot(const QString& file, const QString& device);

} // namespace gui
