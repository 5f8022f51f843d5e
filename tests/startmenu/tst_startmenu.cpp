// The start-menu loader on temporary directories, the command-line splitter, the children it
// starts and the run dialog's keyboard rules. Choosing entries in the running shell is left to
// the end-to-end test.
#include "commandline.h"
#include "startmenumanager.h"
#include "sysrundialog.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QDialogButtonBox>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QTranslator>

#include <csignal>

namespace {

void writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(path));
    file.write(content);
}

QByteArray entry(const QByteArray &name, const QByteArray &extra = QByteArray())
{
    return "Name=" + name + "\nPath=/bin/true\nDir=\nIcon=\n" + extra;
}

} // namespace

class TestStartMenu : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();

    void splitCommandLine_data();
    void splitCommandLine();
    void loadStartMenu();
    void entryKeys_data();
    void entryKeys();
    void trigger();
    void runProgram_data();
    void runProgram();
    void runningChildEndsWithManager();
    void runDialogKeyboard_data();
    void runDialogKeyboard();

private:
    QString programDir() const { return m_dir->filePath("prog"); }
    QString settingDir() const { return m_dir->filePath("set"); }
    StartMenuManager *makeManager()
    {
        return new StartMenuManager(m_root.get(), programDir(), settingDir(), m_root.get());
    }

    QTranslator m_chinese;
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<QMenu> m_root;
    QString m_startCwd;
    QTimer m_boxWatch;
    int m_boxes = 0;
    int m_expectedBoxes = 0;
    QStringList m_lastBox; // title and text
};

// Every test closes the warning boxes that turn up and counts them, so that an unexpected one
// fails the test instead of blocking it. The boxes are modal and run their own event loop, so
// they are found from a timer among the top-level widgets.
void TestStartMenu::initTestCase()
{
    QVERIFY(m_chinese.load(QStringLiteral(":/zh_CN.qm")));
    connect(&m_boxWatch, &QTimer::timeout, this, [this] {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            auto *box = qobject_cast<QMessageBox *>(widget);
            if (!box || !box->isVisible() || box->property("seen").toBool())
                continue;
            box->setProperty("seen", true);
            ++m_boxes;
            m_lastBox = QStringList{box->windowTitle(), box->text()};
            box->button(QMessageBox::Ok)->click();
        }
    });
    m_boxWatch.start(20);
}

void TestStartMenu::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    QVERIFY(QDir().mkpath(programDir()) && QDir().mkpath(settingDir()));
    m_root = std::make_unique<QMenu>();
    m_startCwd = QDir::currentPath();
    m_boxes = m_expectedBoxes = 0;
    m_lastBox.clear();
}

void TestStartMenu::cleanup()
{
    QCoreApplication::removeTranslator(&m_chinese);
    QDir::setCurrent(m_startCwd);
    m_root.reset();
    QTest::qWait(100);
    QCOMPARE(m_boxes, m_expectedBoxes);
    m_dir.reset();
}

