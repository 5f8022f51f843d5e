#include "windowserver.h"

#include "keymapper.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QLoggingCategory>
#include <QPointer>
#include <QQuickItem>
#include <QQuickWindow>
#include <QScreen>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QWidget>
#include <QtWaylandCompositor/QWaylandInputMethodControl>
#include <QtWaylandCompositor/QWaylandKeyboard>
#include <QtWaylandCompositor/QWaylandKeymap>
#include <QtWaylandCompositor/QWaylandQuickCompositor>
#include <QtWaylandCompositor/QWaylandQuickOutput>
#include <QtWaylandCompositor/QWaylandQuickShellSurfaceItem>
#include <QtWaylandCompositor/QWaylandSeat>
#include <QtWaylandCompositor/QWaylandSurface>
#include <QtWaylandCompositor/QWaylandTextInputManager>
#include <QtWaylandCompositor/QWaylandXdgDecorationManagerV1>
#include <QtWaylandCompositor/QWaylandXdgShell>
#include <qpa/qwindowsysteminterface.h>

#include <unistd.h>

Q_LOGGING_CATEGORY(lcWindowServer, "tideshell.windowserver", QtWarningMsg)

namespace {

WindowServer *s_instance = nullptr;

const char *const eventNames[] = {"Create", "Destroy",  "Hide",   "Show", "Raise",
                                  "Lower",  "Geometry", "Active", "Name"};

// Platforms without a GPU render the desktop with Qt Quick's software renderer; only eglfs
// is expected to have OpenGL. QT_QUICK_BACKEND still overrides the choice.
bool useSoftwareRenderer()
{
    if (qEnvironmentVariableIsSet("QT_QUICK_BACKEND"))
        return qgetenv("QT_QUICK_BACKEND") == "software";
    return QGuiApplication::platformName() != QLatin1String("eglfs");
}

// Whether a window is really shown. A closed menu can stay the focus window on platforms that
// move the focus only when asked to, and its window still claims to be visible; its widget
// knows better.
bool isShown(QWindow *window)
{
    const QWidgetList widgets = QApplication::topLevelWidgets();
    for (QWidget *widget : widgets) {
        if (widget->windowHandle() == window)
            return widget->isVisible();
    }
    return window->isVisible();
}

} // namespace

ClientWindow::ClientWindow(int id, QObject *parent) : QObject(parent), m_id(id) {}

ClientWindow::~ClientWindow() = default;

// One toplevel of a client with the item that shows it.
struct WindowEntry
{
    ClientWindow *window = nullptr;
    QWaylandXdgSurface *xdgSurface = nullptr;
    QWaylandXdgToplevel *toplevel = nullptr;
    QWaylandSurface *surface = nullptr;
    QWaylandQuickShellSurfaceItem *item = nullptr;
    bool placed = false;
};

// Keeps the order in which the shell's own windows were last shown, for picking the window
// under a synthetic pointer. An application-wide filter of its own, so that it never sees
// key events before the application's function-key filter does.
class ServerWindowStack : public QObject
{
public:
    QWindow *topmostAt(const QPoint &pos, const QWindow *exclude) const;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        const QEvent::Type type = event->type();
        if ((type != QEvent::Show && type != QEvent::Hide) || !watched->isWindowType())
            return false;
        auto *w = static_cast<QWindow *>(watched);
        if (type == QEvent::Show) {
            m_order.removeAll(nullptr);
            m_order.removeAll(w);
            m_order.append(w);
        }
        const QRect g = w->geometry();
        qCInfo(lcWindowServer).noquote()
            << QStringLiteral("server window %1 %2 x=%3 y=%4 w=%5 h=%6 title=%7")
                   .arg(type == QEvent::Show ? QLatin1String("Show") : QLatin1String("Hide"))
                   .arg(w->objectName())
                   .arg(g.x())
                   .arg(g.y())
                   .arg(g.width())
                   .arg(g.height())
                   .arg(w->title());
        return false;
    }

private:
    QList<QPointer<QWindow>> m_order; // oldest first
};

