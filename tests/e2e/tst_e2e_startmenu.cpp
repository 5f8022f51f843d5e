// The system menu as a user meets it in the running shell: programs started from entry files,
// the warning for a program that is not there, the run dialog typed into on the soft keyboard,
// and the reboot question answered both ways (with a stand-in "reboot" first on the PATH).
#include "qwskeyboardwidget.h"
#include "shellwindows.h"
#include "sysrundialog.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QPushButton>
#include <QTest>
#include <QTranslator>

namespace {

QRegularExpression clientShown(const QString &title)
{
    return QRegularExpression(QStringLiteral("^tideshell.*: window \\d+ Show .* title=%1$")
                                  .arg(QRegularExpression::escape(title)));
}

// Centre of item `index` of a menu of `count` items: the menu's frame is a few pixels, so
// equal slices of its height land well inside each item.
QPoint menuItem(const QRect &menu, int index, int count)
{
    return QPoint(menu.center().x(), menu.y() + menu.height() * (2 * index + 1) / (2 * count));
}

enum MenuItem { Programs, Settings, Run, Reboot, MenuItems };
const QPoint startButton(30, 456);
const char systemMenuName[] = "QMenuClassWindow";

} // namespace

class TestStartMenu : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();

    void programEntryStartsClient_data();
    void programEntryStartsClient();
    void missingProgramWarnsOnce();
    void runDialogStartsTypedCommand_data();
    void runDialogStartsTypedCommand();
    void rebootOnlyOnYes_data();
    void rebootOnlyOnYes();

private:
    // A shell with the start-menu root and a folder put first on its PATH.
    bool startShell(ShellHarness &h, const QProcessEnvironment &extraEnv = {});
    // Clicks the start button and returns the system menu's geometry.
    QRect openMenuByPointer(ShellHarness &h);
    void writeProgramEntry(const QString &name, const QString &path);

    QTranslator m_catalogue;
    std::unique_ptr<QTemporaryDir> m_root;
    QString m_bin;
};

