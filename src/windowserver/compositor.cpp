#include "compositor.h"

#include "globalversions.h"
#include "protocolguard.h"
#include "textinputv3.h"

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QQuickWindow>
#include <QScreen>
#include <QtWaylandCompositor/QWaylandKeymap>
#include <QtWaylandCompositor/QWaylandQuickCompositor>
#include <QtWaylandCompositor/QWaylandQuickOutput>
#include <QtWaylandCompositor/QWaylandSeat>
#include <QtWaylandCompositor/QWaylandTextInputManager>
#include <QtWaylandCompositor/QWaylandXdgDecorationManagerV1>
#include <QtWaylandCompositor/QWaylandXdgShell>

#include <wayland-server-core.h>

namespace {

// Platforms without a GPU render the desktop with Qt Quick's software renderer; only eglfs
// is expected to have OpenGL. QT_QUICK_BACKEND still overrides the choice.
bool useSoftwareRenderer()
{
    if (qEnvironmentVariableIsSet("QT_QUICK_BACKEND"))
        return qgetenv("QT_QUICK_BACKEND") == "software";
    return QGuiApplication::platformName() != QLatin1String("eglfs");
}

} // namespace

Compositor::Compositor(const QString &socketName, QObject *parent)
    : QObject(parent), m_socketName(socketName),
      m_baseLayout(qEnvironmentVariable("XKB_DEFAULT_LAYOUT", QStringLiteral("us"))),
      m_xkbDir(QDir::tempPath() + QStringLiteral("/tideshell-xkb-XXXXXX"))
{
    // The private layout with characters bound to spare keys lives here; the keymap compiler
    // must see it before the seat builds its first keymap.
    if (m_xkbDir.isValid())
        qputenv("XKB_CONFIG_EXTRA_PATH", QFile::encodeName(m_xkbDir.path()));
    if (useSoftwareRenderer())
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    m_view = new QQuickWindow;
    m_view->setTitle(QStringLiteral("tideshell desktop"));
}

Compositor::~Compositor()
{
    if (m_guard)
        wl_protocol_logger_destroy(m_guard);
    delete m_compositor;
    delete m_view;
}

QWaylandSeat *Compositor::seat() const
{
    return m_compositor ? m_compositor->defaultSeat() : nullptr;
}

void Compositor::listen()
{
    Q_ASSERT(!m_compositor);
    m_compositor = new QWaylandQuickCompositor;
    m_compositor->setSocketName(m_socketName.toUtf8());
    m_compositor->setUseHardwareIntegrationExtension(!useSoftwareRenderer());

    // Extensions made with the compositor as their container initialise themselves once the
    // event loop runs; the decoration manager has no such constructor and is started below.
    m_xdgShell = new QWaylandXdgShell(m_compositor);
    m_xdgShell->setParent(m_compositor);
    auto *decorations = new QWaylandXdgDecorationManagerV1;
    decorations->setParent(m_compositor);
    // Clients on a device shell draw no frames of their own: their windows are the content.
    decorations->setPreferredMode(QWaylandXdgToplevel::ServerSideDecoration);
    // Qt clients type through zwp_text_input_v2, GTK and others through v3. Qt's own
    // qt_text_input_method_v1 stays off: offered beside v2 it made Qt clients hang at start.
    // An extension's container is not its QObject parent: each one is given that as well, so
    // that the compositor takes them along when it goes.
    (new QWaylandTextInputManager(m_compositor))->setParent(m_compositor);
    m_textInputV3 = new TextInputManagerV3(m_compositor);

    m_output = new QWaylandQuickOutput(m_compositor, m_view);
    m_output->setSizeFollowsWindow(true);
    // Clients work their DPI out from it. Qt's default is an invalid size (-1 x -1 mm), which
    // foot divides by and crashes; the screen's own figure, else 96 dpi.
    const QScreen *screen = m_view->screen();
    QSizeF millimetres = screen->physicalSize();
    if (millimetres.width() <= 0 || millimetres.height() <= 0)
        millimetres = QSizeF(screen->size()) * 25.4 / 96;
    m_output->setPhysicalSize(millimetres.toSize());
    m_compositor->setDefaultOutput(m_output);

    m_compositor->create();
    decorations->initialize();
    m_guard = ProtocolGuard::install(m_compositor);
    GlobalVersions::install(m_compositor);

    // Every change of the seat's keymap compiles it anew, which is the better part of
    // start-up; the seat's first keymap already uses the default rules, model and layout,
    // so only names that differ from those are set.
    QWaylandKeymap *keymap = m_compositor->defaultSeat()->keymap();
    if (!qEnvironmentVariableIsEmpty("XKB_DEFAULT_RULES"))
        keymap->setRules(QStringLiteral("evdev"));
    if (!qEnvironmentVariableIsEmpty("XKB_DEFAULT_MODEL"))
        keymap->setModel(QStringLiteral("pc105"));
    if (m_baseLayout != QLatin1String("us") || !qEnvironmentVariableIsEmpty("XKB_DEFAULT_LAYOUT"))
        keymap->setLayout(m_baseLayout);
}
