// A Wayland client for the end-to-end tests: one window with a line edit, reporting one line
// each: "size W H", "focus in|out", "text TEXT", "key press KEY TEXT", and for the context
// menu a right click opens "popup shown|hidden", "popup pointer in|out", "popup triggered
// ITEM". Options: --maximized, --fullscreen, --frameless, --title TEXT. Qt 5 and Qt 6.
#include <QApplication>
#include <QContextMenuEvent>
#include <QLineEdit>
#include <QMenu>
#include <QVBoxLayout>
#include <cstdio>

namespace {

void report(const QString &line)
{
    std::puts(qPrintable(line));
    std::fflush(stdout);
}

class Editor : public QLineEdit
{
protected:
    void keyPressEvent(QKeyEvent *e) override
    {
        report(QStringLiteral("key press %1 %2").arg(e->key()).arg(e->text()));
        QLineEdit::keyPressEvent(e);
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
protected:
    void resizeEvent(QResizeEvent *) override
    {
        report(QStringLiteral("size %1 %2").arg(width()).arg(height()));
    }
    // Shown by the compositor as a popup of this window.
    void contextMenuEvent(QContextMenuEvent *e) override
    {
        auto *menu = new QMenu(this);
        menu->setAttribute(Qt::WA_DeleteOnClose);
        menu->addAction(QStringLiteral("First"));
        menu->addAction(QStringLiteral("Second"));
        connect(menu, &QMenu::aboutToShow, [] { report(QStringLiteral("popup shown")); });
        connect(menu, &QMenu::aboutToHide, [] { report(QStringLiteral("popup hidden")); });
        connect(menu, &QMenu::triggered,
                [](QAction *a) { report(QStringLiteral("popup triggered ") + a->text()); });
        menu->installEventFilter(this);
        menu->popup(e->globalPos());
    }
    bool eventFilter(QObject *, QEvent *e) override
    {
        if (e->type() == QEvent::Enter || e->type() == QEvent::Leave)
            report(e->type() == QEvent::Enter ? QStringLiteral("popup pointer in")
                                              : QStringLiteral("popup pointer out"));
        return false;
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
    auto *edit = new Editor;
    layout->addWidget(edit);
    layout->addStretch();
    QObject::connect(edit, &QLineEdit::textChanged,
                     [](const QString &text) { report(QStringLiteral("text ") + text); });
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
    return app.exec();
}
