#include "rfbclient.h"

#include <QHostAddress>
#include <QtEndian>

bool RfbClient::read(void *data, qint64 size)
{
    while (m_socket.bytesAvailable() < size) {
        if (!m_socket.waitForReadyRead(int(qMax<qint64>(1, m_deadline.remainingTime()))))
            return false;
    }
    return m_socket.read(static_cast<char *>(data), size) == size;
}

bool RfbClient::connectTo(quint16 port, int timeoutMs)
{
    m_deadline.setRemainingTime(timeoutMs);
    m_socket.connectToHost(QHostAddress::LocalHost, port);
    char version[12], security[4], init[24];
    if (!m_socket.waitForConnected(timeoutMs) || !read(version, 12))
        return false;
    m_socket.write("RFB 003.003\n");
    if (!read(security, 4) || qFromBigEndian<quint32>(security) != 1) // 1: none
        return false;
    m_socket.write("\x01", 1); // share the screen with other viewers
    if (!read(init, 24))
        return false;
    QByteArray name(qFromBigEndian<quint32>(init + 20), 0);
    if (!read(name.data(), name.size()))
        return false;
    m_screen = QImage(qFromBigEndian<quint16>(init), qFromBigEndian<quint16>(init + 2),
                      QImage::Format_RGB32);
    // 32-bit little-endian 0x00RRGGBB true colour, the memory layout of Format_RGB32; then
    // raw pixels as the only encoding.
    const char format[] = {0, 0, 0, 0, 32, 24, 0, 1, 0, -1, 0, -1, 0, -1, 16, 8, 0, 0, 0, 0};
    const char encodings[] = {2, 0, 0, 1, 0, 0, 0, 0};
    m_socket.write(format, sizeof(format));
    m_socket.write(encodings, sizeof(encodings));
    return m_socket.flush();
}

QImage RfbClient::grab(int timeoutMs)
{
    m_deadline.setRemainingTime(timeoutMs);
    const int w = m_screen.width(), h = m_screen.height();
    // Not incremental: the whole screen.
    const char request[] = {3, 0, 0, 0, 0, 0, char(w >> 8), char(w), char(h >> 8), char(h)};
    m_socket.write(request, sizeof(request));
    char head[4];
    if (m_screen.isNull() || !read(head, 4) || head[0] != 0) // a framebuffer update
        return QImage();
    for (int n = qFromBigEndian<quint16>(head + 2); n > 0; --n) {
        char r[12];
        if (!read(r, 12))
            return QImage();
        const QRect area(qFromBigEndian<quint16>(r), qFromBigEndian<quint16>(r + 2),
                         qFromBigEndian<quint16>(r + 4), qFromBigEndian<quint16>(r + 6));
        if (qFromBigEndian<qint32>(r + 8) != 0 || !m_screen.rect().contains(area))
            return QImage(); // not the raw pixels asked for
        for (int y = area.top(); y <= area.bottom(); ++y) {
            if (!read(m_screen.scanLine(y) + area.x() * 4, qint64(area.width()) * 4))
                return QImage();
        }
    }
    return m_screen.copy();
}
