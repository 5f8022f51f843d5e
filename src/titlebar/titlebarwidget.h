#pragma once

#include "shellsettings.h"
#include "titlebarlayout.h"

#include <QColor>
#include <QHostAddress>
#include <QMap>
#include <QPoint>
#include <QWidget>

#include "windowserver.h"

class QTimer;
class ControlChannel;
struct ControlCommand;
class QKeyEvent;
class QMenu;
class QAction;
class CustomLabel;
class QTMyIconStyle;
class QwsKeyBoardWidget;
class StartMenuManager;
class SysRunDialog;

namespace Ui {
class TitleBarWidget;
}

// The shell's bar: a frameless, always-on-top strip 48 pixels high across the screen with
// the start button, the clock, labels added by other programs, the IP addresses and the
// keyboard button. It owns every other long-lived object of the shell.
class TitleBarWidget : public QWidget
{
    Q_OBJECT
public:
    // The settings decide the control port's lock-down and the start-menu folder.
    explicit TitleBarWidget(const ShellSettings &settings = ShellSettings::load(),
                            QWidget *parent = nullptr);
    ~TitleBarWidget() override;

public slots:
    void onSpecialKey(int keycode, bool isPressed);
    void onScreenTransformed();
    void showTitleBar();
    void hideTitleBar();

    // Carries out one control command as if it had come from sender:senderPort.
    void runControlCommand(const ControlCommand &cmd, const QHostAddress &sender,
                           quint16 senderPort);

protected slots:
    void onTimeOut();
    void onCtrlSockActivated();
    void changeTitleBarPosition(TitleBarPosition pos);
    void onLabelClicked();
    void onDateLabelClicked();
    void onIpLabelClicked();
    void onSftKbdBtnClicked();
    void onSftKbdKeyPressed(QKeyEvent *e);
    void onSftKbdNewString(QString str);
    void onWindowEvent(ClientWindow *window, WindowServer::WindowEvent eventType);
    void onSysMenuHidden();
    void onSysMenuRunTrigger();
    void onSysMenuRebootTrigger();
    void onSysRunDialogAccepted();
    void onInnerCommand(QString name, QStringList params, QString dir);

private slots:
    void on_sysStartBtn_clicked(bool checked);

protected:
    void paintEvent(QPaintEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // A label added over the control port and where its clicks are reported.
    struct LabelEntry
    {
        QHostAddress address;
        quint16 port = 0;
        CustomLabel *label = nullptr;
    };

    void refreshDate();
    void buildSystemMenu(const QString &startMenuDir);
    void placeBar(const QSize &screen);
    bool barShownSoon() const;
    void requestBar(bool shown);
    void schedulePendingBarChanges();
    void applyPendingBarChanges();
    void applyPendingTextColor();
    // Where the system menu opens: its lower edge on the start button's top edge.
    QPoint menuPosition() const;
    void keepKeyboardOffBar();
    QwsKeyBoardWidget *keyboard();
    SysRunDialog *runDialog();
    void sizeSystemMenu();
    void addLabel(const QString &name, const QString &text, const QHostAddress &sender,
                  quint16 senderPort);
    void deleteLabel(const QString &name);
    void setChildTextColor(const QColor &color);

    Ui::TitleBarWidget *ui;
    int position = TitleBarBottom;
    // What control commands asked of the bar, carried out together (applyPendingBarChanges).
    bool m_barChangesScheduled = false;
    bool m_barChangePending = false;
    bool m_barWanted = false;
    int m_placedPosition = TitleBarBottom; // where the bar was last laid out
    QColor m_pendingTextColor;             // invalid: none
    QTimer *m_clockTimer = nullptr;
    ControlChannel *m_ctrlPort = nullptr;
    // Top-level and without parent; deleted with the bar. Built on first use (keyboard()).
    QwsKeyBoardWidget *m_keyboard = nullptr;
    QMap<QString, LabelEntry> m_labels;
    // The system menu's style; deleted with the bar, after the menu.
    QTMyIconStyle *m_iconStyle = nullptr;
    QMenu *m_sysMenu = nullptr;
    QMenu *m_programMenu = nullptr;
    QMenu *m_settingMenu = nullptr;
    QAction *m_runAction = nullptr;
    QAction *m_rebootAction = nullptr;
    QPoint m_menuPos;
    bool m_menuSized = false;
    SysRunDialog *m_runDialog = nullptr; // built on first use (runDialog())
    StartMenuManager *m_startMenu = nullptr;
};
