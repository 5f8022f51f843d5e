// The soft keyboard as a user meets it in the running shell: brought up from the bar's
// keyboard button or the control port, typing into a focused Qt client in English and in
// pinyin, and dragged around by its label. Every tap is real pointer input through the
// control port's "smouse", routed by the shell like a finger on the screen.
//
// Where a button sits on the screen is worked out from a keyboard built in this process: it
// has the same form, style, fonts and catalogue as the shell's, so once it has the size the
// shell logs for its keyboard, its buttons lie where the shell's do, relative to the
// keyboard's top-left corner.
#include "qwskeyboardwidget.h"
#include "shellharness.h"

#include <QDeadlineTimer>
#include <QLayout>
#include <QStandardPaths>
#include <QStyle>
#include <QTest>
#include <QTranslator>

namespace {

const char *const KeyboardWindow = "QwsKeyBoardWidgetWindow";
const char *const BarWindow = "TitleBarWidgetWindow";

QRegularExpression serverWindow(const char *event, const char *window)
{
    return QRegularExpression(
        QStringLiteral("server window %1 %2 x=(-?\\d+) y=(-?\\d+) w=(\\d+) h=(\\d+)")
            .arg(QLatin1String(event), QLatin1String(window)));
}

// Waits until the shell has logged this event of one of its windows `count` times in all and
// returns the window's geometry at the last one; an invalid rect if it never got there.
QRect waitForServerWindow(ShellHarness &h, const char *event, const char *window, int count)
{
    const QRegularExpression re = serverWindow(event, window);
    QDeadlineTimer deadline(10000);
    while (h.shell().countLines(re) < count) {
        if (deadline.hasExpired()) {
            qWarning().noquote() << "tideshell logged" << h.shell().countLines(re) << "of" << count
                                 << re.pattern() << "; it printed:\n"
                                 << h.shell().lines().join(QLatin1Char('\n'));
            return QRect();
        }
        QTest::qWait(20);
    }
    QRect last;
    for (const QString &line : h.shell().lines()) {
        const QRegularExpressionMatch m = re.match(line);
        if (m.hasMatch())
            last = QRect(m.captured(1).toInt(), m.captured(2).toInt(), m.captured(3).toInt(),
                         m.captured(4).toInt());
    }
    return last;
}

// A finger put down at `from`, slid to `to` in a few steps and lifted there.
void dragBy(ShellHarness &h, const QPoint &from, const QPoint &displacement)
{
    constexpr int Steps = 4;
    h.pointer(from, 1);
    for (int i = 1; i <= Steps; ++i)
        h.pointer(from + displacement * i / Steps, 1);
    h.pointer(from + displacement, 0);
}

// The keyboard's place on the screen as the shell has it now: hiding and showing it again
// makes the shell log its geometry.
QRect keyboardGeometryNow(ShellHarness &h)
{
    const int shown = h.shell().countLines(serverWindow("Show", KeyboardWindow));
    h.send("kbdhide");
    h.send("kbdshow");
    return waitForServerWindow(h, "Show", KeyboardWindow, shown + 1);
}

} // namespace

class TestE2eKeyboard : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void typesEnglishThenPinyinIntoFocusedClient();
    void showAndHide_data();
    void showAndHide();
    void dragMovesKeyboardWithThePointer();
    void chineseAndF13ReachEveryToolkit_data();
    void chineseAndF13ReachEveryToolkit();

private:
    // The keyboard's widget of this name, laid out for a keyboard of the given geometry.
    QWidget *faceWidget(const QRect &keyboard, const char *name);
    // Where a point of that widget, or its centre, lies on the screen.
    QPoint screenPoint(const QRect &keyboard, const char *name, const QPoint &local);
    QPoint centreOf(const QRect &keyboard, const char *name);
    void typeKeys(ShellHarness &h, const QRect &keyboard, const QList<const char *> &names);
    // The bar's keyboard button, for a bar the shell shows with this geometry.
    QPoint keyboardButton(const QRect &bar) const;

    QTranslator m_catalogue;
    QwsKeyBoardWidget *m_face = nullptr;
};

void TestE2eKeyboard::initTestCase()
{
    QVERIFY(m_catalogue.load(QStringLiteral(":/zh_CN.qm")));
    QCoreApplication::installTranslator(&m_catalogue);
    m_face = new QwsKeyBoardWidget;
    m_face->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_face));
}

void TestE2eKeyboard::cleanupTestCase()
{
    delete m_face;
    QCoreApplication::removeTranslator(&m_catalogue);
}

QWidget *TestE2eKeyboard::faceWidget(const QRect &keyboard, const char *name)
{
    if (m_face->size() != keyboard.size()) {
        m_face->resize(keyboard.size());
        m_face->layout()->activate();
    }
    auto *widget = m_face->findChild<QWidget *>(QLatin1String(name));
    if (!widget)
        qWarning() << "the keyboard has no" << name;
    return widget;
}

