#include "controlchannel.h"

#include <QLoggingCategory>
#include <QNetworkProxy>
#include <QSocketNotifier>
#include <QUdpSocket>

#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>

Q_LOGGING_CATEGORY(lcRemote, "tideshell.remote", QtWarningMsg)

namespace {

// A flood of refused datagrams must not become a flood of log lines.
constexpr qint64 refusalLogIntervalMs = 10000;

// Senders fire commands without waiting for each other, and while the bar is busy (a
// relayout, a modal dialog) they pile up in the socket. A short command takes about a
// kilobyte of kernel memory there, so this holds some tens of thousands; the memory is only
// used while datagrams wait. Root may go past the system's limit (net.core.rmem_max), others
// get what the limit allows.
constexpr int receiveBufferBytes = 32 * 1024 * 1024;

void enlargeReceiveBuffer(int fd)
{
    const int size = receiveBufferBytes;
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) == 0)
        return;
    (void)setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
}

} // namespace

ControlChannel::ControlChannel(const ShellSettings &settings, QObject *parent)
    : QObject(parent), m_port(settings.controlPort), m_allowInjection(settings.allowInjection)
{
    // Without an exclusive bind another program may bind the same port with address reuse
    // and take datagrams meant for the shell; that is how the port has always been shared.
    const QUdpSocket::BindMode mode = settings.exclusive
                                          ? QUdpSocket::DontShareAddress
                                          : QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint;
    QList<QHostAddress> addresses;
    if (settings.bindAddresses.isEmpty())
        addresses.append(QHostAddress::Any);
    for (const QString &text : settings.bindAddresses) {
        QHostAddress address;
        if (address.setAddress(text))
            addresses.append(address);
        else
            qCWarning(lcRemote).noquote() << "not an address to bind the control port to:" << text;
    }
    // A lock-down whose addresses are all wrong binds nothing rather than everything.
    for (const QHostAddress &address : std::as_const(addresses)) {
        auto *socket = new QUdpSocket(this);
        // Datagrams go straight to their receivers. Asking whether a proxy applies would start
        // the system's proxy lookup, a thread of its own and a good part of start-up.
        socket->setProxy(QNetworkProxy::NoProxy);
        if (!socket->bind(address, m_port, mode)) {
            qCWarning(lcRemote).noquote() << "control port" << address.toString() << m_port
                                          << "not bound:" << socket->errorString();
            delete socket;
            continue;
        }
        m_port = socket->localPort(); // port 0 picks one; the other addresses use the same
        enlargeReceiveBuffer(int(socket->socketDescriptor()));
        // Datagrams are read straight from the descriptor (see takePending), which QUdpSocket
        // does not notice: it would stop announcing new ones. A notifier of our own does.
        auto *notifier =
            new QSocketNotifier(socket->socketDescriptor(), QSocketNotifier::Read, socket);
        connect(notifier, &QSocketNotifier::activated, this, &ControlChannel::readyRead);
        m_sockets.append(socket);
    }

    m_allowEveryone = settings.allowedNetworks.isEmpty();
    for (const QString &text : settings.allowedNetworks) {
        QPair<QHostAddress, int> subnet = QHostAddress::parseSubnet(text);
        if (subnet.first.isNull())
            qCWarning(lcRemote).noquote() << "not a network to allow on the control port:" << text;
        else
            m_allowed.append(subnet);
    }
}

bool ControlChannel::senderAllowed(const QHostAddress &sender) const
{
    if (m_allowEveryone)
        return true;
    // An IPv4 sender reaching a dual-stack socket shows up as ::ffff:a.b.c.d.
    bool mapped = false;
    const quint32 v4 = sender.toIPv4Address(&mapped);
    const QHostAddress plain = mapped ? QHostAddress(v4) : sender;
    for (const auto &subnet : m_allowed) {
        if (plain.isInSubnet(subnet))
            return true;
    }
    return false;
}

void ControlChannel::refuse(const QHostAddress &sender, const char *why)
{
    ++m_refusedUnlogged;
    if (m_lastRefusalLine.isValid() && m_lastRefusalLine.elapsed() < refusalLogIntervalMs)
        return;
    qCWarning(lcRemote).noquote() << "refused" << m_refusedUnlogged << "datagram(s), the last from"
                                  << sender.toString() << why;
    m_refusedUnlogged = 0;
    m_lastRefusalLine.start();
}

QList<ControlChannel::Received> ControlChannel::takePending()
{
    // Read straight from the descriptor: one system call per datagram instead of QUdpSocket's
    // three (pending? how big? read), which matters when thousands arrive at once.
    QList<Received> taken;
    m_buffer.resize(65536);
    for (QUdpSocket *socket : std::as_const(m_sockets)) {
        const int fd = int(socket->socketDescriptor());
        for (;;) {
            sockaddr_storage from{};
            socklen_t fromLen = sizeof from;
            const ssize_t got = recvfrom(fd, m_buffer.data(), size_t(m_buffer.size()), MSG_DONTWAIT,
                                         reinterpret_cast<sockaddr *>(&from), &fromLen);
            if (got < 0) {
                if (errno == EINTR)
                    continue;
                break; // EAGAIN: drained; anything else: try again on the next readyRead
            }
            const QByteArray datagram(m_buffer.constData(), qsizetype(got));
            Received r;
            r.sender = QHostAddress(reinterpret_cast<const sockaddr *>(&from));
            r.senderPort = ntohs(from.ss_family == AF_INET6
                                     ? reinterpret_cast<const sockaddr_in6 *>(&from)->sin6_port
                                     : reinterpret_cast<const sockaddr_in *>(&from)->sin_port);
            if (!senderAllowed(r.sender)) {
                refuse(r.sender, "(sender not allowed)");
                continue;
            }
            r.command = parseControlCommand(datagram);
            const auto kind = r.command.kind;
            if (!m_allowInjection &&
                (kind == ControlCommand::Mouse || kind == ControlCommand::Key)) {
                refuse(r.sender, "(input injection is off)");
                continue;
            }
            if (kind != ControlCommand::None)
                taken.append(r);
        }
    }
    return taken;
}

void ControlChannel::sendTo(const QByteArray &data, const QHostAddress &address, quint16 port)
{
    // With several bound addresses the first socket that can reach the receiver sends; a
    // socket bound to loopback cannot send elsewhere.
    for (QUdpSocket *socket : std::as_const(m_sockets)) {
        if (socket->writeDatagram(data, address, port) >= 0)
            return;
    }
}