QWindow *ServerWindowStack::topmostAt(const QPoint &pos, const QWindow *exclude) const
{
    QWindow *best = nullptr;
    int bestRank = -1;
    const QWindowList all = QGuiApplication::topLevelWindows();
    for (QWindow *w : all) {
        if (w == exclude || !w->isVisible() || !w->geometry().contains(pos))
            continue;
        // Windows that stay on top are above the others; within a group the one shown
        // last is above.
        int rank = int(m_order.indexOf(w)) + 1;
        if (w->flags().testFlag(Qt::WindowStaysOnTopHint))
            rank += 1 << 20;
        if (rank > bestRank) {
            best = w;
            bestRank = rank;
        }
    }
    return best;
}

class WindowServerPrivate : public QObject
{
public:
    explicit WindowServerPrivate(WindowServer *server);
    ~WindowServerPrivate() override;

    void createCompositor();
    void handleToplevelCreated(QWaylandXdgToplevel *toplevel, QWaylandXdgSurface *xdgSurface);
    void handlePopupCreated(QWaylandXdgPopup *popup);
    void handleMapped(WindowEntry *entry);
    void handleUnmapped(WindowEntry *entry);
    void handleSurfaceDestroyed(WindowEntry *entry);
    void handleKeyboardFocusChanged(QWaylandSurface *surface);
    void updateGeometry(WindowEntry *entry);
    void place(WindowEntry *entry);
    void activate(WindowEntry *entry);
    void raise(WindowEntry *entry);
    void focusTopmost();
    void notify(WindowEntry *entry, WindowServer::WindowEvent event);
    WindowEntry *entryFor(QWaylandSurface *surface) const;

    // Input routing.
    void handleClientKey(QKeyEvent *event);
    void sendClientKey(int qtKey, const QString &text, Qt::KeyboardModifiers modifiers,
                       bool isPress);
    void commitText(const QString &text);
    void dismissPopupsOutside(const QPointF &scenePos);
    QWindow *windowAt(const QPoint &pos) const;

    bool eventFilter(QObject *watched, QEvent *event) override;

    WindowServer *q;
    QString socketName;
    QRect maxRect;
    QTemporaryDir xkbDir;
    QQuickWindow *view = nullptr;
    QWaylandQuickCompositor *compositor = nullptr;
    QWaylandQuickOutput *output = nullptr;
    QWaylandXdgShell *xdgShell = nullptr;
    std::unique_ptr<KeyMapper> keys;
    QList<WindowEntry *> windows; // stacking order, bottom first
    // Open client menus with their surfaces, taken when they are made: this Qt keeps the
    // popup object after the client destroyed it, with its xdg surface already gone.
    struct OpenPopup
    {
        QPointer<QWaylandXdgPopup> popup;
        QPointer<QWaylandSurface> surface;
    };
    QList<OpenPopup> popups;
    WindowEntry *active = nullptr;
    int nextId = 1;
    qreal nextZ = 1;

    // Synthetic pointer: the window that got the first press keeps the pointer until the
    // last button is up, as with a real mouse.
    QPointer<QWindow> pointerGrab;
    Qt::MouseButtons pointerButtons;
    ServerWindowStack serverStack;
    QPointer<QWindow> lastFocusWindow;
};

WindowServerPrivate::WindowServerPrivate(WindowServer *server)
    : q(server), xkbDir(QDir::tempPath() + QStringLiteral("/tideshell-xkb-XXXXXX"))
{
}

WindowServerPrivate::~WindowServerPrivate()
{
    // Items refer to surfaces owned by the compositor: they must go first.
    for (WindowEntry *entry : std::as_const(windows)) {
        delete entry->item;
        delete entry;
    }
    windows.clear();
    delete compositor;
    delete view;
}

