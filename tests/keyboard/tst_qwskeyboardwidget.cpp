// The soft keyboard driven through its own buttons: what each tap sends in English and pinyin,
// the composition and candidate paging, the face and the catalogue, and dragging.
#include "qwskeyboardwidget.h"

#include <QGridLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTranslator>

namespace {

const QString Nul(QChar(0));

// A keyboard with spies on both outputs; key events are decoded to short strings and freed,
// as the bar does once it has delivered them.
class Harness
{
public:
    Harness()
        : strings(&kb, &QwsKeyBoardWidget::newString), keys(&kb, &QwsKeyBoardWidget::newKeyEvent)
    {
        grid = kb.findChild<QGridLayout *>("keyBtnLayout");
    }
    ~Harness() { takeKeys(); }

    QPushButton *key(int row, int column)
    {
        return qobject_cast<QPushButton *>(grid->itemAtPosition(row, column)->widget());
    }
    QPushButton *button(const char *name) { return kb.findChild<QPushButton *>(name); }
    QString label(const char *name) { return kb.findChild<QLabel *>(name)->text(); }

    void tap(int row, int column)
    {
        QPushButton *b = key(row, column);
        QTest::mousePress(b, Qt::LeftButton);
        QTest::mouseRelease(b, Qt::LeftButton);
    }
    // Types letters, digits and the few punctuation keys used below by their grid position.
    void type(const QString &text)
    {
        static const QString rows[4] = {"`1234567890-=\\", "\t\tqwertyuiop[]", "\t\tasdfghjkl;'",
                                        "\tzxcvbnm,./"};
        for (QChar c : text) {
            bool found = false;
            for (int r = 0; r < 4 && !found; ++r) {
                const int col = rows[r].indexOf(c, r == 0 ? 0 : 1);
                if (col >= 0) {
                    tap(r, r == 0 ? col + 1 : col);
                    found = true;
                }
            }
            QVERIFY2(found, qPrintable(QString(c)));
        }
    }
    void pinyin() { QTest::mouseClick(button("btnFn"), Qt::LeftButton); }

    // "press 0x32 2" / "release 0x1000005 " etc.
    QStringList takeKeys()
    {
        QStringList out;
        for (const QList<QVariant> &args : std::as_const(keys)) {
            QKeyEvent *e = args.at(0).value<QKeyEvent *>();
            out << QStringLiteral("%1 0x%2 %3")
                       .arg(e->type() == QEvent::KeyPress ? "press" : "release")
                       .arg(e->key(), 0, 16)
                       .arg(e->text());
            delete e;
        }
        keys.clear();
        return out;
    }
    QStringList takeStrings()
    {
        QStringList out;
        for (const QList<QVariant> &args : std::as_const(strings))
            out << args.at(0).toString();
        strings.clear();
        return out;
    }
    // The candidate row as "chars|PgUp|PgDn"; checks that a button is enabled iff it has text.
    QString page()
    {
        QString chars;
        for (int i = 0; i < 7; ++i) {
            QPushButton *b = button(qPrintable(QStringLiteral("hzBtn%1").arg(i)));
            if (b->isEnabled() != !b->text().isEmpty())
                return QStringLiteral("button %1 enabled without text").arg(i);
            chars += b->text();
        }
        return QStringLiteral("%1|%2|%3")
            .arg(chars)
            .arg(button("btnPgUp")->isEnabled())
            .arg(button("btnPgDn")->isEnabled());
    }

    QwsKeyBoardWidget kb;
    QGridLayout *grid;
    QSignalSpy strings;
    QSignalSpy keys;
};

} // namespace

class TestKeyboard : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { qRegisterMetaType<QKeyEvent *>(); }
    void face();
    void catalogue();
    void englishKeys_data();
    void englishKeys();
    void shiftLatch();
    void changeMethod();
    void pinyinKeys_data();
    void pinyinKeys();
    void composing();
    void paging_data();
    void paging();
    void offsetSurvivesTyping();
    void segmentation();
    void dragByLabel();
};

