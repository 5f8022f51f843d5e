#include "input.h"

#include "compositor.h"
#include "keymapper.h"
#include "textinputv3.h"
#include "windows.h"

#include <QApplication>
#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QLoggingCategory>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTimer>
#include <QWidget>
#include <QtWaylandCompositor/QWaylandInputMethodControl>
#include <QtWaylandCompositor/QWaylandKeyboard>
#include <QtWaylandCompositor/QWaylandKeymap>
#include <QtWaylandCompositor/QWaylandSeat>
#include <QtWaylandCompositor/QWaylandSurface>
#include <qpa/qwindowsysteminterface.h>

Q_DECLARE_LOGGING_CATEGORY(lcWindowServer)

namespace {

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

// ---- the shell's own windows ------------------------------------------------------------

bool ServerWindowStack::eventFilter(QObject *watched, QEvent *event)
{
    const QEvent::Type type = event->type();
    if ((type != QEvent::Show && type != QEvent::Hide) || !watched->isWindowType())
        return false;
    auto *w = static_cast<QWindow *>(watched);
    if (type == QEvent::Show) {
        m_order.removeAll(nullptr);
        m_order.removeAll(w);
        m_order.append(w);
        // A dialog of the shell takes the keys when it opens. Window managers and most
        // platforms activate it by themselves; a bare X server leaves the focus where it was,
        // and keys meant for the dialog would reach the client behind it.
        const Qt::WindowType kind = w->type();
        if ((kind == Qt::Window || kind == Qt::Dialog) &&
            !w->flags().testFlag(Qt::WindowDoesNotAcceptFocus))
            w->requestActivate();
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

// ---- routing ----------------------------------------------------------------------------

InputRouter::InputRouter(Compositor *compositor, WindowManager *windows, QObject *parent)
    : QObject(parent), m_compositor(compositor), m_windows(windows)
{
    qApp->installEventFilter(&m_serverStack);
    m_compositor->view()->installEventFilter(this);
    connect(qApp, &QGuiApplication::focusWindowChanged, this,
            &InputRouter::handleFocusWindowChanged);
}

InputRouter::~InputRouter() = default;

void InputRouter::attach()
{
    // Compiling the key index's keymap takes about as long as the rest of the compositor's
    // start; it is left until clients are being served.
    QTimer::singleShot(1000, this, [this] { keys(); });
}

// The keymap is the one KeyMapper indexes; characters it lacks get bound on demand in a
// layout of our own that includes it.
KeyMapper &InputRouter::keys()
{
    if (!m_keys)
        m_keys =
            std::make_unique<KeyMapper>(m_compositor->xkbExtraDir(), m_compositor->baseLayout());
    return *m_keys;
}

// Windows that must not take the focus (the bar, the soft keyboard) can still be activated
// by platforms that activate whatever they show; the activation goes straight back.
// It goes back only once the platform's pending activations are through, so that a window
// shown meanwhile (the run dialog after the keyboard, a dialog after the bar) keeps the focus
// it is given.
void InputRouter::handleFocusWindowChanged(QWindow *window)
{
    if (!window)
        return;
    if (!window->flags().testFlag(Qt::WindowDoesNotAcceptFocus)) {
        m_lastFocusWindow = window;
        return;
    }
    QMetaObject::invokeMethod(
        this,
        [this] {
            QWindowSystemInterface::flushWindowSystemEvents();
            QWindow *now = QGuiApplication::focusWindow();
            if (!now || !now->flags().testFlag(Qt::WindowDoesNotAcceptFocus))
                return;
            // A window closed meanwhile (the run dialog) cannot take keys; the desktop view,
            // and through it the client, can.
            QWindow *back = m_lastFocusWindow && m_lastFocusWindow->isVisible()
                                ? m_lastFocusWindow.data()
                                : m_compositor->view();
            back->requestActivate();
        },
        Qt::QueuedConnection);
}

void InputRouter::sendKeyEvent(int unicode, int keycode, Qt::KeyboardModifiers modifiers,
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
        target = m_compositor->view();
    // A release goes where its press went, even when the press closed that window (Return
    // in a dialog): the window that now has the focus never saw the key go down.
    const int id = keycode ? keycode : unicode;
    if (isPress) {
        m_keyTargets.insert(id, target);
    } else if (QWindow *pressed = m_keyTargets.take(id)) {
        target = pressed;
    }
    const char32_t ucs4 = char32_t(unicode);
    const QString text = unicode > 0 ? QString::fromUcs4(&ucs4, 1) : QString();
    QWindowSystemInterface::handleKeyEvent<QWindowSystemInterface::SynchronousDelivery>(
        target, isPress ? QEvent::KeyPress : QEvent::KeyRelease, keycode, modifiers, text,
        autoRepeat);
}

void InputRouter::handleClientKey(QKeyEvent *event)
{
    QWaylandSeat *seat = m_compositor->seat();
    if (!seat || !seat->keyboardFocus())
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

void InputRouter::sendClientKey(int qtKey, const QString &text, Qt::KeyboardModifiers modifiers,
                                bool isPress)
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
        key = keys().keyForCharacter(ucs4);
        if (!key.isValid()) {
            if (isPress)
                commitText(text);
            return;
        }
        if (key.shift)
            state |= Qt::ShiftModifier;
    } else {
        key = keys().keyForQtKey(qtKey);
        state |= modifiers & Qt::ShiftModifier;
        if (!key.isValid()) {
            // A key the layout lacks (F13 on "us", say) is bound like a character.
            if (const uint keysym = KeyMapper::keysymForQtKey(qtKey)) {
                sendExtraKeysym(keysym, isPress, !isPress);
                return;
            }
        }
    }
    if (!key.isValid()) {
        qCDebug(lcWindowServer) << "no key in the keymap for" << Qt::hex << qtKey;
        return;
    }
    // With a scan code the seat sends the key as it is, after bringing the client's
    // modifier state in line with the event's.
    QKeyEvent event(isPress ? QEvent::KeyPress : QEvent::KeyRelease, qtKey, state, key.keycode, 0,
                    0, text);
    m_compositor->seat()->sendFullKeyEvent(&event);
}

void InputRouter::commitText(const QString &text)
{
    QWaylandSeat *seat = m_compositor->seat();
    QWaylandSurface *focus = seat->keyboardFocus();
    if (!focus)
        return;
    // Text goes to whichever text input the client has enabled. For zwp_text_input_v2 the
    // input-method control's methods are not exported; its properties and the item's event
    // handler are the public way in.
    const char *way = "keymap";
    QObject *imControl = focus->inputMethodControl();
    QQuickItem *item = m_windows->itemFor(focus);
    if (item && imControl && imControl->property("enabled").toBool()) {
        QInputMethodEvent event;
        event.setCommitString(text);
        QCoreApplication::sendEvent(item, &event);
        way = "zwp_text_input_v2";
    } else if (m_compositor->textInputV3()->commitString(text)) {
        way = "zwp_text_input_v3";
    } else {
        // No text input in use: each character is typed on a key bound to it for the moment.
        for (char32_t ucs4 : text.toUcs4())
            sendExtraKeysym(KeyMapper::keysymForCharacter(ucs4), true, true);
    }
    qCDebug(lcWindowServer).noquote()
        << QStringLiteral("text \"%1\" by %2").arg(text, QLatin1String(way));
}

void InputRouter::sendExtraKeysym(uint keysym, bool press, bool release)
{
    QString variant;
    const KeyMapper::Key key = keys().bindExtraKeysym(keysym, &variant);
    if (!key.isValid())
        return;
    // The seat sends every client the new keymap before the key, as long as no key it knows
    // of is down.
    QWaylandSeat *seat = m_compositor->seat();
    seat->keymap()->setLayout(keys().layoutName());
    seat->keymap()->setVariant(variant);
    if (press)
        seat->keyboard()->sendKeyPressEvent(key.keycode);
    if (release)
        seat->keyboard()->sendKeyReleaseEvent(key.keycode);
}

QWindow *InputRouter::windowAt(const QPoint &pos) const
{
    // An open menu of the shell takes the pointer wherever it is, as Qt's popups do.
    if (QWidget *popup = QApplication::activePopupWidget()) {
        if (popup->windowHandle())
            return popup->windowHandle();
    }
    QWindow *server = m_serverStack.topmostAt(pos, m_compositor->view());
    return server ? server : m_compositor->view();
}

void InputRouter::sendMouseEvent(const QPoint &pos, int buttons, int wheel)
{
    const Qt::MouseButtons newButtons = Qt::MouseButtons(buttons) & Qt::AllButtons;
    QWindow *target = m_pointerGrab ? m_pointerGrab.data() : windowAt(pos);
    const QPointF global(pos);
    const QPointF local = global - QPointF(target->geometry().topLeft());
    using Sync = QWindowSystemInterface::SynchronousDelivery;

    QWindowSystemInterface::handleMouseEvent<Sync>(target, local, global, m_pointerButtons,
                                                   Qt::NoButton, QEvent::MouseMove);
    // One press or release per button that changed, in the order of the button bits.
    for (uint bit = 1; bit && bit <= uint(Qt::MaxMouseButton); bit <<= 1) {
        const auto button = Qt::MouseButton(bit);
        const bool was = m_pointerButtons.testFlag(button);
        const bool now = newButtons.testFlag(button);
        if (was == now)
            continue;
        if (now && !m_pointerButtons)
            m_pointerGrab = target;
        m_pointerButtons.setFlag(button, now);
        // The grab ends with the last release, before that is delivered: a release may open a
        // modal dialog, and the taps on it come while this call has not returned.
        if (!m_pointerButtons)
            m_pointerGrab = nullptr;
        QWindowSystemInterface::handleMouseEvent<Sync>(
            target, local, global, m_pointerButtons, button,
            now ? QEvent::MouseButtonPress : QEvent::MouseButtonRelease);
    }
    if (wheel) {
        QWindowSystemInterface::handleWheelEvent(target, local, global, QPoint(), QPoint(0, wheel));
        QWindowSystemInterface::flushWindowSystemEvents();
    }
}

bool InputRouter::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_compositor->view())
        return false;
    switch (event->type()) {
    case QEvent::KeyPress:
    case QEvent::KeyRelease:
        handleClientKey(static_cast<QKeyEvent *>(event));
        return true;
    case QEvent::MouseButtonPress:
        m_windows->dismissPopupsOutside(static_cast<QMouseEvent *>(event)->scenePosition());
        break;
    case QEvent::TouchBegin: {
        auto *touch = static_cast<QTouchEvent *>(event);
        if (!touch->points().isEmpty())
            m_windows->dismissPopupsOutside(touch->points().constFirst().scenePosition());
        break;
    }
    default:
        break;
    }
    return false;
}
