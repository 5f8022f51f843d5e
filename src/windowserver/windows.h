#pragma once

#include "frames.h"
#include "windowserver.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QRect>
#include <QRegion>

class Compositor;
class QPointF;
class QQuickItem;
class QWaylandSurface;
class QWaylandXdgPopup;
class QWaylandXdgSurface;
class QWaylandXdgToplevel;
class WindowEntry;

// The clients' windows: toplevels from creation to destruction, their placement inside the
// maximum window rectangle, their stacking, and who has the keyboard focus; and the clients'
// open menus (xdg popups), which close when a press lands outside them.
//
// A client may destroy the objects behind a window in any order; whichever goes first ends
// the window, and nothing of the window is touched after that.
class WindowManager : public QObject
{
    Q_OBJECT
public:
    explicit WindowManager(Compositor *compositor, QObject *parent = nullptr);
    ~WindowManager() override;

    // Follows the compositor's shell; the compositor listens from here on.
    void attach();

    QRect maxWindowRect() const { return m_maxRect; }
    void setMaxWindowRect(const QRect &rect);

    // Where client windows are shown, menus included, in screen coordinates.
    QRegion shownRegion() const;
    // The item showing a client's toplevel surface, or null.
    QQuickItem *itemFor(QWaylandSurface *surface) const;
    // Closes the clients' open menus that do not contain scenePos, innermost first.
    void dismissPopupsOutside(const QPointF &scenePos);

signals:
    void windowEvent(ClientWindow *window, WindowServer::WindowEvent event);

private:
    void handleToplevelCreated(QWaylandXdgToplevel *toplevel, QWaylandXdgSurface *xdgSurface);
    void handlePopupCreated(QWaylandXdgPopup *popup);
    void handleMapped(WindowEntry *entry);
    void handleUnmapped(WindowEntry *entry);
    void handleKeyboardFocusChanged(QWaylandSurface *surface);
    void endWindow(WindowEntry *entry);
    void updateGeometry(WindowEntry *entry);
    void place(WindowEntry *entry);
    void activate(WindowEntry *entry);
    void raise(WindowEntry *entry);
    void lower(WindowEntry *entry);
    void updateFrame(WindowEntry *entry);
    void handleFrameAction(WindowEntry *entry, WindowFrame::Action action, QPointF delta);
    int frameHeight(const WindowEntry *entry) const;
    QRect maximizedRect(const WindowEntry *entry) const;
    void focusTopmost();
    void notify(WindowEntry *entry, WindowServer::WindowEvent event);
    WindowEntry *entryFor(QWaylandSurface *surface) const;
    QRect frameOf(const WindowEntry *entry) const;

    Compositor *m_compositor;
    QRect m_maxRect;
    QList<WindowEntry *> m_windows; // stacking order, bottom first
    // Open client menus with their surfaces, taken when they are made: this Qt keeps the
    // popup object after the client destroyed it, with its xdg surface already gone.
    struct OpenPopup
    {
        QPointer<QWaylandXdgPopup> popup;
        QPointer<QWaylandSurface> surface;
    };
    QList<OpenPopup> m_popups;
    WindowEntry *m_active = nullptr;
    int m_nextId = 1;
    qreal m_nextZ = 1;
};
