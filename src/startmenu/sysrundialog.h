#pragma once

#include <QDialog>
#include <QPointer>
#include <QString>

namespace Ui {
class SysRunDialog;
}

// The small non-modal dialog in which the user types a command line, usually on the soft
// keyboard. The owner (the title bar) makes one, keeps it, and starts the text from its
// accepted() handler; the dialog itself starts nothing.
//
// The soft keyboard is given as a plain widget: opening the dialog shows it, and acceptance
// hides it again if it was hidden at opening. Cancel leaves it as it is.
class SysRunDialog : public QDialog
{
    Q_OBJECT
public:
    explicit SysRunDialog(QWidget *parent = nullptr);
    ~SysRunDialog() override;

    QString programPath() const;
    bool lastKeyboardStatus() const;

    // The soft keyboard to show with the dialog; not owned. Without one the keyboard steps
    // are skipped.
    void setKeyboardWidget(QWidget *keyboard);
    QWidget *keyboardWidget() const;

    void done(int result) override;

public slots:
    void setProgramPath(const QString &path);
    void setLastKeyboardStatus(bool status);
    // Opening from the system menu: unless the dialog is up already, remembers whether the
    // keyboard is visible, clears the command line, shows the keyboard and then the dialog.
    void showWithKeyboard();

private:
    Ui::SysRunDialog *ui;
    bool m_lastKeyboardStatus = false;
    QPointer<QWidget> m_keyboard;
};
