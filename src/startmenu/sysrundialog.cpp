#include "sysrundialog.h"

#include "ui_sysrundialog.h"

SysRunDialog::SysRunDialog(QWidget *parent) : QDialog(parent), ui(new Ui::SysRunDialog)
{
    ui->setupUi(this);
}

SysRunDialog::~SysRunDialog()
{
    delete ui;
}

QString SysRunDialog::programPath() const
{
    return ui->progPathEdit->text();
}

void SysRunDialog::setProgramPath(const QString &path)
{
    ui->progPathEdit->setText(path);
}

bool SysRunDialog::lastKeyboardStatus() const
{
    return m_lastKeyboardStatus;
}

void SysRunDialog::setLastKeyboardStatus(bool status)
{
    m_lastKeyboardStatus = status;
}

void SysRunDialog::setKeyboardWidget(QWidget *keyboard)
{
    m_keyboard = keyboard;
}

QWidget *SysRunDialog::keyboardWidget() const
{
    return m_keyboard;
}

void SysRunDialog::showWithKeyboard()
{
    // A second request while the user is typing must not wipe the text nor record the
    // keyboard the dialog itself brought up as the state to return to.
    if (isVisible())
        return;
    setLastKeyboardStatus(m_keyboard && m_keyboard->isVisible());
    setProgramPath(QString());
    if (m_keyboard)
        m_keyboard->show();
    show();
}

void SysRunDialog::done(int result)
{
    // accepted() goes out first, so the owner starts the program before the keyboard goes.
    QDialog::done(result);
    if (result == QDialog::Accepted && !m_lastKeyboardStatus && m_keyboard)
        m_keyboard->hide();
}
