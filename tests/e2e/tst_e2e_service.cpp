// The shell under a service manager: it reports ready only once clients can connect and the
// control port is bound, names its own pid (also after detaching), and feeds the watchdog.
// A datagram socket of the test's own stands in for systemd's notification socket.
#include "shellharness.h"

#include <QScopeGuard>
#include <QTest>

#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// Receives one notification within the timeout; empty when none came.
QByteArray receive(int fd, int timeoutMs)
{
    pollfd p{fd, POLLIN, 0};
    if (poll(&p, 1, timeoutMs) != 1)
        return QByteArray();
    char buffer[512];
    const ssize_t n = recv(fd, buffer, sizeof(buffer), 0);
    return n > 0 ? QByteArray(buffer, int(n)) : QByteArray();
}

// Whether someone holds this UDP port: a plain bind fails then.
bool udpPortTaken(quint16 port)
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    const bool taken = bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)) != 0;
    ::close(fd);
    return taken;
}

} // namespace

class TestService : public QObject
{
    Q_OBJECT
private slots:
    void readyAfterControlPortThenWatchdog_data();
    void readyAfterControlPortThenWatchdog();
};

void TestService::readyAfterControlPortThenWatchdog_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<bool>("detaches");
    QTest::newRow("foreground") << QStringList{"-f"} << false;
    QTest::newRow("detached") << QStringList{} << true;
}

void TestService::readyAfterControlPortThenWatchdog()
{
    QFETCH(QStringList, args);
    QFETCH(bool, detaches);
    ShellHarness h;
    const QString notifyPath = h.runtimeDir() + QStringLiteral("/notify");
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    qstrncpy(addr.sun_path, QFile::encodeName(notifyPath).constData(), sizeof(addr.sun_path));
    QCOMPARE(bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)), 0);

    QProcessEnvironment env = h.shellEnvironment();
    env.insert("NOTIFY_SOCKET", notifyPath);
    env.insert("WATCHDOG_USEC", "200000");
    QProcess launcher;
    launcher.setProcessEnvironment(env);
    launcher.start(qEnvironmentVariable("TIDESHELL_BINARY"),
                   args + QStringList{"--wayland-socket-name", h.socketName()});
    QVERIFY(launcher.waitForStarted());

    const QByteArray ready = receive(fd, 15000);
    // Checked the moment the report arrives: by then both sockets must serve.
    const bool controlBound = udpPortTaken(h.controlPort());
    const qint64 server = socketOwnerPid(h.socketPath());
    const auto stop = qScopeGuard([&] {
        if (server > 0)
            ::kill(pid_t(server), SIGTERM);
        launcher.waitForFinished(3000);
        ::close(fd);
    });
    QVERIFY2(ready.split('\n').contains("READY=1"), ready.constData());
    QVERIFY(controlBound);
    QVERIFY(server > 0);
    QVERIFY(ready.split('\n').contains("MAINPID=" + QByteArray::number(server)));
    QCOMPARE(server != launcher.processId(), detaches);

    // Two pings in a row: the watchdog is fed by a timer, not once.
    QCOMPARE(receive(fd, 5000), QByteArray("WATCHDOG=1"));
    QCOMPARE(receive(fd, 5000), QByteArray("WATCHDOG=1"));

    QCOMPARE(::kill(pid_t(server), SIGTERM), 0);
    QTRY_VERIFY_WITH_TIMEOUT(::kill(pid_t(server), 0) != 0, 5000);
}

QTEST_GUILESS_MAIN(TestService)
#include "tst_e2e_service.moc"
