// Where the window server sends synthetic pointer events among the shell's own windows.
#include "application.h"
#include "testserver.h"
#include "windowserver.h"

#include <QMouseEvent>

namespace {

// Records the mouse events a widget gets, as "press x y", "release x y".
class MouseLog : public QWidget
{
public:
    MouseLog(const QRect &geometry, Qt::WindowFlags flags = {})
    {
        setWindowFlags(Qt::FramelessWindowHint | flags);
        setGeometry(geometry);
    }
    QStringList events;

protected:
    void mousePressEvent(QMouseEvent *e) override { log("press", e); }
    void mouseReleaseEvent(QMouseEvent *e) override { log("release", e); }

private:
    void log(const char *what, QMouseEvent *e)
    {
        events
            << QStringLiteral("%1 %2 %3").arg(what).arg(e->position().x()).arg(e->position().y());
    }
};

} // namespace

class TestWindowServer : public QObject
{
    Q_OBJECT
private slots:
    void pointerRouting();
};

void TestWindowServer::pointerRouting()
{
    WindowServer server;
    MouseLog onTop({150, 120, 100, 50}, Qt::WindowStaysOnTopHint), below({100, 100, 200, 100}),
        aside({400, 100, 100, 100});
    // Shown first, yet above: windows that stay on top win.
    for (MouseLog *w : {&onTop, &below, &aside}) {
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
    }
    server.sendMouseEvent(QPoint(160, 130), Qt::LeftButton, 0);
    server.sendMouseEvent(QPoint(160, 130), 0, 0);
    QCOMPARE(onTop.events, (QStringList{"press 10 10", "release 10 10"}));
    // Dragged onto another window and released there: the release is still the pressed one's.
    server.sendMouseEvent(QPoint(110, 110), Qt::LeftButton, 0);
    server.sendMouseEvent(QPoint(450, 110), Qt::LeftButton, 0);
    server.sendMouseEvent(QPoint(450, 110), 0, 0);
    QCOMPARE(below.events, (QStringList{"press 10 10", "release 350 10"}));
    QVERIFY(aside.events.isEmpty());
    // The next press goes where the pointer is.
    server.sendMouseEvent(QPoint(450, 110), Qt::RightButton, 0);
    server.sendMouseEvent(QPoint(450, 110), 0, 0);
    QCOMPARE(aside.events, (QStringList{"press 50 10", "release 50 10"}));
}

int main(int argc, char **argv)
{
    return runWithServer<Application, TestWindowServer>(argc, argv);
}

#include "tst_windowserver.moc"
