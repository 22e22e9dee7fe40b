#include "updaterwindow.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QSettings>
#include <QtWidgets/QApplication>

#include <memory>

namespace {

std::unique_ptr<QSettings> openSettings(const QString &file)
{
    if (file.isEmpty())
        return std::make_unique<QSettings>();
    return std::make_unique<QSettings>(file, QSettings::IniFormat);
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("TarvisNet"));
    QApplication::setApplicationName(QStringLiteral("Updater"));
    QApplication::setApplicationVersion(QStringLiteral(TARVISNET_UPDATER_VERSION));

    const QCommandLineOption settingsFile(QStringLiteral("settings"),
                                          QStringLiteral("Keep the settings in <file>."),
                                          QStringLiteral("file"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Looks for updates and downloads them."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOption(settingsFile);
    parser.process(application);

    const auto settings = openSettings(parser.value(settingsFile));
    UpdaterWindow window(settings.get());
    window.show();
    return QApplication::exec();
}
