// What the end-to-end tests of the shell's own windows share: finding a server window's
// geometry in the shell's log, and the small stand-in programs a test puts in place of the
// device's commands.
#pragma once

#include "shellharness.h"

#include <QFile>
#include <QTest>

// A "server window Show|Hide" line of the shell; captures x, y, w, h.
inline QRegularExpression serverWindow(const QString &event, const QString &name,
                                       const QString &title = QStringLiteral(".*"))
{
    return QRegularExpression(QStringLiteral("server window %1 %2 x=(-?\\d+) y=(-?\\d+) "
                                             "w=(\\d+) h=(\\d+) title=%3$")
                                  .arg(event, name, title));
}

// A client's "window N Show|Raise|..." line; captures x, y, w, h.
inline QRegularExpression clientWindow(const QString &event,
                                       const QString &title = QStringLiteral(".*"))
{
    return QRegularExpression(
        QStringLiteral("window \\d+ %1 x=(-?\\d+) y=(-?\\d+) w=(\\d+) h=(\\d+) .*title=%2$")
            .arg(event, title));
}

// Waits for the (before + 1)-th line matching re, so that a window shown again is told apart
// from its earlier showing. Returns its geometry, or an empty one on time-out.
inline QRect waitForNext(LineProcess &shell, const QRegularExpression &re, int before,
                         int timeoutMs = 10000)
{
    if (!QTest::qWaitFor([&] { return shell.countLines(re) > before; }, timeoutMs)) {
        qWarning().noquote() << "the shell did not log" << re.pattern() << "after" << before
                             << "earlier ones; it logged:\n"
                             << shell.lines().join(QLatin1Char('\n'));
        return QRect();
    }
    const QRegularExpressionMatch m = re.match(shell.lines().filter(re).at(before));
    return QRect(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3).toInt(),
                 m.captured(4).toInt());
}

inline bool writeFile(const QString &path, const QByteArray &content, bool executable = false)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(content) != content.size())
        return false;
    f.close();
    return !executable || f.setPermissions(f.permissions() | QFileDevice::ExeOwner);
}

// A shell script that appends one line per run to `log`: "run", then each argument in
// brackets.
inline bool writeRecorder(const QString &path, const QString &log)
{
    return writeFile(path,
                     "#!/bin/sh\n{ printf run; for a in \"$@\"; do printf '[%s]' \"$a\"; done; "
                     "echo; } >> '" +
                         QFile::encodeName(log) + "'\n",
                     true);
}

// The lines a recorder wrote; none when it never ran.
inline QStringList recordedRuns(const QString &log)
{
    QFile f(log);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(f.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}
