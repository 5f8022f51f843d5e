#pragma once

#include <QColor>
#include <QImage>
#include <QObject>
#include <QPoint>
#include <QProcessEnvironment>
#include <QRect>
#include <QString>
#include <QStringList>

#include <memory>

class ClientWindow;
class WindowServerPrivate;

// The window-system server of the device: a Wayland compositor that every graphical program
// connects to. It owns the desktop view (one full-screen window painted in the desktop colour
// that shows the client windows in stacking order), keyboard focus and input routing.
//
// Only this library talks to QtWaylandCompositor; the shell's widgets use this small API.
class WindowServer : public QObject
{
    Q_OBJECT
public:
    enum WindowEvent { Create, Destroy, Hide, Show, Raise, Lower, Geometry, Active, Name };
    Q_ENUM(WindowEvent)

    // Must be created after the QApplication; there is one per process (see instance()).
    explicit WindowServer(QObject *parent = nullptr);
    ~WindowServer() override;

    static WindowServer *instance();

    // Socket naming, usable before any application object exists (the single-instance test
    // runs first). The name is the value of "--wayland-socket-name NAME" when given, else
    // "wayland-0"; the path lies in $XDG_RUNTIME_DIR.
    static QString socketNameFromArguments(int argc, char **argv);
    static QString socketNameFromArguments(const QStringList &args);
    static QString socketPathFor(const QString &socketName);
    // Gives the process an XDG_RUNTIME_DIR when it has none (/run/user/<uid>, else Qt's
    // runtime location), so that server and children agree on where the socket lives.
    static void ensureRuntimeDir();

    QString socketName() const;
    QString socketPath() const;
    // The environment for programs started from the shell, so they come up inside it.
    QProcessEnvironment clientEnvironment() const;

    // Desktop background and the view itself.
    void setDesktopColor(const QColor &color);
    // The desktop as it looks in `rect` (screen coordinates): its colour and whatever client
    // windows reach into it. The shell's translucent windows paint it under themselves, since
    // the framebuffer platforms copy each window to the screen without blending it.
    QImage desktopImage(const QRect &rect) const;
    void showDesktop();

    // Maximised client windows are fitted to this rectangle; new windows open inside it.
    void setMaxWindowRect(const QRect &rect);
    QRect maxWindowRect() const;

    // Synthetic input, handled exactly as real input: keys go to whatever has the keyboard
    // focus (a server widget or a client window); pointer events go to the window under pos.
    // buttons is a Qt::MouseButtons mask; wheel is a delta in eighths of a degree (120 a notch).
    void sendKeyEvent(int unicode, int keycode, Qt::KeyboardModifiers modifiers, bool isPress,
                      bool autoRepeat);
    void sendMouseEvent(const QPoint &pos, int buttons, int wheel);

signals:
    void windowEvent(ClientWindow *window, WindowServer::WindowEvent eventType);

private:
    void listen();

    std::unique_ptr<WindowServerPrivate> d;
};

// One top-level window of a client as the shell sees it.
class ClientWindow : public QObject
{
    Q_OBJECT
public:
    ~ClientWindow() override;

    int id() const { return m_id; }
    QString title() const { return m_title; }
    QString appId() const { return m_appId; }
    qint64 processId() const { return m_pid; }
    QRect geometry() const { return m_geometry; }
    bool isVisible() const { return m_visible; }
    bool isMaximized() const { return m_maximized; }
    bool isFullScreen() const { return m_fullScreen; }

private:
    friend class WindowManager;
    explicit ClientWindow(int id, QObject *parent);

    int m_id;
    QString m_title;
    QString m_appId;
    qint64 m_pid = 0;
    QRect m_geometry;
    bool m_visible = false;
    bool m_maximized = false;
    bool m_fullScreen = false;
};
