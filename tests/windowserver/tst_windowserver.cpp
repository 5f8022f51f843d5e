// The window server's own logic in-process: which key carries a character, where synthetic
// pointer events go among the shell's windows, and that no-focus windows stay out of the way.
#include "application.h"
#include "keymapper.h"
#include "qwskeyboardwidget.h"
#include "testserver.h"
#include "windowserver.h"

#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QQuickWindow>
#include <QSignalSpy>

#include <xkbcommon/xkbcommon.h>

namespace {

// Records the mouse events a widget gets, as "press x y", "release x y".
class MouseLog : public QWidget
{
public:
    MouseLog() { setWindowFlags(Qt::FramelessWindowHint); }
    QStringList events;

protected:
    void mousePressEvent(QMouseEvent *e) override { log("press", e); }
    void mouseReleaseEvent(QMouseEvent *e) override { log("release", e); }

private:
    void log(const char *what, QMouseEvent *e)
    {
        events << QStringLiteral("%1 %2 %3")
                      .arg(QLatin1String(what))
                      .arg(e->position().x())
                      .arg(e->position().y());
    }
};

} // namespace

class TestWindowServer : public QObject
{
    Q_OBJECT
private slots:
    void keyForCharacter_data();
    void keyForCharacter();
    void extraCharactersUseSpareKeys();
    void pointerGoesToTheWindowUnderIt();
    void pointerStaysWithTheWindowThatGotThePress();
    void noFocusWindowsNeverKeepTheFocus();
    void clientContentIsShown();

private:
    WindowServer m_server;
};

void TestWindowServer::keyForCharacter_data()
{
    QTest::addColumn<int>("character");
    QTest::addColumn<int>("qtKey");
    QTest::addColumn<uint>("keycode");
    QTest::addColumn<bool>("shift");
    // xkb key codes are evdev codes plus 8.
    QTest::newRow("a") << int('a') << 0 << 38u << false;
    QTest::newRow("A") << int('A') << 0 << 38u << true;
    QTest::newRow("2") << int('2') << 0 << 11u << false;
    QTest::newRow("@") << int('@') << 0 << 11u << true;
    QTest::newRow("space") << int(' ') << 0 << 65u << false;
    QTest::newRow("Key_Escape") << 0 << int(Qt::Key_Escape) << 9u << false;
    QTest::newRow("Key_Enter is the keypad's") << 0 << int(Qt::Key_Enter) << 104u << false;
    QTest::newRow("Key_Return") << 0 << int(Qt::Key_Return) << 36u << false;
    QTest::newRow("Key_F1") << 0 << int(Qt::Key_F1) << 67u << false;
    QTest::newRow("Key_Left") << 0 << int(Qt::Key_Left) << 113u << false;
    QTest::newRow("Key_A means the a key") << 0 << int(Qt::Key_A) << 38u << false;
    QTest::newRow("中 has no key") << 0x4E2D << 0 << 0u << false;
}

void TestWindowServer::keyForCharacter()
{
    QFETCH(int, character);
    QFETCH(int, qtKey);
    QFETCH(uint, keycode);
    QFETCH(bool, shift);
    QTemporaryDir extra;
    KeyMapper keys(extra.path(), "us");
    QVERIFY(keys.isValid());
    const KeyMapper::Key key =
        character ? keys.keyForCharacter(char32_t(character)) : keys.keyForQtKey(qtKey);
    QCOMPARE(key.keycode, keycode);
    QCOMPARE(key.shift, shift);
}

void TestWindowServer::extraCharactersUseSpareKeys()
{
    QTemporaryDir extra;
    qputenv("XKB_CONFIG_EXTRA_PATH", QFile::encodeName(extra.path()));
    KeyMapper keys(extra.path(), "us");
    QString v1, v2, v3;
    const KeyMapper::Key zhong = keys.bindExtraKeysym(KeyMapper::keysymForCharacter(0x4E2D), &v1);
    QVERIFY(zhong.isValid());
    // The new layout is really in force: the character now has its key, the others keep theirs.
    QCOMPARE(keys.keyForCharacter(0x4E2D).keycode, zhong.keycode);
    QCOMPARE(keys.keyForCharacter('@').keycode, 11u);
    // A second character takes another key and switches variant, so the compositor reloads.
    const KeyMapper::Key wen = keys.bindExtraKeysym(KeyMapper::keysymForCharacter(0x6587), &v2);
    QVERIFY(wen.isValid() && wen.keycode != zhong.keycode);
    QVERIFY(v1 != v2);
    // A character still bound keeps its key and needs no reload.
    QCOMPARE(keys.bindExtraKeysym(KeyMapper::keysymForCharacter(0x4E2D), &v3).keycode,
             zhong.keycode);
    QCOMPARE(v3, v2);
    // Any run of new characters, and keys the layout lacks: each bound key really gives its
    // keysym in the layout clients get (the multimedia keys the rules add after the layout
    // must not take it over), and the ninth new one reuses the first key.
    const QList<uint> syms = {0x1004E00, 0x1004E01, 0x1004E02, 0x1004E03, 0x100FF0C, XKB_KEY_F13};
    for (uint sym : syms) {
        const KeyMapper::Key key = keys.bindExtraKeysym(sym, nullptr);
        QVERIFY2(key.isValid(), qPrintable(QString::number(sym, 16)));
        if (const char32_t c = xkb_keysym_to_utf32(sym))
            QCOMPARE(keys.keyForCharacter(c).keycode, key.keycode);
    }
    QCOMPARE(keys.bindExtraKeysym(0x1004E07, nullptr).keycode, zhong.keycode);
    QVERIFY(!keys.keyForCharacter(0x4E2D).isValid());
}