void TestStartMenu::initTestCase()
{
    QVERIFY(!qEnvironmentVariableIsEmpty("TIDE_TEST_CLIENT"));
    // The shell shows its windows in Chinese; the copies built here to find where the keys
    // and buttons are must be laid out with the same texts.
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

void TestStartMenu::cleanup()
{
    m_root.reset();
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

void TestStartMenu::writeProgramEntry(const QString &name, const QString &path)
{
    const QByteArray entry =
        "Name=" + name.toUtf8() + "\nPath=" + path.toUtf8() + "\nDir=\nIcon=\n";
    QVERIFY(writeFile(QDir(m_root->path()).filePath(".Program/" + name + ".menu"), entry));
}

void TestStartMenu::programEntryStartsClient_data()
{
    QTest::addColumn<bool>("byPointer");
    QTest::newRow("F12 and keys") << false;
    QTest::newRow("start button and clicks") << true;
}

void TestStartMenu::programEntryStartsClient()
{
    QFETCH(bool, byPointer);
    writeProgramEntry("client", qEnvironmentVariable("TIDE_TEST_CLIENT") + " --title launched");
    ShellHarness h;
    QVERIFY(startShell(h));
    LineProcess &shell = h.shell();
    const QRegularExpression menuShown = serverWindow("Show", systemMenuName);

    if (byPointer) {
        const QRect menu = openMenuByPointer(h);
        QVERIFY(!menu.isEmpty());
        h.click(menuItem(menu, Programs, MenuItems));
        // The program sub-menu opens beside the system menu; it holds the one entry.
        const QRect sub = waitForNext(shell, menuShown, 1);
        QVERIFY(!sub.isEmpty());
        h.click(sub.center());
    } else {
        h.tap(0, Qt::Key_F12);
        QVERIFY(!waitForNext(shell, menuShown, 0).isEmpty());
        h.tap(0, Qt::Key_Down);
        h.tap(0, Qt::Key_Right);
        QVERIFY(!waitForNext(shell, menuShown, 1).isEmpty());
        h.tap(13, Qt::Key_Return);
    }
    QVERIFY(shell.waitForLine(clientShown("launched")).hasMatch());
    // Choosing closed both menus.
    QTRY_COMPARE_WITH_TIMEOUT(shell.countLines(serverWindow("Hide", systemMenuName)), 2, 5000);
}

void TestStartMenu::missingProgramWarnsOnce()
{
    writeProgramEntry("ghost", m_bin + "/no-such-program --flag");
    ShellHarness h;
    QVERIFY(startShell(h));
    LineProcess &shell = h.shell();

    h.tap(0, Qt::Key_F12);
    QVERIFY(!waitForNext(shell, serverWindow("Show", systemMenuName), 0).isEmpty());
    h.tap(0, Qt::Key_Down);
    h.tap(0, Qt::Key_Right);
    h.tap(13, Qt::Key_Return);

    const QRegularExpression errorShown = serverWindow("Show", "\\S*", "错误");
    QVERIFY(!waitForNext(shell, errorShown, 0).isEmpty());
    h.tap(13, Qt::Key_Return);
    QVERIFY(!waitForNext(shell, serverWindow("Hide", "\\S*", "错误"), 0).isEmpty());
    // Once the shell has carried out a later command, any second box would have shown.
    h.tap(0, Qt::Key_F12);
    QVERIFY(!waitForNext(shell, serverWindow("Show", systemMenuName), 2).isEmpty());
    QCOMPARE(shell.countLines(errorShown), 1);
    QCOMPARE(shell.process().state(), QProcess::Running);
}

void TestStartMenu::runDialogStartsTypedCommand_data()
{
    // On xcb the shell's windows are X windows of a bare X server, without a window manager
    // to hand the opening dialog the focus.
    QTest::addColumn<bool>("xcb");
    QTest::addColumn<bool>("keyboardBefore");
    QTest::addColumn<bool>("lettersBySkey");
    QTest::addColumn<bool>("okByTap");
    QTest::newRow("keyboard hidden, Return") << false << false << false << false;
    QTest::newRow("keyboard hidden, OK tapped") << false << false << false << true;
    QTest::newRow("keyboard shown, OK tapped") << false << true << false << true;
    QTest::newRow("xcb, taps, Return") << true << false << false << false;
    QTest::newRow("xcb, skey, OK tapped") << true << false << true << true;
}

void TestStartMenu::runDialogStartsTypedCommand()
{
    QFETCH(bool, xcb);
    QFETCH(bool, keyboardBefore);
    QFETCH(bool, lettersBySkey);
    QFETCH(bool, okByTap);
    // Two letters on the soft keyboard: "tc", a script found through the shell's PATH.
    QVERIFY(writeFile(m_bin + "/tc",
                      "#!/bin/sh\nexec '" + qgetenv("TIDE_TEST_CLIENT") + "' --title typed\n",
                      true));
    ShellHarness h;
    std::unique_ptr<LineProcess> x;
    QProcessEnvironment xEnv;
    if (xcb) {
        // -displayfd: the server prints its display number once it takes connections.
        x = std::make_unique<LineProcess>("Xvfb");
        x->process().start("Xvfb", {"-displayfd", "1", "-screen", "0", "800x480x24", "-dpi", "96",
                                    "-nolisten", "tcp"});
        if (!x->process().waitForStarted())
            QSKIP("Xvfb is not installed");
        const QRegularExpressionMatch display = x->waitForLine(QRegularExpression("^(\\d+)$"));
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
    if (keyboardBefore) {
        h.send("kbdshow");
        QVERIFY(!waitForNext(shell, kbdShown, 0).isEmpty());
    }

    const QRect menu = openMenuByPointer(h);
    QVERIFY(!menu.isEmpty());
    h.click(menuItem(menu, Run, MenuItems));
    const QRect dialog = waitForNext(shell, serverWindow("Show", "SysRunDialogWindow"), 0);
    QVERIFY(!dialog.isEmpty());
    const QRect keyboard = waitForNext(shell, kbdShown, 0);
    QVERIFY(!keyboard.isEmpty());
    QCOMPARE(shell.countLines(kbdShown), 1);
    const int hiddenBefore = shell.countLines(kbdHidden);

    QwsKeyBoardWidget kbd;
    kbd.show();
    QVERIFY(QTest::qWaitForWindowExposed(&kbd));
    QCOMPARE(kbd.size(), keyboard.size());
    for (const QString letter : {"t", "c"}) {
        if (lettersBySkey) {
            h.tap(letter.at(0).unicode(), letter.at(0).toUpper().unicode());
            continue;
        }
        QPushButton *key = nullptr;
        for (QPushButton *b : kbd.findChildren<QPushButton *>())
            key = b->text() == letter ? b : key;
        QVERIFY2(key, qPrintable(letter));
        h.click(keyboard.topLeft() + key->mapTo(&kbd, key->rect().center()));
    }

    if (okByTap) {
        SysRunDialog copy;
        copy.resize(dialog.size());
        copy.show();
        QVERIFY(QTest::qWaitForWindowExposed(&copy));
        QCOMPARE(copy.size(), dialog.size());
        QPushButton *ok = copy.findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Ok);
        h.click(dialog.topLeft() + ok->mapTo(&copy, ok->rect().center()));
    } else {
        h.tap(13, Qt::Key_Return);
    }
    QVERIFY(shell.waitForLine(clientShown("typed")).hasMatch());
    QVERIFY(!waitForNext(shell, serverWindow("Hide", "SysRunDialogWindow"), 0).isEmpty());
    // The keyboard is hidden again before the program starts, or it stays as it was.
    QCOMPARE(shell.countLines(kbdHidden), hiddenBefore + (keyboardBefore ? 0 : 1));
    QCOMPARE(behind->countLines(QRegularExpression("^(text|key) ")), 0);
}

void TestStartMenu::rebootOnlyOnYes_data()
{
    QTest::addColumn<int>("answer");
    QTest::addColumn<int>("runs");
    QTest::newRow("No") << int('n') << 0;
    QTest::newRow("Yes") << int('y') << 1;
    QTest::newRow("Escape") << 27 << 0;
}

void TestStartMenu::rebootOnlyOnYes()
{
    QFETCH(int, answer);
    QFETCH(int, runs);
    // Never the real one: the shell finds this stand-in first on its PATH.
    const QString log = QDir(m_root->path()).filePath("reboot.log");
    QVERIFY(writeRecorder(m_bin + "/reboot", log));
    ShellHarness h;
    QVERIFY(startShell(h));
    LineProcess &shell = h.shell();

    const QRect menu = openMenuByPointer(h);
    QVERIFY(!menu.isEmpty());
    h.click(menuItem(menu, Reboot, MenuItems));
    QVERIFY(!waitForNext(shell, serverWindow("Show", "\\S*", "警告"), 0).isEmpty());
    const int key = answer == 27 ? int(Qt::Key_Escape) : answer - 'a' + Qt::Key_A;
    h.tap(answer, key);
    QVERIFY(!waitForNext(shell, serverWindow("Hide", "\\S*", "警告"), 0).isEmpty());

    // The shell waits for the reboot command; once it handles the next command, a run that
    // should not have happened would have left its mark.
    h.tap(0, Qt::Key_F12);
    QVERIFY(!waitForNext(shell, serverWindow("Show", systemMenuName), 1).isEmpty());
    QCOMPARE(recordedRuns(log), runs ? QStringList{"run"} : QStringList());
}

QTEST_MAIN(TestStartMenu)
#include "tst_e2e_startmenu.moc"
