#include "startmenumanager.h"
#include "zhcatalogue.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QFile>
#include <QMenu>
#include <QMessageBox>
#include <QPointer>
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

QByteArray entry(const QByteArray &name, const QByteArray &path = "/bin/true",
                 const QByteArray &extra = QByteArray())
{
    return "Name=" + name + "\nPath=" + path + "\nDir=\nIcon=\n" + extra;
}

QStringList texts(const QMenu *menu)
{
    QStringList result;
    for (const QAction *action : menu->actions())
        result.append(action->text());
    return result;
}

QString readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

// Closes every warning box that turns up and remembers what it said. The boxes are modal and
// run their own event loop, so they are found from a timer among the top-level widgets.
class BoxWatcher : public QObject
{
public:
    BoxWatcher()
    {
        connect(&m_timer, &QTimer::timeout, this, &BoxWatcher::poll);
        m_timer.start(20);
    }

    int count = 0;
    QString title;
    QString text;

private:
    void poll()
    {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            auto *box = qobject_cast<QMessageBox *>(widget);
            if (!box || !box->isVisible() || box->property("seen").toBool())
                continue;
            box->setProperty("seen", true);
            ++count;
            title = box->windowTitle();
            text = box->text();
            box->button(QMessageBox::Ok)->click();
        }
    }

    QTimer m_timer;
};

} // namespace

class TestStartMenuManager : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void defaultDirectories();
    void missingDirectoriesGiveDisabledMenus();
    void orderAndSelection();
    void requiredKeys_data();
    void requiredKeys();
    void innerFlag_data();
    void innerFlag();
    void reloadReplacesMenus();
    void barInDirSpoilsEntry();
    void innerCommandTrigger();
    void programTrigger();
    void childDirectoryAndEnvironment_data();
    void childDirectoryAndEnvironment();
    void emptyCommandStartsNothing();
    void finishedChildDeletesItself();
    void failingProgramWarnsOnce_data();
    void failingProgramWarnsOnce();
    void runningChildEndsWithManager();

private:
    QString programDir() const { return m_dir->filePath("prog"); }
    QString settingDir() const { return m_dir->filePath("set"); }
    StartMenuManager *makeManager();

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<QMenu> m_root;
    QString m_startCwd;
    // Every test watches for warning boxes, so that an unexpected one fails the test instead
    // of blocking it.
    std::unique_ptr<BoxWatcher> m_boxes;
    int m_expectedBoxes = 0;
};

void TestStartMenuManager::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    QVERIFY(QDir().mkpath(programDir()));
    QVERIFY(QDir().mkpath(settingDir()));
    m_root = std::make_unique<QMenu>();
    m_startCwd = QDir::currentPath();
    m_boxes = std::make_unique<BoxWatcher>();
    m_expectedBoxes = 0;
}

void TestStartMenuManager::cleanup()
{
    QDir::setCurrent(m_startCwd);
    m_root.reset();
    QTest::qWait(100);
    QCOMPARE(m_boxes->count, m_expectedBoxes);
    m_boxes.reset();
    m_dir.reset();
}

StartMenuManager *TestStartMenuManager::makeManager()
{
    return new StartMenuManager(m_root.get(), programDir(), settingDir(), m_root.get());
}

void TestStartMenuManager::defaultDirectories()
{
    QCOMPARE(StartMenuManager::ProgramDir, "/root/.StartMenu/.Program");
    QCOMPARE(StartMenuManager::SettingDir, "/root/.StartMenu/.Setting");
    StartMenuManager manager(m_root.get());
    QVERIFY(!manager.programMenu());
    QVERIFY(!manager.settingMenu());
    QVERIFY(m_root->isEmpty());
}

