#include "windows.h"

#include "compositor.h"
#include "frames.h"
#include "protocolguard.h"

#include <QGuiApplication>
#include <QLoggingCategory>
#include <QQuickWindow>
#include <QSGRendererInterface>
#include <QScreen>
#include <QtWaylandCompositor/QWaylandBufferRef>
#include <QtWaylandCompositor/QWaylandQuickOutput>
#include <QtWaylandCompositor/QWaylandQuickShellSurfaceItem>
#include <QtWaylandCompositor/QWaylandSeat>
#include <QtWaylandCompositor/QWaylandSurface>
#include <QtWaylandCompositor/QWaylandXdgShell>

Q_DECLARE_LOGGING_CATEGORY(lcWindowServer)

namespace {

const char *const eventNames[] = {"Create", "Destroy",  "Hide",   "Show", "Raise",
                                  "Lower",  "Geometry", "Active", "Name"};

} // namespace

ClientWindow::ClientWindow(int id, QObject *parent) : QObject(parent), m_id(id) {}

ClientWindow::~ClientWindow() = default;

// Shows a client's surface. Qt Quick tells an item that the pointer left it only after it
// told the item now under the pointer that the pointer entered; the stock item then takes
// the seat's pointer focus away from whatever surface has it, which is by then the other
// one. A menu that opens under a resting pointer got the pointer and lost it again at once,
// and a menu that loses the pointer drops the entry chosen with the keys.
class ClientItem : public QWaylandQuickShellSurfaceItem
{
public:
    explicit ClientItem(QQuickItem *parent) : QWaylandQuickShellSurfaceItem(parent)
    {
        // Menus get items of this kind too; the window manager makes them.
        setAutoCreatePopupItems(false);
    }

protected:
    void hoverLeaveEvent(QHoverEvent *event) override
    {
        const QWaylandSeat *seat = compositor() ? compositor()->seatFor(event) : nullptr;
        if (seat && seat->mouseFocus() != view())
            return;
        QWaylandQuickShellSurfaceItem::hoverLeaveEvent(event);
    }
};

// One toplevel of a client with the item that shows it. It is the context of every
// connection made for the window, so that deleting it cuts them all at once.
class WindowEntry : public QObject
{
public:
    ClientWindow *window = nullptr;
    QPointer<QWaylandXdgSurface> xdgSurface;
    QPointer<QWaylandXdgToplevel> toplevel;
    QPointer<QWaylandSurface> surface;
    QPointer<QWaylandQuickShellSurfaceItem> item;
    QPointer<WindowFrame> frame;
    bool placed = false;
    // Where a window maximised from its frame goes back to.
    QPoint restorePos;
    QSize restoreSize;
    bool restoreFromFrame = false;
};

WindowManager::WindowManager(Compositor *compositor, QObject *parent)
    : QObject(parent), m_compositor(compositor),
      m_maxRect(QPoint(0, 0), QGuiApplication::primaryScreen()->geometry().size())
{
}

WindowManager::~WindowManager()
{
    ProtocolGuard::setRoleCheck(nullptr);
    // Items refer to surfaces owned by the compositor: they must go first.
    for (WindowEntry *entry : std::as_const(m_windows)) {
        delete entry->item;
        delete entry;
    }
}

void WindowManager::attach()
{
    connect(m_compositor->xdgShell(), &QWaylandXdgShell::toplevelCreated, this,
            &WindowManager::handleToplevelCreated);
    connect(m_compositor->xdgShell(), &QWaylandXdgShell::popupCreated, this,
            [this](QWaylandXdgPopup *popup, QWaylandXdgSurface *) { handlePopupCreated(popup); });
    connect(m_compositor->seat(), &QWaylandSeat::keyboardFocusChanged, this,
            [this](QWaylandSurface *newFocus, QWaylandSurface *) {
                handleKeyboardFocusChanged(newFocus);
            });
    m_compositor->output()->setAvailableGeometry(m_maxRect);
    ProtocolGuard::setRoleCheck([this](QWaylandXdgSurface *xdgSurface) {
        for (const WindowEntry *entry : std::as_const(m_windows)) {
            if (entry->xdgSurface == xdgSurface && entry->toplevel)
                return true;
        }
        // A popup's object outlives its protocol object here, so popups are left out.
        return false;
    });
}

