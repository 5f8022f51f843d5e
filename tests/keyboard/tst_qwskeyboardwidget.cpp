// The soft keyboard driven through its own buttons: what each tap sends in English and pinyin,
// the composition and candidate paging, and dragging. Typing into a real client, the focus and
// the catalogue are left to the end-to-end test.
#include "qwskeyboardwidget.h"

#include <QGridLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>
#include <QStyle>
#include <QStyleOptionButton>
#include <QTest>

namespace {

// A press and release of one key, as Harness::takeKeys() writes them.
QStringList tapped(int key, const QString &text = QString())
{
    const QString event = QStringLiteral(" 0x%1 %2").arg(key, 0, 16).arg(text);
    return {"press" + event, "release" + event};
}

// A keyboard recording both outputs; key events are written as "press 0x32 2" and freed, as
// the bar does once it has delivered them.
class Harness
{
public:
    Harness()
    {
        QObject::connect(&kb, &QwsKeyBoardWidget::newString, [this](QString s) { strings << s; });
        QObject::connect(&kb, &QwsKeyBoardWidget::newKeyEvent, [this](QKeyEvent *e) {
            const QString kind = e->type() == QEvent::KeyPress ? "press" : "release";
            keys << kind + QStringLiteral(" 0x%1 %2").arg(e->key(), 0, 16).arg(e->text());
            delete e;
        });
    }

    QPushButton *key(int row, int column)
    {
        return qobject_cast<QPushButton *>(grid->itemAtPosition(row, column)->widget());
    }
    QPushButton *button(const char *name) { return kb.findChild<QPushButton *>(name); }
    QString preEdit() { return kb.findChild<QLabel *>("imePreTextLabel")->text(); }

    // Taps keys by their caption, with symbols for the keys without one; "⌨" switches method.
    void type(const QString &keys)
    {
        static const QString rows[4] = {"⎋`1234567890-=\\", "⇥⇧qwertyuiop[]⌫", "⇱⇲asdfghjkl;'↑⏎",
                                        "⌦zxcvbnm,./␣←↓→"};
        for (QChar c : keys) {
            int r = 0;
            while (r < 4 && !rows[r].contains(c))
                ++r;
            QWidget *b = c == u'⌨' ? button("btnFn") : r < 4 ? key(r, rows[r].indexOf(c)) : nullptr;
            QVERIFY2(b, qPrintable(QString(c)));
            QTest::mousePress(b, Qt::LeftButton);
            QTest::mouseRelease(b, Qt::LeftButton);
        }
    }

    QStringList takeKeys() { return std::exchange(keys, {}); }
    QStringList takeStrings() { return std::exchange(strings, {}); }
    // The candidate row as "chars|PgUp|PgDn", where a candidate must be enabled iff it has text.
    QString page()
    {
        QString row;
        for (int i = 0; i < 7; ++i) {
            QPushButton *b = button(qPrintable(QStringLiteral("hzBtn%1").arg(i)));
            row += b->isEnabled() == !b->text().isEmpty() ? b->text() : QStringLiteral("?");
        }
        return row + QStringLiteral("|%1|%2")
                         .arg(button("btnPgUp")->isEnabled())
                         .arg(button("btnPgDn")->isEnabled());
    }

    QwsKeyBoardWidget kb;
    QGridLayout *grid = kb.findChild<QGridLayout *>("keyBtnLayout");
    QStringList strings;
    QStringList keys;
};

} // namespace

class TestKeyboard : public QObject
{
    Q_OBJECT

private slots:
    void face();
    void keys_data();
    void keys();
    void shiftLatch();
    void captionsWhole();
    void paging_data();
    void paging();
    void segmentation();
    void dragByLabel();
};

void TestKeyboard::face()
{
    Harness h;
    QCOMPARE(h.kb.size(), QSize(482, 164));
    // Row 3 skips the name btn_3_6 and holds the space key as pushButton_2.
    QCOMPARE(h.key(3, 6)->objectName(), "btn_3_7");
    QCOMPARE(h.key(3, 11)->objectName(), "pushButton_2");
    QCOMPARE(h.key(3, 11)->maximumSize(), QSize(32, 28));
}

