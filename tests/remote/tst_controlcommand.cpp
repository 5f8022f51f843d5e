#include "controlcommand.h"

#include <QTest>

// Every row parses one datagram and compares a one-line summary of the decoded command: the
// kind with its fields, or the debug line the command prints (which carries the colour values,
// or the message of a malformed command).
class TestControlCommand : public QObject
{
    Q_OBJECT
private slots:
    void parse_data();
    void parse();
};

static QString summary(const ControlCommand &cmd)
{
    static const char *const kinds[] = {"None",        "Close",    "Open",     "Toggle",
                                        "Top",         "Bottom",   "KbdShow",  "KbdHide",
                                        "KbdToggle",   "AddLabel", "DelLabel", "TextColor",
                                        "WindowColor", "Mouse",    "Key"};
    const QString line = cmd.debugLine();
    if (!line.isEmpty())
        return line;
    QString s = QLatin1String(kinds[cmd.kind]);
    const auto four = [](int a, int b, int c, int d) {
        return QStringLiteral(" %1 %2 %3 %4").arg(a).arg(b).arg(c).arg(d);
    };
    switch (cmd.kind) {
    case ControlCommand::KbdShow:
        return cmd.methodGiven ? s + QLatin1Char(' ') + QString::number(cmd.method) : s;
    case ControlCommand::AddLabel:
        return s + QStringLiteral(" [%1] [%2]").arg(cmd.name, cmd.text);
    case ControlCommand::DelLabel:
        return s + QStringLiteral(" [%1]").arg(cmd.name);
    case ControlCommand::Mouse:
        return s + four(cmd.mouse.x, cmd.mouse.y, cmd.mouse.stat, cmd.mouse.wheel);
    case ControlCommand::Key:
        return s + four(cmd.key.unicode, cmd.key.keyCode, cmd.key.modifier, cmd.key.pressed);
    default:
        return s;
    }
}

void TestControlCommand::parse_data()
{
    QTest::addColumn<QByteArray>("datagram");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char *datagram, const char *expected) {
        QTest::newRow(datagram) << QByteArray(datagram) << QString::fromUtf8(expected);
    };

    // Matching: trimmed first, then case-sensitive prefixes in a fixed order.
    row(" \t\r\n", "None");
    row("xtclose", "None");
    row("TCLOSE", "None");
    row("  topen \n", "Open");
    row("tclose now", "Close");
    row("ttoggle", "Toggle");
    row("ttopper", "Top");
    row("tbottom", "Bottom");
    row("kbdhide", "KbdHide");
    row("kbdtoggle", "KbdToggle");

    // The input method number only counts when it converts cleanly.
    row("kbdshow", "KbdShow");
    row("kbdshow1", "KbdShow 1");
    row("kbdshow -1", "KbdShow -1");
    row("kbdshow 1 x", "KbdShow");

    // Labels: one character after the word is skipped whatever it is; the first comma splits.
    row("taddlabelwifi,WLAN", "AddLabel [ifi] [WLAN]");
    row("taddlabel  a , b,c", "AddLabel [ a ] [ b,c]");
    row("taddlabel net,\xe6\x97\xa0\xe7\xba\xbf", "AddLabel [net] [\xe6\x97\xa0\xe7\xba\xbf]");
    row("taddlabel abc", "wrong param!!");
    row("tdellabel  a,b", "DelLabel [ a,b]");

    // Four numbers: exactly four fields; a blank may lead a number, anything else makes it 0.
    row("ttextcolor 255,255,0,255", "set title text color to 255 255 0 255");
    row("ttextcolor255,0,0,255", "set title text color to 255 0 0 255");
    row("ttextcolor 1 ,0x10,,+7", "set title text color to 0 0 0 7");
    row("ttextcolor 255,0,0", "set title text color failed");
    row("ttextcolor 255,0,0,255,1", "set title text color failed");
    row("twindowcolor 1,2,3,4", "set window color to 1 2 3 4");
    row("twindowcolor 1", "set window color failed");
    row("smouse10,20,1,-120", "Mouse 0 20 1 -120");
    row("smouse 10;20;1;0", "wrong mouse format, should be x,y,stat,wheel");
    row("skey 97,65,33554432,7", "Key 97 65 33554432 1");
    row("skey65,65,0,1", "Key 5 65 0 1");
    row("skey 65,65,0,1,0", "wrong key format, should be unicode,keyCode,modifier,pressed");
}

void TestControlCommand::parse()
{
    QFETCH(QByteArray, datagram);
    QFETCH(QString, expected);
    QCOMPARE(summary(parseControlCommand(datagram)), expected);
}

QTEST_APPLESS_MAIN(TestControlCommand)
#include "tst_controlcommand.moc"
