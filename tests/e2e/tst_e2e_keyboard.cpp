// The soft keyboard in the running shell: shown and hidden from the bar or the control port,
// typing in English and pinyin, dragged by its label, and what each toolkit receives from it.
// Taps are "smouse" datagrams. A keyboard built here has the shell's form, style, fonts and
// catalogue: at the size the shell logs, its buttons lie where the shell's do.
#include "qwskeyboardwidget.h"
#include "shellwindows.h"

#include <QLayout>
#include <QStandardPaths>
#include <QStyle>
#include <QTranslator>

namespace {

const QRegularExpression keyboardShown = serverWindow("Show", "QwsKeyBoardWidgetWindow");

// The keyboard's place on the screen now: shown again in English, it logs its geometry.
QRect keyboardNow(ShellHarness &h)
{
    const int shown = h.shell().countLines(keyboardShown);
    h.send("kbdhide");
    h.send("kbdshow 0");
    return waitForNext(h.shell(), keyboardShown, shown);
}

// A finger put down at `from`, slid by `displacement` in a few steps and lifted there.
void dragBy(ShellHarness &h, const QPoint &from, const QPoint &displacement)
{
    constexpr int Steps = 4;
    for (int i = 0; i <= Steps; ++i)
        h.pointer(from + displacement * i / Steps, 1);
    h.pointer(from + displacement, 0);
}

} // namespace

class TestE2eKeyboard : public QObject
{
    Q_OBJECT
private slots:
    // One shell and Qt client serve all but the toolkit rows.
    void initTestCase();
    void cleanup();
    void showAndHide();
    void typesThenMovesByItsLabel();
    void chineseAndF13ReachEveryToolkit_data();
    void chineseAndF13ReachEveryToolkit();

private:
    // Where a point of the named key or label (its centre by default) lies on the screen.
    QPoint onScreen(const QRect &keyboard, const char *name, QPoint local = {-1, -1});
    void typeKeys(ShellHarness &h, const QRect &keyboard, const QList<const char *> &names);

    QTranslator m_catalogue;
    std::unique_ptr<QwsKeyBoardWidget> m_face;
    std::unique_ptr<ShellHarness> m_h;
    LineProcess *m_client = nullptr;
};

void TestE2eKeyboard::initTestCase()
{
    QVERIFY(m_catalogue.load(QStringLiteral(":/zh_CN.qm")));
    QCoreApplication::installTranslator(&m_catalogue);
    m_face = std::make_unique<QwsKeyBoardWidget>();
    m_face->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_face.get()));

    m_h = std::make_unique<ShellHarness>();
    QVERIFY(m_h->start());
    m_client = m_h->startQtClient();
    QVERIFY(m_client);
}

void TestE2eKeyboard::cleanup()
{
    // The client keeps the focus throughout: no tap on the bar or the keyboard takes it.
    QCOMPARE(m_client->countLines(QRegularExpression(QStringLiteral("^focus out$"))), 0);
}

QPoint TestE2eKeyboard::onScreen(const QRect &keyboard, const char *name, QPoint local)
{
    if (m_face->size() != keyboard.size()) {
        m_face->resize(keyboard.size());
        m_face->layout()->activate();
    }
    const auto *widget = m_face->findChild<QWidget *>(QLatin1String(name));
    if (!widget) {
        qWarning() << "the keyboard has no" << name;
        return {-1, -1};
    }
    if (local.x() < 0)
        local = widget->rect().center();
    return keyboard.topLeft() + widget->mapTo(m_face.get(), local);
}

void TestE2eKeyboard::typeKeys(ShellHarness &h, const QRect &keyboard,
                               const QList<const char *> &names)
{
    for (const char *name : names)
        h.click(onScreen(keyboard, name));
}

void TestE2eKeyboard::showAndHide()
{
    // "button" is a tap on the bar's keyboard button, at the right end of the bar's row; the
    // other steps are datagrams. A step that changes nothing is followed by one that shows it.
    const QRegularExpression barShown = serverWindow("Show", "TitleBarWidgetWindow");
    m_h->send("topen");
    const QRect bar = waitForNext(m_h->shell(), barShown, 1);
    QVERIFY(!bar.isEmpty());
    const int margin = m_face->style()->pixelMetric(QStyle::PM_LayoutRightMargin);
    const QPoint button(bar.right() - margin - 23, bar.y() + 24);
    const QStringList steps{"kbdtoggle", "kbdtoggle", "button",  "button",    "kbdshow",
                            "kbdshow 1", "kbdtoggle", "kbdhide", "kbdtoggle", "kbdhide"};
    const int first = m_h->shell().mark();
    for (const QString &step : steps)
        step == QLatin1String("button") ? m_h->click(button) : m_h->send(step.toLatin1());
    // Taps and datagrams are handled in order: once the bar has gone, all is done.
    m_h->send("tclose");
    QVERIFY(m_h->shell()
                .waitForLine(serverWindow("Hide", "TitleBarWidgetWindow"), 10000, first)
                .hasMatch());

    const QRegularExpression event(QStringLiteral("server window (Show|Hide) QwsKeyBoardWidget"));
    QString logged;
    for (const QString &line : m_h->shell().lines().mid(first))
        logged += event.match(line).captured(1).left(1);
    QCOMPARE(logged, QStringLiteral("SHSHSHSH"));
}

