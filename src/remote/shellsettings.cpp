#include "shellsettings.h"

#include <QFileInfo>
#include <QSettings>

namespace {

// A comma-separated value, blanks around the items allowed, empty items dropped.
QStringList listValue(const QSettings &file, const char *key)
{
    QStringList items;
    const QVariant value = file.value(QLatin1String(key));
    const QStringList raw = value.typeId() == QMetaType::QStringList
                                ? value.toStringList()
                                : value.toString().split(QLatin1Char(','));
    for (const QString &item : raw) {
        if (!item.trimmed().isEmpty())
            items.append(item.trimmed());
    }
    return items;
}

bool portValue(const QString &text, quint16 *port)
{
    bool ok = false;
    const int value = text.trimmed().toInt(&ok, 10);
    if (!ok || value < 0 || value > 65535)
        return false;
    *port = quint16(value);
    return true;
}

} // namespace

ShellSettings ShellSettings::fromFile(const QString &path)
{
    ShellSettings s;
    if (!QFileInfo(path).isFile())
        return s;
    const QSettings file(path, QSettings::IniFormat);
    (void)portValue(file.value(QStringLiteral("control/port")).toString(), &s.controlPort);
    s.bindAddresses = listValue(file, "control/bind");
    s.allowedNetworks = listValue(file, "control/allow");
    s.allowInjection = file.value(QStringLiteral("control/inject"), true).toBool();
    s.exclusive = file.value(QStringLiteral("control/exclusive"), false).toBool();
    s.startMenuDir = file.value(QStringLiteral("paths/startmenu")).toString();
    s.clockProgram = file.value(QStringLiteral("paths/clock_program")).toString();
    return s;
}

ShellSettings ShellSettings::load()
{
    const QString path = qEnvironmentVariable("TIDESHELL_CONFIG", defaultPath());
    ShellSettings s = fromFile(path);
    (void)portValue(qEnvironmentVariable("TIDESHELL_CONTROL_PORT"), &s.controlPort);
    if (!qEnvironmentVariableIsEmpty("TIDESHELL_STARTMENU_DIR"))
        s.startMenuDir = qEnvironmentVariable("TIDESHELL_STARTMENU_DIR");
    if (!qEnvironmentVariableIsEmpty("TIDESHELL_CLOCK_PROGRAM"))
        s.clockProgram = qEnvironmentVariable("TIDESHELL_CLOCK_PROGRAM");
    return s;
}
