#include <QHostAddress>
#include <QNetworkDatagram>
#include <QProcess>
#include <QTest>
#include <QUdpSocket>

// Runs the real tidectl against a socket standing in for the shell's control port.
class TestTidectl : public QObject
{
    Q_OBJECT

    QString m_binary;
    QUdpSocket m_shell;

private slots:
    void initTestCase()
    {
        m_binary = qEnvironmentVariable("TIDECTL_BINARY");
        QVERIFY2(QFile::exists(m_binary), "TIDECTL_BINARY must name the tidectl program");
    }

    void init()
    {
        m_shell.close();
        QVERIFY(m_shell.bind(QHostAddress::LocalHost, 0));
    }

    // One datagram, the arguments joined by spaces. Each reply is then printed as a line;
    // --count ends the wait, --timeout gives up with status 1.
    void sends_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QByteArray>("datagram");
        QTest::addColumn<int>("replies");
        QTest::addColumn<int>("exitCode");
        // "PORT" stands for the shell's port; without it the port comes from the environment.
        QTest::newRow("one word") << QStringList{"topen"} << QByteArray("topen") << 0 << 0;
        QTest::newRow("--port beats the environment")
            << QStringList{"--port", "PORT", "topen"} << QByteArray("topen") << 0 << 0;
        QTest::newRow("joined") << QStringList{"taddlabel", "wifi,WLAN"}
                                << QByteArray("taddlabel wifi,WLAN") << 0 << 0;
        QTest::newRow("dash in command")
            << QStringList{"smouse", "-5,10,0,0"} << QByteArray("smouse -5,10,0,0") << 0 << 0;
        QTest::newRow("end of options")
            << QStringList{"--", "--wait"} << QByteArray("--wait") << 0 << 0;
        QTest::newRow("host") << QStringList{"--host", "127.0.0.1", "tclose"}
                              << QByteArray("tclose") << 0 << 0;
        QTest::newRow("utf-8") << QStringList{"taddlabel", QString::fromUtf8("n,\xe7\xba\xbf")}
                               << QByteArray("taddlabel n,\xe7\xba\xbf") << 0 << 0;
        QTest::newRow("--wait --count 2")
            << QStringList{"--wait", "--count", "2", "taddlabel", "a,b"}
            << QByteArray("taddlabel a,b") << 2 << 0;
        QTest::newRow("timeout before the count")
            << QStringList{"--count", "2", "--timeout", "300", "taddlabel", "a,b"}
            << QByteArray("taddlabel a,b") << 1 << 1;
    }

    void sends()
    {
        QFETCH(QStringList, args);
        QFETCH(QByteArray, datagram);
        QFETCH(int, replies);
        QFETCH(int, exitCode);
        const QString port = QString::number(m_shell.localPort());
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("TIDESHELL_CONTROL_PORT", args.contains("PORT") ? "9" : port);
        args.replaceInStrings(QRegularExpression("^PORT$"), port);
        QProcess proc;
        proc.setProcessEnvironment(env);
        proc.start(m_binary, args);
        QVERIFY(proc.waitForStarted());
        if (!m_shell.hasPendingDatagrams())
            m_shell.waitForReadyRead(5000);
        const QNetworkDatagram command = m_shell.receiveDatagram();
        QCOMPARE(command.data(), datagram);
        for (int i = 0; i < replies; ++i)
            m_shell.writeDatagram(command.makeReply("clicked:a"));
        QVERIFY(proc.waitForFinished(5000));
        QCOMPARE(proc.exitStatus(), QProcess::NormalExit);
        QCOMPARE(proc.exitCode(), exitCode);
        QCOMPARE(proc.readAllStandardOutput(), QByteArray("clicked:a\n").repeated(replies));
        QVERIFY(!m_shell.hasPendingDatagrams());
    }

    // The summary names every command the shell takes.
    void help()
    {
        QProcess proc;
        proc.start(m_binary, {"--help"});
        QVERIFY(proc.waitForFinished(5000));
        QCOMPARE(proc.exitCode(), 0);
        const QByteArray out = proc.readAllStandardOutput();
        QVERIFY(out.startsWith("usage: tidectl"));
        for (const char *word :
             {"tclose", "topen", "ttoggle", "ttop", "tbottom", "kbdshow", "kbdhide", "kbdtoggle",
              "taddlabel", "tdellabel", "ttextcolor", "twindowcolor", "smouse", "skey"})
            QVERIFY2(out.contains(QByteArray("\n  ") + word + ' '), word);
    }

    void badArguments_data()
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

    void badArguments()
    {
        QFETCH(QStringList, args);
        QProcess proc;
        proc.start(m_binary, args);
        QVERIFY(proc.waitForFinished(5000));
        QCOMPARE(proc.exitCode(), 2);
        const QByteArray err = proc.readAllStandardError();
        QVERIFY2(err.contains("usage: tidectl") && err.count('\n') == 1, err.constData());
        QVERIFY(proc.readAllStandardOutput().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestTidectl)
#include "tst_tidectl.moc"