void TestKeyboard::keys_data()
{
    // What a run of taps sends and the pre-edit it leaves; "⌨" first selects pinyin.
    QTest::addColumn<QString>("taps");
    QTest::addColumn<QStringList>("events");
    QTest::addColumn<QStringList>("strings");
    QTest::addColumn<QString>("preEdit");

    // Most rows run a key in English, in pinyin with nothing composed and with a pre-edit.
    const QStringList none;
    const QStringList nul{QString(QChar(0))};
    const QStringList enter = tapped(0x1000005), space = tapped(0x20, " "),
                      backspace = tapped(0x1000003), escape = tapped(0x1000000);
    QTest::newRow("shifted digit") << "⇧2" << tapped(0x40, "@") << none << "";
    QTest::newRow("shifted quote") << "⇧'" << tapped(0x22, "\"") << none << "";
    QTest::newRow("left") << "←" << tapped(0x1000012) << none << "";
    QTest::newRow("enter commits letters")
        << "⏎⌨⏎ni⏎" << enter + enter + QStringList{"release 0x1000005 "} << QStringList{"ni"} << "";
    QTest::newRow("space without candidates")
        << "␣⌨␣nih␣" << space + space + space << none << "nih";
    QTest::newRow("space commits first") << "⌨ni␣" << none << QStringList{u"妮"_qs} << "";
    QTest::newRow("backspace edits") << "⌫⌨⌫ni⌫" << backspace + backspace << none << "n";
    QTest::newRow("backspace to empty") << "⌨n⌫" << none << none << "";
    QTest::newRow("escape clears") << "⎋⌨⎋ni⎋" << escape + escape << none << "";
    QTest::newRow("shift, idle, composing in lower case")
        << "⌨⇧ni" << QStringList{"press 0x1000020 "} << none << "ni";
    QTest::newRow("shift commits letters") << "⌨nih⇧" << none << QStringList{"nih"} << "";
    QTest::newRow("digit swallowed") << "⌨1ni1" << tapped(0x31, "1") << none << "ni";
    QTest::newRow("arrow swallowed") << "⌨ni→" << none << none << "ni";
    QTest::newRow("switch back drops it") << "⌨ni⌨a" << tapped(0x41, "a") << none << "";
    // Press and release each convert once, so paired marks commit their closing half and
    // single marks their second, empty, slot.
    QTest::newRow("apostrophe") << "⌨'" << none << QStringList{u"’"_qs} << "";
    QTest::newRow("comma") << "⌨ni," << none << nul << "ni";
    QTest::newRow("ideographic full stop") << "⌨." << none << nul << "";
}

void TestKeyboard::keys()
{
    QFETCH(QString, taps);
    QFETCH(QStringList, events);
    QFETCH(QStringList, strings);
    QFETCH(QString, preEdit);
    Harness h;
    h.type(taps);
    QCOMPARE(h.takeKeys(), events);
    QCOMPARE(h.takeStrings(), strings);
    QCOMPARE(h.preEdit(), preEdit);
}

void TestKeyboard::captionsWhole()
{
    Harness h;
    h.kb.show();
    QVERIFY(QTest::qWaitForWindowExposed(&h.kb));
    for (int shifted = 0; shifted < 2; ++shifted, h.type("⇧")) {
        const QList<QPushButton *> buttons = h.kb.findChildren<QPushButton *>();
        for (QPushButton *b : buttons) {
            const QString caption = QString(b->text()).replace("&&", "&");
            QStyleOptionButton option;
            option.initFrom(b);
            const int room =
                b->style()->subElementRect(QStyle::SE_PushButtonContents, &option, b).width();
            QVERIFY2(QFontMetrics(b->font()).horizontalAdvance(caption) <= room,
                     qPrintable(b->objectName() + " cuts " + caption));
        }
    }
    // "&" is what a button takes for a shortcut mark; the shifted 7 must still show one.
    h.type("⇧");
    QVERIFY2(h.key(0, 8)->grab().toImage() != h.key(3, 11)->grab().toImage(),
             "the shifted 7 looks like the empty key");
}

void TestKeyboard::shiftLatch()
{
    Harness h;
    // The form's upper-case captions give way to the key table's; typing keeps the latch.
    const auto captions = [&] {
        return h.key(1, 1)->text() + h.key(0, 2)->text() + h.key(1, 2)->text();
    };
    QCOMPARE(captions(), "Sft1q");
    h.type("⇧ab");
    QCOMPARE(captions(), "SFT!Q");
    QCOMPARE(h.takeKeys(), tapped(0x41, "A") + tapped(0x42, "B"));
    h.type("⇧");
    QCOMPARE(captions(), "Sft1q");
    QCOMPARE(h.takeKeys(), QStringList());

    // The latch flips in pinyin too; what it sends there is in keys().
    h.type("⌨⇧");
    QCOMPARE(h.button("btnFn")->text(), u"中"_qs);
    QCOMPARE(captions(), "SFT!Q");
    h.type("⌨");
    QCOMPARE(h.button("btnFn")->text(), "En");
    QVERIFY(!h.kb.findChild<QWidget *>("hzSelectGroup")->isEnabled());
}

