#include "datetimesettingdlg.h"
#include "spinbox.h"

#include <QFile>
#include <QLabel>
#include <QTemporaryDir>
#include <QTest>
#include <QTranslator>

// The whole suite runs with the shell's catalogue installed, as the shell itself does. The
// clock program is always a stub that appends its argument count and arguments to a log.
class TestDateTimeSettingDlg : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QTranslator m_translator;
    QString m_log;

    static SpinBox *box(DateTimeSettingDlg &dlg, const QByteArray &name)
    {
        return dlg.findChild<SpinBox *>(QLatin1String(name));
    }

    static QString tip(DateTimeSettingDlg &dlg)
    {
        return dlg.findChild<QLabel *>(QStringLiteral("tipLabel"))->text();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        QVERIFY(m_translator.load(QStringLiteral(":/zh_CN.qm")));
        QCoreApplication::installTranslator(&m_translator);

        const QString stubPath = m_dir.filePath(QStringLiteral("sethwclock"));
        m_log = stubPath + QStringLiteral(".log");
        QFile stub(stubPath);
        QVERIFY(stub.open(QIODevice::WriteOnly));
        // The pause shows whether the caller really waits for the program to end.
        stub.write("#!/bin/sh\nsleep 0.3\nprintf '%s\\n' \"$#\" \"$@\" >> \"$0.log\"\n");
        stub.close();
        QVERIFY(stub.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        DateTimeSettingDlg::setClockProgram(stubPath);
    }

    // Both constructors taking a moment show it in the tip, weekday included.
    void tipNamesTheWeekday_data()
    {
        QTest::addColumn<QDate>("date");
        QTest::addColumn<QString>("expected");
        const char *const names[] = {"一", "二", "三", "四", "五", "六", "日"};
        for (int i = 0; i < 7; ++i) {
            const QDate date(2026, 11, 9 + i); // 9 November 2026 is a Monday
            QTest::newRow(qPrintable(date.toString(Qt::ISODate)))
                << date
                << QStringLiteral("2026年11月%1日 07:05:09,星期")
                           .arg(9 + i, 2, 10, QLatin1Char('0')) +
                       QString::fromUtf8(names[i]);
        }
    }

    void tipNamesTheWeekday()
    {
        QFETCH(QDate, date);
        QFETCH(QString, expected);
        const QTime time(7, 5, 9);
        DateTimeSettingDlg fromParts(date, time);
        QCOMPARE(fromParts.dateTime(), QDateTime(date, time));
        QCOMPARE(tip(fromParts), expected);
        DateTimeSettingDlg fromMoment(QDateTime(date, time));
        QCOMPARE(tip(fromMoment), expected);
    }

    // Edits given as "box=value ...", then the range and value of one box. The day is not
    // clamped before the month is measured: 31 April is no date, its month has length 0, and
    // the day box narrows to 0 to 0 until setDate() restores it.
    void boxesAfterEdits_data()
    {
        QTest::addColumn<QDate>("start");
        QTest::addColumn<QByteArray>("edits");
        QTest::addColumn<QByteArray>("checked");
        QTest::addColumn<int>("minimum");
        QTest::addColumn<int>("maximum");
        QTest::addColumn<int>("value");
        const auto row = [](const char *name, QDate start, const char *edits, const char *checked,
                            int minimum, int maximum, int value) {
            QTest::newRow(name) << start << QByteArray(edits) << QByteArray(checked) << minimum
                                << maximum << value;
        };
        const char *day = "dayEdit";
        row("February of a leap year", {2024, 1, 15}, "monthEdit=2", day, 1, 29, 15);
        row("February of a common year", {2026, 1, 15}, "monthEdit=2", day, 1, 28, 15);
        row("year turns common", {2024, 2, 15}, "yearEdit=2025", day, 1, 28, 15);
        row("year turns leap", {2025, 2, 15}, "yearEdit=2028", day, 1, 29, 15);
        row("century year is common", {2096, 2, 15}, "yearEdit=2100", day, 1, 28, 15);
        row("day only rewrites the tip", {2026, 2, 10}, "dayEdit=20", day, 1, 28, 20);
        row("31 then April", {2026, 3, 31}, "monthEdit=4", day, 0, 0, 0);
        row("29 February then a common year", {2024, 2, 29}, "yearEdit=2025", day, 0, 0, 0);
        row("day 0 sticks", {2026, 1, 31}, "monthEdit=4 monthEdit=5 yearEdit=2027", day, 0, 0, 0);
        const QDate june(2026, 6, 15);
        row("year below 1970", june, "yearEdit=1969", "yearEdit", 1970, 9999, 1970);
        row("year above 9999", june, "yearEdit=10000", "yearEdit", 1970, 9999, 9999);
        row("month 13", june, "monthEdit=13", "monthEdit", 1, 12, 12);
        row("month 0", june, "monthEdit=0", "monthEdit", 1, 12, 1);
        row("hour 24", june, "hourEdit=24", "hourEdit", 0, 23, 23);
        row("hour -1", june, "hourEdit=-1", "hourEdit", 0, 23, 0);
        row("minute 60", june, "minuteEdit=60", "minuteEdit", 0, 59, 59);
        row("second 60", june, "secondEdit=60", "secondEdit", 0, 59, 59);
    }

    void boxesAfterEdits()
    {
        QFETCH(QDate, start);
        QFETCH(QByteArray, edits);
        QFETCH(QByteArray, checked);
        QFETCH(int, minimum);
        QFETCH(int, maximum);
        QFETCH(int, value);
        DateTimeSettingDlg dlg(start, QTime(12, 30, 30));
        for (const QByteArray &edit : edits.split(' '))
            box(dlg, edit.split('=')[0])->setValue(edit.split('=')[1].toInt());

        QCOMPARE(box(dlg, checked)->minimum(), minimum);
        QCOMPARE(box(dlg, checked)->maximum(), maximum);
        QCOMPARE(box(dlg, checked)->value(), value);
        // Date edits rewrite the tip from the boxes as they stand; an invalid date gets no
        // weekday. The time boxes have no such slot.
        const QDateTime shown = dlg.dateTime();
        if (QByteArray("yearEdit monthEdit dayEdit").contains(checked)) {
            QCOMPARE(tip(dlg).section(QLatin1Char(','), 0, 0),
                     shown.toString(QStringLiteral("yyyy年MM月dd日 hh:mm:ss")));
            QCOMPARE(tip(dlg).endsWith(QLatin1Char(',')), !shown.isValid());
        }

        dlg.setDate(start);
        QCOMPARE(box(dlg, "dayEdit")->maximum(), start.daysInMonth());
    }

    void clockProgramGetsOneArgument_data()
    {
        QTest::addColumn<int>("variant");
        QTest::addColumn<QString>("expected");
        QTest::newRow("dialog") << 0 << QStringLiteral("2026-11-15_13:24:37");
        QTest::newRow("static date-time") << 1 << QStringLiteral("2026-11-15_13:24:37");
        QTest::newRow("static date and time, seconds dropped")
            << 2 << QStringLiteral("2026.11.15-13:24:00");
        QTest::newRow("dialog holding day 0") << 3 << QString();
    }

    void clockProgramGetsOneArgument()
    {
        QFETCH(int, variant);
        QFETCH(QString, expected);
        QFile::remove(m_log);
        const QDate date(2026, 11, 15);
        const QTime time(13, 24, 37);

        if (variant == 0) {
            DateTimeSettingDlg dlg(date, time);
            dlg.setSystemDateTime();
        } else if (variant == 1) {
            DateTimeSettingDlg::setSystemDateTime(QDateTime(date, time));
        } else if (variant == 2) {
            DateTimeSettingDlg::setSystemDateTime(date, time);
        } else {
            DateTimeSettingDlg dlg(QDate(2026, 3, 31), time);
            box(dlg, "monthEdit")->setValue(4);
            dlg.setSystemDateTime();
        }

        // Read at once: the call returns only after the program has finished.
        QFile log(m_log);
        QVERIFY(log.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(log.readAll()), QStringLiteral("1\n") + expected + "\n");
    }
};

QTEST_MAIN(TestDateTimeSettingDlg)
#include "tst_datetimesettingdlg.moc"
