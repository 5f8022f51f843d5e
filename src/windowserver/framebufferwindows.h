#pragma once

#include <QObject>

// Keeps the shell's own windows on the screen on Qt's framebuffer platforms (linuxfb, vnc).
//
// There Qt composes every top-level window into the screen image from the backing store its
// platform window holds, and a backing store is handed to a platform window only when the
// store is made. Closing a widget window (a menu left with Escape or by choosing an entry, a
// dialog closed) destroys its platform window but keeps the widget's backing store; when the
// widget is shown again it gets a new platform window without a store, and the screen skips
// it: the window is shown, takes clicks, and is not to be seen. This filter hands the store
// to every new platform window of a widget that already has one.
class FramebufferWindows : public QObject
{
public:
    // Installs itself on the application when the platform composes through Qt's
    // framebuffer windows; does nothing elsewhere.
    static void installIfNeeded(QObject *parent);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    using QObject::QObject;
};