void TestStartMenu::splitCommandLine_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("args");
    const auto row = [](const char *name, const QString &line, const QString &program,
                        const QStringList &args = {}) {
        QTest::newRow(name) << line << program << args;
    };

    row("blanks only", "    ", "");
    row("blank runs", "  /bin/echo   a  b  ", "/bin/echo", {"a", "b"});
    row("tab is ordinary", "a\tb c", "a\tb", {"c"});
    row("double quotes", "/bin/echo \"a b\" c", "/bin/echo", {"a b", "c"});
    row("apostrophes", "/bin/echo 'a b' c", "/bin/echo", {"a b", "c"});
    row("leading quoted blanks vanish", "p \"  x\" '  y'", "p", {"x", "y"});
    row("inner and trailing blanks kept", "p \"x  y \"", "p", {"x  y "});
    row("empty quotes give nothing", "p \"\" '' q", "p", {"q"});
    row("quotes join with neighbours", "p a\"b c\"d", "p", {"ab cd"});
    row("each quote inside the other", "p \"it's\" 'say \"hi\"'", "p", {"it's", "say \"hi\""});
    row("unclosed quote runs to the end", "p \"a b  c", "p", {"a b  c"});
    row("backslash blank joins", "my\\ prog arg", "my prog", {"arg"});
    row("escaped blank starts a token", "p \\ x", "p", {" x"});
    row("backslash in quotes", "p 'a\\'b' \"a\\\"b\" a\\\\b", "p", {"a'b", "a\"b", "a\\b"});
    row("trailing backslash kept", "p ab\\", "p", {"ab\\"});
    row("stops at a zero character", QString::fromLatin1("p a\0b c", 7), "p", {"a"});
    // Bytes come back one character each: UTF-8 text arrives spelt in Latin-1.
    row("non-ASCII kept bytewise", QString::fromUtf8("p \xc3\xa9"), "p",
        {QString::fromLatin1("\xc3\xa9")});
}

void TestStartMenu::splitCommandLine()
{
    QFETCH(QString, line);
    QFETCH(QString, program);
    QFETCH(QStringList, args);

    // Tokens are appended to the list given.
    QString gotProgram;
    QStringList gotArgs{"given"};
    ::splitCommandLine(line, gotProgram, gotArgs);
    QCOMPARE(gotProgram, program);
    QCOMPARE(gotArgs, QStringList{"given"} + args);
}

// The program folder holds entries and things to pass over; the setting folder is missing.
void TestStartMenu::loadStartMenu()
{
    const QString dir = programDir();
    // Equal sizes: names descending. Larger files after smaller ones, whatever their names.
    writeFile(dir + "/a.menu", entry("EqualA"));
    writeFile(dir + "/b.menu", entry("EqualB"));
    writeFile(dir + "/0.menu", entry("Big", "Comment=" + QByteArray(40, 'x')));
    writeFile(dir + "/z.menu", "Name=Small\nPath=/x\nDir=\nIcon=\n");
    writeFile(dir + "/.hidden.menu", entry("Hidden", "Comment=" + QByteArray(20, 'x')));
    writeFile(dir + "/upper.MENU", entry("Upper"));
    writeFile(dir + "/entry.menu.bak", entry("Backup"));
    QVERIFY(QFile::link(dir + "/a.menu", dir + "/link.menu"));
    QVERIFY(QDir(dir).mkdir("sub.menu"));
    writeFile(dir + "/sub.menu/nested.menu", entry("Nested"));
    auto *manager = new StartMenuManager(m_root.get(), dir, m_dir->filePath("none"), m_root.get());
    manager->loadStartMenu();

    QMenu *program = manager->programMenu();
    QMenu *setting = manager->settingMenu();
    QList<QMenu *> menus;
    for (const QAction *action : m_root->actions())
        menus.append(action->menu());
    QVERIFY(program && setting && program != setting);
    QCOMPARE(menus, (QList<QMenu *>{program, setting}));
    QStringList texts;
    for (const QAction *action : program->actions())
        texts.append(action->text());
    QCOMPARE(texts, (QStringList{"Small", "EqualB", "EqualA", "Hidden", "Big"}));
    QVERIFY(program->isEnabled());
    QVERIFY(setting->isEmpty() && !setting->isEnabled());
    for (QMenu *menu : {program, setting}) {
        QCOMPARE(menu->parent(), m_root.get());
        QCOMPARE(menu->style(), m_root->style());
    }
}

