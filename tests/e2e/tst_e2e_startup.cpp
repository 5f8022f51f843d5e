// The shell as a user meets it: start-up, the single-instance rule, the bar's strip with a
// maximised client, the function keys, and keys typed into real clients.
#include "shellharness.h"

#include <QTest>

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int KeyF10 = Qt::Key_F10, KeyF11 = Qt::Key_F11, KeyF12 = Qt::Key_F12;

// weston-eventdemo's line for one key: evdev code, character, state and modifier mask.
QRegularExpression eventDemoKey(int code, int unicode, const char *state, int modifiers)
{
    return QRegularExpression(
        QStringLiteral("^key key: %1, unicode: %2, state: %3, modifiers: 0x%4$")
            .arg(code)
            .arg(unicode)
            .arg(QLatin1String(state))
            .arg(modifiers, 0, 16));
}

} // namespace

class TestStartup : public QObject
{
    Q_OBJECT
private slots:
    void secondInstanceExitsWhileFirstServes();
    void staleSocketDoesNotStopStartup();
    void detachesUnlessFirstArgumentIsF_data();
    void detachesUnlessFirstArgumentIsF();
    void maximisedClientFollowsTheBar();
    void functionKeysNeverReachClients();
    void keysReachEventDemo();
    void focusFollowsClicksAndClosedWindows();
    void fullScreenClientCoversTheBar();
    void framedWindowsAnswerTouch();
    void clientMenusOpenAndClose();
    void characterWithoutKeyReachesQtClient();
};

void TestStartup::secondInstanceExitsWhileFirstServes()
{
    ShellHarness h;
    QVERIFY(h.start());

    QProcess second;
    second.setProcessEnvironment(h.shellEnvironment());
    second.start(qEnvironmentVariable("TIDESHELL_BINARY"),
                 {"-f", "--wayland-socket-name", h.socketName()});
    QVERIFY(second.waitForFinished(10000));
    QCOMPARE(second.exitStatus(), QProcess::NormalExit);
    QCOMPARE(second.exitCode(), 1);
    QVERIFY(second.readAllStandardError().contains("There is already a Server running!"));

    // The first one keeps serving: a new client comes up in it.
    QVERIFY(h.startQtClient());
    QCOMPARE(h.shell().process().state(), QProcess::Running);
}

void TestStartup::staleSocketDoesNotStopStartup()
{
    ShellHarness h;
    // A socket file left behind by a server that died: nobody listens on it.
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    qstrncpy(addr.sun_path, QFile::encodeName(h.socketPath()).constData(), sizeof(addr.sun_path));
    QCOMPARE(bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)), 0);
    ::close(fd);
    QVERIFY(QFileInfo::exists(h.socketPath()));
    QVERIFY(!socketAccepts(h.socketPath()));

    QVERIFY(h.start());
    QVERIFY(h.startQtClient());
}

void TestStartup::detachesUnlessFirstArgumentIsF_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<bool>("detaches");
    QTest::newRow("-f") << QStringList{"-f"} << false;
    QTest::newRow("no argument") << QStringList{} << true;
    QTest::newRow("-F") << QStringList{"-F"} << true;
    QTest::newRow("--f") << QStringList{"--f"} << true;
}

