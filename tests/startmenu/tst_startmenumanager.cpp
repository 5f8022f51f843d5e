// The start-menu loader on temporary directories and the children it starts. Choosing an entry
// in the running shell is left to the end-to-end test.
#include "startmenumanager.h"
#include "zhcatalogue.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QFile>
#include <QMenu>
#include <QMessageBox>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <csignal>
#include <sys/types.h>

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

class TestStartMenuManager : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();

    void loadStartMenu();
    void entryKeys_data();
    void entryKeys();
    void trigger();
    void runProgram_data();
    void runProgram();
    void runningChildEndsWithManager();

private:
    QString programDir() const { return m_dir->filePath("prog"); }
    QString settingDir() const { return m_dir->filePath("set"); }
    StartMenuManager *makeManager()
    {
        return new StartMenuManager(m_root.get(), programDir(), settingDir(), m_root.get());
    }

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
void TestStartMenuManager::initTestCase()
{
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

void TestStartMenuManager::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    QVERIFY(QDir().mkpath(programDir()));
    QVERIFY(QDir().mkpath(settingDir()));
    m_root = std::make_unique<QMenu>();
    m_startCwd = QDir::currentPath();
    m_boxes = m_expectedBoxes = 0;
    m_lastBox.clear();
}

void TestStartMenuManager::cleanup()
{
    QDir::setCurrent(m_startCwd);
    m_root.reset();
    QTest::qWait(100);
    QCOMPARE(m_boxes, m_expectedBoxes);
    m_dir.reset();
}

// The program folder holds entries and things to pass over; the setting folder is missing.
void TestStartMenuManager::loadStartMenu()
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
    writeFile(dir + "/plain", entry("Plain"));
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
    QVERIFY(program->isEnabled());
    QStringList texts;
    for (const QAction *action : program->actions()) {
        texts.append(action->text());
        QCOMPARE(action->parent(), program);
    }
    QCOMPARE(texts, (QStringList{"Small", "EqualB", "EqualA", "Hidden", "Big"}));
    QVERIFY(setting->isEmpty());
    QVERIFY(!setting->isEnabled());
    for (QMenu *menu : {program, setting}) {
        QCOMPARE(menu->parent(), m_root.get());
        QCOMPARE(menu->style(), m_root->style());
    }
}

void TestStartMenuManager::entryKeys_data()
{
    // The action's text and data, nothing for a file that is skipped.
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("action");

    const QByteArray all = "Name=N\nPath=/p\nDir=/d\nIcon=/i.png\n";
    const QStringList skipped;
    QTest::newRow("all keys") << all << QStringList{"N", "0|/p|/d"};
    QTest::newRow("empty values") << QByteArray("Name=\nPath=\nDir=\nIcon=\n")
                                  << QStringList{"", "0||"};
    QTest::newRow("UTF-8 name") << QByteArray(
                                       "Name=\xe7\xbb\x88\xe7\xab\xaf\nPath=/p\nDir=\nIcon=\n")
                                << QStringList{u"终端"_qs, "0|/p|"};
    QTest::newRow("no Name") << QByteArray("Path=/p\nDir=/d\nIcon=/i.png\n") << skipped;
    QTest::newRow("no Path") << QByteArray("Name=N\nDir=/d\nIcon=/i.png\n") << skipped;
    QTest::newRow("no Dir") << QByteArray("Name=N\nPath=/p\nIcon=/i.png\n") << skipped;
    QTest::newRow("no Icon") << QByteArray("Name=N\nPath=/p\nDir=/d\nInner=0\n") << skipped;
    QTest::newRow("keys in a section") << "[Entry]\n" + all << skipped;
    for (const char *value : {"0", "false", ""})
        QTest::addRow("Inner=%s", value) << all + "Inner=" + value + "\n"
                                         << QStringList{"N", "0|/p|/d"};
    for (const char *value : {"1", "true", "yes"})
        QTest::addRow("Inner=%s", value) << all + "Inner=" + value + "\n"
                                         << QStringList{"N", "1|/p|/d"};
}

void TestStartMenuManager::entryKeys()
{
    QFETCH(QByteArray, content);
    QFETCH(QStringList, action);

    const QString file = programDir() + "/e.menu";
    writeFile(file, content);
    QMenu menu;
    QAction *loaded = makeManager()->loadMenuEntry(&menu, file);
    QCOMPARE(menu.actions().size(), action.isEmpty() ? 0 : 1);
    QCOMPARE(loaded != nullptr, !action.isEmpty());
    if (loaded) {
        QCOMPARE(loaded->parent(), &menu);
        QCOMPARE((QStringList{loaded->text(), loaded->data().toString()}), action);
    }
}

