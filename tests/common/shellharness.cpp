#include "shellharness.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTcpServer>
#include <QTest>
#include <QUdpSocket>

#include <cstring>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

int connectUnix(const QString &path)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, QFile::encodeName(path).constData(), sizeof(addr.sun_path) - 1);
    if (::connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

} // namespace

quint16 freeUdpPort()
{
    QUdpSocket probe;
    probe.bind(QHostAddress::LocalHost, 0);
    return probe.localPort();
}

quint16 freeTcpPort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

bool socketAccepts(const QString &path)
{
    const int fd = connectUnix(path);
    if (fd < 0)
        return false;
    ::close(fd);
    return true;
}

qint64 socketOwnerPid(const QString &path)
{
    const int fd = connectUnix(path);
    if (fd < 0)
        return 0;
    ucred cred{};
    socklen_t len = sizeof(cred);
    const int ok = getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len);
    ::close(fd);
    return ok == 0 ? cred.pid : 0;
}

LineProcess::LineProcess(const QString &name, QObject *parent) : QObject(parent), m_name(name)
{
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    connect(&m_process, &QProcess::readyRead, this, &LineProcess::readAvailable);
}

LineProcess::~LineProcess()
{
    kill();
}

void LineProcess::kill()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    ::kill(pid_t(m_process.processId()), SIGTERM);
    // Generous: a sanitizer build looks for leaks on its way out.
    if (!m_process.waitForFinished(15000)) {
        m_process.kill();
        m_process.waitForFinished(3000);
    }
    readAvailable();
}

void LineProcess::readAvailable()
{
    m_partial += m_process.readAll();
    int nl;
    while ((nl = m_partial.indexOf('\n')) >= 0) {
        m_lines.append(QString::fromUtf8(m_partial.left(nl)));
        m_partial.remove(0, nl + 1);
    }
}

QStringList LineProcess::lines()
{
    readAvailable();
    return m_lines;
}

bool LineProcess::hasLine(const QRegularExpression &re)
{
    return countLines(re) > 0;
}

int LineProcess::countLines(const QRegularExpression &re)
{
    int n = 0;
    for (const QString &line : lines())
        n += re.match(line).hasMatch() ? 1 : 0;
    return n;
}

QRegularExpressionMatch LineProcess::waitForLine(const QRegularExpression &re, int timeoutMs,
                                                 int from)
{
    QDeadlineTimer deadline(timeoutMs);
    int checked = from;
    for (;;) {
        const QStringList all = lines();
        for (; checked < all.size(); ++checked) {
            const QRegularExpressionMatch m = re.match(all.at(checked));
            if (m.hasMatch())
                return m;
        }
        if (deadline.hasExpired())
            break;
        QTest::qWait(20);
    }
    qWarning().noquote() << m_name << "did not print" << re.pattern() << "; it printed:\n"
                         << lines().join(QLatin1Char('\n'));
    return QRegularExpressionMatch();
}

bool LineProcess::waitForLine(const QString &exact, int timeoutMs, int from)
{
    const QRegularExpression re(QLatin1Char('^') + QRegularExpression::escape(exact) +
                                QLatin1Char('$'));
    return waitForLine(re, timeoutMs, from).hasMatch();
}

ShellHarness::ShellHarness()
{
    static int counter = 0;
    m_socketName =
        QStringLiteral("tide-test-%1-%2").arg(QCoreApplication::applicationPid()).arg(++counter);
    m_port = freeUdpPort();
}

ShellHarness::~ShellHarness()
{
    // Clients first, so the shell never sees its clients vanish while it is going down.
    for (LineProcess *client : std::as_const(m_clients))
        delete client;
    if (!m_shell || m_shell->process().state() != QProcess::Running)
        return;
    // A sanitizer build checks itself as it exits (leaks above all); what it finds fails the
    // test. A shell that died earlier has failed its test already.
    m_shell->kill();
    static const QRegularExpression finding(
        QStringLiteral("==\\d+==ERROR: \\w+Sanitizer|: runtime error: "));
    const QStringList lines = m_shell->lines();
    qsizetype first = 0;
    while (first < lines.size() && !finding.match(lines.at(first)).hasMatch())
        ++first;
    if (first == lines.size())
        return;
    const QByteArray report = lines.mid(first, 60).join(QLatin1Char('\n')).toLocal8Bit();
    if (QTest::currentTestFunction())
        QTest::qFail(report.constData(), __FILE__, __LINE__);
    else
        qFatal("%s", report.constData());
}

QProcessEnvironment ShellHarness::shellEnvironment() const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_RUNTIME_DIR", m_runtime.path());
    env.insert("QT_LOGGING_RULES", "tideshell.windowserver=true;qt.qpa.*=false");
    env.insert("TIDESHELL_CONTROL_PORT", QString::number(m_port));
    env.insert("TIDESHELL_CONFIG", settingsPath());
    env.remove("WAYLAND_DISPLAY");
    // Test shells never talk to a service manager that runs the tests.
    for (const char *name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
        env.remove(QLatin1String(name));
    return env;
}