void TestStartup::detachesUnlessFirstArgumentIsF()
{
    QFETCH(QStringList, args);
    QFETCH(bool, detaches);
    // A detached server goes to the nearest subreaper when its launcher exits. Being that
    // subreaper, the test reaps it: under an init that does not reap, it would linger as a
    // zombie that still answers kill(pid, 0).
    QCOMPARE(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    ShellHarness h;
    QProcess launcher;
    launcher.setProcessEnvironment(h.shellEnvironment());
    launcher.start(qEnvironmentVariable("TIDESHELL_BINARY"),
                   args + QStringList{"--wayland-socket-name", h.socketName()});
    QVERIFY(launcher.waitForStarted());

    QTRY_VERIFY_WITH_TIMEOUT(socketAccepts(h.socketPath()), 15000);
    const qint64 server = socketOwnerPid(h.socketPath());
    QVERIFY(server > 0);
    if (detaches) {
        // The process we started has gone; the server lives on under another pid.
        QTRY_COMPARE_WITH_TIMEOUT(launcher.state(), QProcess::NotRunning, 5000);
        QCOMPARE(launcher.exitCode(), 0);
        QVERIFY(server != launcher.processId());
    } else {
        QCOMPARE(launcher.state(), QProcess::Running);
        QCOMPARE(server, launcher.processId());
    }
    // A process descriptor becomes readable when the process ends, whoever reaps it.
    const int serverFd = int(syscall(SYS_pidfd_open, pid_t(server), 0));
    QVERIFY(serverFd >= 0);
    ::kill(pid_t(server), SIGTERM);
    pollfd ended = {serverFd, POLLIN, 0};
    QCOMPARE(poll(&ended, 1, 20000), 1);
    ::close(serverFd);
    if (detaches)
        QCOMPARE(waitpid(pid_t(server), nullptr, WNOHANG), pid_t(server));
    launcher.waitForFinished(15000);
}

void TestStartup::maximisedClientFollowsTheBar()
{
    ShellHarness h;
    QVERIFY(h.start());
    LineProcess *client = h.startQtClient({"--maximized", "--frameless"});
    QVERIFY(client);
    // The bar starts hidden: the whole screen is the client's.
    QVERIFY(client->waitForLine("size 800 480"));
    QVERIFY(h.waitForWindowGeometry(QRect(0, 0, 800, 480)));

    h.tap(0, KeyF11);
    QVERIFY(client->waitForLine("size 800 432"));
    QVERIFY(h.waitForWindowGeometry(QRect(0, 0, 800, 432)));

    // With the bar at the top, the client sits below it.
    h.send("ttop");
    QVERIFY(h.waitForWindowGeometry(QRect(0, 48, 800, 432)));
    h.send("tbottom");
    QVERIFY(h.waitForWindowGeometry(QRect(0, 0, 800, 432)));

    const int fullBefore = client->countLines(QRegularExpression("^size 800 480$"));
    h.tap(0, KeyF11);
    QTRY_COMPARE_WITH_TIMEOUT(client->countLines(QRegularExpression("^size 800 480$")),
                              fullBefore + 1, 10000);
    QVERIFY(h.waitForWindowGeometry(QRect(0, 0, 800, 480)));
}

void TestStartup::functionKeysNeverReachClients()
{
    ShellHarness h;
    QVERIFY(h.start());
    LineProcess *client = h.startQtClient();
    QVERIFY(client);
    // F11 shows and hides the bar; F12 opens the system menu, and F12 again closes it.
    for (int key : {KeyF10, KeyF11, KeyF12})
        h.tap(0, key);
    QVERIFY(h.shell().waitForLine(QRegularExpression("server window Show QMenu")).hasMatch());
    h.tap(0, KeyF12);
    QVERIFY(h.shell().waitForLine(QRegularExpression("server window Hide QMenu")).hasMatch());
    h.tap(0, KeyF11);
    // A plain key after them proves the key path works and that nothing came before it.
    h.tap('x', 'X');
    QVERIFY(client->waitForLine("text x"));
    QCOMPARE(client->countLines(QRegularExpression("^key press")), 1);
}

void TestStartup::keysReachEventDemo()
{
    ShellHarness h;
    QVERIFY(h.start());
    LineProcess *demo = h.startEventDemo();
    QVERIFY(demo);

    h.tap('a', 'A');
    QVERIFY(demo->waitForLine(eventDemoKey(30, 'a', "pressed", 0)).hasMatch());
    QVERIFY(demo->waitForLine(eventDemoKey(30, 'a', "released", 0)).hasMatch());
    // "@" needs Shift on a US keyboard: the client sees the modifier with the key ("A" is
    // the control port's test).
    h.tap('@', '@');
    QVERIFY(demo->waitForLine(eventDemoKey(3, '@', "pressed", 1)).hasMatch());
    // Keys without a character go by their key code (eventdemo shows BackSpace's keysym).
    h.tap(8, Qt::Key_Backspace);
    QVERIFY(demo->waitForLine(eventDemoKey(14, 0xff08, "pressed", 0)).hasMatch());
    // A character no key produces is bound to a spare key for the moment; eventdemo shows
    // its keysym, the Unicode keysym of 中.
    h.tap(0x4E2D, 0);
    QVERIFY(demo->waitForLine(eventDemoKey(240, 0x1004E2D, "pressed", 0)).hasMatch());
}

void TestStartup::characterWithoutKeyReachesQtClient()
{
    ShellHarness h;
    QVERIFY(h.start());
    LineProcess *client = h.startQtClient();
    QVERIFY(client);
    h.tap('h', 'H');
    QVERIFY(client->waitForLine("text h"));
    // Key code 0: the client takes the character only, through its text input.
    h.tap(0x4E2D, 0);
    h.tap(0x6587, 0);
    QVERIFY(client->waitForLine(QStringLiteral("text h中文")));
    QCOMPARE(client->countLines(QRegularExpression("^key press")), 1);
}

void TestStartup::focusFollowsClicksAndClosedWindows()
{
    ShellHarness h;
    QVERIFY(h.start());
    // A maximised window, then a normal one centred over it: the new one comes on top with
    // the focus.
    LineProcess *below = h.startQtClient({"--maximized", "--title", "below"});
    QVERIFY(below);
    LineProcess *above = h.startQtClient({"--title", "above"});
    QVERIFY(above);
    QVERIFY(below->waitForLine("focus out"));
    h.tap('a', 'A');
    QVERIFY(above->waitForLine("text a"));

    // A tap where only the maximised window is raises it and gives it the keys.
    int mark = h.shell().mark();
    h.click(QPoint(20, 20));
    QVERIFY(
        h.shell().waitForLine(QRegularExpression("Raise .*title=below$"), 10000, mark).hasMatch());
    QVERIFY(
        h.shell().waitForLine(QRegularExpression("Active .*title=below$"), 10000, mark).hasMatch());
    h.tap('b', 'B');
    QVERIFY(below->waitForLine("text b"));
    QVERIFY(above->waitForLine("focus out"));

    // When the focused window goes, the topmost one left gets the focus.
    mark = h.shell().mark();
    below->kill();
    QVERIFY(
        h.shell().waitForLine(QRegularExpression("Active .*title=above$"), 10000, mark).hasMatch());
    h.tap('c', 'C');
    QVERIFY(above->waitForLine("text ac"));
}

void TestStartup::fullScreenClientCoversTheBar()
{
    ShellHarness h;
    QVERIFY(h.start());
    const int mark = h.shell().mark();
    h.send("topen");
    QVERIFY(h.shell()
                .waitForLine(QRegularExpression("server window Show TitleBarWidget.* y=432 "),
                             10000, mark)
                .hasMatch());
    LineProcess *maximised = h.startQtClient({"--maximized", "--frameless", "--title", "max"});
    QVERIFY(maximised);
    QVERIFY(maximised->waitForLine("size 800 432"));
    LineProcess *full = h.startQtClient({"--fullscreen", "--title", "full"});
    QVERIFY(full);
    QVERIFY(full->waitForLine("size 800 480"));
    QVERIFY(h.shell()
                .waitForLine(QRegularExpression("x=0 y=0 w=800 h=480 max=0 full=1 title=full$"))
                .hasMatch());
}

void TestStartup::framedWindowsAnswerTouch()
{
    ShellHarness h;
    QVERIFY(h.start());
    h.send("topen");
    LineProcess *first = h.startQtClient({"--title", "first"});
    QVERIFY(first);
    LineProcess *second = h.startQtClient({"--title", "second"});
    QVERIFY(second);
    const QRegularExpressionMatch shown = h.shell().waitForLine(
        QRegularExpression("window \\d+ Show x=(\\d+) y=(\\d+) w=(\\d+) .*title=second$"));
    QVERIFY(shown.hasMatch());
    // The frame lies above the window; its buttons from the right: close, maximise, to the back.
    const int right = shown.captured(1).toInt() + shown.captured(3).toInt();
    const int frameY = shown.captured(2).toInt() - 18;
    auto button = [right](int index) { return right - 24 - 48 * index; };

    // The window on top goes to the back, and the one it covered takes the keys.
    int mark = h.shell().mark();
    h.click(QPoint(button(2), frameY));
    QVERIFY(
        h.shell().waitForLine(QRegularExpression("Active .*title=first$"), 10000, mark).hasMatch());
    h.tap('a', 'A');
    QVERIFY(first->waitForLine("text a"));

    // Maximised, the window and its frame fill the client area; the frame restores it.
    h.click(QPoint(button(1), frameY));
    QVERIFY(first->waitForLine("size 800 396"));
    QVERIFY(h.waitForWindowGeometry(QRect(0, 36, 800, 396)));
    mark = h.shell().mark();
    h.click(QPoint(800 - 24 - 48, 18));
    const QRect restored(shown.captured(1).toInt(), shown.captured(2).toInt(),
                         shown.captured(3).toInt(), 200);
    QVERIFY(h.waitForWindowGeometry(restored, 10000, mark));

    h.click(QPoint(button(0), frameY));
    QTRY_COMPARE_WITH_TIMEOUT(first->process().state(), QProcess::NotRunning, 10000);
    QCOMPARE(second->process().state(), QProcess::Running);
}

void TestStartup::clientMenusOpenAndClose()
{
    ShellHarness h;
    QVERIFY(h.start());
    LineProcess *client = h.startQtClient();
    QVERIFY(client);
    const QRegularExpressionMatch shown =
        h.shell().waitForLine(QRegularExpression("window \\d+ Show x=(\\d+) y=(\\d+) "));
    QVERIFY(shown.hasMatch());
    const QPoint inside(shown.captured(1).toInt() + 150, shown.captured(2).toInt() + 150);

    // A right click opens the client's menu; the keys then go to it.
    h.click(inside, 2);
    // The menu opens under the resting pointer, which the shell then moves into it; keys
    // sent before that would race the pointer.
    QVERIFY(client->waitForLine("popup pointer in"));
    h.tap(0, Qt::Key_Down);
    h.tap(0, Qt::Key_Down);
    h.tap(13, Qt::Key_Return);
    QVERIFY(client->waitForLine("popup triggered Second"));
    // The pointer stays in the menu until it closes: a menu the pointer leaves drops the
    // entry chosen with the keys.
    const QStringList lines = client->lines();
    QVERIFY(lines.indexOf("popup pointer out") > lines.indexOf("popup hidden"));

    // Opened again, a press outside it closes it.
    h.click(inside, 2);
    QTRY_COMPARE_WITH_TIMEOUT(client->countLines(QRegularExpression("^popup shown$")), 2, 10000);
    h.click(QPoint(5, 5));
    QTRY_COMPARE_WITH_TIMEOUT(client->countLines(QRegularExpression("^popup hidden$")), 2, 10000);
    QCOMPARE(client->countLines(QRegularExpression("^popup triggered")), 1);
}

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_e2e_startup.moc"