void TestKeyboard::face()
{
    Harness h;
    QCOMPARE(h.kb.size(), QSize(482, 164));
    QCOMPARE(h.kb.maximumWidth(), 497);
    QVERIFY(h.kb.isWindow());
    const Qt::WindowFlags flags = h.kb.windowFlags();
    QVERIFY(flags.testFlags(Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                            Qt::WindowDoesNotAcceptFocus));
    QCOMPARE(h.kb.styleSheet(), "background-color: rgba(255, 255, 255, 128);");

    // Row 3 skips the name btn_3_6 and holds the space key as pushButton_2.
    QCOMPARE(h.key(3, 6)->objectName(), "btn_3_7");
    QCOMPARE(h.key(3, 10)->objectName(), "btn_3_11");
    QCOMPARE(h.key(3, 11)->objectName(), "pushButton_2");
    QCOMPARE(h.key(1, 14)->text(), u"←"_qs);
    QCOMPARE(h.key(3, 12)->text(), u"←"_qs);
    // The form's upper-case captions give way to the key table's unshifted texts.
    QCOMPARE(h.key(1, 2)->text(), "q");
    QCOMPARE(h.key(1, 1)->text(), "Sft");
    QCOMPARE(h.button("btnFn")->text(), "En");

    const QList<QPushButton *> buttons = h.kb.findChildren<QPushButton *>();
    QCOMPARE(buttons.size(), 70);
    for (int r = 0; r < 4; ++r) {
        for (int c = 0; c < 15; ++c) {
            QCOMPARE(h.key(r, c)->minimumSize(), QSize(32, 28));
            QCOMPARE(h.key(r, c)->maximumSize(), QSize(32, 28));
        }
    }
    QVERIFY(!h.kb.findChild<QWidget *>("hzSelectGroup")->isEnabled());
}

void TestKeyboard::catalogue()
{
    QTranslator translator;
    QVERIFY(translator.load(":/zh_CN.qm"));
    QCoreApplication::installTranslator(&translator);
    {
        Harness h;
        QCOMPARE(h.kb.windowTitle(), u"软键盘"_qs);
        QCOMPARE(h.label("label"), u"<可拖动>"_qs);
        QCOMPARE(h.button("btnPgUp")->text(), "PageUp");
    }
    QCoreApplication::removeTranslator(&translator);
}

void TestKeyboard::englishKeys_data()
{
    QTest::addColumn<bool>("shift");
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("column");
    QTest::addColumn<QStringList>("events");
    QTest::newRow("digit") << false << 0 << 3 << QStringList{"press 0x32 2", "release 0x32 2"};
    QTest::newRow("shifted digit")
        << true << 0 << 3 << QStringList{"press 0x40 @", "release 0x40 @"};
    QTest::newRow("letter") << false << 1 << 2 << QStringList{"press 0x51 q", "release 0x51 q"};
    QTest::newRow("shifted letter")
        << true << 2 << 10 << QStringList{"press 0x4c L", "release 0x4c L"};
    QTest::newRow("quote") << true << 2 << 12 << QStringList{"press 0x22 \"", "release 0x22 \""};
    QTest::newRow("escape") << false << 0 << 0
                            << QStringList{"press 0x1000000 ", "release 0x1000000 "};
    QTest::newRow("backspace") << false << 1 << 14
                               << QStringList{"press 0x1000003 ", "release 0x1000003 "};
    QTest::newRow("left") << false << 3 << 12
                          << QStringList{"press 0x1000012 ", "release 0x1000012 "};
    QTest::newRow("enter") << false << 2 << 14
                           << QStringList{"press 0x1000005 ", "release 0x1000005 "};
    QTest::newRow("space") << false << 3 << 11 << QStringList{"press 0x20  ", "release 0x20  "};
}