void TestStartMenuManager::missingDirectoriesGiveDisabledMenus()
{
    auto *manager = new StartMenuManager(m_root.get(), m_dir->filePath("none1"),
                                         m_dir->filePath("none2"), m_root.get());
    manager->loadStartMenu();

    QMenu *program = manager->programMenu();
    QMenu *setting = manager->settingMenu();
    QVERIFY(program && setting && program != setting);
    const QList<QAction *> rootActions = m_root->actions();
    QCOMPARE(rootActions.size(), 2);
    QCOMPARE(rootActions.at(0)->menu(), program);
    QCOMPARE(rootActions.at(1)->menu(), setting);
    for (QMenu *menu : {program, setting}) {
        QVERIFY(menu->isEmpty());
        QVERIFY(!menu->isEnabled());
        QCOMPARE(menu->parent(), m_root.get());
        QCOMPARE(menu->style(), m_root->style());
    }
}

void TestStartMenuManager::orderAndSelection()
{
    const QString dir = programDir();
    // Equal sizes: names descending. Larger files after smaller ones, whatever their names.
    writeFile(dir + "/a.menu", entry("EqualA"));
    writeFile(dir + "/b.menu", entry("EqualB"));
    writeFile(dir + "/0.menu", entry("Big", "/bin/true", "Comment=" + QByteArray(40, 'x')));
    writeFile(dir + "/z.menu", entry("Small", "/x"));
    writeFile(dir + "/.hidden.menu",
              entry("Hidden", "/bin/true", "Comment=" + QByteArray(20, 'x')));
    writeFile(dir + "/upper.MENU", entry("Upper"));
    writeFile(dir + "/entry.menu.bak", entry("Backup"));
    writeFile(dir + "/plain", entry("Plain"));
    QVERIFY(QFile::link(dir + "/a.menu", dir + "/link.menu"));
    QVERIFY(QDir(dir).mkdir("sub.menu"));
    writeFile(dir + "/sub.menu/nested.menu", entry("Nested"));

    StartMenuManager *manager = makeManager();
    manager->loadStartMenu();

    QMenu *program = manager->programMenu();
    QVERIFY(program->isEnabled());
    QCOMPARE(texts(program), (QStringList{"Small", "EqualB", "EqualA", "Hidden", "Big"}));
    for (const QAction *action : program->actions())
        QCOMPARE(action->parent(), program);
    QVERIFY(!manager->settingMenu()->isEnabled());
    QCOMPARE(m_root->actions().first()->menu(), program);
}

void TestStartMenuManager::requiredKeys_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("loaded");

    QTest::newRow("all keys") << QByteArray("Name=N\nPath=/p\nDir=/d\nIcon=/i.png\n") << true;
    QTest::newRow("empty values") << QByteArray("Name=\nPath=\nDir=\nIcon=\n") << true;
    QTest::newRow("no Name") << QByteArray("Path=/p\nDir=/d\nIcon=/i.png\n") << false;
    QTest::newRow("no Path") << QByteArray("Name=N\nDir=/d\nIcon=/i.png\n") << false;
    QTest::newRow("no Dir") << QByteArray("Name=N\nPath=/p\nIcon=/i.png\n") << false;
    QTest::newRow("no Icon") << QByteArray("Name=N\nPath=/p\nDir=/d\nInner=0\n") << false;
    QTest::newRow("keys in a section")
        << QByteArray("[Entry]\nName=N\nPath=/p\nDir=\nIcon=\n") << false;
    QTest::newRow("UTF-8 name") << QByteArray(
                                       "Name=\xe7\xbb\x88\xe7\xab\xaf\nPath=/p\nDir=\nIcon=\n")
                                << true;
}

void TestStartMenuManager::requiredKeys()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, loaded);

    const QString file = programDir() + "/e.menu";
    writeFile(file, content);
    StartMenuManager *manager = makeManager();
    QMenu menu;
    QAction *action = manager->loadMenuEntry(&menu, file);
    QCOMPARE(action != nullptr, loaded);
    QCOMPARE(menu.actions().size(), loaded ? 1 : 0);
    if (!action)
        return;
    QCOMPARE(action->parent(), &menu);
    if (content.startsWith("Name=N"))
        QCOMPARE(action->data().toString(), QString("0|/p|/d"));
    if (content.contains("\xe7\xbb\x88"))
        QCOMPARE(action->text(), QString::fromUtf8("\xe7\xbb\x88\xe7\xab\xaf"));
}

