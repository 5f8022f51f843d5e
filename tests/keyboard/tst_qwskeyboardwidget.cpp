// The soft keyboard's captions at the size of its keys, plain and shifted. What the keys type
// is left to the end-to-end test, which taps them in the running shell.
#include "qwskeyboardwidget.h"

#include <QPushButton>
#include <QStyle>
#include <QStyleOptionButton>
#include <QTest>

class TestKeyboard : public QObject
{
    Q_OBJECT

private slots:
    void captionsFitTheirKeys();
};

void TestKeyboard::captionsFitTheirKeys()
{
    QwsKeyBoardWidget kb;
    kb.show();
    QVERIFY(QTest::qWaitForWindowExposed(&kb));
    auto *const shift = kb.findChild<QPushButton *>("btn_1_1");
    for (int shifted = 0; shifted < 2; ++shifted, QTest::mouseClick(shift, Qt::LeftButton)) {
        const QList<QPushButton *> buttons = kb.findChildren<QPushButton *>();
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
    QTest::mouseClick(shift, Qt::LeftButton);
    QVERIFY2(kb.findChild<QPushButton *>("btn_0_8")->grab().toImage() !=
                 kb.findChild<QPushButton *>("pushButton_2")->grab().toImage(),
             "the shifted 7 looks like the empty key");
}

QTEST_MAIN(TestKeyboard)
#include "tst_qwskeyboardwidget.moc"