void WindowServerPrivate::createCompositor()
{
    if (useSoftwareRenderer())
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);

    view = new QQuickWindow;
    view->setTitle(QStringLiteral("tideshell desktop"));
    view->installEventFilter(this);

    compositor = new QWaylandQuickCompositor;
    compositor->setSocketName(socketName.toUtf8());
    compositor->setUseHardwareIntegrationExtension(!useSoftwareRenderer());

    // Extensions made with the compositor as their container initialise themselves once the
    // event loop runs; the decoration manager has no such constructor and is started below.
    xdgShell = new QWaylandXdgShell(compositor);
    auto *decorations = new QWaylandXdgDecorationManagerV1;
    decorations->setParent(compositor);
    // Clients on a device shell draw no frames of their own: their windows are the content.
    decorations->setPreferredMode(QWaylandXdgToplevel::ServerSideDecoration);
    // One text-input protocol only: offering a second one made Qt clients hang at start.
    new QWaylandTextInputManager(compositor);

    output = new QWaylandQuickOutput(compositor, view);
    output->setSizeFollowsWindow(true);
    compositor->setDefaultOutput(output);

    connect(xdgShell, &QWaylandXdgShell::toplevelCreated, this,
            &WindowServerPrivate::handleToplevelCreated);
    connect(xdgShell, &QWaylandXdgShell::popupCreated, this,
            [this](QWaylandXdgPopup *popup, QWaylandXdgSurface *) { handlePopupCreated(popup); });

    compositor->create();
    decorations->initialize();

    QWaylandSeat *seat = compositor->defaultSeat();
    // The keymap is the one KeyMapper indexes; characters it lacks get bound on demand in
    // a layout of our own that includes it.
    const QString layout = qEnvironmentVariable("XKB_DEFAULT_LAYOUT", QStringLiteral("us"));
    seat->keymap()->setRules(QStringLiteral("evdev"));
    seat->keymap()->setModel(QStringLiteral("pc105"));
    seat->keymap()->setLayout(layout);
    keys = std::make_unique<KeyMapper>(xkbDir.path(), layout);
    connect(seat, &QWaylandSeat::keyboardFocusChanged, this,
            [this](QWaylandSurface *newFocus, QWaylandSurface *) {
                handleKeyboardFocusChanged(newFocus);
            });

    qApp->installEventFilter(&serverStack);
    // Windows that must not take the focus (the bar, the soft keyboard) can still be activated
    // by platforms that activate whatever they show; the activation goes straight back.
    // It goes back only once the platform's pending activations are through, so that a window
    // shown meanwhile (the run dialog after the keyboard, a dialog after the bar) keeps the
    // focus it is given.
    connect(qApp, &QGuiApplication::focusWindowChanged, this, [this](QWindow *window) {
        if (!window)
            return;
        if (!window->flags().testFlag(Qt::WindowDoesNotAcceptFocus)) {
            lastFocusWindow = window;
            return;
        }
        QMetaObject::invokeMethod(
            this,
            [this] {
                QWindowSystemInterface::flushWindowSystemEvents();
                QWindow *now = QGuiApplication::focusWindow();
                if (now && now->flags().testFlag(Qt::WindowDoesNotAcceptFocus) && lastFocusWindow)
                    lastFocusWindow->requestActivate();
            },
            Qt::QueuedConnection);
    });

    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    maxRect = QRect(QPoint(0, 0), screen.size());
    output->setAvailableGeometry(maxRect);
}

