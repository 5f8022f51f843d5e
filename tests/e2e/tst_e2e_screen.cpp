// The screen as the device shows it: the shell runs on the vnc platform, where Qt composes
// every window into one framebuffer image just as linuxfb does on the device, and the tests
// read that image back over RFB. What a window claims (shown, geometry) is not enough here:
// only the pixels show whether it is really on the screen and how it mixes with the desktop.
#include "rfbclient.h"
#include "shellwindows.h"

#include <QTest>

namespace {

const QColor desktop(51, 153, 128);
const char systemMenuName[] = "QMenuClassWindow";

// How many pixels of `area` have exactly the colour `c`, as a share of the area.
double shareOf(const QImage &screen, const QRect &area, const QColor &c)
{
    int hits = 0;
    const QRgb want = c.rgb();
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            hits += screen.pixel(x, y) == want ? 1 : 0;
    return double(hits) / (area.width() * area.height());
}

bool near(const QColor &a, const QColor &b, int tolerance = 3)
{
    return qAbs(a.red() - b.red()) <= tolerance && qAbs(a.green() - b.green()) <= tolerance &&
           qAbs(a.blue() - b.blue()) <= tolerance;
}

// `over` with alpha laid on an opaque `under`.
QColor blend(const QColor &over, const QColor &under)
{
    const double a = over.alphaF();
    return QColor::fromRgbF(over.redF() * a + under.redF() * (1 - a),
                            over.greenF() * a + under.greenF() * (1 - a),
                            over.blueF() * a + under.blueF() * (1 - a));
}

// The middle of the bar at the bottom, where no widget of the bar paints.
const QPoint barMiddle(400, 456);

QRect openMenu(ShellHarness &h)
{
    const QRegularExpression shown = serverWindow("Show", systemMenuName);
    const int before = h.shell().countLines(shown);
    h.tap(0, Qt::Key_F12);
    return waitForNext(h.shell(), shown, before);
}

} // namespace

class TestScreen : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();

    void datagramRightAfterSocket();
    void barBlendsWithDesktop_data();
    void barBlendsWithDesktop();
    void menuOnScreenAroundRunDialog();
    void keyboardLeavesTopBarUncovered();

private:
    // Grabs the screen until `ready` holds for it or the time is up; returns the last grab.
    QImage waitForScreen(const std::function<bool(const QImage &)> &ready, int timeoutMs = 10000);
    // Whether `area` shows a window rather than the bare desktop.
    bool covered(const QRect &area);

    ShellHarness m_shell;
    RfbClient m_vnc;
};

void TestScreen::initTestCase()
{
    QVERIFY(m_shell.startOnVnc());
    QVERIFY(m_vnc.connectTo(m_shell.vncPort()));
    m_shell.send("topen");
}

QImage TestScreen::waitForScreen(const std::function<bool(const QImage &)> &ready, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    QImage screen;
    do {
        screen = m_vnc.grab();
        if (!screen.isNull() && ready(screen))
            break;
        QTest::qWait(50);
    } while (!deadline.hasExpired());
    return screen;
}

void TestScreen::datagramRightAfterSocket()
{
    // A script that waits for the socket and then sends at once must find the bar listening.
    ShellHarness fresh;
    QVERIFY(fresh.startOnVnc({}, false));
    fresh.send("topen");
    RfbClient vnc;
    QVERIFY(vnc.connectTo(fresh.vncPort()));
    QDeadlineTimer deadline(10000);
    QColor seen;
    while (!deadline.hasExpired()) {
        const QImage screen = vnc.grab();
        seen = screen.isNull() ? QColor() : screen.pixelColor(barMiddle);
        if (seen.isValid() && seen != desktop)
            break;
        QTest::qWait(50);
    }
    QVERIFY2(seen != desktop, "the bar never came up");
}

