#pragma once

#include <QList>
#include <QRect>
#include <QString>
#include <QStringList>
#include <QTime>

// The bar's arithmetic, kept free of widgets so it can be checked on its own.

// 0 = top, 1 = bottom; every value other than 0 counts as bottom.
enum TitleBarPosition { TitleBarTop = 0, TitleBarBottom = 1 };

constexpr int titleBarHeight = 48;

// The bar's strip and the rectangle left to maximised clients, for a screen of this size.
QRect titleBarRect(const QSize &screen, int position);
QRect clientAreaRect(const QSize &screen, int position);

// Milliseconds from now to the start of the next minute, in whole seconds.
int clockInterval(const QTime &now);

struct InterfaceAddresses
{
    QString name;
    QStringList addresses; // as QHostAddress::toString() gives them, in the interface's order
};

// The first address of the first interface of that name that has any; a name such as
// "eth0 - cable" stands for "eth0".
QString interfaceAddress(const QString &name, const QList<InterfaceAddresses> &interfaces);

// "eth0:" and the eth0 address, then " wla0:" and the wlan0 address when wlan0 has one.
QString ipText(const QList<InterfaceAddresses> &interfaces);