void TestKeyboard::paging_data()
{
    // Steps, split at blanks: letters are typed; ">" and "<" call the PageDown and PageUp slots
    // directly, so a disabled button cannot stand in for the bound; a digit picks that
    // candidate. `pages` holds the candidate row after each step, `committed` all that was sent.
    QTest::addColumn<QString>("steps");
    QTest::addColumn<QStringList>("pages");
    QTest::addColumn<QStringList>("committed");

    const QString zuo = u"昨左佐作坐座做|0|1"_qs, ni = u"妮尼泥倪霓你拟|0|1"_qs,
                  ni2 = u"逆匿溺腻|1|0"_qs, lv = u"滤驴吕侣旅铝屡|0|1"_qs,
                  lv2 = u"缕履律虑率绿氯|1|1"_qs;
    QTest::newRow("7, an empty page after a full one")
        << "> zuo > > < <" << QStringList{"|0|0", zuo, "|1|0", "|1|0", zuo, zuo} << QStringList();
    QTest::newRow("11") << "n i > > < > 1" << QStringList{"|0|0", ni, ni2, ni2, ni, ni2, "|0|0"}
                        << QStringList{u"匿"_qs};
    QTest::newRow("14") << "lv > > > < < < 3"
                        << QStringList{lv, lv2, "|1|0", "|1|0", lv2, lv, lv, "|0|0"}
                        << QStringList{u"侣"_qs};
    QTest::newRow("most used first")
        << "shi 0" << QStringList{u"是时十事实使世|0|1"_qs, "|0|0"} << QStringList{u"是"_qs};
    // "nie" has fewer than eight candidates, so the kept offset shows an empty page, whose
    // candidates pick nothing.
    QTest::newRow("offset kept while typing")
        << "ni > e 0 <" << QStringList{ni, ni2, "|1|0", "|1|0", u"捏涅聂啮镊镍孽|0|1"_qs}
        << QStringList();
}

void TestKeyboard::paging()
{
    QFETCH(QString, steps);
    QFETCH(QStringList, pages);
    QFETCH(QStringList, committed);
    Harness h;
    h.type("⌨");
    int done = 0;
    for (const QString &step : steps.split(' ')) {
        if (step == ">") {
            h.kb.on_btnPgDn_clicked();
        } else if (step == "<") {
            h.kb.on_btnPgUp_clicked();
        } else if (step.at(0).isDigit()) {
            // An empty candidate cannot be tapped; its slot still has to pick nothing.
            QPushButton *b = h.button(qPrintable("hzBtn" + step));
            b->isEnabled() ? QTest::mouseClick(b, Qt::LeftButton) : h.kb.onHzClicked(step.toInt());
        } else {
            h.type(step);
        }
        const QString page = h.page(), expected = pages.value(done++);
        QVERIFY2(page == expected, qPrintable(step + ": " + page + " instead of " + expected));
    }
    QCOMPARE(done, pages.size());
    QCOMPARE(h.takeStrings(), committed);
}

void TestKeyboard::segmentation()
{
    Harness h;
    h.type("⌨");
    h.kb.reloadIME("xi'an");
    QCOMPARE(h.preEdit(), "xi'an");
    QCOMPARE(h.page(), "|0|0");
    h.type("␣");
    QCOMPARE(h.takeStrings(), QStringList());

    h.kb.removeFirstCharFromIME();
    QCOMPARE(h.preEdit(), "an'");
    QCOMPARE(h.page(), u"安按岸暗案俺氨|0|1"_qs);
    QTest::mouseClick(h.button("hzBtn0"), Qt::LeftButton);
    QCOMPARE(h.takeStrings(), QStringList{u"安"_qs});
    QCOMPARE(h.preEdit(), QString());

    // Enter drops the separators of the raw letters it commits.
    h.kb.reloadIME("xi'an");
    h.type("⏎");
    QCOMPARE(h.takeStrings(), QStringList{"xian"});

    // A trailing separator goes with the letter before it.
    h.kb.reloadIME("xi'");
    h.type("⌫");
    QCOMPARE(h.preEdit(), "x");
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
