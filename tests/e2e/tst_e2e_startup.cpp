// The shell as a user meets it: start-up, the single-instance rule, the bar's strip with a
// maximised client, the function keys, and keys typed into real clients.
#include "shellharness.h"

#include <QTest>

#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
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
    ::kill(pid_t(server), SIGTERM);
    // A sanitizer build checks for leaks on its way out, which takes a few seconds.
    QTRY_VERIFY_WITH_TIMEOUT(::kill(pid_t(server), 0) != 0, 20000);
    launcher.waitForFinished(3000);
}

void TestStartup::maximisedClientFollowsTheBar()
{
    ShellHarness h;
    QVERIFY(h.start());
    LineProcess *client = h.startQtClient({"--maximized"});
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
    h.send("smouse 20,20,1,0");
    h.send("smouse 20,20,0,0");
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
    LineProcess *maximised = h.startQtClient({"--maximized", "--title", "max"});
    QVERIFY(maximised);
    QVERIFY(maximised->waitForLine("size 800 432"));
    LineProcess *full = h.startQtClient({"--fullscreen", "--title", "full"});
    QVERIFY(full);
    QVERIFY(full->waitForLine("size 800 480"));
    QVERIFY(h.shell()
                .waitForLine(QRegularExpression("x=0 y=0 w=800 h=480 max=0 full=1 title=full$"))
                .hasMatch());
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
    const QByteArray at = QByteArray::number(inside.x()) + ',' + QByteArray::number(inside.y());

    // A right click opens the client's menu; the keys then go to it.
    h.send("smouse " + at + ",2,0");
    h.send("smouse " + at + ",0,0");
    QVERIFY(client->waitForLine("popup shown"));
    h.tap(0, Qt::Key_Down);
    h.tap(0, Qt::Key_Down);
    h.tap(13, Qt::Key_Return);
    QVERIFY(client->waitForLine("popup triggered Second"));

    // Opened again, a press outside it closes it.
    h.send("smouse " + at + ",2,0");
    h.send("smouse " + at + ",0,0");
    QTRY_COMPARE_WITH_TIMEOUT(client->countLines(QRegularExpression("^popup shown$")), 2, 10000);
    h.send("smouse 5,5,1,0");
    h.send("smouse 5,5,0,0");
    QTRY_COMPARE_WITH_TIMEOUT(client->countLines(QRegularExpression("^popup hidden$")), 2, 10000);
    QCOMPARE(client->countLines(QRegularExpression("^popup triggered")), 1);
}

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_e2e_startup.moc"
