#pragma once

#include <QByteArray>
#include <QList>
#include <QProcess>
#include <QRect>
#include <QRegularExpression>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

// A child process whose output is kept line by line, so a test can wait for what it prints.
class LineProcess : public QObject
{
public:
    explicit LineProcess(const QString &name, QObject *parent = nullptr);
    ~LineProcess() override;

    QProcess &process() { return m_process; }
    qint64 pid() const { return m_process.processId(); }
    QStringList lines();
    // The number of lines so far: a mark to wait for later lines only.
    int mark() { return int(lines().size()); }
    // Waits until a line from line `from` on matches; returns the match (captures included)
    // or an invalid one.
    QRegularExpressionMatch waitForLine(const QRegularExpression &re, int timeoutMs = 10000,
                                        int from = 0);
    bool waitForLine(const QString &exact, int timeoutMs = 10000, int from = 0);
    bool hasLine(const QRegularExpression &re);
    int countLines(const QRegularExpression &re);
    void kill();

private:
    void readAvailable();

    QString m_name;
    QProcess m_process;
    QByteArray m_partial;
    QStringList m_lines;
};

// One running shell on the offscreen platform with its own runtime directory and socket
// name, plus the clients a test starts in it. Everything is killed by pid at the end.
class ShellHarness
{
public:
    ShellHarness();
    ~ShellHarness();

    QString runtimeDir() const { return m_runtime.path(); }
    QString socketName() const { return m_socketName; }
    QString socketPath() const { return m_runtime.path() + QLatin1Char('/') + m_socketName; }

    // The shell's settings file, private to this shell and absent unless written here.
    QString settingsPath() const { return m_runtime.path() + QStringLiteral("/tideshell.conf"); }
    bool writeSettings(const QByteArray &ini) const;

    // The shell's environment: offscreen at 800 x 480, window events logged.
    QProcessEnvironment shellEnvironment() const;
    QProcessEnvironment clientEnvironment() const;

    // Starts the shell with "-f" and waits until clients can connect and, unless told not
    // to, until the bar has been built.
    bool start(const QStringList &extraArgs = {}, const QProcessEnvironment &extraEnv = {},
               bool waitForBar = true);
    // Starts it on the vnc platform at 800 x 480, where Qt composes every window into one
    // screen image as on the device's framebuffer; vncPort() serves that image.
    bool startOnVnc(const QProcessEnvironment &extraEnv = {}, bool waitForBar = true);
    quint16 vncPort() const { return m_vncPort; }
    LineProcess &shell() { return *m_shell; }

    LineProcess *startClient(const QString &program, const QStringList &args = {},
                             const QProcessEnvironment &extraEnv = {});
    // The Qt test client; waits until its window is shown and focused in the shell.
    LineProcess *startQtClient(const QStringList &args = {});
    // weston-eventdemo logging keys, buttons and motion; waits until its window is shown.
    LineProcess *startEventDemo();

    // The shell's control port: a free one of its own, so shells of parallel tests never
    // see each other's datagrams.
    quint16 controlPort() const { return m_port; }
    // One datagram to the control port, as another program on the device would send it.
    void send(const QByteArray &datagram) const;
    void key(int unicode, int keycode, bool press);
    void tap(int unicode, int keycode); // press then release
    // The pointer moved to `at`, a button pressed and released there (1 left, 2 right), as a
    // finger on the touch screen gives them.
    void pointer(const QPoint &at, int buttons) const;
    void click(const QPoint &at, int button = 1) const;

    // Waits for the shell to log a window event with this geometry, from line `from` on.
    bool waitForWindowGeometry(const QRect &geometry, int timeoutMs = 10000, int from = 0);

private:
    QTemporaryDir m_runtime;
    QString m_socketName;
    quint16 m_port = 0;
    quint16 m_vncPort = 0;
    std::unique_ptr<LineProcess> m_shell;
    QList<LineProcess *> m_clients;
};

// A UDP port that nobody uses at the moment.
quint16 freeUdpPort();
// A TCP port that nobody listens on at the moment.
quint16 freeTcpPort();
// True when a server accepts connections on this Unix socket path.
bool socketAccepts(const QString &path);
// The pid of the process listening on this Unix socket, or 0.
qint64 socketOwnerPid(const QString &path);
