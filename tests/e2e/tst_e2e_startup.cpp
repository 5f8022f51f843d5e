// The shell as a user meets it: start-up under a service manager, the single-instance rule,
// the function keys, and windows raised, framed, closed and given menus by touch.
#include "shellwindows.h"

#include <QScopeGuard>
#include <QTest>
#include <QUdpSocket>

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A Unix socket of this type bound to the path; -1 on failure.
int boundUnixSocket(const QString &path, int type)
{
    const int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    qstrncpy(addr.sun_path, QFile::encodeName(path).constData(), sizeof(addr.sun_path));
    if (bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)) == 0)
        return fd;
    ::close(fd);
    return -1;
}

// One datagram received within the timeout; empty when none came.
QByteArray receive(int fd, int timeoutMs)
{
    pollfd p{fd, POLLIN, 0};
    char buffer[512];
    const ssize_t n = poll(&p, 1, timeoutMs) == 1 ? recv(fd, buffer, sizeof(buffer), 0) : 0;
    return QByteArray(buffer, int(qMax<ssize_t>(n, 0)));
}

} // namespace

class TestStartup : public QObject
{
    Q_OBJECT
private slots:
    void oneDetachedInstanceUnderServiceManager_data();
    void oneDetachedInstanceUnderServiceManager();
    void functionKeysWorkTheBarNotClients();
    void focusFollowsTouchOnWindowsAndFrames();
    void clientMenusOpenAndClose();
};

void TestStartup::oneDetachedInstanceUnderServiceManager_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<bool>("detaches");
    QTest::newRow("-f") << QStringList{"-f"} << false;
    QTest::newRow("no argument") << QStringList{} << true;
}