QProcessEnvironment ShellHarness::clientEnvironment() const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_RUNTIME_DIR", m_runtime.path());
    env.insert("WAYLAND_DISPLAY", m_socketName);
    env.insert("QT_QPA_PLATFORM", "wayland");
    env.insert("GDK_BACKEND", "wayland");
    env.remove("QT_LOGGING_RULES");
    return env;
}

bool ShellHarness::writeSettings(const QByteArray &ini) const
{
    QFile file(settingsPath());
    return file.open(QIODevice::WriteOnly) && file.write(ini) == ini.size();
}

bool ShellHarness::start(const QStringList &extraArgs, const QProcessEnvironment &extraEnv,
                         bool waitForBar)
{
    m_shell = std::make_unique<LineProcess>(QStringLiteral("tideshell"));
    QProcessEnvironment env = shellEnvironment();
    for (const QString &key : extraEnv.keys())
        env.insert(key, extraEnv.value(key));
    m_shell->process().setProcessEnvironment(env);
    m_shell->process().start(qEnvironmentVariable("TIDESHELL_BINARY"),
                             QStringList{"-f", "--wayland-socket-name", m_socketName} + extraArgs);
    if (!m_shell->process().waitForStarted(5000))
        return false;
    QDeadlineTimer deadline(15000);
    while (!socketAccepts(socketPath())) {
        if (deadline.hasExpired() || m_shell->process().state() == QProcess::NotRunning)
            return false;
        QTest::qWait(20);
    }
    if (!waitForBar)
        return true;
    return m_shell->waitForLine(QRegularExpression("server window Show TitleBarWidget")).hasMatch();
}

bool ShellHarness::startOnVnc(const QProcessEnvironment &extraEnv, bool waitForBar)
{
    m_vncPort = freeTcpPort();
    QProcessEnvironment env = extraEnv;
    env.insert("QT_QPA_PLATFORM", QStringLiteral("vnc:size=800x480:port=%1").arg(m_vncPort));
    env.insert("QT_QPA_FB_HIDECURSOR", "1"); // no pointer drawn over the pixels a test reads
    return start({}, env, waitForBar);
}

LineProcess *ShellHarness::startClient(const QString &program, const QStringList &args,
                                       const QProcessEnvironment &extraEnv)
{
    auto *client = new LineProcess(program);
    QProcessEnvironment env = clientEnvironment();
    for (const QString &key : extraEnv.keys())
        env.insert(key, extraEnv.value(key));
    client->process().setProcessEnvironment(env);
    client->process().start(program, args);
    m_clients.append(client);
    return client;
}

LineProcess *ShellHarness::startQtClient(const QStringList &args)
{
    const int windowsBefore =
        m_shell->countLines(QRegularExpression(QStringLiteral("^tideshell.*window \\d+ Show")));
    LineProcess *client = startClient(qEnvironmentVariable("TIDE_TEST_CLIENT"), args);
    if (!client->waitForLine(QStringLiteral("focus in")))
        return nullptr;
    QDeadlineTimer deadline(10000);
    const QRegularExpression shown(QStringLiteral("^tideshell.*window \\d+ Show"));
    while (m_shell->countLines(shown) <= windowsBefore && !deadline.hasExpired())
        QTest::qWait(20);
    return client;
}

LineProcess *ShellHarness::startEventDemo()
{
    LineProcess *client = startClient(QStringLiteral("stdbuf"),
                                      {"-oL", "weston-eventdemo", "--log-key", "--log-button",
                                       "--log-motion", "--log-focus", "--log-axis"});
    if (!m_shell->waitForLine(QRegularExpression(QStringLiteral("window \\d+ Active .*EventDemo")))
             .hasMatch())
        return nullptr;
    return client;
}

void ShellHarness::send(const QByteArray &datagram) const
{
    QUdpSocket socket;
    socket.writeDatagram(datagram, QHostAddress::LocalHost, m_port);
    socket.waitForBytesWritten(1000);
}

void ShellHarness::key(int unicode, int keycode, bool press)
{
    send(QStringLiteral("skey %1,%2,0,%3").arg(unicode).arg(keycode).arg(press ? 1 : 0).toUtf8());
}

void ShellHarness::tap(int unicode, int keycode)
{
    key(unicode, keycode, true);
    key(unicode, keycode, false);
}

void ShellHarness::pointer(const QPoint &at, int buttons) const
{
    send(QStringLiteral("smouse %1,%2,%3,0").arg(at.x()).arg(at.y()).arg(buttons).toUtf8());
}

void ShellHarness::click(const QPoint &at, int button) const
{
    pointer(at, button);
    pointer(at, 0);
}

bool ShellHarness::waitForWindowGeometry(const QRect &g, int timeoutMs, int from)
{
    const QRegularExpression re(QStringLiteral("window \\d+ \\w+ x=%1 y=%2 w=%3 h=%4 ")
                                    .arg(g.x())
                                    .arg(g.y())
                                    .arg(g.width())
                                    .arg(g.height()));
    return m_shell->waitForLine(re, timeoutMs, from).hasMatch();
}
