// The bar's clock and address rules, the application's function-key range, and commands
// that coalesce into one relayout against a real window server. Placement, labels and the
// keys themselves are checked on the running shell by the end-to-end tests.
#include "application.h"
#include "controlcommand.h"
#include "testserver.h"
#include "titlebarlayout.h"
#include "titlebarwidget.h"
#include "windowserver.h"

#include <QSignalSpy>

class TestTitleBar : public QObject
{
    Q_OBJECT
private slots:
    void clockInterval_data();
    void clockInterval();
    void ipText_data();
    void ipText();
    void functionKeyRange_data();
    void functionKeyRange();
    void commandsInABurstGiveTheSameBar_data();
    void commandsInABurstGiveTheSameBar();

private:
    WindowServer m_server;
};

void TestTitleBar::clockInterval_data()
{
    QTest::addColumn<QTime>("now");
    QTest::addColumn<int>("interval");
    QTest::newRow("mid-minute") << QTime(10, 15, 42) << 18000;
    QTest::newRow("on the minute") << QTime(10, 16, 0) << 60000;
    QTest::newRow("milliseconds ignored") << QTime(8, 0, 30, 999) << 30000;
}

void TestTitleBar::clockInterval()
{
    QFETCH(QTime, now);
    QFETCH(int, interval);
    QCOMPARE(::clockInterval(now), interval);
}

void TestTitleBar::ipText_data()
{
    using List = QList<InterfaceAddresses>;
    QTest::addColumn<List>("interfaces");
    QTest::addColumn<QString>("text");
    QTest::newRow("nothing up") << List{{"lo", {"127.0.0.1"}}, {"eth0", {}}} << "eth0:";
    QTest::newRow("only wlan0") << List{{"wlan0", {"192.168.1.5"}}} << "eth0: wla0:192.168.1.5";
    QTest::newRow("both, first address each")
        << List{{"wlan0", {"192.168.1.5", "fe80::2"}}, {"eth0", {"10.0.0.2"}}}
        << "eth0:10.0.0.2 wla0:192.168.1.5";
    QTest::newRow("first interface with an address")
        << List{{"eth0", {}}, {"eth0", {"10.0.0.9"}}} << "eth0:10.0.0.9";
    QTest::newRow("names are exact")
        << List{{"eth00", {"10.0.0.2"}}, {"wlan", {"1.2.3.4"}}} << "eth0:";
}

void TestTitleBar::ipText()
{
    QFETCH(QList<InterfaceAddresses>, interfaces);
    QFETCH(QString, text);
    QCOMPARE(::ipText(interfaces), text);
    // A description after " - " names the same interface.
    QCOMPARE(interfaceAddress("eth0 - cable", {{"eth0", {"10.0.0.2"}}}), "10.0.0.2");
}

void TestTitleBar::functionKeyRange_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<bool>("shells");
    QTest::newRow("F9") << int(Qt::Key_F9) << false;
    QTest::newRow("F10") << int(Qt::Key_F10) << true;
    QTest::newRow("F12") << int(Qt::Key_F12) << true;
    QTest::newRow("F13") << int(Qt::Key_F13) << false;
}

// F10 to F12 are the shell's: signalled and swallowed. Their neighbours pass.
void TestTitleBar::functionKeyRange()
{
    QFETCH(int, key);
    QFETCH(bool, shells);
    auto *app = qobject_cast<Application *>(qApp);
    QSignalSpy special(app, &Application::specialKey);
    QCOMPARE(app->filterKeyEvent(key, false), shells);
    QCOMPARE(special.size(), shells ? 1 : 0);
    if (shells)
        QCOMPARE(special.first(), (QVariantList{key, false}));
}

void TestTitleBar::commandsInABurstGiveTheSameBar_data()
{
    QTest::addColumn<QByteArrayList>("commands");
    QTest::newRow("toggles") << QByteArrayList{"ttoggle", "ttoggle"};
    QTest::newRow("moves") << QByteArrayList{"ttop", "tclose", "tbottom", "ttop", "ttoggle"};
    QTest::newRow("colours around labels") << QByteArrayList{"ttextcolor 255,0,0,255",
                                                             "taddlabel a,x",
                                                             "ttextcolor 0,0,255,255",
                                                             "taddlabel b,y",
                                                             "tdellabel a",
                                                             "taddlabel c,z",
                                                             "topen"};
}

// Commands carried out one by one, each in effect before the next, and the same commands in
// one go, laid out together afterwards, leave the same bar.
void TestTitleBar::commandsInABurstGiveTheSameBar()
{
    QFETCH(QByteArrayList, commands);
    auto finalBar = [&](bool oneByOne) {
        TitleBarWidget bar;
        for (const QByteArray &command : std::as_const(commands)) {
            bar.runControlCommand(parseControlCommand(command), QHostAddress::LocalHost, 1);
            if (oneByOne)
                QCoreApplication::processEvents();
        }
        QCoreApplication::processEvents();
        QStringList state{bar.isVisible() ? "shown" : "hidden"};
        QDebug(&state.emplaceBack()) << bar.geometry() << m_server.maxWindowRect();
        for (const QObject *child : bar.children()) {
            if (child->isWidgetType())
                state << child->objectName() + QLatin1Char('=') +
                             static_cast<const QWidget *>(child)
                                 ->palette()
                                 .color(QPalette::WindowText)
                                 .name();
        }
        return state;
    };
    QCOMPARE(finalBar(false), finalBar(true));
}

int main(int argc, char **argv)
{
    return runWithServer<Application, TestTitleBar>(argc, argv);
}

#include "tst_titlebar.moc"
