#include <QHostAddress>
#include <QNetworkDatagram>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <QUdpSocket>

// Runs the real tidectl against a socket standing in for the shell's control port.
class TestTidectl : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void sends_data();
    void sends();
    void waitPrintsReports();
    void waitTimeout();
    void waitEndsOnSigterm();
    void badArguments_data();
    void badArguments();

private:
    void start(QProcess &proc, const QStringList &args);
    QNetworkDatagram receive();

    QString m_binary;
    QUdpSocket m_shell;
};

void TestTidectl::initTestCase()
{
    m_binary = qEnvironmentVariable("TIDECTL_BINARY");
    QVERIFY2(QFile::exists(m_binary), "TIDECTL_BINARY must name the tidectl program");
}

void TestTidectl::init()
{
    m_shell.close();
    QVERIFY(m_shell.bind(QHostAddress::LocalHost, 0));
}

void TestTidectl::start(QProcess &proc, const QStringList &args)
{
    proc.start(m_binary, QStringList{"--port", QString::number(m_shell.localPort())} + args);
    QVERIFY(proc.waitForStarted());
}

QNetworkDatagram TestTidectl::receive()
{
    if (!m_shell.hasPendingDatagrams())
        m_shell.waitForReadyRead(5000);
    return m_shell.receiveDatagram();
}

void TestTidectl::sends_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QByteArray>("datagram");

    QTest::newRow("one word") << QStringList{"topen"} << QByteArray("topen");
    QTest::newRow("joined") << QStringList{"taddlabel", "wifi,WLAN"}
                            << QByteArray("taddlabel wifi,WLAN");
    QTest::newRow("dash in command")
        << QStringList{"smouse", "-5,10,0,0"} << QByteArray("smouse -5,10,0,0");
    QTest::newRow("end of options") << QStringList{"--", "--wait"} << QByteArray("--wait");
    QTest::newRow("host") << QStringList{"--host", "127.0.0.1", "tclose"} << QByteArray("tclose");
    QTest::newRow("utf-8") << QStringList{"taddlabel", QString::fromUtf8("n,\xe7\xba\xbf")}
                           << QByteArray("taddlabel n,\xe7\xba\xbf");
}

void TestTidectl::sends()
{
    QFETCH(QStringList, args);
    QFETCH(QByteArray, datagram);
    QProcess proc;
    start(proc, args);
    QVERIFY(proc.waitForFinished(5000));
    QCOMPARE(proc.exitCode(), 0);
    QCOMPARE(receive().data(), datagram);
    QVERIFY(!m_shell.hasPendingDatagrams());
}

void TestTidectl::waitPrintsReports()
{
    QProcess proc;
    start(proc, {"--wait", "--count", "2", "taddlabel", "wifi,WLAN"});
    const QNetworkDatagram command = receive();
    QCOMPARE(command.data(), QByteArray("taddlabel wifi,WLAN"));
    m_shell.writeDatagram(command.makeReply("clicked:wifi"));
    m_shell.writeDatagram(command.makeReply("clicked:wifi"));
    QVERIFY(proc.waitForFinished(5000));
    QCOMPARE(proc.exitStatus(), QProcess::NormalExit);
    QCOMPARE(proc.exitCode(), 0);
    QCOMPARE(proc.readAllStandardOutput(), QByteArray("clicked:wifi\nclicked:wifi\n"));
}

void TestTidectl::waitTimeout()
{
    QProcess proc;
    start(proc, {"--count", "2", "--timeout", "300", "taddlabel", "a,b"});
    const QNetworkDatagram command = receive();
    m_shell.writeDatagram(command.makeReply("clicked:a"));
    QVERIFY(proc.waitForFinished(5000));
    QCOMPARE(proc.exitCode(), 1);
    QCOMPARE(proc.readAllStandardOutput(), QByteArray("clicked:a\n"));
}

void TestTidectl::waitEndsOnSigterm()
{
    QProcess proc;
    start(proc, {"--wait", "taddlabel", "a,b"});
    const QNetworkDatagram command = receive();
    m_shell.writeDatagram(command.makeReply("clicked:a"));
    // The report must be on stdout while tidectl is still waiting, not only at exit.
    QTRY_VERIFY(proc.canReadLine());
    QCOMPARE(proc.readAllStandardOutput(), QByteArray("clicked:a\n"));
    QVERIFY(proc.state() == QProcess::Running);
    proc.terminate();
    QVERIFY(proc.waitForFinished(5000));
    QCOMPARE(proc.exitStatus(), QProcess::NormalExit);
    QCOMPARE(proc.exitCode(), 0);
}

void TestTidectl::badArguments_data()
{
    QTest::addColumn<QStringList>("args");

    QTest::newRow("no command") << QStringList{};
    QTest::newRow("only options") << QStringList{"--wait"};
    QTest::newRow("unknown option") << QStringList{"--bogus", "topen"};
    QTest::newRow("port not numeric") << QStringList{"--port", "abc", "topen"};
    QTest::newRow("port out of range") << QStringList{"--port=70000", "topen"};
    QTest::newRow("count not numeric") << QStringList{"--count", "two", "topen"};
    QTest::newRow("missing value") << QStringList{"--timeout"};
}

void TestTidectl::badArguments()
{
    QFETCH(QStringList, args);
    QProcess proc;
    // Without the leading --port, so a refused argument list cannot be saved by it.
    proc.start(m_binary, args);
    QVERIFY(proc.waitForFinished(5000));
    QCOMPARE(proc.exitCode(), 2);
    const QByteArray err = proc.readAllStandardError();
    QVERIFY2(err.contains("usage: tidectl") && err.count('\n') == 1, err.constData());
    QVERIFY(proc.readAllStandardOutput().isEmpty());
}

QTEST_GUILESS_MAIN(TestTidectl)
#include "tst_tidectl.moc"
