// Start-up of the shell: refuse to run twice, detach unless asked not to, become the window
// server, and build the bar that carries everything else.
#include "application.h"
#include "datetimesettingdlg.h"
#include "servicenotify.h"
#include "shellsettings.h"
#include "titlebarwidget.h"
#include "windowserver.h"

#include <QFont>
#include <QSocketNotifier>
#include <QTranslator>
#include <QtDebug>

#include <csignal>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// A server already listens on the socket that clients use. Nothing but a successful connect
// counts: a missing file, a refused connection or a stale socket file all mean "no server".
bool serverRunning(const QString &socketPath)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr;
    std::memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    const QByteArray path = socketPath.toLocal8Bit();
    std::strncpy(addr.sun_path, path.constData(), 107);
    const socklen_t len = socklen_t(std::strlen(addr.sun_path) + sizeof(addr.sun_family));
    const int result = ::connect(fd, reinterpret_cast<sockaddr *>(&addr), len);
    if (fd >= 0)
        ::close(fd);
    return result == 0;
}

int signalPipe[2] = {-1, -1};

void onTerminate(int)
{
    const char byte = 1;
    (void)!write(signalPipe[1], &byte, 1);
}

// SIGTERM (a service manager stopping the shell) and SIGINT end the event loop like a normal
// quit, so the compositor closes its socket and its clients see it go.
void quitOnSignals(QCoreApplication &app)
{
    if (pipe(signalPipe) != 0)
        return;
    auto *notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, &QCoreApplication::quit);
    struct sigaction action = {};
    action.sa_handler = onTerminate;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

} // namespace

int main(int argc, char **argv)
{
    WindowServer::ensureRuntimeDir();
    const QString socketName = WindowServer::socketNameFromArguments(argc, argv);
    if (serverRunning(WindowServer::socketPathFor(socketName))) {
        qDebug() << "There is already a Server running!";
        exit(1);
    }

    if (argc < 2 || std::strcmp(argv[1], "-f") != 0)
        (void)daemon(0, 0);

    // Platforms without vertical sync would render as fast as clients commit; one frame per
    // refresh of a 60 Hz panel is plenty.
    if (!qEnvironmentVariableIsSet("QT_QPA_UPDATE_IDLE_TIME"))
        qputenv("QT_QPA_UPDATE_IDLE_TIME", "16");

    Application app(argc, argv);
    // Glyphs unhinted: FreeType's automatic hinter measures a dozen sample characters of
    // every script a font is used for, which for the Chinese font reads some two megabytes of
    // it into memory. On an antialiased screen the difference is hard to see.
    QFont font = QApplication::font();
    font.setHintingPreference(QFont::PreferNoHinting);
    QApplication::setFont(font);
    quitOnSignals(app);
    WindowServer server;

    QTranslator translator;
    (void)translator.load(QStringLiteral(":/zh_CN.qm"));
    QCoreApplication::installTranslator(&translator);

    const ShellSettings settings = ShellSettings::load();
    if (!settings.clockProgram.isEmpty())
        DateTimeSettingDlg::setClockProgram(settings.clockProgram);

    server.setDesktopColor(QColor(51, 153, 128));
    server.showDesktop();

    TitleBarWidget titleBar(settings);
    QObject::connect(&app, &Application::specialKey, &titleBar, &TitleBarWidget::onSpecialKey);
    QObject::connect(&app, &Application::screenTransformed, &titleBar,
                     &TitleBarWidget::onScreenTransformed);
    ServiceNotify::start(&app);

    return app.exec();
}
