#include "menuentry.h"

#include <QDir>
#include <QFile>
#include <QSettings>

Q_LOGGING_CATEGORY(lcStartMenu, "tide.startmenu", QtWarningMsg)

QString MenuEntry::actionData() const
{
    return QLatin1String(inner ? "1" : "0") + QLatin1Char('|') + path + QLatin1Char('|') + dir;
}

std::optional<MenuEntry> readMenuEntry(const QString &fileName)
{
    // QSettings turns "@Variant(...)" values into objects from a binary stream; a few bytes of
    // such a value can ask for gigabytes. Entry files hold text, so such a file is no entry.
    QFile file(fileName);
    if (file.open(QIODevice::ReadOnly) && file.readAll().contains("@Variant(")) {
        qCDebug(lcStartMenu) << "entry" << fileName << "skipped, serialised value";
        return std::nullopt;
    }

    // Qt 6 reads INI files as UTF-8, which is what the entry files are written in.
    const QSettings settings(fileName, QSettings::IniFormat);
    for (const char *key : {"Name", "Path", "Dir", "Icon"}) {
        if (!settings.contains(QLatin1String(key))) {
            qCDebug(lcStartMenu) << "entry" << fileName << "skipped, no key" << key;
            return std::nullopt;
        }
    }

    MenuEntry entry;
    entry.name = settings.value(QStringLiteral("Name")).toString();
    entry.path = settings.value(QStringLiteral("Path")).toString();
    entry.dir = settings.value(QStringLiteral("Dir")).toString();
    entry.icon = settings.value(QStringLiteral("Icon")).toString();
    entry.inner = settings.contains(QStringLiteral("Inner")) &&
                  settings.value(QStringLiteral("Inner")).toBool();
    return entry;
}

QFileInfoList listMenuDir(const QString &dirPath)
{
    if (dirPath.isEmpty()) // QDir would take that for the working directory
        return {};
    const QDir dir(dirPath);
    return dir.entryInfoList(QDir::Files | QDir::NoSymLinks | QDir::Hidden,
                             QDir::Size | QDir::Reversed);
}

bool isMenuEntryFile(const QFileInfo &info)
{
    return info.suffix() == QLatin1String("menu");
}
