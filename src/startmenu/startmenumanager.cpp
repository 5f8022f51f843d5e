#include "startmenumanager.h"

#include "commandline.h"
#include "menuentry.h"

#include <QAction>
#include <QDebug>
#include <QIcon>
#include <QMenu>
#include <QMessageBox>

namespace {

// "(\"a\", \"b\")": the parameter list as the debug stream has always spelt it in the shell's
// log, independent of how the running Qt prints a QStringList.
QString debugList(const QStringList &items)
{
    QStringList quoted;
    for (const QString &item : items)
        quoted.append(QDebug::toString(item));
    return QLatin1Char('(') + quoted.join(QLatin1String(", ")) + QLatin1Char(')');
}

} // namespace

StartMenuManager::StartMenuManager(QMenu *rootMenu, QObject *parent)
    : StartMenuManager(rootMenu, QString::fromLatin1(ProgramDir), QString::fromLatin1(SettingDir),
                       parent)
{
}

StartMenuManager::StartMenuManager(QMenu *rootMenu, const QString &programDir,
                                   const QString &settingDir, QObject *parent)
    : QObject(parent), m_rootMenu(rootMenu), m_programDir(programDir), m_settingDir(settingDir),
      m_environment(QProcessEnvironment::systemEnvironment())
{
}

StartMenuManager::~StartMenuManager()
{
    // Programs still running die with the shell's manager. Their errors no longer concern
    // anybody, and a warning box from a half-destroyed object must not appear.
    for (QProcess *process : findChildren<QProcess *>(Qt::FindDirectChildrenOnly)) {
        disconnect(process, nullptr, this, nullptr);
        if (process->state() != QProcess::NotRunning) {
            process->kill();
            process->waitForFinished(1000);
        }
    }
}

QMenu *StartMenuManager::programMenu() const
{
    return m_programMenu;
}

QMenu *StartMenuManager::settingMenu() const
{
    return m_settingMenu;
}

void StartMenuManager::setProcessEnvironment(const QProcessEnvironment &environment)
{
    m_environment = environment;
}

QProcessEnvironment StartMenuManager::processEnvironment() const
{
    return m_environment;
}

void StartMenuManager::loadStartMenu()
{
    m_programMenu = rebuildMenu(m_programMenu, m_programDir);
    m_settingMenu = rebuildMenu(m_settingMenu, m_settingDir);
}

// The sub-menu is always there so that the system menu keeps its shape; without entries it
// is greyed out. A rebuilt menu goes to the end of the root menu and has no title or icon:
// those are the owner's to set.
QMenu *StartMenuManager::rebuildMenu(QMenu *oldMenu, const QString &dirPath)
{
    delete oldMenu;
    QMenu *menu = loadMenuDir(m_rootMenu, dirPath);
    if (!menu) {
        menu = new QMenu(m_rootMenu);
        if (m_rootMenu) {
            menu->setStyle(m_rootMenu->style());
            m_rootMenu->addMenu(menu);
        }
        menu->setEnabled(false);
    }
    return menu;
}

QMenu *StartMenuManager::loadMenuDir(QWidget *parentMenu, const QString &dirPath)
{
    auto *menu = new QMenu(parentMenu);
    if (parentMenu)
        menu->setStyle(parentMenu->style());

    const QFileInfoList entries = listMenuDir(dirPath);
    for (const QFileInfo &info : entries) {
        if (info.isDir()) {
            // The listing holds no directories today; nested folders would become nested
            // sub-menus if it ever did.
            if (QMenu *subMenu = loadMenuDir(menu, info.absoluteFilePath())) {
                subMenu->setParent(menu, subMenu->windowFlags());
                menu->addMenu(subMenu);
            }
        } else if (isMenuEntryFile(info)) {
            if (QAction *action = loadMenuEntry(menu, info.absoluteFilePath()))
                menu->addAction(action);
        }
    }

    if (menu->isEmpty()) {
        delete menu;
        return nullptr;
    }
    if (auto *parent = qobject_cast<QMenu *>(parentMenu))
        parent->addMenu(menu);
    return menu;
}

QAction *StartMenuManager::loadMenuEntry(QMenu *menu, const QString &entryPath)
{
    const std::optional<MenuEntry> entry = readMenuEntry(entryPath);
    if (!entry)
        return nullptr;

    auto *action = new QAction(QIcon(entry->icon), entry->name, menu);
    action->setData(entry->actionData());
    connect(action, &QAction::triggered, this, &StartMenuManager::onProgramTrigger);
    menu->addAction(action);
    return action;
}

void StartMenuManager::onProgramTrigger()
{
    auto *action = qobject_cast<QAction *>(sender());
    if (!action)
        return;

    const QStringList fields =
        action->data().toString().split(QLatin1Char('|'), Qt::KeepEmptyParts, Qt::CaseSensitive);
    if (fields.size() != 3)
        return;

    if (fields.at(0) == QLatin1String("1")) {
        QString name;
        QStringList params;
        splitCommandLine(fields.at(1), name, params);
        qDebug().noquote() << "call a inner command" << QDebug::toString(name) << debugList(params)
                           << QDebug::toString(fields.at(2));
        emit innerCommand(name, params, fields.at(2));
    } else {
        runProgram(fields.at(1), fields.at(2));
    }
}

void StartMenuManager::runProgram(const QString &path)
{
    runProgram(path, QString());
}

void StartMenuManager::runProgram(const QString &path, const QString &dir)
{
    QString program;
    QStringList args;
    splitCommandLine(path, program, args);
    if (program.isEmpty())
        return;

    auto *process = new QProcess(this);
    // Only an empty dir is ever applied, which leaves the child in the shell's own working
    // directory; so does every other dir. The entry files in the field were written against
    // this, so a Dir value must not start to take effect now.
    if (dir.isEmpty())
        process->setWorkingDirectory(dir);
    process->setProcessEnvironment(m_environment);
    connect(process, &QProcess::finished, process, &QObject::deleteLater);
    connect(process, &QProcess::errorOccurred, this, &StartMenuManager::onProgramError);
    qCDebug(lcStartMenu) << "starting" << program << args;
    process->start(program, args, QIODevice::ReadWrite);
}

void StartMenuManager::onProgramError(QProcess::ProcessError error)
{
    qCDebug(lcStartMenu) << "child process error" << error;
    if (QObject *process = sender())
        process->deleteLater();
    QMessageBox::warning(nullptr, tr("Error"), tr("Program can't started!"), QMessageBox::Ok);
}
