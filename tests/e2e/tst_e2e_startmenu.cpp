// The system menu as a user meets it in the running shell, in one walk: a program started
// from its entry file by keys alone, a command typed into the run dialog on the soft keyboard,
// and the reboot question answered No, then Yes (with a stand-in "reboot" first on the PATH).
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
const QRegularExpression menuShown = serverWindow("Show", "QMenuClassWindow");

} // namespace

class TestStartMenu : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void walkThroughTheMenu_data();
    void walkThroughTheMenu();

private:
    // Clicks the start button and returns the system menu's geometry.
    QRect openMenuByPointer(ShellHarness &h);

    QTranslator m_catalogue;
};

void TestStartMenu::initTestCase()
{
    QVERIFY(!qEnvironmentVariableIsEmpty("TIDE_TEST_CLIENT"));
    // The shell shows its windows in Chinese; the copy of the keyboard built here to find
    // where the keys are must be laid out with the same texts.
    QVERIFY(m_catalogue.load(QStringLiteral(":/zh_CN.qm")));
    QCoreApplication::installTranslator(&m_catalogue);
}

QRect TestStartMenu::openMenuByPointer(ShellHarness &h)
{
    const int before = h.shell().countLines(menuShown);
    h.send("topen");
    h.click(startButton);
    return waitForNext(h.shell(), menuShown, before);
}

void TestStartMenu::walkThroughTheMenu_data()
{
    // On xcb the shell's windows are X windows of a bare X server, without a window manager
    // to hand the opening dialog the focus. There the keyboard is hidden before, elsewhere up.
    QTest::addColumn<bool>("xcb");
    QTest::newRow("offscreen") << false;
    QTest::newRow("xcb") << true;
}

void TestStartMenu::walkThroughTheMenu()
{
    QFETCH(bool, xcb);
    QTemporaryDir root;
    const QDir dir(root.path());
    QVERIFY(dir.mkpath(".Program") && dir.mkpath(".Setting") && dir.mkpath("bin"));
    const QString bin = dir.filePath("bin");
    const QByteArray client = qgetenv("TIDE_TEST_CLIENT");
    // Entries lacking a key are skipped; being smaller, they would come first in the menu.
    QVERIFY(writeFile(dir.filePath(".Program/client.menu"),
                      "Name=client\nPath=" + client + " --title launched\nDir=\nIcon=\n"));
    QVERIFY(writeFile(dir.filePath(".Program/nodir.menu"), "Name=a\nPath=/bin/true\nIcon=\n"));
    QVERIFY(writeFile(dir.filePath(".Program/section.menu"),
                      "[E]\nName=b\nPath=/bin/true\nDir=\nIcon=\n"));
    QVERIFY(writeFile(bin + "/tc", "#!/bin/sh\nexec '" + client + "' --title typed\n", true));
    // Never the real reboot: the shell finds this stand-in first on its PATH.
    const QString rebootLog = dir.filePath("reboot.log");
    QVERIFY(writeRecorder(bin + "/reboot", rebootLog));

    LineProcess x("Xvfb");
    QProcessEnvironment env;
    if (xcb) {
        // -displayfd: the server prints its display number once it takes connections.
        x.process().start("Xvfb", {"-displayfd", "1", "-screen", "0", "800x480x24", "-dpi", "96",
                                   "-nolisten", "tcp"});
        if (!x.process().waitForStarted())
            QSKIP("Xvfb is not installed");
        const QRegularExpressionMatch display = x.waitForLine(QRegularExpression("^(\\d+)$"));
        QVERIFY(display.hasMatch());
        env.insert("QT_QPA_PLATFORM", "xcb");
        env.insert("DISPLAY", ":" + display.captured(1));
    }
    env.insert("TIDESHELL_STARTMENU_DIR", root.path());
    env.insert("PATH", bin + QLatin1Char(':') + qEnvironmentVariable("PATH"));
    ShellHarness h;
    QVERIFY(h.start({}, env));
    LineProcess &shell = h.shell();

    // The keys reach each menu as it opens, before the platform has shown its window.
    h.tap(0, Qt::Key_F12);
    h.tap(0, Qt::Key_Down);
    h.tap(0, Qt::Key_Right);
    h.tap(13, Qt::Key_Return);
    QVERIFY(shell.waitForLine(clientShown("launched")).hasMatch());
    // Both menus opened, and choosing closed them.
    QCOMPARE(shell.countLines(menuShown), 2);
    QTRY_COMPARE_WITH_TIMEOUT(shell.countLines(serverWindow("Hide", "QMenuClassWindow")), 2, 5000);

    // "tc" typed on the soft keyboard, a script found through the shell's PATH; Return starts
    // it. A client has the focus when the dialog opens; it must not get the dialog's keys.
    LineProcess *behind = h.startQtClient();
    QVERIFY(behind);
    const QRegularExpression kbdShown = serverWindow("Show", "QwsKeyBoardWidgetWindow");
    const QRegularExpression kbdHidden = serverWindow("Hide", "QwsKeyBoardWidgetWindow");
    if (!xcb) {
        h.send("kbdshow");
        QVERIFY(!waitForNext(shell, kbdShown, 0).isEmpty());
    }
    h.click(menuItem(openMenuByPointer(h), Run));
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

    // The shell waits for the reboot command; once it handles the next command, a run that
    // should not have happened would have left its mark.
    h.send("kbdhide");
    const QRegularExpression warning = serverWindow("(?:Show|Hide)", "\\S*", "警告");
    for (const char answer : {'n', 'y'}) {
        const int before = shell.countLines(warning);
        h.click(menuItem(openMenuByPointer(h), Reboot));
        QVERIFY(!waitForNext(shell, warning, before).isEmpty());
        h.tap(answer, answer - 'a' + Qt::Key_A);
        QVERIFY(!waitForNext(shell, warning, before + 1).isEmpty());
    }
    const int menus = shell.countLines(menuShown);
    h.tap(0, Qt::Key_F12);
    QVERIFY(!waitForNext(shell, menuShown, menus).isEmpty());
    QCOMPARE(recordedRuns(rebootLog), QStringList{"run"});
}

QTEST_MAIN(TestStartMenu)
#include "tst_e2e_startmenu.moc"