void TestKeyboard::englishKeys()
{
    QFETCH(bool, shift);
    QFETCH(int, row);
    QFETCH(int, column);
    QFETCH(QStringList, events);
    Harness h;
    if (shift)
        h.tap(1, 1);
    QCOMPARE(h.takeKeys(), QStringList());
    h.tap(row, column);
    QCOMPARE(h.takeKeys(), events);
    QCOMPARE(h.takeStrings(), QStringList());
}

void TestKeyboard::shiftLatch()
{
    Harness h;
    h.tap(1, 1);
    QCOMPARE(h.key(1, 1)->text(), "SFT");
    QCOMPARE(h.key(0, 2)->text(), "!");
    QCOMPARE(h.key(1, 2)->text(), "Q");
    // Typing does not release the latch.
    h.type("ab");
    QCOMPARE(h.takeKeys(),
             QStringList({"press 0x41 A", "release 0x41 A", "press 0x42 B", "release 0x42 B"}));
    QCOMPARE(h.key(1, 2)->text(), "Q");
    h.tap(1, 1);
    QCOMPARE(h.key(1, 1)->text(), "Sft");
    QCOMPARE(h.key(1, 2)->text(), "q");
    QCOMPARE(h.takeKeys(), QStringList());

    // In pinyin the latch commits nothing by itself and letters still compose in lower case.
    h.pinyin();
    h.tap(1, 1);
    QCOMPARE(h.takeKeys(), QStringList{"press 0x1000020 "});
    h.type("ni");
    QCOMPARE(h.label("imePreTextLabel"), "ni");
    QCOMPARE(h.key(2, 2)->text(), "A");
    QCOMPARE(h.takeKeys(), QStringList());
}

void TestKeyboard::changeMethod()
{
    Harness h;
    h.pinyin();
    QCOMPARE(h.button("btnFn")->text(), u"中"_qs);
    QVERIFY(h.kb.findChild<QWidget *>("hzSelectGroup")->isEnabled());
    h.type("ni");
    QCOMPARE(h.page(), u"妮尼泥倪霓你拟|0|1"_qs);
    // Any switch drops the composition.
    h.kb.changeMethod(1);
    QCOMPARE(h.label("imePreTextLabel"), QString());
    QCOMPARE(h.page(), "|0|0");
    h.pinyin();
    QCOMPARE(h.button("btnFn")->text(), "En");
    QVERIFY(!h.kb.findChild<QWidget *>("hzSelectGroup")->isEnabled());
    h.type("a");
    QCOMPARE(h.takeKeys(), QStringList({"press 0x41 a", "release 0x41 a"}));
}

void TestKeyboard::pinyinKeys_data()
{
    QTest::addColumn<QString>("composed");
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("column");
    QTest::addColumn<QStringList>("events");
    QTest::addColumn<QStringList>("strings");
    QTest::addColumn<QString>("preEdit");

    const QStringList none;
    QTest::newRow("enter, idle") << "" << 2 << 14
                                 << QStringList{"press 0x1000005 ", "release 0x1000005 "} << none
                                 << "";
    QTest::newRow("enter commits letters")
        << "ni" << 2 << 14 << QStringList{"release 0x1000005 "} << QStringList{"ni"} << "";
    QTest::newRow("space, idle") << "" << 3 << 11 << QStringList{"press 0x20  ", "release 0x20  "}
                                 << none << "";
    QTest::newRow("space, no candidates")
        << "nih" << 3 << 11 << QStringList{"press 0x20  ", "release 0x20  "} << none << "nih";
    QTest::newRow("space commits first") << "ni" << 3 << 11 << none << QStringList{u"妮"_qs} << "";
    QTest::newRow("backspace, idle")
        << "" << 1 << 14 << QStringList{"press 0x1000003 ", "release 0x1000003 "} << none << "";
    QTest::newRow("backspace to empty") << "n" << 1 << 14 << none << none << "";
    QTest::newRow("backspace edits") << "ni" << 1 << 14 << none << none << "n";
    QTest::newRow("escape, idle") << "" << 0 << 0
                                  << QStringList{"press 0x1000000 ", "release 0x1000000 "} << none
                                  << "";
    QTest::newRow("escape clears") << "ni" << 0 << 0 << none << none << "";
    QTest::newRow("shift, idle") << "" << 1 << 1 << QStringList{"press 0x1000020 "} << none << "";
    QTest::newRow("shift commits letters") << "nih" << 1 << 1 << none << QStringList{"nih"} << "";
    QTest::newRow("digit, idle") << "" << 0 << 2 << QStringList{"press 0x31 1", "release 0x31 1"}
                                 << none << "";
    QTest::newRow("digit swallowed") << "ni" << 0 << 2 << none << none << "ni";
    QTest::newRow("arrow swallowed") << "ni" << 3 << 14 << none << none << "ni";
    QTest::newRow("tab, idle") << "" << 1 << 0
                               << QStringList{"press 0x1000001 ", "release 0x1000001 "} << none
                               << "";
    // Press and release each convert once, so paired marks commit their closing half and
    // single marks their second, empty, slot.
    QTest::newRow("apostrophe") << "" << 2 << 12 << none << QStringList{u"’"_qs} << "";
    QTest::newRow("comma") << "ni" << 3 << 8 << none << QStringList{Nul} << "ni";
    QTest::newRow("ideographic full stop") << "" << 3 << 9 << none << QStringList{Nul} << "";
}