void TestStartMenuManager::innerFlag_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("flag");

    QTest::newRow("absent") << QByteArray() << "0";
    QTest::newRow("0") << QByteArray("Inner=0\n") << "0";
    QTest::newRow("false") << QByteArray("Inner=false\n") << "0";
    QTest::newRow("empty") << QByteArray("Inner=\n") << "0";
    QTest::newRow("1") << QByteArray("Inner=1\n") << "1";
    QTest::newRow("true") << QByteArray("Inner=true\n") << "1";
    QTest::newRow("yes") << QByteArray("Inner=yes\n") << "1";
}

void TestStartMenuManager::innerFlag()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, flag);

    writeFile(programDir() + "/e.menu", entry("E", "sys_man_date", line));
    StartMenuManager *manager = makeManager();
    manager->loadStartMenu();
    const QList<QAction *> actions = manager->programMenu()->actions();
    QCOMPARE(actions.size(), 1);
    QCOMPARE(actions.first()->data().toString(), flag + "|sys_man_date|");
}

void TestStartMenuManager::reloadReplacesMenus()
{
    writeFile(programDir() + "/e.menu", entry("First"));
    StartMenuManager *manager = makeManager();
    manager->loadStartMenu();
    QPointer<QMenu> oldProgram = manager->programMenu();
    QPointer<QMenu> oldSetting = manager->settingMenu();
    auto *run = m_root->addAction("run");

    writeFile(programDir() + "/f.menu", entry("Second", "/bin/false"));
    manager->loadStartMenu();

    QVERIFY(!oldProgram);
    QVERIFY(!oldSetting);
    // Rebuilt menus go to the end of the root menu.
    const QList<QAction *> rootActions = m_root->actions();
    QCOMPARE(rootActions.size(), 3);
    QCOMPARE(rootActions.at(0), run);
    QCOMPARE(rootActions.at(1)->menu(), manager->programMenu());
    QCOMPARE(rootActions.at(2)->menu(), manager->settingMenu());
    QCOMPARE(texts(manager->programMenu()), (QStringList{"First", "Second"}));
}

void TestStartMenuManager::barInDirSpoilsEntry()
{
    writeFile(programDir() + "/e.menu", "Name=E\nPath=/bin/touch " +
                                            m_dir->filePath("touched").toUtf8() +
                                            "\nDir=/tmp|x\nIcon=\n");
    StartMenuManager *manager = makeManager();
    QSignalSpy inner(manager, &StartMenuManager::innerCommand);
    manager->loadStartMenu();
    QAction *action = manager->programMenu()->actions().value(0);
    QVERIFY(action);
    QCOMPARE(action->data().toString(), "0|/bin/touch " + m_dir->filePath("touched") + "|/tmp|x");

    action->trigger();
    QVERIFY(manager->findChildren<QProcess *>().isEmpty());
    QTest::qWait(200);
    QVERIFY(!QFile::exists(m_dir->filePath("touched")));
    QCOMPARE(inner.count(), 0);
}

void TestStartMenuManager::innerCommandTrigger()
{
    writeFile(programDir() + "/e.menu",
              entry("Date", "sys_man_date  now 'a b'", "Inner=1\n").replace("Dir=\n", "Dir=/x\n"));
    StartMenuManager *manager = makeManager();
    QSignalSpy inner(manager, &StartMenuManager::innerCommand);
    manager->loadStartMenu();

    QTest::ignoreMessage(QtDebugMsg,
                         "call a inner command \"sys_man_date\" (\"now\", \"a b\") \"/x\"");
    manager->programMenu()->actions().value(0)->trigger();
    QCOMPARE(inner.count(), 1);
    QCOMPARE(inner.first().at(0).toString(), QString("sys_man_date"));
    QCOMPARE(inner.first().at(1).toStringList(), (QStringList{"now", "a b"}));
    QCOMPARE(inner.first().at(2).toString(), QString("/x"));
    QVERIFY(manager->findChildren<QProcess *>().isEmpty());
}

