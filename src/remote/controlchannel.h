#pragma once

#include "controlcommand.h"
#include "shellsettings.h"

#include <QElapsedTimer>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QPair>

// The sockets of the control port and the policy of who may use it. With default settings
// one socket on every address, shared with other sockets on the same port. A settings file
// may narrow that down: chosen addresses only, chosen sender networks only, no key or pointer
// injection, and an exclusive bind. Whatever it refuses costs at most one log line now and
// then, never a reply.
class ControlChannel : public QObject
{
    Q_OBJECT
public:
    struct Received
    {
        ControlCommand command;
        QHostAddress sender;
        quint16 senderPort = 0;
    };

    explicit ControlChannel(const ShellSettings &settings, QObject *parent = nullptr);
    ~ControlChannel() override;

    bool isBound() const { return !m_sockets.isEmpty(); }
    // The port actually bound (the chosen one, or the free one picked for port 0).
    quint16 port() const { return m_port; }

    // Every datagram waiting on any of the sockets, in arrival order per socket, parsed;
    // refused and unknown ones are left out. Malformed ones stay: their debug line is printed
    // when their turn comes.
    QList<Received> takePending();

    // A reply (a click report) from the control port to address:port. The result is not
    // examined.
    void sendTo(const QByteArray &data, const QHostAddress &address, quint16 port);

signals:
    void readyRead();

private:
    bool senderAllowed(const QHostAddress &sender) const;
    void refuse(const QHostAddress &sender, const char *why);

    QList<int> m_sockets; // UDP sockets, non-blocking
    quint16 m_port = 0;
    bool m_allowEveryone = true;
    QList<QPair<QHostAddress, int>> m_allowed;
    bool m_allowInjection = true;
    QByteArray m_buffer; // one datagram at a time, of any size
    QElapsedTimer m_lastRefusalLine;
    qint64 m_refusedUnlogged = 0;
};
