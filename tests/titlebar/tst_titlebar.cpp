// The bar's arithmetic, its placement against a real window server, and the application's
// function-key filter.
#include "application.h"
#include "controlcommand.h"
#include "customlabel.h"
#include "datetimesettingdlg.h"
#include "qtmyiconstyle.h"
#include "testserver.h"
#include "titlebarlayout.h"
#include "titlebarwidget.h"
#include "windowserver.h"

#include <QDateTime>
#include <QLineEdit>
#include <QSignalSpy>
#include <QStyleFactory>
#include <QTimer>

class TestTitleBar : public QObject
{
    Q_OBJECT
private slots:
    void clockInterval_data();
    void clockInterval();
    void ipText_data();
    void ipText();
    void rectangles_data();
    void rectangles();

    void barPlacesItselfAndTheClientArea();
    void commandsInABurstGiveTheSameBar_data();
    void commandsInABurstGiveTheSameBar();
    void functionKeysToggleBarAndAreSwallowed();
    void customLabelClicksOnAnyRelease();
    void iconStyleEnlargesSmallIcons();
    void dateLabelShowsTimeAfterDialog();

private:
    WindowServer m_server;
};

void TestTitleBar::clockInterval_data()
{
    QTest::addColumn<QTime>("now");
    QTest::addColumn<int>("interval");
    QTest::newRow("mid-minute") << QTime(10, 15, 42) << 18000;
    QTest::newRow("on the minute") << QTime(10, 16, 0) << 60000;
    QTest::newRow("last second") << QTime(23, 59, 59) << 1000;
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
    const InterfaceAddresses lo{"lo", {"127.0.0.1"}};
    QTest::newRow("nothing up") << List{lo} << "eth0:";
    QTest::newRow("eth0 without address") << List{lo, {"eth0", {}}} << "eth0:";
    QTest::newRow("only wlan0") << List{lo, {"wlan0", {"192.168.1.5"}}} << "eth0: wla0:192.168.1.5";
    QTest::newRow("both") << List{{"wlan0", {"192.168.1.5"}}, {"eth0", {"10.0.0.2"}}}
                          << "eth0:10.0.0.2 wla0:192.168.1.5";
    QTest::newRow("first address only")
        << List{{"eth0", {"10.0.0.2", "fe80::1"}}} << "eth0:10.0.0.2";
    QTest::newRow("IPv6 first") << List{{"eth0", {"fe80::1", "10.0.0.2"}}} << "eth0:fe80::1";
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
    // A description after " - " names the same interface; at the very start it does not.
    const QList<InterfaceAddresses> eth{{"eth0", {"10.0.0.2"}}};
    QCOMPARE(interfaceAddress("eth0 - cable", eth), "10.0.0.2");
    QCOMPARE(interfaceAddress(" - eth0", eth), QString());
}

void TestTitleBar::rectangles_data()
{
    QTest::addColumn<QSize>("screen");
    QTest::addColumn<int>("position");
    QTest::addColumn<QRect>("bar");
    QTest::addColumn<QRect>("clients");
    QTest::newRow("bottom") << QSize(800, 480) << 1 << QRect(0, 432, 800, 48)
                            << QRect(0, 0, 800, 432);
    QTest::newRow("top") << QSize(800, 480) << 0 << QRect(0, 0, 800, 48) << QRect(0, 48, 800, 432);
    QTest::newRow("any other value is bottom")
        << QSize(800, 480) << 7 << QRect(0, 432, 800, 48) << QRect(0, 0, 800, 432);
    QTest::newRow("rotated screen")
        << QSize(480, 800) << 1 << QRect(0, 752, 480, 48) << QRect(0, 0, 480, 752);
}

void TestTitleBar::rectangles()
{
    QFETCH(QSize, screen);
    QFETCH(int, position);
    QFETCH(QRect, bar);
    QFETCH(QRect, clients);
    QCOMPARE(titleBarRect(screen, position), bar);
    QCOMPARE(clientAreaRect(screen, position), clients);
}