void WindowManager::handleToplevelCreated(QWaylandXdgToplevel *toplevel,
                                          QWaylandXdgSurface *xdgSurface)
{
    auto *entry = new WindowEntry;
    entry->window = new ClientWindow(m_nextId++, this);
    entry->xdgSurface = xdgSurface;
    entry->toplevel = toplevel;
    entry->surface = xdgSurface->surface();
    if (QWaylandClient *client = entry->surface->client())
        entry->window->m_pid = client->processId();

    entry->item = new ClientItem(m_compositor->view()->contentItem());
    entry->item->setShellSurface(xdgSurface);
    entry->item->setOutput(m_compositor->output());
    entry->item->setZ(m_nextZ++);
    m_windows.append(entry);

    connect(toplevel, &QWaylandXdgToplevel::titleChanged, entry, [this, entry] {
        entry->window->m_title = entry->toplevel->title();
        if (entry->frame)
            entry->frame->setTitle(entry->window->m_title);
        notify(entry, WindowServer::Name);
    });
    connect(toplevel, &QWaylandXdgToplevel::decorationModeChanged, entry,
            [this, entry] { updateFrame(entry); });
    // Qt's own handling of a client's request configures the window to the whole maximum
    // window rectangle; a framed window gets what the frame leaves of it.
    connect(toplevel, &QWaylandXdgToplevel::setMaximized, entry, [this, entry] {
        if (frameHeight(entry))
            entry->toplevel->sendMaximized(maximizedRect(entry).size());
    });
    connect(toplevel, &QWaylandXdgToplevel::appIdChanged, entry,
            [entry] { entry->window->m_appId = entry->toplevel->appId(); });
    auto stateChanged = [this, entry] {
        entry->window->m_maximized = entry->toplevel->maximized();
        entry->window->m_fullScreen = entry->toplevel->fullscreen();
        updateFrame(entry);
        if (entry->window->m_maximized) {
            entry->item->setPosition(maximizedRect(entry).topLeft());
        } else if (entry->restoreFromFrame) {
            entry->restoreFromFrame = false;
            entry->item->setPosition(entry->restorePos);
        }
        updateGeometry(entry);
    };
    connect(toplevel, &QWaylandXdgToplevel::maximizedChanged, entry, stateChanged);
    connect(toplevel, &QWaylandXdgToplevel::fullscreenChanged, entry, stateChanged);
    auto geometryChanged = [this, entry] { updateGeometry(entry); };
    connect(xdgSurface, &QWaylandXdgSurface::windowGeometryChanged, entry, geometryChanged);
    connect(entry->item, &QQuickItem::xChanged, entry, geometryChanged);
    connect(entry->item, &QQuickItem::yChanged, entry, geometryChanged);
    connect(entry->surface, &QWaylandSurface::destinationSizeChanged, entry, geometryChanged);
    connect(entry->surface, &QWaylandSurface::hasContentChanged, entry, [this, entry] {
        if (entry->surface->hasContent())
            handleMapped(entry);
        else
            handleUnmapped(entry);
    });
    // The window ends with the first of its objects the client destroys.
    auto end = [this, entry] { endWindow(entry); };
    connect(entry->surface, &QWaylandSurface::surfaceDestroyed, entry, end);
    connect(xdgSurface, &QObject::destroyed, entry, end);
    connect(toplevel, &QObject::destroyed, entry, end);

    notify(entry, WindowServer::Create);
}

void WindowManager::handlePopupCreated(QWaylandXdgPopup *popup)
{
    QWaylandSurface *surface = popup->xdgSurface()->surface();
    // A menu is shown by an item inside its parent's item, which places it relative to the
    // parent as the client asked; a menu whose parent is not on the screen stays unseen.
    QQuickItem *parentItem = nullptr;
    if (QWaylandXdgSurface *parent = popup->parentXdgSurface()) {
        const QList<QWaylandView *> views = parent->surface()->views();
        for (QWaylandView *v : views)
            parentItem = parentItem
                             ? parentItem
                             : qobject_cast<QWaylandQuickShellSurfaceItem *>(v->renderObject());
    }
    if (parentItem) {
        auto *item = new ClientItem(parentItem);
        item->setShellSurface(popup->xdgSurface());
        connect(item, &QWaylandQuickItem::surfaceDestroyed, item, &QObject::deleteLater);
    }
    m_popups.append({popup, surface});
    auto forget = [this, surface] {
        m_popups.removeIf([surface](const OpenPopup &p) { return p.surface == surface; });
    };
    connect(surface, &QWaylandSurface::surfaceDestroyed, this, forget);
    connect(popup, &QObject::destroyed, this, forget);
}

int WindowManager::frameHeight(const WindowEntry *entry) const
{
    return entry->frame && entry->frame->isVisible() ? WindowFrame::Height : 0;
}

// The rectangle a maximised window's content fills: the maximum window rectangle less the
// frame above it.
QRect WindowManager::maximizedRect(const WindowEntry *entry) const
{
    return m_maxRect.adjusted(0, frameHeight(entry), 0, 0);
}