void TestKeyboard::pinyinKeys()
{
    QFETCH(QString, composed);
    QFETCH(int, row);
    QFETCH(int, column);
    QFETCH(QStringList, events);
    QFETCH(QStringList, strings);
    QFETCH(QString, preEdit);
    Harness h;
    h.pinyin();
    h.type(composed);
    QCOMPARE(h.label("imePreTextLabel"), composed);
    QCOMPARE(h.takeKeys(), QStringList());
    h.tap(row, column);
    QCOMPARE(h.takeKeys(), events);
    QCOMPARE(h.takeStrings(), strings);
    QCOMPARE(h.label("imePreTextLabel"), preEdit);
}

void TestKeyboard::composing()
{
    Harness h;
    h.pinyin();
    h.type("n");
    QCOMPARE(h.label("imePreTextLabel"), "n");
    QCOMPARE(h.page(), "|0|0");
    h.type("i");
    QCOMPARE(h.page(), u"妮尼泥倪霓你拟|0|1"_qs);
    QTest::mouseClick(h.button("hzBtn1"), Qt::LeftButton);
    QCOMPARE(h.takeStrings(), QStringList{u"尼"_qs});
    QCOMPARE(h.label("imePreTextLabel"), QString());
    QCOMPARE(h.page(), "|0|0");

    // A click on an empty candidate only disables it.
    h.kb.onHzClicked(3);
    QCOMPARE(h.takeStrings(), QStringList());
    QVERIFY(!h.button("hzBtn3")->isEnabled());
}

void TestKeyboard::paging_data()
{
    QTest::addColumn<QString>("syllable");
    QTest::addColumn<QStringList>("pages"); // the first page, then after each PageDown
    QTest::newRow("7, an empty page after a full one")
        << "zuo" << QStringList{u"昨左佐作坐座做|0|1"_qs, u"|1|0"_qs, u"|1|0"_qs};
    QTest::newRow("11") << "ni"
                        << QStringList{u"妮尼泥倪霓你拟|0|1"_qs, u"逆匿溺腻|1|0"_qs,
                                       u"逆匿溺腻|1|0"_qs};
    QTest::newRow("14") << "lv"
                        << QStringList{u"滤驴吕侣旅铝屡|0|1"_qs, u"缕履律虑率绿氯|1|1"_qs,
                                       u"|1|0"_qs, u"|1|0"_qs};
}

