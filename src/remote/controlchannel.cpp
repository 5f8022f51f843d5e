#include "controlchannel.h"

#include <QLoggingCategory>
#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

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

// The socket address of address:port. Any address is IPv6's, which takes IPv4 senders too.
socklen_t toSockaddr(const QHostAddress &address, quint16 port, sockaddr_storage *out)
{
    *out = {};
    if (address.protocol() == QAbstractSocket::IPv4Protocol) {
        auto *in = reinterpret_cast<sockaddr_in *>(out);
        in->sin_family = AF_INET;
        in->sin_port = htons(port);
        in->sin_addr.s_addr = htonl(address.toIPv4Address());
        return sizeof(sockaddr_in);
    }
    auto *in6 = reinterpret_cast<sockaddr_in6 *>(out);
    in6->sin6_family = AF_INET6;
    in6->sin6_port = htons(port);
    if (address.protocol() == QAbstractSocket::IPv6Protocol) {
        const Q_IPV6ADDR bytes = address.toIPv6Address();
        std::memcpy(&in6->sin6_addr, bytes.c, sizeof bytes.c);
        in6->sin6_scope_id = address.scopeId().toUInt();
    }
    return sizeof(sockaddr_in6);
}

// One non-blocking UDP socket bound to address:port, or -1 with the reason in errno. Without
// an exclusive bind another program may bind the same port with address reuse and take
// datagrams meant for the shell; that is how the port has always been shared.
int bindSocket(const QHostAddress &address, quint16 port, bool exclusive)
{
    sockaddr_storage where;
    const socklen_t length = toSockaddr(address, port, &where);
    const int fd = socket(where.ss_family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    const int on = 1, off = 0;
    if (!exclusive)
        (void)setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (where.ss_family == AF_INET6)
        (void)setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&where), length) != 0) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

quint16 portOf(const sockaddr_storage &address)
{
    return ntohs(address.ss_family == AF_INET6
                     ? reinterpret_cast<const sockaddr_in6 *>(&address)->sin6_port
                     : reinterpret_cast<const sockaddr_in *>(&address)->sin_port);
}

quint16 boundPort(int fd)
{
    sockaddr_storage bound{};
    socklen_t length = sizeof bound;
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&bound), &length) != 0)
        return 0;
    return portOf(bound);
}

} // namespace

ControlChannel::ControlChannel(const ShellSettings &settings, QObject *parent)
    : QObject(parent), m_port(settings.controlPort), m_allowInjection(settings.allowInjection)
{
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
        int fd = bindSocket(address, m_port, settings.exclusive);
        if (fd < 0 && errno == EAFNOSUPPORT && address == QHostAddress::Any)
            fd = bindSocket(QHostAddress::AnyIPv4, m_port, settings.exclusive); // no IPv6 here
        if (fd < 0) {
            qCWarning(lcRemote).noquote() << "control port" << address.toString() << m_port
                                          << "not bound:" << strerror(errno);
            continue;
        }
        m_port = boundPort(fd); // port 0 picks one; the other addresses use the same
        enlargeReceiveBuffer(fd);
        auto *notifier = new QSocketNotifier(fd, QSocketNotifier::Read, this);
        connect(notifier, &QSocketNotifier::activated, this, &ControlChannel::readyRead);
        m_sockets.append(fd);
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

ControlChannel::~ControlChannel()
{
    for (int fd : std::as_const(m_sockets))
        close(fd);
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
    // One system call per datagram, which matters when thousands arrive at once.
    QList<Received> taken;
    m_buffer.resize(65536);
    for (int fd : std::as_const(m_sockets)) {
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
            r.senderPort = portOf(from);
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
    // socket bound to loopback cannot send elsewhere, and an IPv6 socket reaches IPv4
    // receivers through their mapped addresses.
    const QHostAddress mapped(address.toIPv6Address());
    for (int fd : std::as_const(m_sockets)) {
        sockaddr_storage own{}, to;
        socklen_t ownLength = sizeof own;
        getsockname(fd, reinterpret_cast<sockaddr *>(&own), &ownLength);
        const socklen_t length =
            toSockaddr(own.ss_family == AF_INET6 ? mapped : address, port, &to);
        if (to.ss_family == own.ss_family &&
            sendto(fd, data.constData(), size_t(data.size()), MSG_NOSIGNAL,
                   reinterpret_cast<const sockaddr *>(&to), length) >= 0)
            return;
    }
}