// A "|" in Dir spoils an entry: its data no longer splits into three fields and nothing
// starts. An inner entry goes to the owner with its Path split into name and parameters.
void TestStartMenuManager::trigger()
{
    const QString marker = m_dir->filePath("started");
    writeFile(settingDir() + "/a.menu",
              "Name=A\nPath=/bin/touch " + marker.toUtf8() + "\nDir=/tmp|x\nIcon=\n");
    writeFile(settingDir() + "/b.menu",
              "Name=B\nPath=sys_man_date  now 'a b'\nDir=/x\nIcon=\nInner=1\n");
    StartMenuManager *manager = makeManager();
    QSignalSpy inner(manager, &StartMenuManager::innerCommand);
    manager->loadStartMenu();
    QMap<QString, QAction *> actions;
    for (QAction *action : manager->settingMenu()->actions())
        actions.insert(action->text(), action);
    QCOMPARE(actions.keys(), (QStringList{"A", "B"}));
    QCOMPARE(actions["A"]->data().toString(), "0|/bin/touch " + marker + "|/tmp|x");
    QCOMPARE(actions["B"]->data().toString(), "1|sys_man_date  now 'a b'|/x");

    actions["A"]->trigger();
    QTest::ignoreMessage(QtDebugMsg,
                         "call a inner command \"sys_man_date\" (\"now\", \"a b\") \"/x\"");
    actions["B"]->trigger();
    QVERIFY(manager->findChildren<QProcess *>().isEmpty());
    QTest::qWait(200);
    QVERIFY(!QFile::exists(marker));
    QCOMPARE(inner, (QList<QVariantList>{{"sys_man_date", QStringList{"now", "a b"}, "/x"}}));
}

void TestStartMenuManager::runProgram_data()
{
    // `output` is what the child prints, "%1" standing for the shell's working directory; `box`
    // the title and text of the warning box.
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("dir");
    QTest::addColumn<bool>("translated");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QStringList>("box");

    const QString report = "/bin/sh -c 'pwd -P; echo \"$WAYLAND_DISPLAY\" $# \"$1\"' sh \"a b\" c";
    const QString missing = "/nonexistent/tide-no-such-program --flag";
    const QString crash = "/bin/sh -c 'kill -SEGV $$'";
    const QString reported = "%1\ntide-test-7 2 a b\n";
    const QStringList none, chinese{u"错误"_qs, u"程序无法运行!"_qs};
    // Whatever dir is given, the child starts in the shell's working directory.
    QTest::newRow("empty dir") << report << "" << false << reported << none;
    QTest::newRow("entry dir") << report << "entrydir" << false << reported << none;
    QTest::newRow("blank command") << "   \"\" ''"
                                   << "entrydir" << false << "" << none;
    QTest::newRow("missing, English")
        << missing << "" << false << "" << QStringList{"Error", "Program can't started!"};
    QTest::newRow("missing, Chinese") << missing << "" << true << "" << chinese;
    QTest::newRow("crash, Chinese") << crash << "" << true << "" << chinese;
}

// Children get the environment set on the manager, not the shell's, and a failing one gives
// exactly one warning box.
void TestStartMenuManager::runProgram()
{
    QFETCH(QString, command);
    QFETCH(QString, dir);
    QFETCH(bool, translated);
    QFETCH(QString, output);
    QFETCH(QStringList, box);

    const QString shellCwd = m_dir->filePath("shellcwd");
    QVERIFY(QDir().mkpath(shellCwd) && QDir().mkpath(m_dir->filePath("entrydir")));
    QVERIFY(QDir::setCurrent(shellCwd));
    const ZhCatalogue catalogue(translated);
    QCOMPARE(catalogue.isInstalled(), translated);
    QProcessEnvironment env;
    env.insert("PATH", "/usr/bin:/bin");
    env.insert("WAYLAND_DISPLAY", "tide-test-7");
    StartMenuManager *manager = makeManager();
    manager->setProcessEnvironment(env);
    m_expectedBoxes = box.isEmpty() ? 0 : 1;

    manager->runProgram(command, dir.isEmpty() ? dir : m_dir->filePath(dir));
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
    QTest::qWait(300);
}

void TestStartMenuManager::runningChildEndsWithManager()
{
    auto *manager = makeManager();
    manager->runProgram("/bin/sleep 30");
    QProcess *process = manager->findChild<QProcess *>();
    QVERIFY(process);
    QVERIFY(process->waitForStarted());
    const qint64 pid = process->processId();
    QVERIFY(::kill(pid_t(pid), 0) == 0);

    delete manager;
    // Reaped by now, so the id is gone.
    QVERIFY(::kill(pid_t(pid), 0) != 0);
}

QTEST_MAIN(TestStartMenuManager)
#include "tst_startmenumanager.moc"