void TestKeyboard::paging()
{
    QFETCH(QString, syllable);
    QFETCH(QStringList, pages);
    Harness h;
    h.pinyin();
    // Paging with nothing composed does nothing.
    QTest::mouseClick(h.button("btnPgDn"), Qt::LeftButton);
    h.kb.on_btnPgDn_clicked();
    QCOMPARE(h.page(), "|0|0");
    h.type(syllable);
    QCOMPARE(h.page(), pages.first());
    for (int i = 1; i < pages.size(); ++i) {
        h.kb.on_btnPgDn_clicked();
        QCOMPARE(h.page(), pages.at(i));
    }
    for (int i = 0; i < pages.size(); ++i)
        QTest::mouseClick(h.button("btnPgUp"), Qt::LeftButton);
    QCOMPARE(h.page(), pages.first());
}

void TestKeyboard::offsetSurvivesTyping()
{
    Harness h;
    h.pinyin();
    h.type("ni");
    QTest::mouseClick(h.button("btnPgDn"), Qt::LeftButton);
    QCOMPARE(h.page(), u"逆匿溺腻|1|0"_qs);
    // "nie" has fewer than eight candidates, so the kept offset shows an empty page.
    h.type("e");
    QCOMPARE(h.label("imePreTextLabel"), "nie");
    QCOMPARE(h.page(), "|1|0");
    QTest::mouseClick(h.button("btnPgUp"), Qt::LeftButton);
    QVERIFY(h.page().startsWith(u"捏"_qs));
}

void TestKeyboard::segmentation()
{
    Harness h;
    h.pinyin();
    QVERIFY(QMetaObject::invokeMethod(&h.kb, "reloadIME", Q_ARG(QString, "xi'an")));
    QCOMPARE(h.label("imePreTextLabel"), "xi'an");
    QCOMPARE(h.page(), "|0|0");
    h.tap(3, 11);
    QCOMPARE(h.takeStrings(), QStringList());

    QVERIFY(QMetaObject::invokeMethod(&h.kb, "removeFirstCharFromIME"));
    QCOMPARE(h.label("imePreTextLabel"), "an'");
    QCOMPARE(h.page(), u"安氨鞍俺岸按案|0|1"_qs);
    QTest::mouseClick(h.button("hzBtn0"), Qt::LeftButton);
    QCOMPARE(h.takeStrings(), QStringList{u"安"_qs});
    QCOMPARE(h.label("imePreTextLabel"), QString());

    // Enter drops the separators of the raw letters it commits.
    QVERIFY(QMetaObject::invokeMethod(&h.kb, "reloadIME", Q_ARG(QString, "xi'an")));
    h.tap(2, 14);
    QCOMPARE(h.takeStrings(), QStringList{"xian"});

    // A trailing separator goes with the letter before it.
    QVERIFY(QMetaObject::invokeMethod(&h.kb, "reloadIME", Q_ARG(QString, "xi'")));
    h.tap(1, 14);
    QCOMPARE(h.label("imePreTextLabel"), "x");
}

void TestKeyboard::dragByLabel()
{
    Harness h;
    h.kb.move(100, 400);
    h.kb.show();
    QVERIFY(QTest::qWaitForWindowExposed(&h.kb));
    QCOMPARE(h.kb.pos(), QPoint(100, 400));
    QLabel *label = h.kb.findChild<QLabel *>("label");
    QCOMPARE(label->mapTo(&h.kb, QPoint(10, 10)), QPoint(10, 10));

    QTest::mousePress(label, Qt::LeftButton, {}, QPoint(10, 10));
    QTest::mouseMove(label, QPoint(30, 5));
    QTRY_COMPARE(h.kb.pos(), QPoint(120, 395));
    QTest::mouseRelease(label, Qt::LeftButton, {}, QPoint(30, 5));
    // Without a press, moving over the keyboard leaves it where it is.
    QTest::mouseMove(label, QPoint(60, 15));
    QCOMPARE(h.kb.pos(), QPoint(120, 395));
    QCOMPARE(h.takeKeys(), QStringList());
}

QTEST_MAIN(TestKeyboard)
#include "tst_qwskeyboardwidget.moc"