QPoint TestE2eKeyboard::screenPoint(const QRect &keyboard, const char *name, const QPoint &local)
{
    QWidget *widget = faceWidget(keyboard, name);
    return widget ? keyboard.topLeft() + widget->mapTo(m_face, local) : QPoint(-1, -1);
}

QPoint TestE2eKeyboard::centreOf(const QRect &keyboard, const char *name)
{
    QWidget *widget = faceWidget(keyboard, name);
    return widget ? screenPoint(keyboard, name, widget->rect().center()) : QPoint(-1, -1);
}

void TestE2eKeyboard::typeKeys(ShellHarness &h, const QRect &keyboard,
                               const QList<const char *> &names)
{
    for (const char *name : names)
        h.click(centreOf(keyboard, name));
}

QPoint TestE2eKeyboard::keyboardButton(const QRect &bar) const
{
    // The 48 x 48 button ends the bar's row, inside the layout's right margin.
    const int margin = m_face->style()->pixelMetric(QStyle::PM_LayoutRightMargin);
    return QPoint(bar.x() + bar.width() - margin - 24, bar.y() + 24);
}

void TestE2eKeyboard::typesEnglishThenPinyinIntoFocusedClient()
{
    ShellHarness h;
    QVERIFY(h.start());
    LineProcess *client = h.startQtClient();
    QVERIFY(client);

    // As a user does it: bring up the bar, tap its keyboard button.
    h.send("topen");
    const QRect bar = waitForServerWindow(h, "Show", BarWindow, 2);
    QVERIFY(bar.isValid());
    h.click(keyboardButton(bar));
    const QRect keyboard = waitForServerWindow(h, "Show", KeyboardWindow, 1);
    QVERIFY(keyboard.isValid());

    // English: every tap is a key press and release for the client; "l" twice in a row.
    typeKeys(h, keyboard, {"btn_2_7", "btn_1_4", "btn_2_10", "btn_2_10", "btn_1_10"});
    QVERIFY(client->waitForLine(QStringLiteral("text hello")));
    QVERIFY(client->hasLine(QRegularExpression(QStringLiteral("^key press %1 h$").arg(Qt::Key_H))));

    // Pinyin: n and i only compose; the first candidate of "ni" is committed as text.
    typeKeys(h, keyboard, {"btnFn", "btn_3_7", "btn_1_9", "hzBtn0"});
    QVERIFY(client->waitForLine(QStringLiteral("text hello妮")));
    QCOMPARE(client->countLines(QRegularExpression(QStringLiteral("^text hellon"))), 0);

    // A method number the keyboard does not have only shows it, still in pinyin; 0 selects
    // English again.
    h.send("kbdshow 7");
    typeKeys(h, keyboard, {"btn_3_7", "btn_1_9", "hzBtn0"});
    QVERIFY(client->waitForLine(QStringLiteral("text hello妮妮")));
    h.send("kbdshow 0");
    typeKeys(h, keyboard, {"btn_2_7"});
    QVERIFY(client->waitForLine(QStringLiteral("text hello妮妮h")));

    // The client had the focus all along: no tap on the bar or the keyboard took it.
    QCOMPARE(client->countLines(QRegularExpression(QStringLiteral("^focus out$"))), 0);
    QCOMPARE(client->countLines(QRegularExpression(QStringLiteral("^focus in$"))), 1);
}

void TestE2eKeyboard::showAndHide_data()
{
    // Steps are control datagrams, or "button" for a tap on the bar's keyboard button; the
    // expected column lists the keyboard's window events in the order the shell logs them.
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QStringList>("events");
    QTest::newRow("bar button toggles")
        << QStringList{"button", "button", "button"} << QStringList{"Show", "Hide", "Show"};
    QTest::newRow("kbdtoggle toggles")
        << QStringList{"kbdtoggle", "kbdtoggle"} << QStringList{"Show", "Hide"};
    QTest::newRow("kbdshow and kbdhide only set")
        << QStringList{"kbdshow", "kbdshow", "kbdhide", "kbdhide"} << QStringList{"Show", "Hide"};
    QTest::newRow("bar button and commands share the state")
        << QStringList{"kbdshow", "button", "kbdtoggle", "button", "button", "kbdhide"}
        << QStringList{"Show", "Hide", "Show", "Hide", "Show", "Hide"};
    QTest::newRow("kbdshow with a method shows") << QStringList{"kbdshow 1"} << QStringList{"Show"};
    QTest::newRow("unknown text after kbdhide")
        << QStringList{"kbdshow", "kbdhide now"} << QStringList{"Show", "Hide"};
}

