#pragma once

#include <QObject>
#include <QString>
#include <QTemporaryDir>

class QQuickWindow;
class QWaylandQuickCompositor;
class QWaylandQuickOutput;
class QWaylandSeat;
class QWaylandXdgShell;
class TextInputManagerV3;
struct wl_display;
struct wl_protocol_logger;

// The protocol side of the window server: the Wayland display with its socket, the output
// that is the desktop view, the seat, and the globals clients bind (xdg-shell, decorations,
// text input). It knows nothing of windows or input policy.
//
// The desktop view exists from the start, so that it can be painted before anything else;
// the display and its globals come with listen(), which opens the socket.
class Compositor : public QObject
{
    Q_OBJECT
public:
    explicit Compositor(const QString &socketName, QObject *parent = nullptr);
    ~Compositor() override;

    // Creates the display and its globals and opens the socket: clients can connect from
    // here on. Called once.
    void listen();
    bool isListening() const { return m_compositor != nullptr; }

    QString socketName() const { return m_socketName; }
    QQuickWindow *view() const { return m_view; }
    // Null until listen().
    QWaylandQuickCompositor *compositor() const { return m_compositor; }
    QWaylandQuickOutput *output() const { return m_output; }
    QWaylandXdgShell *xdgShell() const { return m_xdgShell; }
    QWaylandSeat *seat() const;
    TextInputManagerV3 *textInputV3() const { return m_textInputV3; }

    // The private directory of extra keyboard layouts (XKB_CONFIG_EXTRA_PATH) and the base
    // layout the seat's keymap starts from.
    QString xkbExtraDir() const { return m_xkbDir.path(); }
    QString baseLayout() const { return m_baseLayout; }

private:
    QString m_socketName;
    QString m_baseLayout;
    QTemporaryDir m_xkbDir;
    QQuickWindow *m_view = nullptr;
    QWaylandQuickCompositor *m_compositor = nullptr;
    QWaylandQuickOutput *m_output = nullptr;
    QWaylandXdgShell *m_xdgShell = nullptr;
    wl_protocol_logger *m_guard = nullptr;
    TextInputManagerV3 *m_textInputV3 = nullptr;
};