void TestStartMenuManager::programTrigger()
{
    const QString marker = m_dir->filePath("started");
    writeFile(settingDir() + "/e.menu", entry("Touch", "/bin/touch " + marker.toUtf8()));
    StartMenuManager *manager = makeManager();
    QSignalSpy inner(manager, &StartMenuManager::innerCommand);
    manager->loadStartMenu();
    QVERIFY(!manager->programMenu()->isEnabled());

    manager->settingMenu()->actions().value(0)->trigger();
    QTRY_VERIFY(QFile::exists(marker));
    QCOMPARE(inner.count(), 0);
}

void TestStartMenuManager::childDirectoryAndEnvironment_data()
{
    QTest::addColumn<bool>("withDir");
    QTest::newRow("empty dir") << false;
    QTest::newRow("entry dir") << true;
}

// Whatever dir is given, the child starts in the shell's working directory, and it gets the
// environment set on the manager, not the shell's.
void TestStartMenuManager::childDirectoryAndEnvironment()
{
    QFETCH(bool, withDir);

    const QString shellCwd = m_dir->filePath("shellcwd");
    const QString entryDir = m_dir->filePath("entrydir");
    QVERIFY(QDir().mkpath(shellCwd));
    QVERIFY(QDir().mkpath(entryDir));
    QVERIFY(QDir::setCurrent(shellCwd));
    const QString out = m_dir->filePath("out");

    QProcessEnvironment env;
    env.insert("PATH", "/usr/bin:/bin");
    env.insert("WAYLAND_DISPLAY", "tide-test-7");
    StartMenuManager *manager = makeManager();
    manager->setProcessEnvironment(env);
    manager->runProgram("/bin/sh -c 'pwd -P > " + out + ".tmp; echo \"$WAYLAND_DISPLAY\" >> " +
                            out + ".tmp; echo $# \"$1\" >> " + out + ".tmp; mv " + out + ".tmp " +
                            out + "' sh \"a b\" c",
                        withDir ? entryDir : QString());

    QTRY_VERIFY(QFile::exists(out));
    const QStringList lines = readAll(out).split('\n');
    QCOMPARE(lines.value(0), QFileInfo(shellCwd).canonicalFilePath());
    QCOMPARE(lines.value(1), QString("tide-test-7"));
    QCOMPARE(lines.value(2), QString("2 a b"));
}

void TestStartMenuManager::emptyCommandStartsNothing()
{
    StartMenuManager *manager = makeManager();
    manager->runProgram("   ");
    manager->runProgram("\"\" ''", "/tmp");
    QVERIFY(manager->findChildren<QProcess *>().isEmpty());
}

void TestStartMenuManager::finishedChildDeletesItself()
{
    StartMenuManager *manager = makeManager();
    manager->runProgram("/bin/true");
    QPointer<QProcess> process = manager->findChild<QProcess *>();
    QVERIFY(process);
    QTRY_VERIFY(!process);
}

void TestStartMenuManager::failingProgramWarnsOnce_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<bool>("translated");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("text");

    const QString missing = "/nonexistent/tide-no-such-program --flag";
    const QString crash = "/bin/sh -c 'kill -SEGV $$'";
    QTest::newRow("missing, English") << missing << false << "Error"
                                      << "Program can't started!";
    QTest::newRow("missing, Chinese")
        << missing << true << QString::fromUtf8("错误") << QString::fromUtf8("程序无法运行!");
    QTest::newRow("crash, Chinese")
        << crash << true << QString::fromUtf8("错误") << QString::fromUtf8("程序无法运行!");
}

void TestStartMenuManager::failingProgramWarnsOnce()
{
    QFETCH(QString, command);
    QFETCH(bool, translated);
    QFETCH(QString, title);
    QFETCH(QString, text);

    const ZhCatalogue catalogue(translated);
    QCOMPARE(catalogue.isInstalled(), translated);

    m_expectedBoxes = 1;
    StartMenuManager *manager = makeManager();
    manager->runProgram(command);
    QTRY_COMPARE(m_boxes->count, 1);
    QCOMPARE(m_boxes->title, title);
    QCOMPARE(m_boxes->text, text);
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
