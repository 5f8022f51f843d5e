// Clients that break the protocol or lie about their memory must not take the shell down:
// after each misbehaviour the shell still runs and a well-behaved client still gets its window
// shown and focused. Being disconnected is the misbehaving client's own lookout.
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
    // refused: the shell must end the client with a protocol error.
    QTest::addColumn<bool>("refused");
    for (const char *name :
         {"shm-truncated", "pool-beyond-file", "surface-before-toplevel", "frame-flood"})
        QTest::newRow(name) << false;
    QTest::newRow("buffer-scale-zero") << true;
    QTest::newRow("xdg-surface-before-toplevel") << true;
}

void TestHostile::shellSurvives()
{
    QFETCH(bool, refused);
    if (!m_harness || m_harness->shell().process().state() != QProcess::Running) {
        m_harness = std::make_unique<ShellHarness>();
        QVERIFY(m_harness->start());
    }
    LineProcess &shell = m_harness->shell();
    QProcess &hostile =
        m_harness->startClient(HOSTILE_CLIENT, {QTest::currentDataTag()})->process();
    QVERIFY2(hostile.waitForFinished(30000), "the hostile client hangs");
    // 0: ran to its end, 2: disconnected by the shell.
    QCOMPARE(hostile.exitStatus(), QProcess::NormalExit);
    QVERIFY2(hostile.exitCode() == 2 || (!refused && hostile.exitCode() == 0),
             hostile.readAll().constData());
    QVERIFY2(m_harness->startQtClient() && shell.process().state() == QProcess::Running,
             qPrintable(shell.lines().mid(shell.mark() - 40).join('\n')));
}

void TestHostile::cleanupTestCase()
{
    m_harness.reset(); // while a test function runs, so that sanitizer findings fail it
}

QTEST_GUILESS_MAIN(TestHostile)
#include "tst_hostile.moc"