// Clients that leave their decoration to the server get a frame; full-screen windows show
// none.
void WindowManager::updateFrame(WindowEntry *entry)
{
    const bool wanted =
        entry->toplevel->decorationMode() == QWaylandXdgToplevel::ServerSideDecoration;
    if (wanted && !entry->frame) {
        entry->frame = new WindowFrame(entry->item);
        entry->frame->setTitle(entry->window->title());
        entry->frame->setActive(m_active == entry);
        entry->frame->onAction = [this, entry](WindowFrame::Action action, QPointF delta) {
            handleFrameAction(entry, action, delta);
        };
    } else if (!wanted && entry->frame) {
        delete entry->frame;
        return;
    }
    if (!entry->frame)
        return;
    entry->frame->setVisible(!entry->toplevel->fullscreen());
    entry->frame->setMaximized(entry->toplevel->maximized());
    entry->frame->placeAbove(frameOf(entry));
}

void WindowManager::handleFrameAction(WindowEntry *entry, WindowFrame::Action action, QPointF delta)
{
    switch (action) {
    case WindowFrame::Action::Raise:
        activate(entry);
        break;
    case WindowFrame::Action::Lower:
        lower(entry);
        break;
    case WindowFrame::Action::Close:
        entry->toplevel->sendClose();
        break;
    case WindowFrame::Action::ToggleMaximized:
        if (entry->toplevel->maximized()) {
            entry->restoreFromFrame = true;
            entry->toplevel->sendUnmaximized(entry->restoreSize);
        } else {
            entry->restorePos = entry->item->position().toPoint();
            entry->restoreSize = frameOf(entry).size();
            entry->toplevel->sendMaximized(maximizedRect(entry).size());
        }
        break;
    case WindowFrame::Action::Move: {
        // The frame stays reachable: its top inside the maximum window rectangle.
        QPointF pos = entry->item->position() + delta;
        const QRect window = frameOf(entry);
        const int frameTop = window.top() - WindowFrame::Height;
        pos.setY(qBound(qreal(m_maxRect.top() - frameTop), pos.y(),
                        qreal(m_maxRect.bottom() - WindowFrame::Height - frameTop)));
        pos.setX(qBound(qreal(m_maxRect.left() - window.right()), pos.x(),
                        qreal(m_maxRect.right() - window.left())));
        entry->item->setPosition(pos);
        break;
    }
    }
}

void WindowManager::handleMapped(WindowEntry *entry)
{
    entry->window->m_visible = true;
    updateFrame(entry);
    if (!entry->placed) {
        entry->placed = true;
        place(entry);
    }
    notify(entry, WindowServer::Show);
    // A window that appears comes on top with the keyboard focus.
    activate(entry);
}

void WindowManager::handleUnmapped(WindowEntry *entry)
{
    entry->window->m_visible = false;
    notify(entry, WindowServer::Hide);
    if (m_active == entry)
        focusTopmost();
}

void WindowManager::endWindow(WindowEntry *entry)
{
    m_windows.removeOne(entry);
    const bool wasActive = m_active == entry;
    if (wasActive)
        m_active = nullptr;
    notify(entry, WindowServer::Destroy);
    delete entry->frame; // it must not outlive the entry it reports to
    if (entry->item)
        entry->item->deleteLater();
    entry->window->deleteLater();
    delete entry;
    if (wasActive)
        focusTopmost();
}

// When the focused window goes, the focus passes to the topmost window still shown; with
// none left, nobody has it.
void WindowManager::focusTopmost()
{
    for (auto it = m_windows.crbegin(); it != m_windows.crend(); ++it) {
        if ((*it)->window->isVisible()) {
            activate(*it);
            return;
        }
    }
    m_active = nullptr;
    m_compositor->seat()->setKeyboardFocus(nullptr);
}

// The window's frame within its surface: the geometry the client set, else the whole surface.
QRect WindowManager::frameOf(const WindowEntry *entry) const
{
    const QRect frame = entry->xdgSurface ? entry->xdgSurface->windowGeometry() : QRect();
    if (frame.isValid())
        return frame;
    return QRect(QPoint(0, 0), entry->surface ? entry->surface->destinationSize() : QSize());
}

// New windows open inside the maximum window rectangle, centred; maximised and full-screen
// ones are placed by their state instead.
void WindowManager::place(WindowEntry *entry)
{
    if (entry->toplevel->maximized()) {
        entry->item->setPosition(maximizedRect(entry).topLeft());
        return;
    }
    if (entry->toplevel->fullscreen()) {
        entry->item->setPosition(QPointF(0, 0));
        return;
    }
    // Centred with the frame above it, the frame never above the rectangle.
    const QRect frame = frameOf(entry);
    const int above = frameHeight(entry);
    QPoint topLeft =
        m_maxRect.topLeft() + QPoint((m_maxRect.width() - frame.width()) / 2,
                                     (m_maxRect.height() - frame.height() - above) / 2 + above);
    topLeft.setX(qMax(topLeft.x(), m_maxRect.left()));
    topLeft.setY(qMax(topLeft.y(), m_maxRect.top() + above));
    entry->item->setPosition(topLeft - frame.topLeft());
}

