// Control commands that arrive together are laid out in one go; the bar they leave must be the
// one they give carried out one by one. The IP label reads the system's interfaces as Qt's own
// network classes list them. Run against a real window server in this process.
#include "application.h"
#include "controlcommand.h"
#include "testserver.h"
#include "titlebarlayout.h"
#include "titlebarwidget.h"
#include "windowserver.h"

#include <QLabel>
#include <QNetworkInterface>

class TestTitleBar : public QObject
{
    Q_OBJECT
private slots:
    void commandsInABurstGiveTheSameBar_data();
    void commandsInABurstGiveTheSameBar();
    void ipLabelShowsTheSystemsAddresses();

private:
    WindowServer m_server;
};

void TestTitleBar::commandsInABurstGiveTheSameBar_data()
{
    QTest::addColumn<QByteArrayList>("commands");
    QTest::newRow("moves") << QByteArrayList{"ttop", "tclose", "tbottom", "ttop", "ttoggle"};
    QTest::newRow("colours around labels") << QByteArrayList{"ttextcolor 255,0,0,255",
                                                             "taddlabel a,x",
                                                             "ttextcolor 0,0,255,255",
                                                             "taddlabel b,y",
                                                             "tdellabel a",
                                                             "taddlabel c,z",
                                                             "topen"};
}

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

void TestTitleBar::ipLabelShowsTheSystemsAddresses()
{
    QList<InterfaceAddresses> interfaces;
    for (const QNetworkInterface &iface : QNetworkInterface::allInterfaces()) {
        interfaces.append({iface.name(), {}});
        for (const QNetworkAddressEntry &entry : iface.addressEntries())
            interfaces.last().addresses.append(entry.ip().toString());
    }
    TitleBarWidget bar;
    bar.runControlCommand(parseControlCommand("topen"), QHostAddress::LocalHost, 1);
    QCoreApplication::processEvents();
    const auto *label = bar.findChild<QLabel *>(QStringLiteral("ipLabel"));
    QVERIFY(label);
    QCOMPARE(label->text(), ipText(interfaces));
}

int main(int argc, char **argv)
{
    return runWithServer<Application, TestTitleBar>(argc, argv);
}

#include "tst_titlebar.moc"
