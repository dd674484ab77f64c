// zqpod-gui: the desktop application. See README.md, "The desktop application".

#include "Appearance.h"
#include "MainWindow.h"
#include "Screenshot.h"

#include <ZQCore/foundation/Application.h>

#include <QApplication>
#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <QTimer>

#include <cstdio>
#include <cstdlib>

namespace {

void setIdentity()
{
    QCoreApplication::setOrganizationName(QStringLiteral("ZQCore"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("zqcore.org"));
    QCoreApplication::setApplicationName(QStringLiteral("ZQPod"));
    QCoreApplication::setApplicationVersion(QStringLiteral(ZQPOD_GUI_VERSION));
    QGuiApplication::setApplicationDisplayName(QStringLiteral("ZQPod"));
    QGuiApplication::setDesktopFileName(QStringLiteral("org.zqcore.ZQPod"));
    zq::setApplicationIdentifier("org.zqcore.ZQPod");
}

/// `--write-icons DIR SIZE...`: the icon theme's files, drawn by the same code as the window's.
int writeIcons(const QStringList& arguments)
{
    if (arguments.size() < 2)
        return 2;
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const int side = arguments[i].toInt();
        const QString folder = QStringLiteral("%1/%2x%2/apps").arg(arguments[0]).arg(side);
        QDir().mkpath(folder);
        if (side <= 0 || !gui::drawApplicationIcon(side).save(folder + QStringLiteral("/org.zqcore.ZQPod.png")))
            return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    // The screenshot is rendered without a display unless a platform was chosen on purpose.
    bool screenshot = false;
    for (int i = 1; i < argc; ++i)
        if (std::string_view(argv[i]) == "--screenshot" || std::string_view(argv[i]) == "--write-icons")
            screenshot = true;
    if (screenshot && !std::getenv("QT_QPA_PLATFORM"))
        setenv("QT_QPA_PLATFORM", "offscreen", 1);

    QApplication application(argc, argv);
    setIdentity();

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QCoreApplication::translate("main", "Shows the music of iPods and iPhones, read without writing to them."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption screenshotOption(
        QStringLiteral("screenshot"),
        QCoreApplication::translate("main", "Renders the main window showing DEVICE's library to the PNG FILE and exits."),
        QCoreApplication::translate("main", "FILE"));
    const QCommandLineOption iconsOption(QStringLiteral("write-icons"),
                                         QCoreApplication::translate("main", "Writes the icon theme's files to DIR."),
                                         QCoreApplication::translate("main", "DIR"));
    parser.addOption(screenshotOption);
    parser.addOption(iconsOption);
    parser.addPositionalArgument(
        QStringLiteral("device"),
        QCoreApplication::translate("main", "A device folder, or the name or serial number of a connected device."),
        QStringLiteral("[DEVICE]"));
    parser.process(application);
    const QStringList positional = parser.positionalArguments();

    if (parser.isSet(iconsOption))
        return writeIcons(QStringList{parser.value(iconsOption)} + positional);
    if (parser.isSet(screenshotOption))
        return gui::runScreenshot(parser.value(screenshotOption), positional.value(0));

    application.setWindowIcon(gui::applicationIcon());
    gui::applyAppearance(application,
                         gui::appearanceFromKey(QSettings().value(QStringLiteral("appearance")).toString()));
    gui::MainWindow window;
    window.show();
    if (!positional.isEmpty()) {
        const QString device = positional.first();
        QTimer::singleShot(0, &window, [&window, device] {
            if (QFileInfo(device).isDir())
                window.openFolder(QFileInfo(device).absoluteFilePath());
        });
    }
    return application.exec();
}
