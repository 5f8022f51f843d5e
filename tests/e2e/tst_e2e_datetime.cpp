// The date and time dialog in the running shell: opened by a tap on the bar's date or by the
// "sys_man_date" entry of the setting menu; OK hands the clock program the chosen moment,
// Cancel leaves the clock alone. A recorder stands in for the device's clock program.
#include "shellwindows.h"

#include <QDateTime>
#include <QTest>

namespace {

const QPoint dateLabel(130, 456);
const QPoint startButton(30, 456);
const QString dialogTitle = QStringLiteral("日期时间设置");

} // namespace

class TestDateTime : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void dateLabelOpensDialog_data();
    void dateLabelOpensDialog();
    void innerCommandOpensDialog();

private:
    bool startShell(ShellHarness &h);
    // Closes the open dialog with a key and waits until the shell has carried out a later
    // command, so that a clock program run by the answer has ended.
    bool answer(ShellHarness &h, int unicode, int key);

    std::unique_ptr<QTemporaryDir> m_root;
    QString m_log;
};

void TestDateTime::init()
{
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(m_root->isValid());
    QVERIFY(QDir(m_root->path()).mkpath(".Setting"));
    m_log = QDir(m_root->path()).filePath("clock.log");
    QVERIFY(writeRecorder(QDir(m_root->path()).filePath("sethwclock"), m_log));
}

void TestDateTime::cleanup()
{
    m_root.reset();
}

bool TestDateTime::startShell(ShellHarness &h)
{
    QProcessEnvironment env;
    env.insert("TIDESHELL_STARTMENU_DIR", m_root->path());
    env.insert("TIDESHELL_CLOCK_PROGRAM", QDir(m_root->path()).filePath("sethwclock"));
    if (!h.start({}, env))
        return false;
    h.send("topen");
    return true;
}

bool TestDateTime::answer(ShellHarness &h, int unicode, int key)
{
    h.tap(unicode, key);
    if (waitForNext(h.shell(), serverWindow("Hide", "\\S*", dialogTitle), 0).isEmpty())
        return false;
    const QRegularExpression menu = serverWindow("Show", "QMenuClassWindow");
    const int menusBefore = h.shell().countLines(menu);
    h.tap(0, Qt::Key_F12);
    return !waitForNext(h.shell(), menu, menusBefore).isEmpty();
}

void TestDateTime::dateLabelOpensDialog_data()
{
    QTest::addColumn<int>("unicode");
    QTest::addColumn<int>("key");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("OK") << 13 << int(Qt::Key_Return) << true;
    QTest::newRow("Cancel") << 27 << int(Qt::Key_Escape) << false;
}

void TestDateTime::dateLabelOpensDialog()
{
    QFETCH(int, unicode);
    QFETCH(int, key);
    QFETCH(bool, accepted);
    ShellHarness h;
    QVERIFY(startShell(h));

    const QDateTime opened = QDateTime::currentDateTime().addSecs(-1);
    h.click(dateLabel);
    const QRect dialog = waitForNext(h.shell(), serverWindow("Show", "\\S*", dialogTitle), 0);
    QVERIFY(!dialog.isEmpty());
    // Six spin boxes of at least 55 x 92 side by side, whole on the screen.
    QVERIFY(dialog.width() >= 6 * 55 && dialog.height() >= 92);
    QVERIFY(QRect(0, 0, 800, 480).contains(dialog));
    QVERIFY(answer(h, unicode, key));
    const QDateTime closed = QDateTime::currentDateTime();

    const QStringList runs = recordedRuns(m_log);
    if (!accepted) {
        QCOMPARE(runs, QStringList());
        return;
    }
    // One run with one argument: the moment the dialog opened at, to the second.
    QCOMPARE(runs.size(), 1);
    const QRegularExpressionMatch m =
        QRegularExpression("^run\\[(\\d{4}-\\d\\d-\\d\\d_\\d\\d:\\d\\d:\\d\\d)\\]$")
            .match(runs.first());
    QVERIFY2(m.hasMatch(), qPrintable(runs.first()));
    const QDateTime set = QDateTime::fromString(m.captured(1), "yyyy-MM-dd_hh:mm:ss");
    QVERIFY2(set >= opened.addMSecs(-opened.time().msec()) && set <= closed,
             qPrintable(m.captured(1)));
}

void TestDateTime::innerCommandOpensDialog()
{
    QVERIFY(writeFile(QDir(m_root->path()).filePath(".Setting/date.menu"),
                      "Name=Date\nPath=sys_man_date now\nDir=\nIcon=\nInner=1\n"));
    ShellHarness h;
    QVERIFY(startShell(h));
    const QRegularExpression menu = serverWindow("Show", "QMenuClassWindow");

    h.click(startButton);
    const QRect root = waitForNext(h.shell(), menu, 0);
    QVERIFY(!root.isEmpty());
    // The second of its four items: the setting sub-menu, holding the one entry.
    h.click(QPoint(root.center().x(), root.y() + root.height() * 3 / 8));
    const QRect settings = waitForNext(h.shell(), menu, 1);
    QVERIFY(!settings.isEmpty());
    h.click(settings.center());

    QVERIFY(!waitForNext(h.shell(), serverWindow("Show", "\\S*", dialogTitle), 0).isEmpty());
    QVERIFY(h.shell().hasLine(
        QRegularExpression(R"(^call a inner command "sys_man_date" \("now"\) ""$)")));
    QVERIFY(answer(h, 27, Qt::Key_Escape));
    QCOMPARE(recordedRuns(m_log), QStringList());
}

QTEST_GUILESS_MAIN(TestDateTime)
#include "tst_e2e_datetime.moc"
