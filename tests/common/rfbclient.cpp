#include "rfbclient.h"

#include <QDeadlineTimer>
#include <QHostAddress>
#include <QtEndian>

namespace {

enum : qint32 { RawEncoding = 0, CursorEncoding = -239 };

QByteArray be16(quint16 v)
{
    QByteArray b(2, 0);
    qToBigEndian(v, b.data());
    return b;
}

QByteArray be32(qint32 v)
{
    QByteArray b(4, 0);
    qToBigEndian(v, b.data());
    return b;
}

} // namespace

bool RfbClient::readExactly(char *data, qint64 size, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (m_socket.bytesAvailable() < size) {
        if (deadline.hasExpired() || !m_socket.waitForReadyRead(int(deadline.remainingTime())))
            return false;
    }
    return m_socket.read(data, size) == size;
}

bool RfbClient::skip(qint64 size, int timeoutMs)
{
    QByteArray junk(size, 0);
    return readExactly(junk.data(), size, timeoutMs);
}

quint32 RfbClient::readU32(int timeoutMs, bool *ok)
{
    char b[4];
    *ok = readExactly(b, 4, timeoutMs);
    return *ok ? qFromBigEndian<quint32>(b) : 0;
}

bool RfbClient::connectTo(quint16 port, int timeoutMs)
{
    m_socket.connectToHost(QHostAddress::LocalHost, port);
    if (!m_socket.waitForConnected(timeoutMs))
        return false;
    char version[12];
    if (!readExactly(version, 12, timeoutMs) || !QByteArray(version, 4).startsWith("RFB "))
        return false;
    m_socket.write("RFB 003.003\n", 12);
    bool ok = false;
    if (readU32(timeoutMs, &ok) != 1 || !ok) // 1: no authentication
        return false;
    m_socket.write("\x01", 1); // share the screen with other viewers

    char init[20];
    if (!readExactly(init, 20, timeoutMs))
        return false;
    const int width = qFromBigEndian<quint16>(init);
    const int height = qFromBigEndian<quint16>(init + 2);
    const quint32 nameLength = readU32(timeoutMs, &ok);
    if (!ok || !skip(nameLength, timeoutMs))
        return false;
    m_screen = QImage(width, height, QImage::Format_RGB32);
    m_screen.fill(Qt::black);

    // 32-bit little-endian 0x00RRGGBB pixels: the memory layout of QImage::Format_RGB32.
    QByteArray msg("\x00\x00\x00\x00", 4);
    msg += QByteArray("\x20\x18\x00\x01", 4);
    msg += be16(255) + be16(255) + be16(255);
    msg += QByteArray("\x10\x08\x00\x00\x00\x00", 6);
    // Raw pixels; the pointer's image comes separately, so it never hides screen pixels.
    msg += QByteArray("\x02\x00", 2) + be16(2) + be32(RawEncoding) + be32(CursorEncoding);
    m_socket.write(msg);
    return m_socket.waitForBytesWritten(timeoutMs) || m_socket.bytesToWrite() == 0;
}

QImage RfbClient::grab(int timeoutMs)
{
    if (m_socket.state() != QAbstractSocket::ConnectedState || m_screen.isNull())
        return QImage();
    QDeadlineTimer deadline(timeoutMs);
    auto remaining = [&] { return int(qMax<qint64>(1, deadline.remainingTime())); };
    auto request = [&] {
        const QByteArray msg = QByteArray("\x03\x00", 2) + be16(0) + be16(0) +
                               be16(quint16(m_screen.width())) + be16(quint16(m_screen.height()));
        m_socket.write(msg); // not incremental: the whole screen
        m_socket.flush();
    };
    request();
    while (!deadline.hasExpired()) {
        char type;
        if (!readExactly(&type, 1, remaining()))
            return QImage();
        bool ok = true;
        switch (type) {
        case 0: { // a framebuffer update
            char head[3];
            if (!readExactly(head, 3, remaining()))
                return QImage();
            const int rects = qFromBigEndian<quint16>(head + 1);
            bool gotPixels = false;
            for (int i = 0; i < rects; ++i) {
                char r[12];
                if (!readExactly(r, 12, remaining()))
                    return QImage();
                const int x = qFromBigEndian<quint16>(r), y = qFromBigEndian<quint16>(r + 2);
                const int w = qFromBigEndian<quint16>(r + 4), h = qFromBigEndian<quint16>(r + 6);
                const qint32 encoding = qFromBigEndian<qint32>(r + 8);
                if (encoding == CursorEncoding) {
                    ok = skip(qint64(w) * h * 4 + qint64((w + 7) / 8) * h, remaining());
                } else if (encoding == RawEncoding && x + w <= m_screen.width() &&
                           y + h <= m_screen.height()) {
                    for (int row = 0; ok && row < h; ++row)
                        ok = readExactly(reinterpret_cast<char *>(m_screen.scanLine(y + row)) +
                                             x * 4,
                                         qint64(w) * 4, remaining());
                    gotPixels = true;
                } else {
                    return QImage(); // an encoding that was not asked for
                }
                if (!ok)
                    return QImage();
            }
            if (gotPixels)
                return m_screen.copy();
            request(); // only the pointer changed; ask again for the pixels
            break;
        }
        case 1: { // colour map entries: not used with true colour
            char head[5];
            ok = readExactly(head, 5, remaining()) &&
                 skip(qint64(qFromBigEndian<quint16>(head + 3)) * 6, remaining());
            break;
        }
        case 2: // bell
            break;
        case 3: { // cut text
            ok = skip(3, remaining());
            const quint32 length = ok ? readU32(remaining(), &ok) : 0;
            ok = ok && skip(length, remaining());
            break;
        }
        default:
            return QImage();
        }
        if (!ok)
            return QImage();
    }
    return QImage();
}