void TestE2eKeyboard::showAndHide()
{
    QFETCH(QStringList, steps);
    QFETCH(QStringList, events);
    ShellHarness h;
    QVERIFY(h.start());
    LineProcess *client = h.startQtClient();
    QVERIFY(client);
    h.send("topen");
    const QRect bar = waitForServerWindow(h, "Show", BarWindow, 2);
    QVERIFY(bar.isValid());

    for (const QString &step : std::as_const(steps)) {
        if (step == QLatin1String("button"))
            h.click(keyboardButton(bar));
        else
            h.send(step.toLatin1());
    }
    // The shell takes datagrams in order: once the bar has gone, every step has been done.
    h.send("tclose");
    QVERIFY(waitForServerWindow(h, "Hide", BarWindow, 2).isValid());

    const QRegularExpression keyboardEvent(
        QStringLiteral("server window (Show|Hide) %1 ").arg(QLatin1String(KeyboardWindow)));
    QStringList logged;
    for (const QString &line : h.shell().lines()) {
        const QRegularExpressionMatch m = keyboardEvent.match(line);
        if (m.hasMatch())
            logged.append(m.captured(1));
    }
    QCOMPARE(logged, events);

    // Keys still go to the client: neither the bar nor the keyboard took the focus.
    h.tap('k', Qt::Key_K);
    QVERIFY(client->waitForLine(QStringLiteral("text k")));
    QCOMPARE(client->countLines(QRegularExpression(QStringLiteral("^focus out$"))), 0);
}

void TestE2eKeyboard::dragMovesKeyboardWithThePointer()
{
    ShellHarness h;
    QVERIFY(h.start());
    LineProcess *client = h.startQtClient();
    QVERIFY(client);
    h.send("kbdshow");
    const QRect first = waitForServerWindow(h, "Show", KeyboardWindow, 1);
    QVERIFY(first.isValid());

    // Down by the drag label's left end, across and down the screen.
    dragBy(h, screenPoint(first, "label", QPoint(10, 10)), QPoint(100, 400) - first.topLeft());
    QRect keyboard = keyboardGeometryNow(h);
    QCOMPARE(keyboard, QRect(QPoint(100, 400), first.size()));

    // A press at (10, 10) in the keyboard and a move to (30, 5) in it move it by (20, -5).
    dragBy(h, screenPoint(keyboard, "label", QPoint(10, 10)), QPoint(20, -5));
    keyboard = keyboardGeometryNow(h);
    QCOMPARE(keyboard.topLeft(), QPoint(120, 395));

    // Back up by the middle of the label; the keys are now where the keyboard went.
    dragBy(h, centreOf(keyboard, "label"), QPoint(-40, -300));
    keyboard = keyboardGeometryNow(h);
    QCOMPARE(keyboard.topLeft(), QPoint(80, 95));
    typeKeys(h, keyboard, {"btn_2_7", "btn_1_9"});
    QVERIFY(client->waitForLine(QStringLiteral("text hi")));
    QCOMPARE(client->countLines(QRegularExpression(QStringLiteral("^text "))), 2);
    QCOMPARE(client->countLines(QRegularExpression(QStringLiteral("^focus out$"))), 0);
}

// How a client tells what it got: the test clients print their line edit's text and every key,
// weston-eventdemo the keysym of every key ("key key: 240, unicode: KEYSYM, state: pressed"),
// and a terminal's child the bytes it reads, one per line in hexadecimal.
enum Report { QtLines, GtkLines, KeyLines, ByteLines };

// What a client has got so far, as text, with "<F13>" once the F13 key reached it.
QString received(LineProcess *client, Report report)
{
    static const QRegularExpression text(QStringLiteral("^text (.*)$"));
    static const QRegularExpression keysym(QStringLiteral("unicode: (\\d+), state: pressed"));
    const QString f13 = report == QtLines    ? QStringLiteral("key press %1 ").arg(Qt::Key_F13)
                        : report == GtkLines ? QStringLiteral("key 0xffca")
                                             : QStringLiteral("unicode: 65482, state: pressed");
    QString typed;
    QByteArray bytes;
    bool f13Seen = false;
    for (const QString &line : client->lines()) {
        f13Seen = f13Seen || line.contains(f13);
        if (report == ByteLines) {
            if (line.size() == 3 && line.startsWith(QLatin1Char(' '))) // not foot's own lines
                bytes += char(line.toUInt(nullptr, 16));
        } else if (report != KeyLines) {
            if (const QRegularExpressionMatch m = text.match(line); m.hasMatch())
                typed = m.captured(1);
        } else if (const QRegularExpressionMatch m = keysym.match(line); m.hasMatch()) {
            if (const char32_t c = m.captured(1).toUInt() - 0x1000000; c < 0x110000)
                typed += QString::fromUcs4(&c, 1); // the keysyms of Unicode characters
        }
    }
    if (report == ByteLines) // a terminal sends F13 as xterm's Shift+F1
        return QString::fromUtf8(bytes).replace(QStringLiteral("\x1b[1;2P"), "<F13>");
    return f13Seen ? typed + "<F13>" : typed;
}

