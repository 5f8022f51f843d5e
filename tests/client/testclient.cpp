// A Wayland client for the end-to-end tests: one window with a line edit that reports, one
// line each on standard output, what happens to it, so that a test can follow it as a user
// would see it:
//   size W H          the window's size after every resize
//   focus in|out      keyboard focus of the line edit
//   text TEXT         the line edit's text after every change
//   key press|release KEY TEXT   every key the line edit gets
//   mouse press|release X Y BUTTON
//   popup shown|hidden, popup triggered ITEM   the context menu a right click opens
//   popup pointer in|out                       the pointer entering or leaving that menu
// Options: --maximized, --fullscreen, --frameless, --title TEXT. Builds with Qt 5 and with Qt 6.
#include <QApplication>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenu>
#include <QMouseEvent>
#include <QVBoxLayout>
#include <QWidget>
#include <cstdio>

namespace {

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
QPointF position(const QMouseEvent *e)
{
    return e->localPos();
}
QPointF globalPosition(const QMouseEvent *e)
{
    return e->screenPos();
}
#else
QPointF position(const QMouseEvent *e)
{
    return e->position();
}
QPointF globalPosition(const QMouseEvent *e)
{
    return e->globalPosition();
}
#endif

void report(const QString &line)
{
    std::fputs(qPrintable(line + QLatin1Char('\n')), stdout);
    std::fflush(stdout);
}

class Editor : public QLineEdit
{
public:
    using QLineEdit::QLineEdit;

protected:
    void keyPressEvent(QKeyEvent *e) override
    {
        report(QStringLiteral("key press %1 %2").arg(e->key()).arg(e->text()));
        QLineEdit::keyPressEvent(e);
    }
    void keyReleaseEvent(QKeyEvent *e) override
    {
        report(QStringLiteral("key release %1 %2").arg(e->key()).arg(e->text()));
        QLineEdit::keyReleaseEvent(e);
    }
    void focusInEvent(QFocusEvent *e) override
    {
        report(QStringLiteral("focus in"));
        QLineEdit::focusInEvent(e);
    }
    void focusOutEvent(QFocusEvent *e) override
    {
        report(QStringLiteral("focus out"));
        QLineEdit::focusOutEvent(e);
    }
};

class Window : public QWidget
{
    // A context menu, shown by the compositor as a popup of this window.
    void openMenu(const QPoint &at)
    {
        auto *menu = new QMenu(this);
        menu->setAttribute(Qt::WA_DeleteOnClose);
        for (const char *item : {"First", "Second"})
            menu->addAction(QString::fromLatin1(item));
        connect(menu, &QMenu::aboutToShow, [] { report(QStringLiteral("popup shown")); });
        connect(menu, &QMenu::aboutToHide, [] { report(QStringLiteral("popup hidden")); });
        menu->installEventFilter(this);
        connect(menu, &QMenu::triggered,
                [](QAction *a) { report(QStringLiteral("popup triggered ") + a->text()); });
        menu->popup(at);
    }

protected:
    bool eventFilter(QObject *watched, QEvent *e) override
    {
        if (e->type() == QEvent::Enter || e->type() == QEvent::Leave)
            report(e->type() == QEvent::Enter ? QStringLiteral("popup pointer in")
                                              : QStringLiteral("popup pointer out"));
        return QWidget::eventFilter(watched, e);
    }
    void resizeEvent(QResizeEvent *) override
    {
        report(QStringLiteral("size %1 %2").arg(width()).arg(height()));
    }
    void mousePressEvent(QMouseEvent *e) override
    {
        report(QStringLiteral("mouse press %1 %2 %3")
                   .arg(position(e).x())
                   .arg(position(e).y())
                   .arg(int(e->button())));
        if (e->button() == Qt::RightButton)
            openMenu(globalPosition(e).toPoint());
    }
    void mouseReleaseEvent(QMouseEvent *e) override
    {
        report(QStringLiteral("mouse release %1 %2 %3")
                   .arg(position(e).x())
                   .arg(position(e).y())
                   .arg(int(e->button())));
    }
};

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    const QStringList args = app.arguments();

    Window window;
    window.setWindowTitle(args.contains("--title") ? args.value(args.indexOf("--title") + 1)
                                                   : QStringLiteral("tide test client"));
    auto *layout = new QVBoxLayout(&window);
    auto *edit = new Editor(&window);
    edit->setObjectName("edit");
    layout->addWidget(edit);
    layout->addStretch();
    QObject::connect(edit, &QLineEdit::textChanged,
                     [](const QString &text) { report(QStringLiteral("text ") + text); });

    // A window that draws no frame and asks the shell for none either.
    if (args.contains("--frameless"))
        window.setWindowFlag(Qt::FramelessWindowHint);
    window.resize(320, 200);
    if (args.contains("--fullscreen"))
        window.showFullScreen();
    else if (args.contains("--maximized"))
        window.showMaximized();
    else
        window.show();
    edit->setFocus();
    report(QStringLiteral("ready"));
    return app.exec();
}
