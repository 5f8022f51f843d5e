// The least a compositor on this Qt costs: the libraries tideshell loads, an application
// object for widgets, one Qt Quick view as the output and the Wayland globals every client
// needs (output, seat, xdg-shell). It shows nothing else and serves clients at once. The
// benchmark starts it beside tideshell and Weston, so that the figures show how much of
// tideshell's start-up and memory is the toolkit's and how much its own.
#include <QApplication>
#include <QQuickWindow>
#include <QtWaylandCompositor/QWaylandQuickCompositor>
#include <QtWaylandCompositor/QWaylandQuickOutput>
#include <QtWaylandCompositor/QWaylandSeat>
#include <QtWaylandCompositor/QWaylandXdgShell>

int main(int argc, char **argv)
{
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
    new QWaylandXdgShell(&compositor);
    QWaylandQuickOutput output(&compositor, &view);
    output.setSizeFollowsWindow(true);
    compositor.setDefaultOutput(&output);
    compositor.create();
    view.show();
    return app.exec();
}
