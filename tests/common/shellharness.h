#pragma once

#include <QProcess>
#include <QRect>
#include <QRegularExpression>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

// A child process whose output is kept line by line, so a test can wait for what it prints.
class LineProcess
{
public:
    explicit LineProcess(const QString &name) : m_name(name)
    {
        m_process.setProcessChannelMode(QProcess::MergedChannels);
    }
    ~LineProcess() { kill(); }

    QProcess &process() { return m_process; }
    QStringList lines();
    // The number of lines so far: a mark to wait for later lines only.
    int mark() { return int(lines().size()); }
    // Waits until a line from line `from` on matches; returns the match (captures included)
    // or an invalid one.
    QRegularExpressionMatch waitForLine(const QRegularExpression &re, int timeoutMs = 10000,
                                        int from = 0);
    bool waitForLine(const QString &exact, int timeoutMs = 10000, int from = 0);
    int countLines(const QRegularExpression &re) { return int(lines().filter(re).size()); }
    bool hasLine(const QRegularExpression &re) { return countLines(re) > 0; }
    void kill();

private:
    QString m_name;
    QProcess m_process;
    QByteArray m_partial;
    QStringList m_lines;
};

// One running shell with its own runtime directory, socket name and control port, plus the
// clients a test starts in it. Everything is killed by pid at the end.
class ShellHarness
{
public:
    ShellHarness();
    ~ShellHarness();

    QString runtimeDir() const { return m_runtime.path(); }
    QString socketName() const { return m_socketName; }
    QString socketPath() const { return m_runtime.filePath(m_socketName); }
    // The shell's settings file, private to this shell and absent unless written here.
    bool writeSettings(const QByteArray &ini) const;
    // The shell's environment: window events logged, no service manager.
    QProcessEnvironment shellEnvironment() const;

    // Starts the shell with "-f" and waits until clients can connect and, unless told not
    // to, until the bar has been built.
    bool start(const QStringList &extraArgs = {}, const QProcessEnvironment &extraEnv = {},
               bool waitForBar = true);
    // The same on the vnc platform, where Qt composes every window into one screen image as
    // on the device's framebuffer; vncPort() serves that image.
    bool startOnVnc(const QProcessEnvironment &extraEnv = {}, bool waitForBar = true);
    quint16 vncPort() const { return m_vncPort; }
    LineProcess &shell() { return *m_shell; }

    LineProcess *startClient(const QString &program, const QStringList &args = {},
                             const QProcessEnvironment &extraEnv = {});
    // The Qt test client; waits until its window is shown and focused in the shell.
    LineProcess *startQtClient(const QStringList &args = {});
    // weston-eventdemo logging keys, buttons, motion and focus; waits until it is active.
    LineProcess *startEventDemo();

    quint16 controlPort() const { return m_port; }
    // One datagram to the control port, as another program on the device would send it.
    void send(const QByteArray &datagram) const;
    void tap(int unicode, int keycode); // press then release
    // The pointer moved to `at` with these buttons down (1 left, 2 right), as a finger on the
    // touch screen gives them; a click presses and releases there.
    void pointer(const QPoint &at, int buttons) const;
    void click(const QPoint &at, int button = 1) const;

    // Waits for the shell to log a line that matches, from line `from` on.
    bool logged(const QString &pattern, int from = 0)
    {
        return m_shell->waitForLine(QRegularExpression(pattern), 10000, from).hasMatch();
    }
    // Waits for the shell to log a window event with this geometry, from line `from` on.
    bool waitForWindowGeometry(const QRect &geometry, int timeoutMs = 10000, int from = 0);

private:
    QTemporaryDir m_runtime;
    QString m_socketName;
    quint16 m_port = 0;
    quint16 m_vncPort = 0;
    std::unique_ptr<LineProcess> m_shell;
    std::vector<std::unique_ptr<LineProcess>> m_clients;
};

// The pid of the process that accepts connections on this Unix socket, or 0 if none does.
qint64 socketOwnerPid(const QString &path);