void WindowServerPrivate::handleToplevelCreated(QWaylandXdgToplevel *toplevel,
                                                QWaylandXdgSurface *xdgSurface)
{
    auto *entry = new WindowEntry;
    entry->window = new ClientWindow(nextId++, q);
    entry->xdgSurface = xdgSurface;
    entry->toplevel = toplevel;
    entry->surface = xdgSurface->surface();
    if (QWaylandClient *client = entry->surface->client())
        entry->window->m_pid = client->processId();

    entry->item = new QWaylandQuickShellSurfaceItem(view->contentItem());
    entry->item->setShellSurface(xdgSurface);
    entry->item->setAutoCreatePopupItems(true);
    entry->item->setOutput(output);
    entry->item->setZ(nextZ++);
    windows.append(entry);

    connect(toplevel, &QWaylandXdgToplevel::titleChanged, entry->window, [this, entry] {
        entry->window->m_title = entry->toplevel->title();
        notify(entry, WindowServer::Name);
    });
    connect(toplevel, &QWaylandXdgToplevel::appIdChanged, entry->window,
            [entry] { entry->window->m_appId = entry->toplevel->appId(); });
    auto stateChanged = [this, entry] {
        entry->window->m_maximized = entry->toplevel->maximized();
        entry->window->m_fullScreen = entry->toplevel->fullscreen();
        updateGeometry(entry);
    };
    connect(toplevel, &QWaylandXdgToplevel::maximizedChanged, entry->window, stateChanged);
    connect(toplevel, &QWaylandXdgToplevel::fullscreenChanged, entry->window, stateChanged);
    auto geometryChanged = [this, entry] { updateGeometry(entry); };
    connect(xdgSurface, &QWaylandXdgSurface::windowGeometryChanged, entry->window, geometryChanged);
    connect(entry->item, &QQuickItem::xChanged, entry->window, geometryChanged);
    connect(entry->item, &QQuickItem::yChanged, entry->window, geometryChanged);
    connect(entry->surface, &QWaylandSurface::destinationSizeChanged, entry->window,
            geometryChanged);
    connect(entry->surface, &QWaylandSurface::hasContentChanged, entry->window, [this, entry] {
        if (entry->surface->hasContent())
            handleMapped(entry);
        else
            handleUnmapped(entry);
    });
    connect(entry->surface, &QWaylandSurface::surfaceDestroyed, entry->window,
            [this, entry] { handleSurfaceDestroyed(entry); });

    notify(entry, WindowServer::Create);
}

void WindowServerPrivate::handlePopupCreated(QWaylandXdgPopup *popup)
{
    QWaylandSurface *surface = popup->xdgSurface()->surface();
    popups.append({popup, surface});
    auto forget = [this, surface] {
        popups.removeIf([surface](const OpenPopup &p) { return p.surface == surface; });
    };
    connect(surface, &QWaylandSurface::surfaceDestroyed, this, forget);
    connect(popup, &QObject::destroyed, this, forget);
}

void WindowServerPrivate::handleMapped(WindowEntry *entry)
{
    entry->window->m_visible = true;
    if (!entry->placed) {
        entry->placed = true;
        place(entry);
    }
    notify(entry, WindowServer::Show);
    // A window that appears comes on top with the keyboard focus.
    activate(entry);
}

void WindowServerPrivate::handleUnmapped(WindowEntry *entry)
{
    entry->window->m_visible = false;
    notify(entry, WindowServer::Hide);
    if (active == entry)
        focusTopmost();
}

void WindowServerPrivate::handleSurfaceDestroyed(WindowEntry *entry)
{
    windows.removeOne(entry);
    const bool wasActive = active == entry;
    if (wasActive)
        active = nullptr;
    notify(entry, WindowServer::Destroy);
    entry->item->deleteLater();
    entry->window->deleteLater();
    delete entry;
    if (wasActive)
        focusTopmost();
}

// When the focused window goes, the focus passes to the topmost window still shown; with
// none left, nobody has it.
void WindowServerPrivate::focusTopmost()
{
    for (auto it = windows.crbegin(); it != windows.crend(); ++it) {
        if ((*it)->window->isVisible()) {
            activate(*it);
            return;
        }
    }
    active = nullptr;
    compositor->defaultSeat()->setKeyboardFocus(nullptr);
}

// New windows open inside the maximum window rectangle, centred; maximised and full-screen
// ones are placed by their state instead.
void WindowServerPrivate::place(WindowEntry *entry)
{
    if (entry->toplevel->maximized()) {
        entry->item->setPosition(maxRect.topLeft());
        return;
    }
    if (entry->toplevel->fullscreen()) {
        entry->item->setPosition(QPointF(0, 0));
        return;
    }
    QRect frame = entry->xdgSurface->windowGeometry();
    if (!frame.isValid())
        frame = QRect(QPoint(0, 0), entry->surface->destinationSize());
    QPoint topLeft = maxRect.topLeft() + QPoint((maxRect.width() - frame.width()) / 2,
                                                (maxRect.height() - frame.height()) / 2);
    topLeft.setX(qMax(topLeft.x(), maxRect.left()));
    topLeft.setY(qMax(topLeft.y(), maxRect.top()));
    entry->item->setPosition(topLeft - frame.topLeft());
}

