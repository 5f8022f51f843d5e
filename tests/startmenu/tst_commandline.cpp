#include "commandline.h"

#include <QTest>

class TestCommandLine : public QObject
{
    Q_OBJECT
private slots:
    void split_data();
    void split();
    void appendsToGivenArguments();
};

void TestCommandLine::split_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("args");

    const QStringList none;
    QTest::newRow("empty") << ""
                           << "" << none;
    QTest::newRow("blanks only") << "    "
                                 << "" << none;
    QTest::newRow("program only") << "/bin/true"
                                  << "/bin/true" << none;
    QTest::newRow("blank runs") << "  /bin/echo   a  b  "
                                << "/bin/echo" << QStringList{"a", "b"};
    QTest::newRow("tab is ordinary") << "a\tb c"
                                     << "a\tb" << QStringList{"c"};

    QTest::newRow("double quotes") << "/bin/echo \"a b\" c"
                                   << "/bin/echo" << QStringList{"a b", "c"};
    QTest::newRow("apostrophes") << "/bin/echo 'a b' c"
                                 << "/bin/echo" << QStringList{"a b", "c"};
    QTest::newRow("leading blanks in quotes vanish") << "p \"  x\""
                                                     << "p" << QStringList{"x"};
    QTest::newRow("leading blanks in apostrophes vanish") << "p '  x'"
                                                          << "p" << QStringList{"x"};
    QTest::newRow("inner and trailing blanks kept") << "p \"x  y \""
                                                    << "p" << QStringList{"x  y "};
    QTest::newRow("empty quotes give nothing") << "p \"\" '' q"
                                               << "p" << QStringList{"q"};
    QTest::newRow("quotes join with neighbours") << "p a\"b c\"d"
                                                 << "p" << QStringList{"ab cd"};
    QTest::newRow("apostrophe inside quotes") << "p \"it's\""
                                              << "p" << QStringList{"it's"};
    QTest::newRow("quote inside apostrophes") << "p 'say \"hi\"'"
                                              << "p" << QStringList{"say \"hi\""};
    QTest::newRow("quoted program") << "\"my prog\" x"
                                    << "my prog" << QStringList{"x"};
    QTest::newRow("unclosed quote runs to the end") << "p \"a b  c"
                                                    << "p" << QStringList{"a b  c"};
    QTest::newRow("unclosed apostrophe runs to the end") << "p 'a \"b"
                                                         << "p" << QStringList{"a \"b"};

    QTest::newRow("backslash blank joins") << "my\\ prog arg"
                                           << "my prog" << QStringList{"arg"};
    QTest::newRow("backslash quote") << "p \\\"a b\\\""
                                     << "p" << QStringList{"\"a", "b\""};
    QTest::newRow("backslash apostrophe") << "p it\\'s"
                                          << "p" << QStringList{"it's"};
    QTest::newRow("double backslash") << "p a\\\\b"
                                      << "p" << QStringList{"a\\b"};
    QTest::newRow("backslash inside apostrophes") << "p 'a\\'b'"
                                                  << "p" << QStringList{"a'b"};
    QTest::newRow("backslash inside quotes") << "p \"a\\\"b\""
                                             << "p" << QStringList{"a\"b"};
    QTest::newRow("escaped blank starts a token") << "p \\ x"
                                                  << "p" << QStringList{" x"};
    QTest::newRow("trailing backslash kept") << "p ab\\"
                                             << "p" << QStringList{"ab\\"};
    QTest::newRow("lone trailing backslash") << "p \\"
                                             << "p" << QStringList{"\\"};

    QTest::newRow("stops at a zero character")
        << QString::fromLatin1("p a\0b c", 7) << "p" << QStringList{"a"};
    // Bytes come back one character each: UTF-8 text arrives spelt in Latin-1.
    QTest::newRow("non-ASCII kept bytewise")
        << QString::fromUtf8("p \xc3\xa9") << "p" << QStringList{QString::fromLatin1("\xc3\xa9")};
}

void TestCommandLine::split()
{
    QFETCH(QString, line);
    QFETCH(QString, program);
    QFETCH(QStringList, args);

    QString gotProgram;
    QStringList gotArgs;
    splitCommandLine(line, gotProgram, gotArgs);
    QCOMPARE(gotProgram, program);
    QCOMPARE(gotArgs, args);
}

void TestCommandLine::appendsToGivenArguments()
{
    QString program;
    QStringList args{"kept"};
    splitCommandLine("p x", program, args);
    QCOMPARE(program, QString("p"));
    QCOMPARE(args, (QStringList{"kept", "x"}));
}

QTEST_APPLESS_MAIN(TestCommandLine)
#include "tst_commandline.moc"
