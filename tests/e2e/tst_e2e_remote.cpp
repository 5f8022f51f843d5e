// The control port against the running shell, over real UDP: labels and their click reports,
// injected keys and pointer events as a real client receives them, a long burst of good and
// bad datagrams, and a port locked down by its settings.
#include "shellharness.h"

#include <QNetworkDatagram>
#include <QRandomGenerator>
#include <QTest>
#include <QUdpSocket>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// One label wide enough to cover the middle of the bar, where a click lands on it whatever
// the widths of the clock and address texts around it.
const QByteArray wideText = "Wireless-network-status-label-for-tests";
const QPoint barMiddle(400, 456);

QProcessEnvironment labelLogging()
{
    QProcessEnvironment env;
    env.insert("QT_LOGGING_RULES",
               "tideshell.windowserver=true;tideshell.titlebar=true;qt.qpa.*=false");
    return env;
}

QByteArray receive(QUdpSocket &socket)
{
    if (!socket.hasPendingDatagrams())
        socket.waitForReadyRead(5000);
    return socket.receiveDatagram().data();
}

// Whether another program could bind the port on this address to take its datagrams, with
// every sharing option the kernel knows.
bool canShareBind(quint32 ipv4, quint16 port)
{
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    setsockopt(fd, SOL_SOCKET, SO_REUSEPORT, &on, sizeof on);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = htonl(ipv4);
    const bool bound = ::bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) == 0;
    ::close(fd);
    return bound;
}

} // namespace

class TestRemote : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QVERIFY(m_h.start({}, labelLogging())); }
    void labelClicksAreReportedToTheirCreator();
    void injectedKeysAndPointerReachAClient();
    void burstOfDatagrams();
    void lockedDownPort();

private:
    // One shell for the tests on the open port; the locked-down one starts its own.
    ShellHarness m_h;
};

// Reports go to the label's creator (tidectl here), for either button; the same name from
// another sender only changes the text. A removed label is gone: the name is free for the
// next sender, whose clicks are then its own.
void TestRemote::labelClicksAreReportedToTheirCreator()
{
    m_h.send("topen");
    LineProcess *owner = m_h.startClient(
        qEnvironmentVariable("TIDECTL_BINARY"),
        {"--port", QString::number(m_h.controlPort()), "--wait", "taddlabel", "wifi," + wideText});
    QVERIFY(m_h.shell().waitForLine("tideshell.titlebar: label added wifi"));
    m_h.click(barMiddle);
    QVERIFY(owner->waitForLine("clicked:wifi"));

    QUdpSocket other;
    QVERIFY(other.bind(QHostAddress::LocalHost, 0));
    other.writeDatagram("taddlabel wifi," + wideText + "-2", QHostAddress::LocalHost,
                        m_h.controlPort());
    QVERIFY(m_h.shell().waitForLine("tideshell.titlebar: label text wifi"));
    m_h.click(barMiddle, 2);
    QTRY_COMPARE(owner->lines(), QStringList({"clicked:wifi", "clicked:wifi"}));

    m_h.send("tdellabel wifi");
    m_h.click(barMiddle);
    const int mark = m_h.shell().mark();
    other.writeDatagram("taddlabel wifi," + wideText, QHostAddress::LocalHost, m_h.controlPort());
    QVERIFY(m_h.shell().waitForLine("tideshell.titlebar: label added wifi", 10000, mark));
    m_h.click(barMiddle);
    QCOMPARE(receive(other), QByteArray("clicked:wifi"));
    owner->process().terminate();
    QVERIFY(owner->process().waitForFinished());
    QCOMPARE(owner->lines(), QStringList({"clicked:wifi", "clicked:wifi"}));
    m_h.send("tdellabel wifi");
}

void TestRemote::injectedKeysAndPointerReachAClient()
{
    const int mark = m_h.shell().mark();
    LineProcess *demo = m_h.startEventDemo();
    QVERIFY(demo);
    const QRegularExpressionMatch shown = m_h.shell().waitForLine(
        QRegularExpression("window \\d+ Show x=(\\d+) y=(\\d+) .*EventDemo"), 10000, mark);
    QVERIFY(shown.hasMatch());

    // "A" comes with the Shift it needs.
    m_h.tap(65, 65);
    QVERIFY(demo->waitForLine("key key: 30, unicode: 65, state: pressed, modifiers: 0x1"));
    QVERIFY(demo->waitForLine("key key: 30, unicode: 65, state: released, modifiers: 0x1"));
    // The right button and a wheel turn.
    const QPoint at(shown.captured(1).toInt() + 100, shown.captured(2).toInt() + 80);
    m_h.click(at, 2);
    m_h.send(QStringLiteral("smouse %1,%2,0,120").arg(at.x()).arg(at.y()).toUtf8());
    QVERIFY(demo->waitForLine(QRegularExpression("button: 273, state: pressed")).hasMatch());
    QVERIFY(demo->waitForLine(QRegularExpression("^axis time: \\d+, axis: vertical")).hasMatch());
}

