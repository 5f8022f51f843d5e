#pragma once

#include <QApplication>

// The server's application object. It sees every key event before any window of the process,
// wherever the focus is, and takes F10 to F12 for the shell: they are signalled to the title
// bar and never delivered further. Screen changes are announced so the bar can lay itself out.
class Application : public QApplication
{
    Q_OBJECT
public:
    Application(int &argc, char **argv);

    // Decides on one key event; true means the key is the shell's and must be swallowed.
    bool filterKeyEvent(int keycode, bool pressed);

signals:
    void specialKey(int keycode, bool pressed);
    void screenTransformed();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void watchScreen(class QScreen *screen);
};
