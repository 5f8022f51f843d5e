// The system menu as a user meets it in the running shell: a program started from its entry
// file by keys alone, the run dialog typed into on the soft keyboard, and the reboot question
// answered both ways (with a stand-in "reboot" first on the PATH).
#include "qwskeyboardwidget.h"
#include "shellwindows.h"

#include <QApplication>
#include <QPushButton>
#include <QTest>
#include <QTranslator>

namespace {

QRegularExpression clientShown(const QString &title)
{
    return QRegularExpression(QStringLiteral("^tideshell.*: window \\d+ Show .* title=%1$")
                                  .arg(QRegularExpression::escape(title)));
}

// Centre of item `index` of the system menu's four: its frame is a few pixels, so equal slices
// of its height land well inside each item.
QPoint menuItem(const QRect &menu, int index)
{
    return QPoint(menu.center().x(), menu.y() + menu.height() * (2 * index + 1) / 8);
}

enum MenuItem { Programs, Settings, Run, Reboot };
const QPoint startButton(30, 456);
const char systemMenuName[] = "QMenuClassWindow";

} // namespace

class TestStartMenu : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();

    void programEntryStartsClient();
    void runDialogStartsTypedCommand_data();
    void runDialogStartsTypedCommand();
    void rebootOnlyOnYes_data();
    void rebootOnlyOnYes();

private:
    // A shell with the start-menu root and a folder put first on its PATH.
    bool startShell(ShellHarness &h, const QProcessEnvironment &extraEnv = {});
    // Clicks the start button and returns the system menu's geometry.
    QRect openMenuByPointer(ShellHarness &h);

    QTranslator m_catalogue;
    std::unique_ptr<QTemporaryDir> m_root;
    QString m_bin;
};

void TestStartMenu::initTestCase()
{
    QVERIFY(!qEnvironmentVariableIsEmpty("TIDE_TEST_CLIENT"));
    // The shell shows its windows in Chinese; the copy of the keyboard built here to find
    // where the keys are must be laid out with the same texts.
    QVERIFY(m_catalogue.load(QStringLiteral(":/zh_CN.qm")));
    QCoreApplication::installTranslator(&m_catalogue);
}

void TestStartMenu::init()
{
    m_root = std::make_unique<QTemporaryDir>();
    QVERIFY(m_root->isValid());
    const QDir root(m_root->path());
    QVERIFY(root.mkpath(".Program") && root.mkpath(".Setting") && root.mkpath("bin"));
    m_bin = root.filePath("bin");
}

bool TestStartMenu::startShell(ShellHarness &h, const QProcessEnvironment &extraEnv)
{
    QProcessEnvironment env = extraEnv;
    env.insert("TIDESHELL_STARTMENU_DIR", m_root->path());
    env.insert("PATH", m_bin + QLatin1Char(':') + qEnvironmentVariable("PATH"));
    return h.start({}, env);
}

QRect TestStartMenu::openMenuByPointer(ShellHarness &h)
{
    const QRegularExpression shown = serverWindow("Show", systemMenuName);
    const int before = h.shell().countLines(shown);
    h.send("topen");
    h.click(startButton);
    return waitForNext(h.shell(), shown, before);
}

// The keys reach each menu as it opens, before the platform has shown its window.
void TestStartMenu::programEntryStartsClient()
{
    QVERIFY(writeFile(QDir(m_root->path()).filePath(".Program/client.menu"),
                      "Name=client\nPath=" + qgetenv("TIDE_TEST_CLIENT") +
                          " --title launched\nDir=\nIcon=\n"));
    ShellHarness h;
    QVERIFY(startShell(h));
    LineProcess &shell = h.shell();
    h.tap(0, Qt::Key_F12);
    h.tap(0, Qt::Key_Down);
    h.tap(0, Qt::Key_Right);
    h.tap(13, Qt::Key_Return);
    QVERIFY(shell.waitForLine(clientShown("launched")).hasMatch());
    // Both menus opened, and choosing closed them.
    QCOMPARE(shell.countLines(serverWindow("Show", systemMenuName)), 2);
    QTRY_COMPARE_WITH_TIMEOUT(shell.countLines(serverWindow("Hide", systemMenuName)), 2, 5000);
}

void TestStartMenu::runDialogStartsTypedCommand_data()
{
    // On xcb the shell's windows are X windows of a bare X server, without a window manager
    // to hand the opening dialog the focus. There the keyboard is hidden before, elsewhere up.
    QTest::addColumn<bool>("xcb");
    QTest::newRow("offscreen") << false;
    QTest::newRow("xcb") << true;
}