void TestTitleBar::barPlacesItselfAndTheClientArea()
{
    TitleBarWidget bar;
    const QRect screen(0, 0, 800, 480);
    // Built, laid out once and hidden: the whole screen is free.
    QVERIFY(bar.isHidden());
    QCOMPARE(m_server.maxWindowRect(), screen);
    QCOMPARE(bar.geometry(), QRect(0, 432, 800, 48));

    QVERIFY(QMetaObject::invokeMethod(&bar, "showTitleBar"));
    QVERIFY(bar.isVisible());
    QCOMPARE(m_server.maxWindowRect(), QRect(0, 0, 800, 432));

    // A rotation while shown re-lays the bar; while hidden it stays hidden.
    QVERIFY(QMetaObject::invokeMethod(&bar, "onScreenTransformed"));
    QVERIFY(bar.isVisible());
    QVERIFY(QMetaObject::invokeMethod(&bar, "hideTitleBar"));
    QCOMPARE(m_server.maxWindowRect(), screen);
    QVERIFY(QMetaObject::invokeMethod(&bar, "onScreenTransformed"));
    QVERIFY(bar.isHidden());

    // Moving the bar shows it, at the new place.
    QVERIFY(QMetaObject::invokeMethod(&bar, "changeTitleBarPosition",
                                      Q_ARG(TitleBarPosition, TitleBarTop)));
    QVERIFY(bar.isVisible());
    QCOMPARE(bar.geometry(), QRect(0, 0, 800, 48));
    QCOMPARE(m_server.maxWindowRect(), QRect(0, 48, 800, 432));
    // Its height never changes, whatever the layout would like.
    QCOMPARE(bar.minimumSize(), QSize(800, 48));
    QCOMPARE(bar.maximumSize(), QSize(800, 48));
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

void TestTitleBar::functionKeysToggleBarAndAreSwallowed()
{
    auto *app = qobject_cast<Application *>(qApp);
    QVERIFY(app);
    TitleBarWidget bar;
    connect(app, &Application::specialKey, &bar, &TitleBarWidget::onSpecialKey);
    QSignalSpy special(app, &Application::specialKey);

    QLineEdit edit;
    edit.show();
    edit.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&edit));

    // Sent as window-system keys, the way the device's keyboard and the control port do.
    QTest::keyClick(edit.windowHandle(), Qt::Key_F11);
    QCOMPARE(special.count(), 2);
    QCOMPARE(special.at(0), (QVariantList{int(Qt::Key_F11), true}));
    QCOMPARE(special.at(1), (QVariantList{int(Qt::Key_F11), false}));
    QVERIFY(bar.isVisible());
    QTest::keyClick(edit.windowHandle(), Qt::Key_F10);
    QTest::keyClick(edit.windowHandle(), Qt::Key_F11);
    QVERIFY(bar.isHidden());

    // The neighbours of the range pass; only they reach the widget.
    QTest::keyClick(edit.windowHandle(), Qt::Key_F9);
    QTest::keyClick(edit.windowHandle(), Qt::Key_F13);
    QTest::keyClick(edit.windowHandle(), Qt::Key_Q);
    QCOMPARE(special.count(), 6);
    QCOMPARE(edit.text(), "q");
    QVERIFY(app->filterKeyEvent(Qt::Key_F12, false));
    QVERIFY(!app->filterKeyEvent(Qt::Key_F9, true));
    QVERIFY(!app->filterKeyEvent(Qt::Key_F13, true));
}

void TestTitleBar::customLabelClicksOnAnyRelease()
{
    CustomLabel label;
    label.resize(100, 30);
    QSignalSpy clicked(&label, &CustomLabel::clicked);
    QTest::mousePress(&label, Qt::LeftButton, {}, QPoint(5, 5));
    QCOMPARE(clicked.count(), 0);
    QTest::mouseRelease(&label, Qt::LeftButton, {}, QPoint(500, 500));
    QTest::mouseRelease(&label, Qt::RightButton, {}, QPoint(5, 5));
    QCOMPARE(clicked.count(), 2);
}

void TestTitleBar::iconStyleEnlargesSmallIcons()
{
    QTMyIconStyle style;
    std::unique_ptr<QStyle> fusion(QStyleFactory::create("Fusion"));
    QCOMPARE(style.pixelMetric(QStyle::PM_SmallIconSize), 32);
    for (auto metric : {QStyle::PM_LargeIconSize, QStyle::PM_ButtonMargin, QStyle::PM_MenuHMargin,
                        QStyle::PM_ToolBarIconSize})
        QCOMPARE(style.pixelMetric(metric), fusion->pixelMetric(metric));
}

void TestTitleBar::dateLabelShowsTimeAfterDialog()
{
    // Never the device's clock, should the dialog be accepted after all.
    DateTimeSettingDlg::setClockProgram(QStringLiteral("true"));
    TitleBarWidget bar;
    auto *date = bar.findChild<CustomLabel *>("dateLabel");
    QVERIFY(date);
    date->setText("stale");

    // The dialog runs modally inside the click handler; cancel it from its own event loop.
    int cancelled = 0;
    QTimer closer;
    connect(&closer, &QTimer::timeout, [&] {
        for (QWidget *w : QApplication::topLevelWidgets()) {
            auto *dlg = qobject_cast<DateTimeSettingDlg *>(w);
            if (dlg && dlg->isVisible()) {
                dlg->reject();
                ++cancelled;
            }
        }
    });
    closer.start(20);
    const QString before = QDateTime::currentDateTime().toString("yyyy/M/d hh:mm");
    QVERIFY(QMetaObject::invokeMethod(&bar, "onDateLabelClicked"));
    const QString after = QDateTime::currentDateTime().toString("yyyy/M/d hh:mm");
    closer.stop();
    QCOMPARE(cancelled, 1);
    QVERIFY2(date->text() == before || date->text() == after, qPrintable(date->text()));
}

int main(int argc, char **argv)
{
    return runWithServer<Application, TestTitleBar>(argc, argv);
}

#include "tst_titlebar.moc"
