// How a typed command line or an entry's Path is split into a program and its arguments.
// Starting entries and typed commands in the running shell is left to the end-to-end test.
#include "commandline.h"

#include <QTest>

class TestCommandLine : public QObject
{
    Q_OBJECT
private slots:
    void splitCommandLine_data();
    void splitCommandLine();
};

void TestCommandLine::splitCommandLine_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("args");
    const auto row = [](const char *name, const QString &line, const QString &program,
                        const QStringList &args = {}) {
        QTest::newRow(name) << line << program << args;
    };

    row("blanks only", "    ", "");
    row("blank runs", "  /bin/echo   a  b  ", "/bin/echo", {"a", "b"});
    row("both quotes", "/bin/echo \"a b\" 'c  d '", "/bin/echo", {"a b", "c  d "});
    row("empty quotes give nothing", "p \"\" '' q", "p", {"q"});
    row("quotes join with neighbours", "p a\"b c\"d", "p", {"ab cd"});
    row("each quote inside the other", "p \"it's\" 'say \"hi\"'", "p", {"it's", "say \"hi\""});
    row("unclosed quote runs to the end", "p \"a b  c", "p", {"a b  c"});
    row("backslash blank joins", "my\\ prog arg", "my prog", {"arg"});
    row("backslash in quotes", "p 'a\\'b' \"a\\\"b\" a\\\\b", "p", {"a'b", "a\"b", "a\\b"});
}

void TestCommandLine::splitCommandLine()
{
    QFETCH(QString, line);
    QFETCH(QString, program);
    QFETCH(QStringList, args);

    // Tokens are appended to the list given.
    QString gotProgram;
    QStringList gotArgs{"given"};
    ::splitCommandLine(line, gotProgram, gotArgs);
    QCOMPARE(gotProgram, program);
    QCOMPARE(gotArgs, QStringList{"given"} + args);
}

QTEST_APPLESS_MAIN(TestCommandLine)
#include "tst_startmenu.moc"
