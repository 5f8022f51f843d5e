// The least a compositor on this Qt costs: the libraries tideshell loads, an application
// object for widgets, one Qt Quick view as the output and the Wayland globals every client
// needs (output, seat, xdg-shell); client windows are shown where they ask to be, by Qt's own
// item, with nothing else on the screen. The benchmark starts it beside tideshell and Weston,
// so that the figures show how much of tideshell's start-up, memory and cost per frame is the
// toolkit's and how much its own.
#include <QApplication>
#include <QQuickWindow>
#include <QtWaylandCompositor/QWaylandQuickCompositor>
#include <QtWaylandCompositor/QWaylandQuickOutput>
#include <QtWaylandCompositor/QWaylandQuickShellSurfaceItem>
#include <QtWaylandCompositor/QWaylandSeat>
#include <QtWaylandCompositor/QWaylandXdgShell>

int main(int argc, char **argv)
{
    // As tideshell: one frame per refresh of a 60 Hz panel on platforms without vertical sync.
    if (!qEnvironmentVariableIsSet("QT_QPA_UPDATE_IDLE_TIME"))
        qputenv("QT_QPA_UPDATE_IDLE_TIME", "16");
    QApplication app(argc, argv);
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    QByteArray socket = "wayland-qtfloor";
    const int at = QCoreApplication::arguments().indexOf(QStringLiteral("--wayland-socket-name"));
    if (at > 0 && at + 1 < QCoreApplication::arguments().size())
        socket = QCoreApplication::arguments().at(at + 1).toUtf8();

    QQuickWindow view;
    view.resize(800, 480);
    QWaylandQuickCompositor compositor;
    compositor.setSocketName(socket);
    auto *shell = new QWaylandXdgShell(&compositor);
    QObject::connect(shell, &QWaylandXdgShell::toplevelCreated, &view,
                     [&view](QWaylandXdgToplevel *toplevel, QWaylandXdgSurface *surface) {
                         auto *item = new QWaylandQuickShellSurfaceItem(view.contentItem());
                         item->setShellSurface(surface);
                         QObject::connect(item, &QWaylandQuickItem::surfaceDestroyed, item,
                                          &QObject::deleteLater);
                         QObject::connect(
                             toplevel, &QWaylandXdgToplevel::setMaximized, toplevel,
                             [toplevel, &view] { toplevel->sendMaximized(view.size()); });
                     });
    QWaylandQuickOutput output(&compositor, &view);
    output.setSizeFollowsWindow(true);
    compositor.setDefaultOutput(&output);
    compositor.create();
    view.show();
    return app.exec();
}