void TestStartup::oneDetachedInstanceUnderServiceManager()
{
    QFETCH(QStringList, args);
    QFETCH(bool, detaches);
    // A detached server goes to the nearest subreaper when its launcher exits: the test is
    // that subreaper, so it can reap the server at the end.
    QCOMPARE(prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
    ShellHarness h;
    // A socket file left behind by a server that died: nobody listens on it.
    const int stale = boundUnixSocket(h.socketPath(), SOCK_STREAM);
    QVERIFY(stale >= 0);
    ::close(stale);
    // A datagram socket of the test's own stands in for the service manager's.
    const QString notifyPath = h.runtimeDir() + QStringLiteral("/notify");
    const int notify = boundUnixSocket(notifyPath, SOCK_DGRAM);
    QVERIFY(notify >= 0);
    QProcessEnvironment env = h.shellEnvironment();
    env.insert("NOTIFY_SOCKET", notifyPath);
    env.insert("WATCHDOG_USEC", "200000");
    QProcess launcher;
    launcher.setProcessEnvironment(env);
    const QStringList socketArgs{"--wayland-socket-name", h.socketName()};
    launcher.start(qEnvironmentVariable("TIDESHELL_BINARY"), args + socketArgs);

    // Ready only once clients can connect and the control port is bound: both are checked
    // the moment the report arrives. It names the server's pid, also after detaching.
    const QByteArray ready = receive(notify, 15000);
    QUdpSocket probe; // binds only where nobody else does
    const bool controlBound =
        !probe.bind(QHostAddress::Any, h.controlPort(), QUdpSocket::DontShareAddress);
    qint64 server = socketOwnerPid(h.socketPath());
    const auto stop = qScopeGuard([&] {
        if (server > 0)
            ::kill(pid_t(server), SIGTERM);
        launcher.waitForFinished(15000);
        ::close(notify);
    });
    QVERIFY2(ready.split('\n').contains("READY=1"), ready.constData());
    QVERIFY(controlBound);
    QVERIFY(server > 0);
    QVERIFY(ready.split('\n').contains("MAINPID=" + QByteArray::number(server)));
    if (detaches) {
        QTRY_COMPARE_WITH_TIMEOUT(launcher.state(), QProcess::NotRunning, 5000);
        QCOMPARE(launcher.exitCode(), 0);
        QVERIFY(server != launcher.processId());
    } else {
        QCOMPARE(server, launcher.processId());
    }

    // A second server on the same socket gives up and leaves the first one serving.
    QProcess second;
    second.setProcessEnvironment(h.shellEnvironment());
    second.start(qEnvironmentVariable("TIDESHELL_BINARY"), QStringList{"-f"} + socketArgs);
    QVERIFY(second.waitForFinished(10000));
    QCOMPARE(second.exitCode(), 1);
    QVERIFY(second.readAllStandardError().contains("There is already a Server running!"));
    QCOMPARE(socketOwnerPid(h.socketPath()), server);
    // Two pings in a row: the watchdog is fed by a timer, not once.
    QCOMPARE(receive(notify, 5000), QByteArray("WATCHDOG=1"));
    QCOMPARE(receive(notify, 5000), QByteArray("WATCHDOG=1"));

    ::kill(pid_t(server), SIGTERM);
    if (detaches)
        QVERIFY(QTest::qWaitFor(
            [&] { return waitpid(pid_t(server), nullptr, WNOHANG) == pid_t(server); }, 20000));
    else
        QVERIFY(launcher.waitForFinished(20000));
    server = 0;
}

void TestStartup::functionKeysWorkTheBarNotClients()
{
    ShellHarness h;
    QVERIFY(h.start());
    LineProcess *client = h.startQtClient({"--maximized", "--frameless"});
    QVERIFY(client);
    // F11 shows and hides the bar, which the maximised client makes room for; F12 opens the
    // system menu and closes it again; F10 is the shell's too.
    QVERIFY(client->waitForLine("size 800 480"));
    h.tap(0, Qt::Key_F11);
    QVERIFY(client->waitForLine("size 800 432"));
    QVERIFY(h.waitForWindowGeometry(QRect(0, 0, 800, 432)));
    h.tap(0, Qt::Key_F10);
    h.tap(0, Qt::Key_F12);
    QVERIFY(h.logged("server window Show QMenu"));
    h.tap(0, Qt::Key_F12);
    QVERIFY(h.logged("server window Hide QMenu"));
    // A full-screen client covers the bar.
    LineProcess *full = h.startQtClient({"--fullscreen", "--title", "full"});
    QVERIFY(full);
    QVERIFY(h.logged("x=0 y=0 w=800 h=480 max=0 full=1 title=full$"));
    // Plain keys after them prove the key path works and that nothing came before them: "@"
    // needs Shift on a US keyboard, Backspace has no character.
    h.tap('x', 'X');
    h.tap('@', '@');
    h.tap(8, Qt::Key_Backspace);
    QVERIFY(full->waitForLine("text x@"));
    QTRY_COMPARE(full->countLines(QRegularExpression("^text x$")), 2);
    QCOMPARE(client->countLines(QRegularExpression("^key press")), 0);
    QCOMPARE(full->countLines(QRegularExpression("^key press")), 3);
}

void TestStartup::focusFollowsTouchOnWindowsAndFrames()
{
    ShellHarness h;
    QVERIFY(h.start());
    h.send("topen");
    // A maximised window, then a normal one over it: the new one comes on top with the focus.
    LineProcess *below = h.startQtClient({"--maximized", "--title", "below"});
    QVERIFY(below);
    LineProcess *above = h.startQtClient({"--title", "above"});
    QVERIFY(above);
    QVERIFY(below->waitForLine("focus out"));
    h.tap('a', 'A');
    QVERIFY(above->waitForLine("text a"));
    const QRect placed = waitForNext(h.shell(), clientWindow("Show", "above"), 0);
    QCOMPARE(placed.size(), QSize(320, 200));
    // A frame lies above its window; its buttons from the right: close, maximise, to the back.
    const auto button = [](const QRect &window, int index) {
        return QPoint(window.right() + 1 - 24 - 48 * index, window.y() - 18);
    };
    const QRect maximised(0, 36, 800, 396);

    // A tap where only the maximised window is raises it and gives it the keys.
    int mark = h.shell().mark();
    h.click(QPoint(20, 100));
    QVERIFY(h.logged("Raise .*title=below$", mark));
    QVERIFY(h.logged("Active .*title=below$", mark));
    h.tap('b', 'B');
    QVERIFY(below->waitForLine("text b"));
    QVERIFY(above->waitForLine("focus out"));

    // Its frame sends it to the back, and the window it covered takes the keys.
    mark = h.shell().mark();
    h.click(button(maximised, 2));
    QVERIFY(h.logged("Active .*title=above$", mark));
    h.tap('c', 'C');
    QVERIFY(above->waitForLine("text ac"));

    // Maximised, a window and its frame fill the client area; the frame restores it. (The
    // other window has that place too: only lines from now on count.)
    mark = h.shell().mark();
    h.click(button(placed, 1));
    QVERIFY(above->waitForLine("size 800 396"));
    QVERIFY(h.logged("window \\d+ \\w+ x=0 y=36 w=800 h=396 .*title=above$", mark));
    mark = h.shell().mark();
    h.click(button(maximised, 1));
    QVERIFY(h.waitForWindowGeometry(placed, 10000, mark));

    // Closed by its frame, it leaves the focus to the topmost window left.
    mark = h.shell().mark();
    h.click(button(placed, 0));
    QVERIFY(h.logged("Destroy .*title=above$", mark));
    QVERIFY(h.logged("Active .*title=below$", mark));
    h.tap('d', 'D');
    QVERIFY(below->waitForLine("text bd"));
}

void TestStartup::clientMenusOpenAndClose()
{
    ShellHarness h;
    QVERIFY(h.start());
    LineProcess *client = h.startQtClient();
    QVERIFY(client);
    const QPoint inside =
        waitForNext(h.shell(), clientWindow("Show"), 0).topLeft() + QPoint(150, 150);

    // A right click opens the client's menu. It opens under the resting pointer, which the
    // shell then moves into it; keys sent before that would race the pointer.
    h.click(inside, 2);
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
    const int mark = client->mark();
    h.click(inside, 2);
    QVERIFY(client->waitForLine("popup shown", 10000, mark));
    h.click(QPoint(5, 5));
    QVERIFY(client->waitForLine("popup hidden", 10000, mark));
    QCOMPARE(client->countLines(QRegularExpression("^popup triggered")), 1);
}

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_e2e_startup.moc"
