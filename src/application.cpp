#include "application.h"

#include <QKeyEvent>
#include <QScreen>

Application::Application(int &argc, char **argv) : QApplication(argc, argv)
{
    // An application-wide filter runs before the receiver's own handlers and before any
    // per-object filter, so the function keys are caught for server widgets and for the
    // desktop view (and through it for client windows) alike.
    installEventFilter(this);

    if (QScreen *screen = primaryScreen())
        watchScreen(screen);
    connect(this, &QGuiApplication::primaryScreenChanged, this, [this](QScreen *screen) {
        if (screen) {
            watchScreen(screen);
            emit screenTransformed();
        }
    });
}

void Application::watchScreen(QScreen *screen)
{
    // A rotation or a mode change shows up as a new geometry; either way the bar re-lays.
    connect(screen, &QScreen::geometryChanged, this, &Application::screenTransformed,
            Qt::UniqueConnection);
    connect(screen, &QScreen::orientationChanged, this, &Application::screenTransformed,
            Qt::UniqueConnection);
}

bool Application::filterKeyEvent(int keycode, bool pressed)
{
    // F10, F11 and F12 are consecutive codes; one unsigned comparison covers the range.
    if (static_cast<unsigned>(keycode - Qt::Key_F10) > 2u)
        return false;
    emit specialKey(keycode, pressed);
    return true;
}

bool Application::eventFilter(QObject *watched, QEvent *event)
{
    const QEvent::Type type = event->type();
    if ((type == QEvent::KeyPress || type == QEvent::KeyRelease) && watched->isWindowType()) {
        // Only the copy that reaches a window counts; Qt forwards the same key to the focus
        // widget afterwards, and that must not be signalled twice.
        auto *key = static_cast<QKeyEvent *>(event);
        return filterKeyEvent(key->key(), type == QEvent::KeyPress);
    }
    if (type == QEvent::ShortcutOverride && watched->isWindowType()) {
        auto *key = static_cast<QKeyEvent *>(event);
        if (static_cast<unsigned>(key->key() - Qt::Key_F10) <= 2u)
            return true;
    }
    return QApplication::eventFilter(watched, event);
}
