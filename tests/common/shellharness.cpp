#include "shellharness.h"

#include <QCoreApplication>
#include <QTest>
#include <QUdpSocket>

#include <cstring>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// A port of this type that nobody uses at the moment.
quint16 freePort(int type)
{
    const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof(addr);
    bind(fd, reinterpret_cast<sockaddr *>(&addr), len);
    getsockname(fd, reinterpret_cast<sockaddr *>(&addr), &len);
    ::close(fd);
    return ntohs(addr.sin_port);
}

} // namespace

qint64 socketOwnerPid(const QString &path)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::strncpy(addr.sun_path, QFile::encodeName(path).constData(), sizeof(addr.sun_path) - 1);
    ucred cred{};
    socklen_t len = sizeof(cred);
    const bool ok = ::connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof(addr)) == 0 &&
                    getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) == 0;
    ::close(fd);
    return ok ? cred.pid : 0;
}

void LineProcess::kill()
{
    if (m_process.state() != QProcess::NotRunning) {
        ::kill(pid_t(m_process.processId()), SIGTERM);
        // Generous: a sanitizer build looks for leaks on its way out.
        if (!m_process.waitForFinished(15000)) {
            m_process.kill();
            m_process.waitForFinished(3000);
        }
    }
    lines();
}

QStringList LineProcess::lines()
{
    m_partial += m_process.readAll();
    for (int nl; (nl = m_partial.indexOf('\n')) >= 0; m_partial.remove(0, nl + 1))
        m_lines.append(QString::fromUtf8(m_partial.left(nl)));
    return m_lines;
}

QRegularExpressionMatch LineProcess::waitForLine(const QRegularExpression &re, int timeoutMs,
                                                 int from)
{
    QRegularExpressionMatch m;
    const auto found = [&] {
        for (const QStringList all = lines(); from < all.size(); ++from) {
            if ((m = re.match(all.at(from))).hasMatch())
                return true;
        }
        return false;
    };
    if (!QTest::qWaitFor(found, timeoutMs))
        qWarning().noquote() << m_name << "did not print" << re.pattern() << "; it printed:\n"
                             << lines().join(QLatin1Char('\n'));
    return m;
}

bool LineProcess::waitForLine(const QString &exact, int timeoutMs, int from)
{
    const QRegularExpression re(
        QRegularExpression::anchoredPattern(QRegularExpression::escape(exact)));
    return waitForLine(re, timeoutMs, from).hasMatch();
}

ShellHarness::ShellHarness() : m_port(freePort(SOCK_DGRAM))
{
    static int counter = 0;
    m_socketName =
        QStringLiteral("tide-test-%1-%2").arg(QCoreApplication::applicationPid()).arg(++counter);
}

ShellHarness::~ShellHarness()
{
    // Clients first, so the shell never sees its clients vanish while it is going down.
    m_clients.clear();
    if (!m_shell || m_shell->process().state() != QProcess::Running)
        return;
    // A sanitizer build checks itself as it exits (leaks above all); what it finds fails the
    // test. A shell that died earlier has failed its test already.
    m_shell->kill();
    static const QRegularExpression finding("==\\d+==ERROR: \\w+Sanitizer|: runtime error: ");
    const QStringList lines = m_shell->lines();
    const qsizetype first = lines.indexOf(finding);
    if (first < 0)
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
    env.insert("TIDESHELL_CONFIG", m_runtime.filePath("tideshell.conf"));
    for (const char *name : {"WAYLAND_DISPLAY", "NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
        env.remove(QLatin1String(name));
    return env;
}

bool ShellHarness::writeSettings(const QByteArray &ini) const
{
    QFile file(m_runtime.filePath("tideshell.conf"));
    return file.open(QIODevice::WriteOnly) && file.write(ini) == ini.size();
}

bool ShellHarness::start(const QStringList &extraArgs, const QProcessEnvironment &extraEnv,
                         bool waitForBar)
{
    m_shell = std::make_unique<LineProcess>(QStringLiteral("tideshell"));
    QProcessEnvironment env = shellEnvironment();
    env.insert(extraEnv);
    m_shell->process().setProcessEnvironment(env);
    m_shell->process().start(qEnvironmentVariable("TIDESHELL_BINARY"),
                             QStringList{"-f", "--wayland-socket-name", m_socketName} + extraArgs);
    QProcess &shell = m_shell->process();
    if (!QTest::qWaitFor(
            [&] {
                return shell.state() == QProcess::NotRunning || socketOwnerPid(socketPath()) > 0;
            },
            15000) ||
        shell.state() == QProcess::NotRunning)
        return false;
    return !waitForBar || logged("server window Show TitleBarWidget");
}

bool ShellHarness::startOnVnc(const QProcessEnvironment &extraEnv, bool waitForBar)
{
    m_vncPort = freePort(SOCK_STREAM);
    QProcessEnvironment env = extraEnv;
    env.insert("QT_QPA_PLATFORM", QStringLiteral("vnc:size=800x480:port=%1").arg(m_vncPort));
    env.insert("QT_QPA_FB_HIDECURSOR", "1"); // no pointer drawn over the pixels a test reads
    return start({}, env, waitForBar);
}

LineProcess *ShellHarness::startClient(const QString &program, const QStringList &args,
                                       const QProcessEnvironment &extraEnv)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_RUNTIME_DIR", m_runtime.path());
    env.insert("WAYLAND_DISPLAY", m_socketName);
    env.insert("QT_QPA_PLATFORM", "wayland");
    env.insert("GDK_BACKEND", "wayland");
    env.remove("QT_LOGGING_RULES");
    env.insert(extraEnv);
    m_clients.push_back(std::make_unique<LineProcess>(program));
    m_clients.back()->process().setProcessEnvironment(env);
    m_clients.back()->process().start(program, args);
    return m_clients.back().get();
}

LineProcess *ShellHarness::startQtClient(const QStringList &args)
{
    const int mark = m_shell->mark();
    LineProcess *client = startClient(qEnvironmentVariable("TIDE_TEST_CLIENT"), args);
    const bool shown =
        client->waitForLine(QStringLiteral("focus in")) && logged("window \\d+ Show ", mark);
    return shown ? client : nullptr;
}

LineProcess *ShellHarness::startEventDemo()
{
    const int mark = m_shell->mark();
    LineProcess *client = startClient(QStringLiteral("stdbuf"),
                                      {"-oL", "weston-eventdemo", "--log-key", "--log-button",
                                       "--log-motion", "--log-focus", "--log-axis"});
    return logged("window \\d+ Active .*EventDemo", mark) ? client : nullptr;
}

void ShellHarness::send(const QByteArray &datagram) const
{
    QUdpSocket socket;
    socket.writeDatagram(datagram, QHostAddress::LocalHost, m_port);
}

void ShellHarness::tap(int unicode, int keycode)
{
    for (int press : {1, 0})
        send(QStringLiteral("skey %1,%2,0,%3").arg(unicode).arg(keycode).arg(press).toUtf8());
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
