#pragma once

#include <QObject>
#include <QPointer>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

class QAction;
class QMenu;
class QWidget;

// Builds the program and setting sub-menus of the system menu from the start-menu directories
// and carries out their entries: a program entry starts a child process of the shell, an inner
// entry is handed to the owner through innerCommand(). The run dialog's command lines are
// started here as well (runProgram).
//
// The sub-menus are children of the root menu (the system menu, owned by the title bar); the
// manager deletes and rebuilds them on every loadStartMenu(). Child processes are children of
// the manager and delete themselves when they finish or fail.
class StartMenuManager : public QObject
{
    Q_OBJECT
public:
    static constexpr const char *ProgramDir = "/root/.StartMenu/.Program";
    static constexpr const char *SettingDir = "/root/.StartMenu/.Setting";

    // Reads the fixed directories above. Nothing is loaded until loadStartMenu().
    StartMenuManager(QMenu *rootMenu, QObject *parent = nullptr);
    // The same with other directories, for tests and development machines.
    StartMenuManager(QMenu *rootMenu, const QString &programDir, const QString &settingDir,
                     QObject *parent = nullptr);
    ~StartMenuManager() override;

    // Null before the first loadStartMenu(); afterwards always a menu, disabled when empty.
    QMenu *programMenu() const;
    QMenu *settingMenu() const;

    // The environment every started program gets. The shell passes its window server's client
    // environment so that children open their windows inside it; by default children inherit
    // the shell's own environment.
    void setProcessEnvironment(const QProcessEnvironment &environment);
    QProcessEnvironment processEnvironment() const;

    QMenu *loadMenuDir(QWidget *parentMenu, const QString &dirPath);
    QAction *loadMenuEntry(QMenu *menu, const QString &entryPath);

signals:
    void innerCommand(const QString &name, const QStringList &params, const QString &dir);

public slots:
    void loadStartMenu();
    void runProgram(const QString &path, const QString &dir);
    void runProgram(const QString &path);
    void onProgramTrigger();
    void onProgramError(QProcess::ProcessError error);

private:
    QMenu *rebuildMenu(QMenu *oldMenu, const QString &dirPath);

    QMenu *m_rootMenu;
    QPointer<QMenu> m_programMenu;
    QPointer<QMenu> m_settingMenu;
    QString m_programDir;
    QString m_settingDir;
    QProcessEnvironment m_environment;
};
