#include <QNetworkDatagram>
#include <QProcess>
#include <QTest>
#include <QUdpSocket>

// Runs the real tidectl against a socket standing in for the shell's control port.
class TestTidectl : public QObject
{
    Q_OBJECT

private slots:
    // "PORT" stands for the shell's port; without it the port comes from the environment.
    // `datagram` is what the shell gets (nothing for bad arguments), answered by `replies`
    // click reports, which tidectl prints a line each.
    void run_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QByteArray>("datagram");
        QTest::addColumn<int>("replies");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("joined, UTF-8") << QStringList{"taddlabel", u"n,线"_qs}
                                       << QByteArray("taddlabel n,\xe7\xba\xbf") << 0 << 0;
        QTest::newRow("--port beats the environment, end of options")
            << QStringList{"--port", "PORT", "--", "--wait"} << QByteArray("--wait") << 0 << 0;
        QTest::newRow("--wait --count 2") << QStringList{"--wait", "--count", "2", "tdellabel", "a"}
                                          << QByteArray("tdellabel a") << 2 << 0;
        QTest::newRow("timeout before the count")
            << QStringList{"--count", "2", "--timeout", "300", "topen"} << QByteArray("topen") << 1
            << 1;
        QTest::newRow("--help") << QStringList{"--help"} << QByteArray() << 0 << 0;
        QTest::newRow("only options") << QStringList{"--wait"} << QByteArray() << 0 << 2;
        QTest::newRow("unknown option")
            << QStringList{"--bogus", "topen"} << QByteArray() << 0 << 2;
        QTest::newRow("port out of range")
            << QStringList{"--port=70000", "topen"} << QByteArray() << 0 << 2;
    }

    void run()
    {
        QFETCH(QStringList, args);
        QFETCH(QByteArray, datagram);
        QFETCH(int, replies);
        QFETCH(int, exitCode);
        QUdpSocket shell;
        QVERIFY(shell.bind(QHostAddress::LocalHost, 0));
        const QString port = QString::number(shell.localPort());
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("TIDESHELL_CONTROL_PORT", args.contains("PORT") ? "9" : port);
        args.replaceInStrings(QRegularExpression("^PORT$"), port);
        QProcess proc;
        proc.setProcessEnvironment(env);
        proc.start(qEnvironmentVariable("TIDECTL_BINARY"), args);
        if (!datagram.isEmpty()) {
            QVERIFY(shell.hasPendingDatagrams() || shell.waitForReadyRead(5000));
            const QNetworkDatagram command = shell.receiveDatagram();
            QCOMPARE(command.data(), datagram);
            for (int i = 0; i < replies; ++i)
                shell.writeDatagram(command.makeReply("clicked:a"));
        }
        QVERIFY(proc.waitForFinished(5000));
        QCOMPARE(proc.exitStatus(), QProcess::NormalExit);
        QCOMPARE(proc.exitCode(), exitCode);
        QVERIFY(!shell.hasPendingDatagrams());
        const QByteArray out = proc.readAllStandardOutput(), err = proc.readAllStandardError();
        if (exitCode == 2)
            QVERIFY2(out.isEmpty() && err.contains("usage: tidectl") && err.count('\n') == 1, err);
        else if (datagram.isEmpty()) // the summary names the commands
            QVERIFY(out.startsWith("usage: tidectl") && out.contains("\n  twindowcolor "));
        else
            QCOMPARE(out, QByteArray("clicked:a\n").repeated(replies));
    }
};

QTEST_GUILESS_MAIN(TestTidectl)
#include "tst_tidectl.moc"
