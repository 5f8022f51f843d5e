#pragma once

#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>

#include <memory>

class Compositor;
class KeyMapper;
class QKeyEvent;
class QPoint;
class QWindow;
class WindowManager;

// Keeps the order in which the shell's own windows were last shown, for picking the window
// under a synthetic pointer, and logs their showing and hiding. An application-wide filter
// of its own, so that it never sees key events before the application's function-key filter
// does.
class ServerWindowStack : public QObject
{
public:
    QWindow *topmostAt(const QPoint &pos, const QWindow *exclude) const;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QList<QPointer<QWindow>> m_order; // oldest first
};

// Routing of real and synthetic input. Keys go to the shell's own focused window, or else
// through the desktop view to the client that has the seat's keyboard focus, as real key
// presses of the seat's keymap; characters no key produces go as text. The synthetic pointer
// goes to the window under it and stays with the window that took the first press until the
// last button is up.
class InputRouter : public QObject
{
public:
    InputRouter(Compositor *compositor, WindowManager *windows, QObject *parent = nullptr);
    ~InputRouter() override;

    // Starts routing to clients; the compositor listens from here on.
    void attach();

    void sendKeyEvent(int unicode, int keycode, Qt::KeyboardModifiers modifiers, bool isPress,
                      bool autoRepeat);
    void sendMouseEvent(const QPoint &pos, int buttons, int wheel);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void handleClientKey(QKeyEvent *event);
    void sendClientKey(int qtKey, const QString &text, Qt::KeyboardModifiers modifiers,
                       bool isPress);
    void commitText(const QString &text);
    // Binds the keysym to a spare key, switches the seat to the keymap with that binding and
    // presses and/or releases the key.
    void sendExtraKeysym(uint keysym, bool press, bool release);
    KeyMapper &keys();
    void handleFocusWindowChanged(QWindow *window);
    QWindow *windowAt(const QPoint &pos) const;

    Compositor *m_compositor;
    WindowManager *m_windows;
    std::unique_ptr<KeyMapper> m_keys;
    ServerWindowStack m_serverStack;
    QPointer<QWindow> m_lastFocusWindow;
    QPointer<QWindow> m_pointerGrab;
    QHash<int, QPointer<QWindow>> m_keyTargets; // where each key that is down went
    Qt::MouseButtons m_pointerButtons;
};