void WindowServerPrivate::raise(WindowEntry *entry)
{
    if (windows.constLast() == entry && entry->item->z() == nextZ - 1)
        return;
    windows.removeOne(entry);
    windows.append(entry);
    entry->item->setZ(nextZ++);
    notify(entry, WindowServer::Raise);
}

void WindowServerPrivate::activate(WindowEntry *entry)
{
    raise(entry);
    // Through the item, so that the client's text input is told it has the focus too.
    if (compositor->defaultSeat()->keyboardFocus() != entry->surface)
        entry->item->takeFocus();
    // Keys typed on the device now belong to the desktop view, and through it to the client.
    view->requestActivate();
    if (active != entry) {
        active = entry;
        notify(entry, WindowServer::Active);
    }
}

void WindowServerPrivate::handleKeyboardFocusChanged(QWaylandSurface *surface)
{
    // A click or touch on a client gives it the focus through its item; the window then
    // comes on top as well.
    if (WindowEntry *entry = entryFor(surface)) {
        if (entry != active)
            activate(entry);
    }
}

WindowEntry *WindowServerPrivate::entryFor(QWaylandSurface *surface) const
{
    if (!surface)
        return nullptr;
    for (WindowEntry *entry : windows) {
        if (entry->surface == surface)
            return entry;
    }
    return nullptr;
}

void WindowServerPrivate::updateGeometry(WindowEntry *entry)
{
    QRect frame = entry->xdgSurface->windowGeometry();
    if (!frame.isValid())
        frame = QRect(QPoint(0, 0), entry->surface->destinationSize());
    const QRect geometry(entry->item->position().toPoint() + frame.topLeft(), frame.size());
    if (geometry == entry->window->m_geometry)
        return;
    entry->window->m_geometry = geometry;
    notify(entry, WindowServer::Geometry);
}

void WindowServerPrivate::notify(WindowEntry *entry, WindowServer::WindowEvent event)
{
    const ClientWindow *w = entry->window;
    const QRect g = w->geometry();
    qCInfo(lcWindowServer).noquote()
        << QStringLiteral("window %1 %2 x=%3 y=%4 w=%5 h=%6 max=%7 full=%8 title=%9")
               .arg(w->id())
               .arg(QLatin1String(eventNames[event]))
               .arg(g.x())
               .arg(g.y())
               .arg(g.width())
               .arg(g.height())
               .arg(int(w->isMaximized()))
               .arg(int(w->isFullScreen()))
               .arg(w->title());
    emit q->windowEvent(entry->window, event);
}

// ---- keys -------------------------------------------------------------------------------

void WindowServerPrivate::handleClientKey(QKeyEvent *event)
{
    QWaylandSeat *seat = compositor->defaultSeat();
    if (!seat->keyboardFocus())
        return;
    if (event->nativeScanCode() != 0) {
        // A real keyboard: its scan codes are the keymap's own.
        seat->sendFullKeyEvent(event);
        return;
    }
    if (event->isAutoRepeat())
        return; // clients repeat held keys themselves
    sendClientKey(event->key(), event->text(), event->modifiers(),
                  event->type() == QEvent::KeyPress);
}

void WindowServerPrivate::sendClientKey(int qtKey, const QString &text,
                                        Qt::KeyboardModifiers modifiers, bool isPress)
{
    const char32_t ucs4 = text.isEmpty() ? 0 : text.toUcs4().value(0);
    if (qtKey == 0) {
        // A character without a key: the client takes the character only.
        if (isPress && ucs4)
            commitText(text);
        return;
    }

    KeyMapper::Key key;
    Qt::KeyboardModifiers state = modifiers & (Qt::ControlModifier | Qt::AltModifier);
    if (qtKey < Qt::Key_Escape && ucs4 >= 0x20) {
        // A character decides the Shift state itself: "@" is Shift and the "2" key.
        key = keys->keyForCharacter(ucs4);
        if (!key.isValid()) {
            if (isPress)
                commitText(text);
            return;
        }
        if (key.shift)
            state |= Qt::ShiftModifier;
    } else {
        key = keys->keyForQtKey(qtKey);
        state |= modifiers & Qt::ShiftModifier;
    }
    if (!key.isValid()) {
        qCDebug(lcWindowServer) << "no key in the keymap for" << Qt::hex << qtKey;
        return;
    }
    // With a scan code the seat sends the key as it is, after bringing the client's
    // modifier state in line with the event's.
    QKeyEvent event(isPress ? QEvent::KeyPress : QEvent::KeyRelease, qtKey, state, key.keycode, 0,
                    0, text);
    compositor->defaultSeat()->sendFullKeyEvent(&event);
}

