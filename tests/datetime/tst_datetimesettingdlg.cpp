#include "datetimesettingdlg.h"
#include "spinbox.h"

#include <QDir>
#include <QFile>
#include <QLabel>
#include <QPixmap>
#include <QTemporaryDir>
#include <QTest>
#include <QTranslator>

// The whole suite runs with the shell's catalogue installed, as the shell itself does. The
// clock program is always a stub that appends its argument count and arguments to a log.
class TestDateTimeSettingDlg : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QTranslator m_translator;
    QString m_stub;
    QString m_log;

    static SpinBox *box(DateTimeSettingDlg &dlg, const char *name)
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

        m_stub = m_dir.filePath(QStringLiteral("sethwclock"));
        m_log = m_stub + QStringLiteral(".log");
        QFile stub(m_stub);
        QVERIFY(stub.open(QIODevice::WriteOnly));
        // The pause shows whether the caller really waits for the program to end.
        stub.write("#!/bin/sh\nsleep 0.3\nprintf '%s\\n' \"$#\" \"$@\" >> \"$0.log\"\n");
        stub.close();
        QVERIFY(stub.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        DateTimeSettingDlg::setClockProgram(m_stub);
    }

    void constructorsStartAtTheirMoment()
    {
        const QDateTime moment(QDate(2026, 11, 15), QTime(13, 24, 0));
        DateTimeSettingDlg fromDateTime(moment);
        QCOMPARE(fromDateTime.dateTime(), moment);
        DateTimeSettingDlg fromParts(moment.date(), moment.time());
        QCOMPARE(fromParts.dateTime(), moment);

        const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
        DateTimeSettingDlg now;
        const QDateTime after = QDateTime::currentDateTime().addSecs(1);
        QVERIFY(now.dateTime() >= before && now.dateTime() <= after);

        QCOMPARE(now.windowTitle(), QStringLiteral("日期时间设置"));
        QCOMPARE(fromDateTime.findChild<QLabel *>(QStringLiteral("tipLabel"))->text(),
                 QStringLiteral("2026年11月15日 13:24:00,星期日"));
    }

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
        DateTimeSettingDlg dlg(date, QTime(7, 5, 9));
        QCOMPARE(tip(dlg), expected);
    }

    void dayBoundFollowsMonthAndYear_data()
    {
        QTest::addColumn<QDate>("start");
        QTest::addColumn<QByteArray>("edit");
        QTest::addColumn<int>("value");
        QTest::addColumn<int>("dayMinimum");
        QTest::addColumn<int>("dayMaximum");
        QTest::addColumn<int>("day");

        QTest::newRow("February of a leap year")
            << QDate(2024, 1, 15) << QByteArray("monthEdit") << 2 << 1 << 29 << 15;
        QTest::newRow("February of a common year")
            << QDate(2026, 1, 15) << QByteArray("monthEdit") << 2 << 1 << 28 << 15;
        QTest::newRow("year turns common")
            << QDate(2024, 2, 15) << QByteArray("yearEdit") << 2025 << 1 << 28 << 15;
        QTest::newRow("year turns leap")
            << QDate(2025, 2, 15) << QByteArray("yearEdit") << 2028 << 1 << 29 << 15;
        QTest::newRow("century year is common")
            << QDate(2096, 2, 15) << QByteArray("yearEdit") << 2100 << 1 << 28 << 15;
        QTest::newRow("day only rewrites the tip")
            << QDate(2026, 2, 10) << QByteArray("dayEdit") << 20 << 1 << 28 << 20;
        // The day is not clamped before the month is measured: 31 April is no date, its month
        // has length 0, and the day box narrows to 0 to 0.
        QTest::newRow("31 then April")
            << QDate(2026, 3, 31) << QByteArray("monthEdit") << 4 << 0 << 0 << 0;
        QTest::newRow("29 February then a common year")
            << QDate(2024, 2, 29) << QByteArray("yearEdit") << 2025 << 0 << 0 << 0;
    }

    void dayBoundFollowsMonthAndYear()
    {
        QFETCH(QDate, start);
        QFETCH(QByteArray, edit);
        QFETCH(int, value);
        QFETCH(int, dayMinimum);
        QFETCH(int, dayMaximum);
        QFETCH(int, day);
        DateTimeSettingDlg dlg(start, QTime(13, 24, 0));
        box(dlg, edit.constData())->setValue(value);

        SpinBox *dayEdit = box(dlg, "dayEdit");
        QCOMPARE(dayEdit->minimum(), dayMinimum);
        QCOMPARE(dayEdit->maximum(), dayMaximum);
        QCOMPARE(dayEdit->value(), day);
        // the tip always shows the boxes as they stand
        const QDateTime shown = dlg.dateTime();
        QCOMPARE(tip(dlg).section(QLatin1Char(','), 0, 0),
                 shown.toString(QStringLiteral("yyyy年MM月dd日 hh:mm:ss")));
    }

    void dayZeroSticksUntilSetDate()
    {
        DateTimeSettingDlg dlg(QDate(2026, 1, 31), QTime(8, 0, 0));
        box(dlg, "monthEdit")->setValue(4);
        QVERIFY(!dlg.date().isValid());
        QCOMPARE(tip(dlg), QStringLiteral(","));

        box(dlg, "monthEdit")->setValue(5);
        box(dlg, "yearEdit")->setValue(2027);
        QCOMPARE(box(dlg, "dayEdit")->maximum(), 0);

        dlg.setDate(QDate(2027, 5, 31));
        QCOMPARE(box(dlg, "dayEdit")->maximum(), 31);
    }

    void boxesStopAtTheirLimits_data()
    {
        QTest::addColumn<QByteArray>("edit");
        QTest::addColumn<int>("value");
        QTest::addColumn<int>("expected");

        QTest::newRow("year below 1970") << QByteArray("yearEdit") << 1969 << 1970;
        QTest::newRow("year above 9999") << QByteArray("yearEdit") << 10000 << 9999;
        QTest::newRow("month 13") << QByteArray("monthEdit") << 13 << 12;
        QTest::newRow("month 0") << QByteArray("monthEdit") << 0 << 1;
        QTest::newRow("hour 24") << QByteArray("hourEdit") << 24 << 23;
        QTest::newRow("hour -1") << QByteArray("hourEdit") << -1 << 0;
        QTest::newRow("minute 60") << QByteArray("minuteEdit") << 60 << 59;
        QTest::newRow("second 60") << QByteArray("secondEdit") << 60 << 59;
    }

    void boxesStopAtTheirLimits()
    {
        QFETCH(QByteArray, edit);
        QFETCH(int, value);
        QFETCH(int, expected);
        DateTimeSettingDlg dlg(QDate(2026, 6, 15), QTime(12, 30, 30));
        box(dlg, edit.constData())->setValue(value);
        QCOMPARE(box(dlg, edit.constData())->value(), expected);
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

    // Saves the dialog at its natural size for a look: TIDE_SCREENSHOT_DIR, else the temp dir.
    void screenshotAtNaturalSize()
    {
        DateTimeSettingDlg dlg(QDate(2026, 11, 15), QTime(13, 24, 0));
        dlg.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dlg));
        QCOMPARE(dlg.size(), dlg.sizeHint().expandedTo(dlg.minimumSizeHint()));
        for (SpinBox *spin : dlg.findChildren<SpinBox *>()) {
            QVERIFY(spin->width() >= 55 && spin->width() <= 111);
            QVERIFY(spin->height() >= 92 && spin->height() <= 184);
        }
        QCOMPARE(dlg.findChildren<SpinBox *>().size(), 6);

        QString dir = qEnvironmentVariable("TIDE_SCREENSHOT_DIR");
        if (dir.isEmpty())
            dir = QDir::tempPath();
        const QString path = QDir(dir).filePath(QStringLiteral("datetimesettingdlg.png"));
        QVERIFY(dlg.grab().save(path));
        qInfo("dialog saved to %s", qPrintable(path));
    }

    // Last: the weekday names are taken once per process, so they outlive the catalogue.
    void weekdayNamesAreTakenOnce()
    {
        QCoreApplication::removeTranslator(&m_translator);
        DateTimeSettingDlg dlg(QDate(2026, 11, 15), QTime(13, 24, 0));
        QCOMPARE(dlg.windowTitle(), QStringLiteral("DateTimeSettingDlg"));
        QCOMPARE(tip(dlg), QStringLiteral("2026-11-15 13:24:00,星期日"));
        QCoreApplication::installTranslator(&m_translator);
    }
};

QTEST_MAIN(TestDateTimeSettingDlg)
#include "tst_datetimesettingdlg.moc"
