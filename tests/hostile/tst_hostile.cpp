// Clients that break the protocol or lie about their memory must not take the shell down:
// after each misbehaviour the shell is still running and a well-behaved client still gets a
// configured, rendered window. Being disconnected is the misbehaving client's own lookout.
#include "shellharness.h"

#include <QTest>

#include <memory>

class TestHostile : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanupTestCase();
    void shellSurvives_data();
    void shellSurvives();

private:
    // One shell for all rows; a row that kills it fails, and the next row starts another.
    std::unique_ptr<ShellHarness> m_harness;
};

void TestHostile::init()
{
    if (m_harness && m_harness->shell().process().state() == QProcess::Running)
        return;
    m_harness = std::make_unique<ShellHarness>();
    QVERIFY(m_harness->start());
}

void TestHostile::cleanupTestCase()
{
    m_harness.reset();
}

void TestHostile::shellSurvives_data()
{
    QTest::addColumn<QString>("misbehaviour");
    for (const char *name : {"surface-before-toplevel",
                             "shm-truncated",
                             "buffer-scale-zero",
                             "stride-too-small",
                             "buffer-past-pool",
                             "pool-beyond-file",
                             "huge-buffer",
                             "max-width",
                             "wide-buffer",
                             "pool-before-buffer",
                             "buffer-before-commit",
                             "xdg-surface-before-toplevel",
                             "seat-objects",
                             "subsurface-cycle",
                             "subsurface-self",
                             "popup-zero-size",
                             "popup-no-anchor",
                             "popup-no-parent",
                             "garbage",
                             "unknown-object",
                             "frame-flood"})
        QTest::newRow(name) << QString::fromLatin1(name);
}

void TestHostile::shellSurvives()
{
    QFETCH(QString, misbehaviour);
    ShellHarness &h = *m_harness;
    LineProcess &shell = h.shell();

    LineProcess *hostile = h.startClient(QStringLiteral(HOSTILE_CLIENT), {misbehaviour});
    QVERIFY2(hostile->process().waitForFinished(30000), "the hostile client hangs");
    LineProcess *good = h.startClient(QStringLiteral(HOSTILE_CLIENT), {QStringLiteral("good")});
    const bool served = good->process().waitForFinished(30000) && good->process().exitCode() == 0;
    if (!served) // a crash may not have been noticed yet
        shell.process().waitForFinished(5000);
    const QStringList lines = shell.lines();
    const QByteArray lastWords =
        QStringLiteral("shell %1, it printed:\n%2")
            .arg(shell.process().state() == QProcess::Running
                     ? QStringLiteral("still running")
                     : QStringLiteral("ended with %1").arg(shell.process().exitCode()),
                 lines.mid(qMax(0, int(lines.size()) - 40)).join(QLatin1Char('\n')))
            .toLocal8Bit();
    QVERIFY2(served, lastWords.constData());
    QVERIFY2(shell.process().state() == QProcess::Running, lastWords.constData());
    // 0: ran to its end, 2: disconnected by the shell; 3: the shell stopped answering it.
    const int status = hostile->process().exitCode();
    QVERIFY2(status == 0 || status == 2, qPrintable(hostile->lines().join(QLatin1Char('\n'))));
}

QTEST_GUILESS_MAIN(TestHostile)
#include "tst_hostile.moc"