void WindowServerPrivate::commitText(const QString &text)
{
    QWaylandSurface *focus = compositor->defaultSeat()->keyboardFocus();
    if (!focus)
        return;
    // The input-method control's methods are not exported; its properties and the item's
    // event handler are the public way in.
    QObject *imControl = focus->inputMethodControl();
    WindowEntry *entry = entryFor(focus);
    if (entry && imControl && imControl->property("enabled").toBool()) {
        QInputMethodEvent event;
        event.setCommitString(text);
        QCoreApplication::sendEvent(entry->item, &event);
        return;
    }
    // No text input in use: bind the character to a spare key for the moment and type it.
    QWaylandKeyboard *keyboard = compositor->defaultSeat()->keyboard();
    QWaylandKeymap *keymap = compositor->defaultSeat()->keymap();
    for (char32_t ucs4 : text.toUcs4()) {
        QString variant;
        const KeyMapper::Key key = keys->bindExtraCharacter(ucs4, &variant);
        if (!key.isValid())
            continue;
        keymap->setLayout(keys->layoutName());
        keymap->setVariant(variant);
        keyboard->sendKeyPressEvent(key.keycode);
        keyboard->sendKeyReleaseEvent(key.keycode);
    }
}

// ---- pointer ----------------------------------------------------------------------------

QWindow *WindowServerPrivate::windowAt(const QPoint &pos) const
{
    // An open menu of the shell takes the pointer wherever it is, as Qt's popups do.
    if (QWidget *popup = QApplication::activePopupWidget()) {
        if (popup->windowHandle())
            return popup->windowHandle();
    }
    QWindow *server = serverStack.topmostAt(pos, view);
    return server ? server : view;
}

void WindowServerPrivate::dismissPopupsOutside(const QPointF &scenePos)
{
    // A press outside a client's open menus closes them, as the xdg popup grab requires;
    // the innermost menu first, and none of those the press is in.
    popups.removeIf(
        [](const OpenPopup &p) { return !p.popup || !p.surface || p.surface->isDestroyed(); });
    for (int i = int(popups.size()) - 1; i >= 0; --i) {
        const OpenPopup open = popups.at(i);
        const QList<QWaylandView *> views = open.surface->views();
        for (QWaylandView *v : views) {
            auto *item = qobject_cast<QQuickItem *>(v->renderObject());
            if (item && item->contains(item->mapFromScene(scenePos)))
                return;
        }
        open.popup->sendPopupDone();
    }
}

bool WindowServerPrivate::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == view) {
        switch (event->type()) {
        case QEvent::KeyPress:
        case QEvent::KeyRelease:
            handleClientKey(static_cast<QKeyEvent *>(event));
            return true;
        case QEvent::MouseButtonPress:
            dismissPopupsOutside(static_cast<QMouseEvent *>(event)->scenePosition());
            break;
        case QEvent::TouchBegin: {
            auto *touch = static_cast<QTouchEvent *>(event);
            if (!touch->points().isEmpty())
                dismissPopupsOutside(touch->points().constFirst().scenePosition());
            break;
        }
        default:
            break;
        }
        return false;
    }
    return false;
}

// ---- WindowServer -----------------------------------------------------------------------

WindowServer::WindowServer(QObject *parent)
    : QObject(parent), d(std::make_unique<WindowServerPrivate>(this))
{
    Q_ASSERT(!s_instance);
    s_instance = this;
    ensureRuntimeDir();
    d->socketName = socketNameFromArguments(QCoreApplication::arguments());
    // The private layout with characters bound to spare keys lives here; the compositor's
    // keymap compiler must see it before it builds its first keymap.
    if (d->xkbDir.isValid())
        qputenv("XKB_CONFIG_EXTRA_PATH", QFile::encodeName(d->xkbDir.path()));
    d->createCompositor();
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
    return d->socketName;
}

