// A Wayland client for bench/compare.sh. It writes one line to standard output per event:
//   ready        the window is first shown
//   f            a frame painted (with --animate)
//   k NS         a key press or release arrived (CLOCK_MONOTONIC, nanoseconds)
// With --animate it repaints the whole window every frame the compositor lets it draw, as a
// video or an animation would; it opens maximised unless --normal is given.
#include <QGuiApplication>
#include <QKeyEvent>
#include <QPainter>
#include <QRasterWindow>

#include <ctime>
#include <unistd.h>

namespace {

void say(const char *text, int size)
{
    (void)!write(1, text, size_t(size));
}

class Window : public QRasterWindow
{
public:
    explicit Window(bool animate) : m_animate(animate) {}

protected:
    void exposeEvent(QExposeEvent *e) override
    {
        if (!m_ready && isExposed()) {
            m_ready = true;
            say("ready\n", 6);
        }
        QRasterWindow::exposeEvent(e);
    }
    void paintEvent(QPaintEvent *) override
    {
        QPainter p(this);
        const int t = m_frame++ % 256;
        p.fillRect(QRect(QPoint(), size()), QColor(t, 255 - t, (t * 3) % 256));
        p.fillRect((t * 3) % qMax(1, width()), height() / 3, 64, 64, Qt::white);
        if (m_animate) {
            say("f\n", 2);
            requestUpdate();
        }
    }
    bool event(QEvent *e) override
    {
        if (e->type() == QEvent::UpdateRequest && m_animate)
            update();
        return QRasterWindow::event(e);
    }
    void keyPressEvent(QKeyEvent *) override { stamp(); }
    void keyReleaseEvent(QKeyEvent *) override { stamp(); }

private:
    static void stamp()
    {
        timespec ts;
        clock_gettime(CLOCK_MONOTONIC, &ts);
        char line[64];
        say(line, snprintf(line, sizeof(line), "k %lld\n",
                           (long long)ts.tv_sec * 1000000000LL + ts.tv_nsec));
    }

    bool m_animate;
    bool m_ready = false;
    int m_frame = 0;
};

} // namespace

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();
    Window window(args.contains(QStringLiteral("--animate")));
    window.setTitle(QStringLiteral("bench client"));
    window.resize(320, 240);
    if (args.contains(QStringLiteral("--normal")))
        window.show();
    else
        window.showMaximized();
    return app.exec();
}
