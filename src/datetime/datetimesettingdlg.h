#ifndef TIDESHELL_DATETIMESETTINGDLG_H
#define TIDESHELL_DATETIMESETTINGDLG_H

#include <QDate>
#include <QDateTime>
#include <QDialog>
#include <QTime>

namespace Ui {
class DateTimeSettingDlg;
}

// The modal dialog in which the user picks a date and time on six scroll-number spin boxes. It
// only edits values; whoever accepted it calls setSystemDateTime(), which hands the choice to
// the device's clock program.
class DateTimeSettingDlg : public QDialog
{
    Q_OBJECT

public:
    explicit DateTimeSettingDlg(QWidget *parent = nullptr);
    explicit DateTimeSettingDlg(const QDateTime &dt, QWidget *parent = nullptr);
    DateTimeSettingDlg(const QDate &date, const QTime &time, QWidget *parent = nullptr);
    ~DateTimeSettingDlg() override;

    QDate date() const;
    QTime time() const;
    QDateTime dateTime() const;

    // Run the clock program with the chosen moment and wait until it ends; this blocks the GUI
    // thread, and with it the whole window system, for as long as the program runs.
    void setSystemDateTime();
    static void setSystemDateTime(const QDateTime &dt);
    static void setSystemDateTime(const QDate &date, const QTime &time);

    // The clock program is "/sbin/sethwclock"; tests point this at a stub that records its
    // argument, so that they never touch the real clock.
    static void setClockProgram(const QString &program);

public slots:
    void setDate(const QDate &date);
    void setTime(const QTime &time);
    void setDateTime(const QDateTime &dt);

private slots:
    void on_dayEdit_valueChanged(int);
    void on_monthEdit_valueChanged(int);
    void on_yearEdit_valueChanged(int);
    void initUI(const QDateTime &dt);
    void updateTip();

private:
    void boundDayToMonth();
    static void runClockProgram(const QString &argument);

    Ui::DateTimeSettingDlg *ui;
};

#endif
