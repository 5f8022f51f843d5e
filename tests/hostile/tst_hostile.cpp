// Clients that break the protocol or lie about their memory must not take the shell down:
// after each misbehaviour the shell is still running and a well-behaved client still gets a
// configured, drawn window. Being disconnected is the misbehaving client's own lookout.
#include "shellharness.h"

#include <QTest>

class TestHostile : public QObject
{
    Q_OBJECT
private slots:
    void shellSurvives_data();
    void shellSurvives();
    void cleanupTestCase();

private:
    // One shell for all rows; a row that kills it fails, and the next row starts another.
    std::unique_ptr<ShellHarness> m_harness;
};

void TestHostile::shellSurvives_data()
{
    QTest::addColumn<QString>("misbehaviour");
    QProcess list;
    list.start(QStringLiteral(HOSTILE_CLIENT), {"--list"});
    QVERIFY(list.waitForFinished());
    for (const QByteArray &name : list.readAllStandardOutput().split('\n'))
        if (!name.isEmpty())
            QTest::newRow(name.constData()) << QString::fromLatin1(name);
}

void TestHostile::shellSurvives()
{
    QFETCH(QString, misbehaviour);
    if (!m_harness || m_harness->shell().process().state() != QProcess::Running) {
        m_harness = std::make_unique<ShellHarness>();
        QVERIFY(m_harness->start());
    }
    LineProcess &shell = m_harness->shell();
    LineProcess *hostile = m_harness->startClient(HOSTILE_CLIENT, {misbehaviour});
    QVERIFY2(hostile->process().waitForFinished(30000), "the hostile client hangs");
    QProcess &good = m_harness->startClient(HOSTILE_CLIENT, {"good"})->process();
    const bool served = good.waitForFinished(30000) && good.exitCode() == 0;
    if (!served)
        shell.process().waitForFinished(5000); // a crash may not have been noticed yet
    const bool running = shell.process().state() == QProcess::Running;
    const QByteArray lastWords = QStringLiteral("shell %1, it printed:\n%2")
                                     .arg(running ? "running" : "ended")
                                     .arg(shell.lines().mid(shell.mark() - 40).join('\n'))
                                     .toLocal8Bit();
    QVERIFY2(served, lastWords.constData());
    QVERIFY2(running, lastWords.constData());
    // 0: ran to its end, 2: disconnected by the shell; 3: the shell stopped answering.
    const int status = hostile->process().exitCode();
    QVERIFY2(hostile->process().exitStatus() == QProcess::NormalExit &&
                 (status == 0 || status == 2),
             qPrintable(hostile->lines().join('\n')));
}

void TestHostile::cleanupTestCase()
{
    m_harness.reset(); // while a test function runs, so that sanitizer findings fail it
}

QTEST_GUILESS_MAIN(TestHostile)
#include "tst_hostile.moc"