// "tc" typed on the soft keyboard, a script found through the shell's PATH; Return starts it.
void TestStartMenu::runDialogStartsTypedCommand()
{
    QFETCH(bool, xcb);
    QVERIFY(writeFile(m_bin + "/tc",
                      "#!/bin/sh\nexec '" + qgetenv("TIDE_TEST_CLIENT") + "' --title typed\n",
                      true));
    ShellHarness h;
    LineProcess x("Xvfb");
    QProcessEnvironment xEnv;
    if (xcb) {
        // -displayfd: the server prints its display number once it takes connections.
        x.process().start("Xvfb", {"-displayfd", "1", "-screen", "0", "800x480x24", "-dpi", "96",
                                   "-nolisten", "tcp"});
        if (!x.process().waitForStarted())
            QSKIP("Xvfb is not installed");
        const QRegularExpressionMatch display = x.waitForLine(QRegularExpression("^(\\d+)$"));
        QVERIFY(display.hasMatch());
        xEnv.insert("QT_QPA_PLATFORM", "xcb");
        xEnv.insert("DISPLAY", ":" + display.captured(1));
    }
    QVERIFY(startShell(h, xEnv));
    LineProcess &shell = h.shell();
    // A client has the focus when the dialog opens; it must not get the dialog's keys.
    LineProcess *behind = h.startQtClient();
    QVERIFY(behind);
    const QRegularExpression kbdShown = serverWindow("Show", "QwsKeyBoardWidgetWindow");
    const QRegularExpression kbdHidden = serverWindow("Hide", "QwsKeyBoardWidgetWindow");
    if (!xcb) {
        h.send("kbdshow");
        QVERIFY(!waitForNext(shell, kbdShown, 0).isEmpty());
    }

    const QRect menu = openMenuByPointer(h);
    QVERIFY(!menu.isEmpty());
    h.click(menuItem(menu, Run));
    QVERIFY(!waitForNext(shell, serverWindow("Show", "SysRunDialogWindow"), 0).isEmpty());
    const QRect keyboard = waitForNext(shell, kbdShown, 0);
    QVERIFY(!keyboard.isEmpty());
    QCOMPARE(shell.countLines(kbdShown), 1);
    const int hiddenBefore = shell.countLines(kbdHidden);
    // A copy laid out as the shell's tells where its keys are.
    QwsKeyBoardWidget kbd;
    kbd.show();
    QCOMPARE(kbd.size(), keyboard.size());
    for (const QString letter : {"t", "c"}) {
        QPushButton *key = nullptr;
        for (QPushButton *b : kbd.findChildren<QPushButton *>())
            key = b->text() == letter ? b : key;
        QVERIFY2(key, qPrintable(letter));
        h.click(keyboard.topLeft() + key->mapTo(&kbd, key->rect().center()));
    }
    h.tap(13, Qt::Key_Return);

    QVERIFY(shell.waitForLine(clientShown("typed")).hasMatch());
    QVERIFY(!waitForNext(shell, serverWindow("Hide", "SysRunDialogWindow"), 0).isEmpty());
    // The keyboard is hidden again before the program starts, or it stays as it was.
    QCOMPARE(shell.countLines(kbdHidden), hiddenBefore + (xcb ? 1 : 0));
    QCOMPARE(behind->countLines(QRegularExpression("^(text|key) ")), 0);
}

void TestStartMenu::rebootOnlyOnYes_data()
{
    QTest::addColumn<int>("answer");
    QTest::addColumn<QStringList>("runs");
    QTest::newRow("No") << int('n') << QStringList();
    QTest::newRow("Yes") << int('y') << QStringList{"run"};
}

void TestStartMenu::rebootOnlyOnYes()
{
    QFETCH(int, answer);
    QFETCH(QStringList, runs);
    // Never the real one: the shell finds this stand-in first on its PATH.
    const QString log = QDir(m_root->path()).filePath("reboot.log");
    QVERIFY(writeRecorder(m_bin + "/reboot", log));
    ShellHarness h;
    QVERIFY(startShell(h));
    LineProcess &shell = h.shell();

    const QRect menu = openMenuByPointer(h);
    QVERIFY(!menu.isEmpty());
    h.click(menuItem(menu, Reboot));
    QVERIFY(!waitForNext(shell, serverWindow("Show", "\\S*", "警告"), 0).isEmpty());
    h.tap(answer, answer - 'a' + Qt::Key_A);
    QVERIFY(!waitForNext(shell, serverWindow("Hide", "\\S*", "警告"), 0).isEmpty());

    // The shell waits for the reboot command; once it handles the next command, a run that
    // should not have happened would have left its mark.
    h.tap(0, Qt::Key_F12);
    QVERIFY(!waitForNext(shell, serverWindow("Show", systemMenuName), 1).isEmpty());
    QCOMPARE(recordedRuns(log), runs);
}

QTEST_MAIN(TestStartMenu)
#include "tst_e2e_startmenu.moc"