void TestStartMenu::entryKeys_data()
{
    // The action's text and data, nothing for a file that is skipped.
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("action");

    const QByteArray all = "Name=N\nPath=/p\nDir=/d\nIcon=/i.png\n";
    QTest::newRow("all keys") << all << QStringList{"N", "0|/p|/d"};
    QTest::newRow("empty values") << QByteArray("Name=\nPath=\nDir=\nIcon=\n")
                                  << QStringList{"", "0||"};
    QTest::newRow("UTF-8 name") << QByteArray("Name=\xe7\xbb\x88\nPath=/p\nDir=\nIcon=\n")
                                << QStringList{u"终"_qs, "0|/p|"};
    QTest::newRow("no Dir") << QByteArray("Name=N\nPath=/p\nIcon=/i.png\n") << QStringList();
    QTest::newRow("no Icon") << QByteArray("Name=N\nPath=/p\nDir=/d\nInner=1\n") << QStringList();
    QTest::newRow("keys in a section") << "[Entry]\n" + all << QStringList();
    for (const char *value : {"0", "false", ""})
        QTest::addRow("Inner=%s", value) << all + "Inner=" + value + "\n"
                                         << QStringList{"N", "0|/p|/d"};
    for (const char *value : {"1", "true"})
        QTest::addRow("Inner=%s", value) << all + "Inner=" + value + "\n"
                                         << QStringList{"N", "1|/p|/d"};
}

void TestStartMenu::entryKeys()
{
    QFETCH(QByteArray, content);
    QFETCH(QStringList, action);

    const QString file = programDir() + "/e.menu";
    writeFile(file, content);
    QMenu menu;
    QAction *loaded = makeManager()->loadMenuEntry(&menu, file);
    QCOMPARE(menu.actions().size(), action.isEmpty() ? 0 : 1);
    QCOMPARE(loaded != nullptr, !action.isEmpty());
    if (loaded)
        QCOMPARE((QStringList{loaded->text(), loaded->data().toString()}), action);
}

// A "|" in Dir spoils an entry: its data no longer splits into three fields and nothing
// starts. An inner entry goes to the owner with its Path split into name and parameters.
void TestStartMenu::trigger()
{
    writeFile(settingDir() + "/a.menu", "Name=A\nPath=/bin/true\nDir=/tmp|x\nIcon=\n");
    writeFile(settingDir() + "/b.menu",
              "Name=B\nPath=sys_man_date  now 'a b'\nDir=/x\nIcon=\nInner=1\n");
    StartMenuManager *manager = makeManager();
    QSignalSpy inner(manager, &StartMenuManager::innerCommand);
    manager->loadStartMenu();
    const QList<QAction *> actions = manager->settingMenu()->actions();
    QCOMPARE(actions.size(), 2);

    for (QAction *action : actions) {
        if (action->text() == "B")
            QTest::ignoreMessage(QtDebugMsg,
                                 "call a inner command \"sys_man_date\" (\"now\", \"a b\") \"/x\"");
        action->trigger();
    }
    QVERIFY(manager->findChildren<QProcess *>().isEmpty());
    QCOMPARE(inner, (QList<QVariantList>{{"sys_man_date", QStringList{"now", "a b"}, "/x"}}));
}

void TestStartMenu::runProgram_data()
{
    // `output` is what the child prints, "%1" standing for the shell's working directory; `box`
    // the title and text of the warning box.
    QTest::addColumn<QString>("command");
    QTest::addColumn<bool>("translated");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QStringList>("box");

    const QString report = "/bin/sh -c 'pwd -P; echo \"$WAYLAND_DISPLAY\" $# \"$1\"' sh \"a b\" c";
    QTest::newRow("runs") << report << false << "%1\ntide-test-7 2 a b\n" << QStringList();
    QTest::newRow("blank command") << "   \"\" ''" << false << "" << QStringList();
    QTest::newRow("missing") << "/nonexistent/tide-no-such-program --flag" << false << ""
                             << QStringList{"Error", "Program can't started!"};
    QTest::newRow("crash, Chinese") << "/bin/sh -c 'kill -SEGV $$'" << true << ""
                                    << QStringList{u"错误"_qs, u"程序无法运行!"_qs};
}