// A long run of label commands mixed with malformed, unknown and empty datagrams: the shell's
// account of its label table is what carrying them out in arrival order gives. Each batch
// ends with a marker to wait for, which keeps it within what the socket holds even where the
// system limits its buffer (bench/control_burst.sh measures bursts that need more).
void TestRemote::burstOfDatagrams()
{
    ShellHarness &h = m_h;
    const int mark = h.shell().mark();
    const QByteArrayList junk = {"",
                                 "\n",
                                 "taddlabel nocomma",
                                 "tdellabel unknown",
                                 "skey 1,2,3",
                                 "TADDLABEL x,y",
                                 QByteArray("\x00\xff tdellabel", 12),
                                 QByteArray(1400, 'z'),
                                 "twindowcolor 0,0,0,128"};
    QRandomGenerator random(20261121);
    QSet<QByteArray> labels;
    QStringList expected;
    QUdpSocket socket;
    for (int batch = 1; batch <= 20; ++batch) {
        for (int i = 0; i < 199; ++i) {
            const QByteArray name = "n" + QByteArray::number(random.bounded(12));
            QByteArray datagram = junk.at(int(random.bounded(junk.size())));
            if (const int pick = int(random.bounded(4)); pick == 0) {
                datagram = "taddlabel " + name + ",t";
                expected << (labels.contains(name) ? "text " : "added ") + name;
                labels.insert(name);
            } else if (pick == 1) {
                datagram = "tdellabel " + name;
                if (labels.remove(name))
                    expected << "removed " + name;
            }
            socket.writeDatagram(datagram, QHostAddress::LocalHost, h.controlPort());
        }
        socket.writeDatagram("twindowcolor", QHostAddress::LocalHost, h.controlPort());
        QTRY_COMPARE_WITH_TIMEOUT(h.shell()
                                      .lines()
                                      .mid(mark)
                                      .filter(QRegularExpression("^set window color failed$"))
                                      .size(),
                                  batch, 20000);
    }
    QStringList account = h.shell().lines().mid(mark).filter("tideshell.titlebar: label ");
    account.replaceInStrings(QRegularExpression("^.*tideshell.titlebar: label "), QString());
    QCOMPARE(account, expected);
}

void TestRemote::lockedDownPort()
{
    ShellHarness h;
    QVERIFY(h.writeSettings("[control]\nbind = 127.0.0.1\nallow = 127.0.0.1/32, 10.0.0.0/8\n"
                            "inject = false\nexclusive = true\n"));
    QVERIFY(h.start());
    QVERIFY(!canShareBind(INADDR_LOOPBACK, h.controlPort()));
    QVERIFY(!canShareBind(INADDR_ANY, h.controlPort()));

    // A sender outside the allowed networks changes nothing; its refusals cost one log line.
    // A malformed command from an allowed sender marks where the shell has got to.
    const QRegularExpression refused("tideshell.remote: refused");
    const QRegularExpression barShown("server window Show TitleBarWidget");
    const QRegularExpression anyShown("server window Show");
    const int mark = h.shell().mark();
    QUdpSocket stranger;
    QVERIFY(stranger.bind(QHostAddress("127.0.0.2"), 0));
    for (const QByteArray &command : {"topen", "ttextcolor 1,2,3", "taddlabel a,b"})
        stranger.writeDatagram(command, QHostAddress::LocalHost, h.controlPort());
    h.send("twindowcolor");
    QVERIFY(h.shell().waitForLine("set window color failed", 10000, mark));
    const QStringList afterStranger = h.shell().lines().mid(mark);
    QCOMPARE(afterStranger.filter(refused).size(), 1);
    QVERIFY(afterStranger.filter(barShown).isEmpty());
    QVERIFY(afterStranger.filter("set title text color failed").isEmpty());

    // Allowed senders still steer the bar, but neither keys nor pointer events get in: a tap on
    // the start button opens no menu, a malformed one is not even read.
    h.send("topen");
    QVERIFY(h.shell().waitForLine(barShown, 10000, mark).hasMatch());
    const int shownMark = h.shell().mark();
    h.click(QPoint(24, 456));
    h.send("skey 1,2,3");
    h.send("ttextcolor 1,2");
    QVERIFY(h.shell().waitForLine("set title text color failed", 10000, shownMark));
    const QStringList afterTap = h.shell().lines().mid(shownMark);
    QVERIFY2(afterTap.filter(anyShown).isEmpty(), qPrintable(afterTap.join('\n')));
    QVERIFY(afterTap.filter("wrong key format").isEmpty());
    QCOMPARE(h.shell().lines().mid(mark).filter(refused).size(), 1);
}

QTEST_GUILESS_MAIN(TestRemote)
#include "tst_e2e_remote.moc"