void WindowManager::raise(WindowEntry *entry)
{
    if (m_windows.constLast() == entry && entry->item->z() == m_nextZ - 1)
        return;
    m_windows.removeOne(entry);
    m_windows.append(entry);
    entry->item->setZ(m_nextZ++);
    notify(entry, WindowServer::Raise);
}

// Sends a window behind all others; the window now on top takes the focus. With this, any
// window can be brought back by touch, however many cover it.
void WindowManager::lower(WindowEntry *entry)
{
    if (m_windows.size() < 2)
        return;
    m_windows.removeOne(entry);
    m_windows.prepend(entry);
    entry->item->setZ(m_windows.at(1)->item->z() - 1);
    notify(entry, WindowServer::Lower);
    focusTopmost();
}

void WindowManager::activate(WindowEntry *entry)
{
    raise(entry);
    // Through the item, so that the client's text input is told it has the focus too.
    if (m_compositor->seat()->keyboardFocus() != entry->surface)
        entry->item->takeFocus();
    // Keys typed on the device now belong to the desktop view, and through it to the client.
    m_compositor->view()->requestActivate();
    if (m_active != entry) {
        if (m_active && m_active->frame)
            m_active->frame->setActive(false);
        m_active = entry;
        if (entry->frame)
            entry->frame->setActive(true);
        notify(entry, WindowServer::Active);
    }
}

void WindowManager::handleKeyboardFocusChanged(QWaylandSurface *surface)
{
    // A click or touch on a client gives it the focus through its item; the window then
    // comes on top as well.
    if (WindowEntry *entry = entryFor(surface)) {
        if (entry != m_active)
            activate(entry);
    }
}

WindowEntry *WindowManager::entryFor(QWaylandSurface *surface) const
{
    if (!surface)
        return nullptr;
    for (WindowEntry *entry : m_windows) {
        if (entry->surface == surface)
            return entry;
    }
    return nullptr;
}

QRegion WindowManager::shownRegion() const
{
    QRegion region;
    for (const WindowEntry *entry : m_windows) {
        if (!entry->window->isVisible() || !entry->item)
            continue;
        QQuickItem *item = entry->item;
        region +=
            item->mapRectToScene(item->boundingRect().united(item->childrenRect())).toAlignedRect();
    }
    return region;
}

QQuickItem *WindowManager::itemFor(QWaylandSurface *surface) const
{
    const WindowEntry *entry = entryFor(surface);
    return entry ? entry->item : nullptr;
}

void WindowManager::updateGeometry(WindowEntry *entry)
{
    const QRect frame = frameOf(entry);
    if (entry->frame)
        entry->frame->placeAbove(frame);
    const QRect geometry(entry->item->position().toPoint() + frame.topLeft(), frame.size());
    if (geometry == entry->window->m_geometry)
        return;
    entry->window->m_geometry = geometry;
    notify(entry, WindowServer::Geometry);
}

void WindowManager::notify(WindowEntry *entry, WindowServer::WindowEvent event)
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
    emit windowEvent(entry->window, event);
}

void WindowManager::setMaxWindowRect(const QRect &rect)
{
    if (rect == m_maxRect)
        return;
    m_maxRect = rect;
    if (!m_compositor->isListening())
        return;
    m_compositor->output()->setAvailableGeometry(rect);
    // Windows already maximised follow the new rectangle at once.
    for (WindowEntry *entry : std::as_const(m_windows)) {
        if (!entry->toplevel->maximized())
            continue;
        entry->toplevel->sendMaximized(maximizedRect(entry).size());
        entry->item->setPosition(maximizedRect(entry).topLeft());
    }
}

void WindowManager::dismissPopupsOutside(const QPointF &scenePos)
{
    // A press outside a client's open menus closes them, as the xdg popup grab requires;
    // the innermost menu first, and none of those the press is in.
    m_popups.removeIf(
        [](const OpenPopup &p) { return !p.popup || !p.surface || p.surface->isDestroyed(); });
    for (int i = int(m_popups.size()) - 1; i >= 0; --i) {
        const OpenPopup open = m_popups.at(i);
        const QList<QWaylandView *> views = open.surface->views();
        for (QWaylandView *v : views) {
            auto *item = qobject_cast<QQuickItem *>(v->renderObject());
            if (item && item->contains(item->mapFromScene(scenePos)))
                return;
        }
        open.popup->sendPopupDone();
    }
}