QString WindowServer::socketPath() const
{
    return socketPathFor(d->socketName);
}

QProcessEnvironment WindowServer::clientEnvironment() const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("WAYLAND_DISPLAY"), d->socketName);
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
    d->view->setColor(color);
}

void WindowServer::showDesktop()
{
    d->view->setGeometry(QGuiApplication::primaryScreen()->geometry());
    d->view->showFullScreen();
}

void WindowServer::setMaxWindowRect(const QRect &rect)
{
    if (rect == d->maxRect)
        return;
    d->maxRect = rect;
    d->output->setAvailableGeometry(rect);
    // Windows already maximised follow the new rectangle at once.
    for (WindowEntry *entry : std::as_const(d->windows)) {
        if (!entry->toplevel->maximized())
            continue;
        entry->toplevel->sendMaximized(rect.size());
        entry->item->setPosition(rect.topLeft());
    }
}

QRect WindowServer::maxWindowRect() const
{
    return d->maxRect;
}

void WindowServer::sendKeyEvent(int unicode, int keycode, Qt::KeyboardModifiers modifiers,
                                bool isPress, bool autoRepeat)
{
    // Delivered as a window-system key event, so the application's filter and Qt's focus
    // handling see it exactly as they see a real key: a focused server window gets it as a
    // QKeyEvent; otherwise the desktop view passes it on to the focused client.
    // An open menu of the shell takes the keys, as it takes the pointer, even before the
    // platform has put a just-opened sub-menu on the screen.
    QWindow *target = nullptr;
    if (QWidget *popup = QApplication::activePopupWidget()) {
        target = popup->windowHandle();
    } else if (QWindow *focus = QGuiApplication::focusWindow()) {
        if (isShown(focus) && !focus->flags().testFlag(Qt::WindowDoesNotAcceptFocus))
            target = focus;
    }
    if (!target)
        target = d->view;
    const char32_t ucs4 = char32_t(unicode);
    const QString text = unicode > 0 ? QString::fromUcs4(&ucs4, 1) : QString();
    QWindowSystemInterface::handleKeyEvent<QWindowSystemInterface::SynchronousDelivery>(
        target, isPress ? QEvent::KeyPress : QEvent::KeyRelease, keycode, modifiers, text,
        autoRepeat);
}

void WindowServer::sendMouseEvent(const QPoint &pos, int buttons, int wheel)
{
    const Qt::MouseButtons newButtons = Qt::MouseButtons(buttons) & Qt::AllButtons;
    QWindow *target = d->pointerGrab ? d->pointerGrab.data() : d->windowAt(pos);
    const QPointF global(pos);
    const QPointF local = global - QPointF(target->geometry().topLeft());
    using Sync = QWindowSystemInterface::SynchronousDelivery;

    QWindowSystemInterface::handleMouseEvent<Sync>(target, local, global, d->pointerButtons,
                                                   Qt::NoButton, QEvent::MouseMove);
    // One press or release per button that changed, in the order of the button bits.
    for (uint bit = 1; bit && bit <= uint(Qt::MaxMouseButton); bit <<= 1) {
        const auto button = Qt::MouseButton(bit);
        const bool was = d->pointerButtons.testFlag(button);
        const bool now = newButtons.testFlag(button);
        if (was == now)
            continue;
        if (now && !d->pointerButtons)
            d->pointerGrab = target;
        d->pointerButtons.setFlag(button, now);
        QWindowSystemInterface::handleMouseEvent<Sync>(
            target, local, global, d->pointerButtons, button,
            now ? QEvent::MouseButtonPress : QEvent::MouseButtonRelease);
    }
    if (!d->pointerButtons)
        d->pointerGrab = nullptr;
    if (wheel) {
        QWindowSystemInterface::handleWheelEvent(target, local, global, QPoint(), QPoint(0, wheel));
        QWindowSystemInterface::flushWindowSystemEvents();
    }
}
