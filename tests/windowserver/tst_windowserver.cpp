// Where the window server sends synthetic pointer events among the shell's own windows.
// (That a release goes to the window that got the press is Qt's own doing.)
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
    MouseLog onTop({150, 120, 100, 50}, Qt::WindowStaysOnTopHint), below({100, 100, 200, 100});
    // Shown first, yet above: windows that stay on top win.
    for (MouseLog *w : {&onTop, &below}) {
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
    }
    for (const QPoint at : {QPoint(160, 130), QPoint(110, 110)}) {
        server.sendMouseEvent(at, Qt::LeftButton, 0);
        server.sendMouseEvent(at, 0, 0);
    }
    QCOMPARE(onTop.events, (QStringList{"press 10 10", "release 10 10"}));
    QCOMPARE(below.events, (QStringList{"press 10 10", "release 10 10"}));
}

int main(int argc, char **argv)
{
    return runWithServer<Application, TestWindowServer>(argc, argv);
}

#include "tst_windowserver.moc"
