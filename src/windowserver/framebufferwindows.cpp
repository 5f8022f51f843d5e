#include "framebufferwindows.h"

#include <QApplication>
#include <QBackingStore>
#include <QPlatformSurfaceEvent>
#include <QWidget>
#include <QWindow>
#include <QtFbSupport/private/qfbbackingstore_p.h>
#include <QtFbSupport/private/qfbwindow_p.h>

void FramebufferWindows::installIfNeeded(QObject *parent)
{
    const QString platform = QGuiApplication::platformName();
    if (platform != QLatin1String("linuxfb") && platform != QLatin1String("vnc") &&
        platform != QLatin1String("bsdfb"))
        return;
    qApp->installEventFilter(new FramebufferWindows(parent));
}

bool FramebufferWindows::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() != QEvent::PlatformSurface || !watched->isWindowType() ||
        static_cast<QPlatformSurfaceEvent *>(event)->surfaceEventType() !=
            QPlatformSurfaceEvent::SurfaceCreated)
        return false;
    auto *window = static_cast<QWindow *>(watched);
    // The desktop view draws itself without a widget; only widget windows keep their store.
    const QWidgetList widgets = QApplication::topLevelWidgets();
    for (QWidget *widget : widgets) {
        if (widget->windowHandle() != window)
            continue;
        QBackingStore *store = widget->backingStore();
        auto *platformWindow = static_cast<QFbWindow *>(window->handle());
        if (store && store->handle() && platformWindow && !platformWindow->backingStore())
            platformWindow->setBackingStore(static_cast<QFbBackingStore *>(store->handle()));
        break;
    }
    return false;
}
