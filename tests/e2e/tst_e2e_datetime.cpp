// The date and time dialog in the running shell, opened from the bar's date or the setting
// menu's "sys_man_date" entry: a tap on the year's up cap moves the moment a year on, OK hands
// it to the clock program (a recorder here), Cancel leaves the clock alone.
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

// Where the year's up cap lies on the screen: a dialog built here at the shell's dialog's
// size has its boxes where the shell's are.
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
    QTest::addColumn<bool>("ok");
    QTest::newRow("bar's date, OK") << false << true;
    QTest::newRow("bar's date, Cancel") << false << false;
    QTest::newRow("setting menu, OK") << true << true;
}

void TestDateTime::tapThenAnswer()
{
    QFETCH(bool, fromMenu);
    QFETCH(bool, ok);
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
    ok ? m_h->tap(13, Qt::Key_Return) : m_h->tap(27, Qt::Key_Escape);
    QVERIFY(!waitForNext(shell, hidden, hides).isEmpty());
    // The shell goes on only once the clock program has ended: then it shows the keyboard.
    m_h->send("kbdshow");
    QVERIFY(!waitForNext(shell, keyboard, keyboards).isEmpty());
    m_h->send("kbdhide");
    const QDateTime closed = QDateTime::currentDateTime();
    const QStringList runs = recordedRuns(m_log);
    QFile::remove(m_log);
    // One run with the moment the dialog opened at, to the second, a year on; a 29 February
    // the next year lacks goes as an empty argument.
    QCOMPARE(runs.size(), ok ? 1 : 0);
    if (!ok)
        return;
    const QDateTime sent = QDateTime::fromString(runs.first(), "'run['yyyy-MM-dd_hh:mm:ss']'");
    const bool lacking = runs.first() == "run[]" && opened.toString("MMdd") == "0229";
    QVERIFY2(lacking || (opened.addYears(1) <= sent && sent <= closed.addYears(1)),
             qPrintable(runs.first()));
}

QTEST_MAIN(TestDateTime)
#include "tst_e2e_datetime.moc"
