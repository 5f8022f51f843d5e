#include "titlebarlayout.h"

QRect titleBarRect(const QSize &screen, int position)
{
    if (position == TitleBarTop)
        return QRect(0, 0, screen.width(), titleBarHeight);
    return QRect(0, screen.height() - titleBarHeight, screen.width(), titleBarHeight);
}

QRect clientAreaRect(const QSize &screen, int position)
{
    const int height = screen.height() - titleBarHeight;
    if (position == TitleBarTop)
        return QRect(0, titleBarHeight, screen.width(), height);
    return QRect(0, 0, screen.width(), height);
}

int clockInterval(const QTime &now)
{
    return (60 - now.second()) * 1000;
}

QString interfaceAddress(const QString &name, const QList<InterfaceAddresses> &interfaces)
{
    QString wanted = name;
    const int cut = wanted.indexOf(QLatin1String(" - "));
    if (cut >= 1)
        wanted.truncate(cut);
    for (const InterfaceAddresses &iface : interfaces) {
        if (iface.name == wanted && !iface.addresses.isEmpty())
            return iface.addresses.constFirst();
    }
    return QString();
}

QString ipText(const QList<InterfaceAddresses> &interfaces)
{
    QString text = QStringLiteral("eth0:") + interfaceAddress(QStringLiteral("eth0"), interfaces);
    const QString wlan = interfaceAddress(QStringLiteral("wlan0"), interfaces);
    // " wla0:" is the label users know; it is not the interface name and stays as it is.
    if (!wlan.isEmpty())
        text += QStringLiteral(" wla0:") + wlan;
    return text;
}