void TestE2eKeyboard::typesThenMovesByItsLabel()
{
    QRect keyboard = keyboardNow(*m_h);
    QVERIFY(!keyboard.isEmpty());

    // English: every tap is a key press and release for the client; "l" twice in a row.
    typeKeys(*m_h, keyboard, {"btn_2_7", "btn_1_4", "btn_2_10", "btn_2_10", "btn_1_10"});
    QVERIFY(m_client->waitForLine(QStringLiteral("text hello")));
    QVERIFY(
        m_client->hasLine(QRegularExpression(QStringLiteral("^key press %1 h$").arg(Qt::Key_H))));

    // Pinyin: letters only compose; space commits the first candidate, Enter the letters.
    typeKeys(*m_h, keyboard, {"btnFn", "btn_3_7", "btn_1_9", "pushButton_2"});
    QVERIFY(m_client->waitForLine(QStringLiteral("text hello妮")));
    typeKeys(*m_h, keyboard, {"btn_3_7", "btn_1_9", "btn_2_14"});
    QVERIFY(m_client->waitForLine(QStringLiteral("text hello妮ni")));
    QVERIFY(!m_client->hasLine(QRegularExpression(QStringLiteral("^text hellon"))));

    // A method the keyboard lacks only shows it, still in pinyin; 0 selects English.
    m_h->send("kbdshow 7");
    typeKeys(*m_h, keyboard, {"btn_3_7", "btn_1_9", "hzBtn1"});
    QVERIFY(m_client->waitForLine(QStringLiteral("text hello妮ni尼")));
    m_h->send("kbdshow 0");
    typeKeys(*m_h, keyboard, {"btn_2_7"});
    QVERIFY(m_client->waitForLine(QStringLiteral("text hello妮ni尼h")));

    const QRegularExpression text(QStringLiteral("^text "));
    const int typed = m_client->countLines(text);
    // A press at (10, 10) in the label slid to (100, 200) puts the corner at (90, 190).
    dragBy(*m_h, onScreen(keyboard, "label", {10, 10}), QPoint(90, 190) - keyboard.topLeft());
    keyboard.moveTo(90, 190);
    QCOMPARE(keyboardNow(*m_h), keyboard);
    // Up by the middle of the label; the keys went with it, and the drags typed nothing.
    dragBy(*m_h, onScreen(keyboard, "label"), QPoint(-10, -95));
    keyboard.moveTo(80, 95);
    QCOMPARE(keyboardNow(*m_h), keyboard);
    typeKeys(*m_h, keyboard, {"btn_2_7", "btn_1_9"});
    QVERIFY(m_client->waitForLine(QRegularExpression(QStringLiteral("^text .*hi$"))).hasMatch());
    QCOMPARE(m_client->countLines(text), typed + 2);
}

// How a client tells what it got: the test clients print their text and every key,
// weston-eventdemo every key's keysym, and a terminal's child each byte it reads in hex.
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
    // program: an executable or the variable naming it; way: how committed text is handed over.
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
    QVERIFY(h.logged("window \\d+ Active", activeBefore));
    // foot is ready once its child reads raw and it has committed its text input again after
    // its first frame: it drops text whose done serial is behind its count of commits.
    QVERIFY(report != ByteLines || client->waitForLine(QStringLiteral("ready")));
    QVERIFY(report != ByteLines || h.logged("text-input-v3 commit 2$"));
    const auto typed = [&] { return received(client, Report(report)); };

    // Three characters as keys without a key code, three pinyin candidates tapped on the soft
    // keyboard, then a key the layout lacks. The first character goes alone: a client may turn
    // its text input on only after its window became active, so that it gets the first one
    // as a key and the next ones as text, and Qt 5 hands queued keys on after text.
    h.tap(int(U'中'), 0);
    QTRY_COMPARE_WITH_TIMEOUT(typed(), QStringLiteral("中"), 10000);
    for (char32_t c : {U'文', U'字'})
        h.tap(int(c), 0);
    QTRY_COMPARE_WITH_TIMEOUT(typed(), QStringLiteral("中文字"), 10000);
    h.send("kbdshow 1");
    const QRect keyboard = waitForNext(h.shell(), keyboardShown, 0);
    QVERIFY(!keyboard.isEmpty());
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