// Children get the environment set on the manager, not the shell's, and start in the shell's
// working directory whatever the entry's; a failing one gives exactly one warning box.
void TestStartMenu::runProgram()
{
    QFETCH(QString, command);
    QFETCH(bool, translated);
    QFETCH(QString, output);
    QFETCH(QStringList, box);

    const QString shellCwd = m_dir->filePath("shellcwd");
    QVERIFY(QDir().mkpath(shellCwd) && QDir::setCurrent(shellCwd));
    if (translated)
        QVERIFY(QCoreApplication::installTranslator(&m_chinese));
    QProcessEnvironment env;
    env.insert("PATH", "/usr/bin:/bin");
    env.insert("WAYLAND_DISPLAY", "tide-test-7");
    StartMenuManager *manager = makeManager();
    manager->setProcessEnvironment(env);
    m_expectedBoxes = box.isEmpty() ? 0 : 1;

    manager->runProgram(command, programDir());
    QProcess *child = manager->findChild<QProcess *>();
    QCOMPARE(child != nullptr, !output.isEmpty() || !box.isEmpty());
    if (!output.isEmpty()) {
        QVERIFY(child->waitForFinished(5000));
        QCOMPARE(QString::fromUtf8(child->readAllStandardOutput()),
                 output.arg(QFileInfo(shellCwd).canonicalFilePath()));
    }
    QTRY_COMPARE(m_boxes, m_expectedBoxes);
    QCOMPARE(m_lastBox, box);
    // Finished or failed, the child deletes itself.
    QTRY_VERIFY(manager->findChildren<QProcess *>().isEmpty());
}

void TestStartMenu::runningChildEndsWithManager()
{
    auto *manager = makeManager();
    manager->runProgram("/bin/sleep 30");
    QProcess *process = manager->findChild<QProcess *>();
    QVERIFY(process && process->waitForStarted());
    const pid_t pid = pid_t(process->processId());
    delete manager;
    // Reaped by now, so the id is gone.
    QVERIFY(::kill(pid, 0) != 0);
}

void TestStartMenu::runDialogKeyboard_data()
{
    QTest::addColumn<bool>("shownBefore");
    QTest::addColumn<bool>("accept");
    QTest::addColumn<bool>("shownAfter");
    QTest::newRow("hidden, OK hides again") << false << true << false;
    QTest::newRow("hidden, Cancel leaves it shown") << false << false << true;
    QTest::newRow("shown, OK leaves it shown") << true << true << true;
}

// Opening shows the keyboard with a fresh line; only acceptance puts the keyboard back.
void TestStartMenu::runDialogKeyboard()
{
    QFETCH(bool, shownBefore);
    QFETCH(bool, accept);
    QFETCH(bool, shownAfter);
    QWidget keyboard;
    keyboard.setVisible(shownBefore);
    SysRunDialog dialog;
    dialog.setKeyboardWidget(&keyboard);
    dialog.setProgramPath("stale");
    QSignalSpy accepted(&dialog, &QDialog::accepted);
    dialog.showWithKeyboard();
    QVERIFY(keyboard.isVisible() && dialog.isVisible());
    QCOMPARE(dialog.programPath(), QString());

    // Opening it again while it is up keeps the line and the keyboard as they are.
    dialog.setProgramPath("typed");
    keyboard.hide();
    dialog.showWithKeyboard();
    QCOMPARE(dialog.programPath(), "typed");
    QVERIFY(!keyboard.isVisible());
    keyboard.show();

    auto *box = dialog.findChild<QDialogButtonBox *>();
    box->button(accept ? QDialogButtonBox::Ok : QDialogButtonBox::Cancel)->click();
    QCOMPARE(accepted.size(), accept ? 1 : 0);
    QVERIFY(!dialog.isVisible());
    QCOMPARE(keyboard.isVisible(), shownAfter);
}

QTEST_MAIN(TestStartMenu)
#include "tst_startmenu.moc"
