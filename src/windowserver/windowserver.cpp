#include "windowserver.h"

#include "compositor.h"
#include "framebufferwindows.h"
#include "input.h"
#include "shmguard.h"
#include "windows.h"

#include <QFileInfo>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QQuickWindow>
#include <QScreen>
#include <QStandardPaths>
#include <QtWaylandCompositor/QWaylandQuickCompositor>

#include <unistd.h>

Q_LOGGING_CATEGORY(lcWindowServer, "tideshell.windowserver", QtWarningMsg)

namespace {
WindowServer *s_instance = nullptr;
} // namespace

class WindowServerPrivate
{
public:
    explicit WindowServerPrivate(const QString &socketName)
        : compositor(socketName), windows(&compositor), input(&compositor, &windows)
    {
    }

    // Declared in the order they depend on each other; destroyed the other way round.
    Compositor compositor;
    WindowManager windows;
    InputRouter input;
};

WindowServer::WindowServer(QObject *parent)
    : QObject(parent), d(std::make_unique<WindowServerPrivate>(
                           socketNameFromArguments(QCoreApplication::arguments())))
{
    Q_ASSERT(!s_instance);
    s_instance = this;
    ensureRuntimeDir();
    connect(&d->windows, &WindowManager::windowEvent, this, &WindowServer::windowEvent);
    FramebufferWindows::installIfNeeded(this);
    // Clients are served from the first turn of the event loop, once the shell has built
    // what they and the scripts driving it rely on (the bar, its control port).
    QMetaObject::invokeMethod(this, &WindowServer::listen, Qt::QueuedConnection);
}

WindowServer::~WindowServer()
{
    d.reset();
    s_instance = nullptr;
}

WindowServer *WindowServer::instance()
{
    return s_instance;
}

void WindowServer::listen()
{
    if (d->compositor.isListening())
        return;
    d->compositor.listen();
    new ShmGuard(d->compositor.compositor());
    d->windows.attach();
    d->input.attach();
}

QString WindowServer::socketNameFromArguments(int argc, char **argv)
{
    QStringList args;
    for (int i = 0; i < argc; ++i)
        args.append(QString::fromLocal8Bit(argv[i]));
    return socketNameFromArguments(args);
}

QString WindowServer::socketNameFromArguments(const QStringList &args)
{
    const int at = int(args.indexOf(QStringLiteral("--wayland-socket-name")));
    if (at >= 1 && at + 1 < args.size())
        return args.at(at + 1);
    return QStringLiteral("wayland-0");
}

QString WindowServer::socketPathFor(const QString &socketName)
{
    if (socketName.startsWith(QLatin1Char('/')))
        return socketName;
    return qEnvironmentVariable("XDG_RUNTIME_DIR") + QLatin1Char('/') + socketName;
}

void WindowServer::ensureRuntimeDir()
{
    if (!qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR"))
        return;
    const QString userDir = QStringLiteral("/run/user/%1").arg(getuid());
    if (QFileInfo(userDir).isDir()) {
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(userDir));
        return;
    }
    const QString fallback = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(fallback));
}

QString WindowServer::socketName() const
{
    return d->compositor.socketName();
}

QString WindowServer::socketPath() const
{
    return socketPathFor(socketName());
}

QProcessEnvironment WindowServer::clientEnvironment() const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("WAYLAND_DISPLAY"), socketName());
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), qEnvironmentVariable("XDG_RUNTIME_DIR"));
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("wayland"));
    env.insert(QStringLiteral("GDK_BACKEND"), QStringLiteral("wayland"));
    env.insert(QStringLiteral("SDL_VIDEODRIVER"), QStringLiteral("wayland"));
    // Settings meant for the shell's own rendering are not the children's business.
    env.remove(QStringLiteral("QT_QUICK_BACKEND"));
    env.remove(QStringLiteral("XKB_CONFIG_EXTRA_PATH"));
    env.remove(QStringLiteral("QT_QPA_UPDATE_IDLE_TIME"));
    return env;
}

void WindowServer::setDesktopColor(const QColor &color)
{
    d->compositor.view()->setColor(color);
}

QImage WindowServer::desktopImage(const QRect &rect) const
{
    QQuickWindow *view = d->compositor.view();
    // Rendering the scene costs a frame; the bare desktop needs none.
    if (d->windows.shownRegion().intersects(rect)) {
        const QImage scene = view->grabWindow();
        if (!scene.isNull())
            return scene.copy(rect.translated(-view->geometry().topLeft()))
                .convertToFormat(QImage::Format_RGB32);
    }
    QImage image(rect.size(), QImage::Format_RGB32);
    image.fill(view->color());
    return image;
}

void WindowServer::showDesktop()
{
    QQuickWindow *view = d->compositor.view();
    view->setGeometry(QGuiApplication::primaryScreen()->geometry());
    view->showFullScreen();
}

void WindowServer::setMaxWindowRect(const QRect &rect)
{
    d->windows.setMaxWindowRect(rect);
}

QRect WindowServer::maxWindowRect() const
{
    return d->windows.maxWindowRect();
}

void WindowServer::sendKeyEvent(int unicode, int keycode, Qt::KeyboardModifiers modifiers,
                                bool isPress, bool autoRepeat)
{
    d->input.sendKeyEvent(unicode, keycode, modifiers, isPress, autoRepeat);
}

void WindowServer::sendMouseEvent(const QPoint &pos, int buttons, int wheel)
{
    d->input.sendMouseEvent(pos, buttons, wheel);
}