void TestScreen::barBlendsWithDesktop_data()
{
    QTest::addColumn<QByteArray>("command");
    QTest::addColumn<QColor>("colour");
    QTest::newRow("own half-transparent white") << QByteArray() << QColor(255, 255, 255, 128);
    QTest::newRow("twindowcolor half red")
        << QByteArray("twindowcolor 255,0,0,128") << QColor(255, 0, 0, 128);
    QTest::newRow("twindowcolor opaque blue")
        << QByteArray("twindowcolor 0,0,255,255") << QColor(0, 0, 255, 255);
}

void TestScreen::barBlendsWithDesktop()
{
    QFETCH(QByteArray, command);
    QFETCH(QColor, colour);
    if (!command.isEmpty())
        m_shell.send(command);
    const QColor want = blend(colour, desktop);
    const QImage screen =
        waitForScreen([&](const QImage &s) { return near(s.pixelColor(barMiddle), want); });
    QVERIFY2(near(screen.pixelColor(barMiddle), want),
             qPrintable(QStringLiteral("bar shows %1, expected about %2")
                            .arg(screen.pixelColor(barMiddle).name(), want.name())));
    m_shell.send("twindowcolor 255,255,255,128");
}

bool TestScreen::covered(const QRect &area)
{
    const QRect inner = area.adjusted(2, 2, -2, -2);
    const QImage screen =
        waitForScreen([&](const QImage &s) { return shareOf(s, inner, desktop) < 0.05; });
    return shareOf(screen, inner, desktop) < 0.05;
}

void TestScreen::menuOnScreenAroundRunDialog()
{
    // Each window is closed the way a user closes it, which is what made windows shown
    // later go missing from the screen.
    const QRect menu = openMenu(m_shell);
    QVERIFY(menu.isValid());
    QVERIFY2(covered(menu), "the menu is not on the screen");
    // Its lower edge sits on the bar's top edge: the bar's first rows stay the bar's.
    const QPoint barTop(menu.right() - 10, 432);
    const QColor bar = blend(QColor(255, 255, 255, 128), desktop);
    QVERIFY2(near(waitForScreen([&](const QImage &s) {
                      return near(s.pixelColor(barTop), bar);
                  }).pixelColor(barTop),
                  bar),
             "the menu covers the bar");
    m_shell.tap(27, Qt::Key_Escape);

    const QRegularExpression dialogShown = serverWindow("Show", "SysRunDialogWindow");
    const int dialogs = m_shell.shell().countLines(dialogShown);
    const QRect again = openMenu(m_shell);
    QVERIFY2(covered(again), "the menu is not on the screen the second time");
    m_shell.click(QPoint(again.center().x(), again.y() + again.height() * 5 / 8)); // run
    const QRect dialog = waitForNext(m_shell.shell(), dialogShown, dialogs);
    QVERIFY(dialog.isValid());
    QVERIFY2(covered(dialog), "the run dialog is not on the screen");
    m_shell.tap(27, Qt::Key_Escape);
    QVERIFY(m_shell.shell().waitForLine(serverWindow("Hide", "SysRunDialogWindow")).hasMatch());

    QVERIFY2(covered(openMenu(m_shell)), "the menu is not on the screen after the run dialog");
    m_shell.tap(27, Qt::Key_Escape);
    const int dialogsNow = m_shell.shell().countLines(dialogShown);
    const QRect reopened = openMenu(m_shell);
    m_shell.click(QPoint(reopened.center().x(), reopened.y() + reopened.height() * 5 / 8));
    QVERIFY2(covered(waitForNext(m_shell.shell(), dialogShown, dialogsNow)),
             "the run dialog is not on the screen the second time");
    m_shell.tap(27, Qt::Key_Escape);
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
    const QPoint barPoint(240, 10);
    const QColor bar = blend(QColor(255, 255, 255, 128), desktop);
    const QImage screen =
        waitForScreen([&](const QImage &s) { return near(s.pixelColor(barPoint), bar); });
    QVERIFY2(near(screen.pixelColor(barPoint), bar), "the keyboard covers the bar");
    QVERIFY2(!near(screen.pixelColor(240, 100), desktop), "the keyboard is not under the bar");
    m_shell.send("kbdhide");
    m_shell.send("tbottom");
}

QTEST_GUILESS_MAIN(TestScreen)
#include "tst_e2e_screen.moc"
