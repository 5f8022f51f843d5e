#pragma once

#include <QDeadlineTimer>
#include <QImage>
#include <QTcpSocket>

// A minimal viewer of a remote framebuffer (RFB 3.3, no security, raw pixels), enough to read
// back the screen that Qt's vnc platform composes, exactly as a VNC viewer would see it.
class RfbClient
{
public:
    // Connects and shakes hands; false when the server is not there within the time.
    bool connectTo(quint16 port, int timeoutMs = 5000);
    // The whole screen as it is now, or a null image on failure.
    QImage grab(int timeoutMs = 5000);

private:
    bool read(void *data, qint64 size);

    QTcpSocket m_socket;
    QImage m_screen;
    QDeadlineTimer m_deadline;
};
