#pragma once

#include <QByteArray>
#include <QString>

// The control port of the shell: UDP 60000.
constexpr quint16 ControlPort = 60000;

// One datagram of the control port, decoded. A plain value: parseControlCommand() fills it,
// TitleBarWidget::onCtrlSockActivated() carries it out. Only the fields of the command's kind
// are meaningful.
struct ControlCommand
{
    enum Kind {
        None, // empty or unknown datagram: dropped without a word
        Close,
        Open,
        Toggle,
        Top,
        Bottom,
        KbdShow,
        KbdHide,
        KbdToggle,
        AddLabel,
        DelLabel,
        TextColor,
        WindowColor,
        Mouse,
        Key
    };

    struct Rgba
    {
        int r = 0, g = 0, b = 0, a = 0;
    };
    struct MouseEvent
    {
        int x = 0, y = 0;
        int stat = 0; // Qt::MouseButtons mask, 0 when all buttons are up
        int wheel = 0;
    };
    struct KeyEvent
    {
        int unicode = 0;
        int keyCode = 0;  // a Qt::Key value
        int modifier = 0; // Qt::KeyboardModifiers mask
        bool pressed = false;
    };

    Kind kind = None;

    // Set when the command word was recognised but its parameters were not: the fixed debug
    // line to print; the command must then not be carried out.
    const char *error = nullptr;

    // KbdShow: the input method to switch to, when one was given and converted cleanly.
    bool methodGiven = false;
    int method = 0;

    // AddLabel (name and text), DelLabel (name only).
    QString name;
    QString text;

    Rgba color; // TextColor, WindowColor
    MouseEvent mouse;
    KeyEvent key;

    bool isValid() const { return kind != None && !error; }

    // The debug line this command prints: the error message when malformed, the
    // "set ... color to r g b a" confirmation for a colour command, otherwise empty.
    QString debugLine() const;
};

ControlCommand parseControlCommand(const QByteArray &datagram);

// Prints cmd.debugLine() through qDebug(), if there is one. Call it for every parsed command.
void printControlDebugLine(const ControlCommand &cmd);

// The datagram sent to a label's creator when the label is clicked: "clicked:" and the name.
QByteArray clickReport(const QString &labelName);
