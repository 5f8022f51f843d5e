#include "sysrundialog.h"
#include "zhcatalogue.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include <optional>

class TestSysRunDialog : public QObject
{
    Q_OBJECT
private slots:
    void form_data();
    void form();
    void typedTextIsAccepted();
    void keyboardRules_data();
    void keyboardRules();
    void reopeningWhileOpenChangesNothing();
    void worksWithoutKeyboard();
};

void TestSysRunDialog::form_data()
{
    QTest::addColumn<bool>("translated");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("prompt");
    QTest::addColumn<QString>("run");

    QTest::newRow("English") << false << "Run Dialog"
                             << "System will run the program you typed below:"
                             << "Run:";
    QTest::newRow("Chinese") << true << QString::fromUtf8("运行")
                             << QString::fromUtf8("系统将运行您在下面文本框中指定的程序:")
                             << QString::fromUtf8("运行:");
}

void TestSysRunDialog::form()
{
    QFETCH(bool, translated);
    QFETCH(QString, title);
    QFETCH(QString, prompt);
    QFETCH(QString, run);

    std::optional<ZhCatalogue> catalogue(std::in_place, translated);
    QCOMPARE(catalogue->isInstalled(), translated);
    SysRunDialog dialog;
    catalogue.reset();

    QCOMPARE(dialog.windowTitle(), title);
    QVERIFY(!dialog.isModal());
    auto *icon = dialog.findChild<QLabel *>("label");
    QVERIFY(icon);
    QCOMPARE(icon->minimumSize(), QSize(24, 24));
    QCOMPARE(icon->maximumSize(), QSize(24, 24));
    QCOMPARE(dialog.findChild<QLabel *>("label_2")->text(), prompt);
    QCOMPARE(dialog.findChild<QLabel *>("label_3")->text(), run);
    QVERIFY(dialog.findChild<QLineEdit *>("progPathEdit"));
    auto *box = dialog.findChild<QDialogButtonBox *>("buttonBox");
    QVERIFY(box);
    QCOMPARE(box->standardButtons(), QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
}

void TestSysRunDialog::typedTextIsAccepted()
{
    SysRunDialog dialog;
    QSignalSpy accepted(&dialog, &QDialog::accepted);
    dialog.setProgramPath("stale");
    dialog.showWithKeyboard();
    QVERIFY(dialog.isVisible());
    QCOMPARE(dialog.programPath(), QString());

    QTest::keyClicks(dialog.findChild<QLineEdit *>("progPathEdit"), "/bin/echo 'a b'");
    dialog.findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Ok)->click();
    QCOMPARE(accepted.count(), 1);
    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.programPath(), QString("/bin/echo 'a b'"));
}

void TestSysRunDialog::keyboardRules_data()
{
    QTest::addColumn<bool>("shownBefore");
    QTest::addColumn<bool>("accept");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("shownAfter");

    QTest::newRow("hidden, OK hides again") << false << true << "/bin/true" << false;
    QTest::newRow("hidden, OK on empty line hides again") << false << true << "" << false;
    QTest::newRow("hidden, Cancel leaves it shown") << false << false << "/bin/true" << true;
    QTest::newRow("shown, OK leaves it shown") << true << true << "/bin/true" << true;
    QTest::newRow("shown, Cancel leaves it shown") << true << false << "" << true;
}

void TestSysRunDialog::keyboardRules()
{
    QFETCH(bool, shownBefore);
    QFETCH(bool, accept);
    QFETCH(QString, text);
    QFETCH(bool, shownAfter);

    QWidget keyboard;
    keyboard.setVisible(shownBefore);
    SysRunDialog dialog;
    dialog.setKeyboardWidget(&keyboard);

    // The owner reads the text from accepted(); the keyboard must still be up at that point.
    bool keyboardUpOnAccept = false;
    connect(&dialog, &QDialog::accepted, &dialog,
            [&] { keyboardUpOnAccept = keyboard.isVisible(); });

    dialog.showWithKeyboard();
    QCOMPARE(dialog.lastKeyboardStatus(), shownBefore);
    QVERIFY(keyboard.isVisible());
    QVERIFY(dialog.isVisible());

    dialog.setProgramPath(text);
    auto *box = dialog.findChild<QDialogButtonBox *>();
    box->button(accept ? QDialogButtonBox::Ok : QDialogButtonBox::Cancel)->click();
    QVERIFY(!dialog.isVisible());
    QCOMPARE(keyboard.isVisible(), shownAfter);
    QCOMPARE(keyboardUpOnAccept, accept);
}

void TestSysRunDialog::reopeningWhileOpenChangesNothing()
{
    QWidget keyboard;
    SysRunDialog dialog;
    dialog.setKeyboardWidget(&keyboard);
    dialog.showWithKeyboard();
    QVERIFY(!dialog.lastKeyboardStatus());

    dialog.setProgramPath("typed");
    keyboard.hide();
    dialog.showWithKeyboard();
    QCOMPARE(dialog.programPath(), QString("typed"));
    QVERIFY(!keyboard.isVisible());
    QVERIFY(!dialog.lastKeyboardStatus());

    // The same dialog is used again after closing, with a fresh line.
    dialog.reject();
    dialog.showWithKeyboard();
    QCOMPARE(dialog.programPath(), QString());
    QVERIFY(keyboard.isVisible());
}

void TestSysRunDialog::worksWithoutKeyboard()
{
    SysRunDialog dialog;
    {
        QWidget keyboard;
        dialog.setKeyboardWidget(&keyboard);
    }
    QVERIFY(!dialog.keyboardWidget());
    dialog.showWithKeyboard();
    QVERIFY(!dialog.lastKeyboardStatus());
    dialog.setProgramPath("x");
    dialog.accept();
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
}

QTEST_MAIN(TestSysRunDialog)
#include "tst_sysrundialog.moc"
