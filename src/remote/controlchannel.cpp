#include "controlchannel.h"

#include <QLoggingCategory>
#include <QUdpSocket>

Q_LOGGING_CATEGORY(lcRemote, "tideshell.remote", QtWarningMsg)

namespace {

// A flood of refused datagrams must not become a flood of log lines.
constexpr qint64 refusalLogIntervalMs = 10000;

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
        if (!socket->bind(address, m_port, mode)) {
            qCWarning(lcRemote).noquote() << "control port" << address.toString() << m_port
                                          << "not bound:" << socket->errorString();
            delete socket;
            continue;
        }
        m_port = socket->localPort(); // port 0 picks one; the other addresses use the same
        connect(socket, &QUdpSocket::readyRead, this, &ControlChannel::readyRead);
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
    QList<Received> taken;
    for (QUdpSocket *socket : std::as_const(m_sockets)) {
        while (socket->hasPendingDatagrams()) {
            QByteArray datagram(qMax<qint64>(0, socket->pendingDatagramSize()), Qt::Uninitialized);
            Received r;
            const qint64 got =
                socket->readDatagram(datagram.data(), datagram.size(), &r.sender, &r.senderPort);
            if (got < 0)
                continue;
            datagram.truncate(got);
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
