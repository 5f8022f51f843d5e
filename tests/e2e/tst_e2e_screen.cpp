// The screen as the device shows it: on the vnc platform Qt composes every window into one
// image as linuxfb does on the device, and the tests read it back over RFB. Only the pixels
// show whether a window is really on the screen and how it mixes with the desktop.
#include "rfbclient.h"
#include "shellwindows.h"

#include <QTest>

namespace {

const QColor desktop(51, 153, 128);

bool near(const QColor &a, const QColor &b)
{
    return qAbs(a.red() - b.red()) <= 3 && qAbs(a.green() - b.green()) <= 3 &&
           qAbs(a.blue() - b.blue()) <= 3;
}

// `over` with its alpha laid on the desktop.
QColor onDesktop(const QColor &over)
{
    const double a = over.alphaF();
    return QColor::fromRgbF(over.redF() * a + desktop.redF() * (1 - a),
                            over.greenF() * a + desktop.greenF() * (1 - a),
                            over.blueF() * a + desktop.blueF() * (1 - a));
}

const QColor bar = onDesktop(QColor(255, 255, 255, 128));

} // namespace

class TestScreen : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void barBlendsWithDesktop();
    void menuAndRunDialogShownAgain();
    void keyboardLeavesTopBarUncovered();
    void clientContentIsShown();

private:
    // Whether the point soon shows this colour (within a step of rounding).
    bool shows(const QPoint &at, const QColor &colour);
    // Whether `area` soon shows a window rather than the bare desktop.
    bool covered(const QRect &area);

    ShellHarness m_shell;
    RfbClient m_vnc;
};

void TestScreen::initTestCase()
{
    // Sent the moment the socket is there: the bar must be listening already.
    QVERIFY(m_shell.startOnVnc({}, false));
    m_shell.send("topen");
    QVERIFY(m_vnc.connectTo(m_shell.vncPort()));
}

bool TestScreen::shows(const QPoint &at, const QColor &colour)
{
    QColor seen;
    if (QTest::qWaitFor([&] { return near(seen = m_vnc.grab().pixelColor(at), colour); }, 10000))
        return true;
    qWarning() << at << "shows" << seen << "rather than" << colour;
    return false;
}

bool TestScreen::covered(const QRect &area)
{
    const QRect inner = area.adjusted(2, 2, -2, -2);
    const auto desktopShare = [&] {
        const QImage screen = m_vnc.grab().copy(inner);
        int hits = screen.isNull() ? inner.width() * inner.height() : 0;
        for (int y = 0; y < screen.height(); ++y)
            for (int x = 0; x < screen.width(); ++x)
                hits += screen.pixelColor(x, y) == desktop ? 1 : 0;
        return double(hits) / (inner.width() * inner.height());
    };
    return QTest::qWaitFor([&] { return desktopShare() < 0.05; }, 10000);
}

void TestScreen::barBlendsWithDesktop()
{
    // The middle of the bar at the bottom, where no widget of the bar paints.
    const QPoint middle(400, 456);
    QVERIFY(shows(middle, bar));
    m_shell.send("twindowcolor 255,0,0,128");
    QVERIFY(shows(middle, onDesktop(QColor(255, 0, 0, 128))));
    m_shell.send("twindowcolor 255,255,255,128");
}

void TestScreen::menuAndRunDialogShownAgain()
{
    // Closed as a user closes them, the menu and the dialog must reach the screen again.
    const QRegularExpression menuShown = serverWindow("Show", "QMenuClassWindow");
    const QRegularExpression dialogShown = serverWindow("Show", "SysRunDialogWindow");
    for (int round = 0; round < 2; ++round) {
        const int menus = m_shell.shell().countLines(menuShown);
        m_shell.tap(0, Qt::Key_F12);
        const QRect menu = waitForNext(m_shell.shell(), menuShown, menus);
        QVERIFY2(covered(menu), "the menu is not on the screen");
        // Its lower edge sits on the bar's top edge: the bar's first rows stay the bar's.
        QVERIFY2(shows(QPoint(menu.right() - 10, 432), bar), "the menu covers the bar");
        m_shell.click(QPoint(menu.center().x(), menu.y() + menu.height() * 5 / 8)); // run
        QVERIFY2(covered(waitForNext(m_shell.shell(), dialogShown, round)),
                 "the run dialog is not on the screen");
        m_shell.tap(27, Qt::Key_Escape);
        QVERIFY(!waitForNext(m_shell.shell(), serverWindow("Hide", "SysRunDialogWindow"), round)
                     .isEmpty());
    }
}

void TestScreen::keyboardLeavesTopBarUncovered()
{
    const QRegularExpression shown = serverWindow("Show", "QwsKeyBoardWidgetWindow");
    const int before = m_shell.shell().countLines(shown);
    m_shell.send("ttop");
    m_shell.send("kbdhide");
    m_shell.send("kbdshow 0");
    QVERIFY(waitForNext(m_shell.shell(), shown, before).isValid());
    // The keyboard opens at the screen's corner unless it is kept off the bar.
    QVERIFY2(shows(QPoint(240, 10), bar), "the keyboard covers the bar");
    QVERIFY2(!near(m_vnc.grab().pixelColor(240, 100), desktop),
             "the keyboard is not under the bar");
    m_shell.send("kbdhide");
    m_shell.send("tbottom");
}

void TestScreen::clientContentIsShown()
{
    // A client's light background where its window is, and the desktop beside it.
    const QRegularExpression shown = clientWindow("Show");
    const int before = m_shell.shell().countLines(shown);
    QVERIFY(m_shell.startQtClient());
    const QRect window = waitForNext(m_shell.shell(), shown, before);
    QVERIFY(window.width() > 100);
    QVERIFY(QTest::qWaitFor([&] { return qGray(m_vnc.grab().pixel(window.center())) > 200; }));
    QVERIFY(shows(window.center() - QPoint(window.width(), 0), desktop));
}

QTEST_GUILESS_MAIN(TestScreen)
#include "tst_e2e_screen.moc"
