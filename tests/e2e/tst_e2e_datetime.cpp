// The date and time dialog in the running shell: opened by a tap on the bar's date or by the
// "sys_man_date" entry of the setting menu. Each tap on the year's up cap moves the moment a
// year on; OK hands the clock program the chosen moment, Cancel leaves the clock alone. A recorder
// stands in for the device's clock program.
#include "datetimesettingdlg.h"
#include "shellwindows.h"

#include <QDateTime>
#include <QLayout>

namespace {

QRegularExpression dialogEvent(const char *event)
{
    return serverWindow(event, "\\S*", QStringLiteral("日期时间设置"));
}
const QRegularExpression dialogShown = dialogEvent("Show");

// Where the year's up cap lies on the screen, for a dialog the shell shows with this geometry:
// a dialog built here has the same form and fonts, so its boxes lie where the shell's do.
QPoint yearUpCap(const QRect &dialog)
{
    DateTimeSettingDlg local;
    local.resize(dialog.size());
    local.layout()->activate();
    const auto *year = local.findChild<QWidget *>(QStringLiteral("yearEdit"));
    return dialog.topLeft() + year->mapTo(&local, QPoint(year->width() / 2, year->height() / 8));
}

} // namespace

class TestDateTime : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void tapThenAnswer_data();
    void tapThenAnswer();

private:
    QTemporaryDir m_root;
    QString m_log;
    std::unique_ptr<ShellHarness> m_h;
};

void TestDateTime::initTestCase()
{
    QVERIFY(m_root.isValid());
    const QDir root(m_root.path());
    QVERIFY(root.mkpath(".Setting"));
    QVERIFY(writeFile(root.filePath(".Setting/date.menu"),
                      "Name=Date\nPath=sys_man_date now\nDir=\nIcon=\nInner=1\n"));
    m_log = root.filePath("clock.log");
    QVERIFY(writeRecorder(root.filePath("sethwclock"), m_log));
    QProcessEnvironment env;
    env.insert("TIDESHELL_STARTMENU_DIR", root.path());
    env.insert("TIDESHELL_CLOCK_PROGRAM", root.filePath("sethwclock"));
    m_h = std::make_unique<ShellHarness>();
    QVERIFY(m_h->start({}, env));
    m_h->send("topen");
}

void TestDateTime::tapThenAnswer_data()
{
    QTest::addColumn<bool>("fromMenu");
    QTest::addColumn<int>("unicode");
    QTest::addColumn<int>("key");
    QTest::newRow("bar's date, OK") << false << 13 << int(Qt::Key_Return);
    QTest::newRow("bar's date, Cancel") << false << 27 << int(Qt::Key_Escape);
    QTest::newRow("setting menu, OK") << true << 13 << int(Qt::Key_Return);
}

void TestDateTime::tapThenAnswer()
{
    QFETCH(bool, fromMenu);
    QFETCH(int, unicode);
    QFETCH(int, key);
    LineProcess &shell = m_h->shell();
    const QRegularExpression menu = serverWindow("Show", "QMenuClassWindow");
    const QRegularExpression hidden = dialogEvent("Hide");
    const QRegularExpression keyboard = serverWindow("Show", "QwsKeyBoardWidgetWindow");
    const int menus = shell.countLines(menu), shown = shell.countLines(dialogShown),
              hides = shell.countLines(hidden), keyboards = shell.countLines(keyboard);
    QDateTime opened = QDateTime::currentDateTime();
    opened = opened.addMSecs(-opened.time().msec());
    if (fromMenu) {
        m_h->click(QPoint(30, 456)); // the start button
        const QRect root = waitForNext(shell, menu, menus);
        QVERIFY(!root.isEmpty());
        // The second of its four items: the setting sub-menu, holding the one entry.
        m_h->click(QPoint(root.center().x(), root.y() + root.height() * 3 / 8));
        const QRect settings = waitForNext(shell, menu, menus + 1);
        QVERIFY(!settings.isEmpty());
        m_h->click(settings.center());
    } else {
        m_h->click(QPoint(130, 456)); // the bar's date
    }
    const QRect dialog = waitForNext(shell, dialogShown, shown);
    QVERIFY(QRect(0, 0, 800, 480).contains(dialog) && !dialog.isEmpty());

    // One tap on the year's up cap: the dialog gets it, not the window whose tap opened it.
    m_h->click(yearUpCap(dialog));
    m_h->tap(unicode, key);
    QVERIFY(!waitForNext(shell, hidden, hides).isEmpty());
    // The shell goes on only once the clock program has ended: then it shows the keyboard.
    m_h->send("kbdshow");
    QVERIFY(!waitForNext(shell, keyboard, keyboards).isEmpty());
    m_h->send("kbdhide");
    const QDateTime closed = QDateTime::currentDateTime();
    const QStringList runs = recordedRuns(m_log);
    QFile::remove(m_log);
    if (key == Qt::Key_Escape) {
        QCOMPARE(runs, QStringList());
        return;
    }
    // One run with one argument: the moment the dialog opened at, to the second, in the year
    // the tap chose; a 29 February that year lacks goes as an empty argument.
    QCOMPARE(runs.size(), 1);
    const auto sentMoment = [&](int years) {
        for (QDateTime t = opened; t <= closed; t = t.addSecs(1)) {
            const QDate date(t.date().year() + years, t.date().month(), t.date().day());
            if (runs.first() ==
                "run[" + QDateTime(date, t.time()).toString("yyyy-MM-dd_hh:mm:ss") + "]")
                return true;
        }
        return false;
    };
    QVERIFY2(sentMoment(1), qPrintable(runs.first()));
}

QTEST_MAIN(TestDateTime)
#include "tst_e2e_datetime.moc"