void TestE2eKeyboard::chineseAndF13ReachEveryToolkit_data()
{
    // program: an executable or the variable that names it; way: how the shell hands the
    // client committed text.
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("env");
    QTest::addColumn<int>("report");
    QTest::addColumn<QString>("way");
    QTest::newRow("Qt 6") << "TIDE_TEST_CLIENT" << QStringList() << QString() << int(QtLines)
                          << "zwp_text_input_v2";
    QTest::newRow("Qt 5") << "TIDE_TESTCLIENT_QT5" << QStringList() << QString() << int(QtLines)
                          << "zwp_text_input_v2";
    QTest::newRow("GTK 3") << "TIDE_GTKCLIENT" << QStringList() << QString() << int(GtkLines)
                           << "zwp_text_input_v3";
    QTest::newRow("GTK 3 without input method")
        << "TIDE_GTKCLIENT" << QStringList() << "GTK_IM_MODULE=gtk-im-context-simple"
        << int(GtkLines) << "keymap";
    QTest::newRow("weston-eventdemo")
        << "stdbuf" << QStringList{"-oL", "weston-eventdemo", "--log-key"} << QString()
        << int(KeyLines) << "keymap";
    // foot needs wl_seat 5 and wl_data_device_manager 3. What its child reads goes to foot's
    // own standard output, which the test reads.
    QTest::newRow("foot") << "foot"
                          << QStringList{"-e", "sh", "-c",
                                         "exec > /proc/$PPID/fd/1; stty raw -echo; echo ready; "
                                         "exec stdbuf -o0 od -An -v -tx1 -w1"}
                          << QString() << int(ByteLines) << "zwp_text_input_v3";
}

void TestE2eKeyboard::chineseAndF13ReachEveryToolkit()
{
    QFETCH(QString, program);
    QFETCH(QStringList, args);
    QFETCH(QString, env);
    QFETCH(int, report);
    QFETCH(QString, way);
    if (program.startsWith(QLatin1String("TIDE_")))
        program = qEnvironmentVariable(program.toLatin1());
    if (program.isEmpty() || QStandardPaths::findExecutable(program).isEmpty())
        QSKIP("this toolkit's program or development package is not installed");
    ShellHarness h;
    QVERIFY(h.start());
    QProcessEnvironment extra;
    if (!env.isEmpty())
        extra.insert(env.section(QLatin1Char('='), 0, 0), env.section(QLatin1Char('='), 1));
    const int activeBefore = h.shell().mark();
    LineProcess *client = h.startClient(program, args, extra);
    QVERIFY(h.shell()
                .waitForLine(QRegularExpression("window \\d+ Active"), 10000, activeBefore)
                .hasMatch());
    // foot is ready once the program in it reads the keys raw, and once it has committed its
    // text-input state again after its first frame: it drops text whose done serial is behind
    // its own count of commits.
    QVERIFY(report != ByteLines || client->waitForLine(QStringLiteral("ready")));
    QVERIFY(report != ByteLines ||
            h.shell().waitForLine(QRegularExpression("text-input-v3 commit 2$")).hasMatch());
    const auto typed = [&] { return received(client, Report(report)); };

    // Three different characters in a row, each as a key without a key code; then three more
    // from pinyin candidates tapped on the soft keyboard; then a key the layout lacks.
    for (char32_t c : {U'中', U'文', U'字'})
        h.tap(int(c), 0);
    QTRY_COMPARE_WITH_TIMEOUT(typed(), QStringLiteral("中文字"), 10000);
    h.send("kbdshow 1");
    const QRect keyboard = waitForServerWindow(h, "Show", KeyboardWindow, 1);
    QVERIFY(keyboard.isValid());
    typeKeys(h, keyboard,
             {"btn_3_7", "btn_1_9", "hzBtn0", "btn_3_7", "btn_1_9", "hzBtn1", "btn_3_7", "btn_1_9",
              "hzBtn2"});
    QTRY_COMPARE_WITH_TIMEOUT(typed(), QStringLiteral("中文字妮尼泥"), 10000);
    QVERIFY(h.shell().hasLine(QRegularExpression(QStringLiteral("text \"泥\" by ") + way)));
    h.tap(0, Qt::Key_F13);
    QTRY_COMPARE_WITH_TIMEOUT(typed(), QStringLiteral("中文字妮尼泥<F13>"), 10000);
}

QTEST_MAIN(TestE2eKeyboard)
#include "tst_e2e_keyboard.moc"