void TestWindowServer::pointerGoesToTheWindowUnderIt()
{
    MouseLog below, onTop;
    below.setGeometry(100, 100, 200, 100);
    onTop.setGeometry(150, 120, 100, 50);
    onTop.setWindowFlags(onTop.windowFlags() | Qt::WindowStaysOnTopHint);
    // Shown first, yet above: windows that stay on top win.
    onTop.show();
    below.show();
    QVERIFY(QTest::qWaitForWindowExposed(&below));
    QVERIFY(QTest::qWaitForWindowExposed(&onTop));

    m_server.sendMouseEvent(QPoint(160, 130), Qt::LeftButton, 0);
    m_server.sendMouseEvent(QPoint(160, 130), 0, 0);
    QCOMPARE(onTop.events, (QStringList{"press 10 10", "release 10 10"}));
    m_server.sendMouseEvent(QPoint(110, 110), Qt::LeftButton, 0);
    m_server.sendMouseEvent(QPoint(110, 110), 0, 0);
    QCOMPARE(below.events, (QStringList{"press 10 10", "release 10 10"}));

    // A button clicked by a synthetic press and release is clicked.
    QPushButton button("OK");
    button.setGeometry(400, 300, 80, 40);
    button.show();
    QVERIFY(QTest::qWaitForWindowExposed(&button));
    QSignalSpy clicked(&button, &QPushButton::clicked);
    m_server.sendMouseEvent(QPoint(420, 310), Qt::LeftButton, 0);
    m_server.sendMouseEvent(QPoint(420, 310), 0, 0);
    QCOMPARE(clicked.count(), 1);
}

void TestWindowServer::pointerStaysWithTheWindowThatGotThePress()
{
    MouseLog first, second;
    first.setGeometry(0, 0, 100, 100);
    second.setGeometry(300, 0, 100, 100);
    first.show();
    second.show();
    QVERIFY(QTest::qWaitForWindowExposed(&second));
    m_server.sendMouseEvent(QPoint(50, 50), Qt::LeftButton, 0);
    // Dragged onto the other window and released there: the release is still the first's.
    m_server.sendMouseEvent(QPoint(350, 50), Qt::LeftButton, 0);
    m_server.sendMouseEvent(QPoint(350, 50), 0, 0);
    QCOMPARE(first.events, (QStringList{"press 50 50", "release 350 50"}));
    QVERIFY(second.events.isEmpty());
    // The next press goes where the pointer is.
    m_server.sendMouseEvent(QPoint(350, 50), Qt::RightButton, 0);
    m_server.sendMouseEvent(QPoint(350, 50), 0, 0);
    QCOMPARE(second.events, (QStringList{"press 50 50", "release 50 50"}));
}

void TestWindowServer::noFocusWindowsNeverKeepTheFocus()
{
    QLineEdit edit;
    edit.move(0, 300);
    edit.show();
    edit.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&edit));

    // The soft keyboard is shown and tapped; the line edit keeps the focus and gets the keys.
    QwsKeyBoardWidget keyboard(nullptr);
    keyboard.move(0, 0);
    keyboard.show();
    QVERIFY(QTest::qWaitForWindowExposed(&keyboard));
    QTRY_COMPARE(QApplication::activeWindow(), &edit);
    auto *q = keyboard.findChild<QPushButton *>("btn_1_2");
    const QPoint at = q->mapToGlobal(q->rect().center());
    m_server.sendMouseEvent(at, Qt::LeftButton, 0);
    m_server.sendMouseEvent(at, 0, 0);
    QCOMPARE(QApplication::activeWindow(), &edit);
    QCOMPARE(QApplication::focusWidget(), &edit);

    // A key sent to the focus reaches the server's own focused widget as a key event.
    m_server.sendKeyEvent('q', Qt::Key_Q, Qt::NoModifier, true, false);
    m_server.sendKeyEvent('q', Qt::Key_Q, Qt::NoModifier, false, false);
    QCOMPARE(edit.text(), "q");
}

// A real client's window, painted by the desktop view from the client's own buffer.
void TestWindowServer::clientContentIsShown()
{
    const QColor desktop(51, 153, 128);
    m_server.setDesktopColor(desktop);
    m_server.showDesktop();
    QQuickWindow *view = nullptr;
    for (QWindow *w : QGuiApplication::topLevelWindows())
        view = view ? view : qobject_cast<QQuickWindow *>(w);
    QVERIFY(view);
    QVERIFY(QTest::qWaitForWindowExposed(view));

    QRect frame;
    connect(&m_server, &WindowServer::windowEvent, this,
            [&frame](ClientWindow *w, WindowServer::WindowEvent e) {
                if (e == WindowServer::Show || e == WindowServer::Geometry)
                    frame = w->geometry();
            });
    QProcess client;
    QProcessEnvironment env = m_server.clientEnvironment();
    env.insert("QT_QPA_PLATFORM", "wayland");
    client.setProcessEnvironment(env);
    client.start(qEnvironmentVariable("TIDE_TEST_CLIENT"), {});
    QTRY_VERIFY_WITH_TIMEOUT(frame.width() > 100, 10000);

    // The client's light window background covers the desktop colour where the window is,
    // and only there.
    QImage screen;
    QTRY_VERIFY_WITH_TIMEOUT(
        (screen = view->grabWindow(), qGray(screen.pixel(frame.center())) > 200), 5000);
    QCOMPARE(screen.pixelColor(frame.center() + QPoint(0, frame.height())), desktop);
    client.kill();
    client.waitForFinished();
}

int main(int argc, char **argv)
{
    return runWithServer<Application, TestWindowServer>(argc, argv);
}

#include "tst_windowserver.moc"
