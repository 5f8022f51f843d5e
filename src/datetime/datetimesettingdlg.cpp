#include "datetimesettingdlg.h"
#include "ui_datetimesettingdlg.h"

#include "servicenotify.h"

#include <QLoggingCategory>
#include <QProcess>
#include <QStringList>

// Silent unless QT_LOGGING_RULES asks for it; the shell itself prints only its fixed lines.
Q_LOGGING_CATEGORY(lcDateTime, "tide.datetime", QtWarningMsg)

namespace {

const int kClockWaitSliceMs = 30000;

QString &clockProgram()
{
    static QString program = QStringLiteral("/sbin/sethwclock");
    return program;
}

// Shared by every dialog for the life of the process and filled by the first one, so the names
// are in whatever language was installed when the date was first clicked.
QStringList &weekDayNames()
{
    static QStringList names;
    return names;
}

} // namespace

DateTimeSettingDlg::DateTimeSettingDlg(QWidget *parent)
    : QDialog(parent), ui(new Ui::DateTimeSettingDlg)
{
    initUI(QDateTime::currentDateTime());
}

DateTimeSettingDlg::DateTimeSettingDlg(const QDateTime &dt, QWidget *parent)
    : QDialog(parent), ui(new Ui::DateTimeSettingDlg)
{
    initUI(dt);
}

DateTimeSettingDlg::DateTimeSettingDlg(const QDate &date, const QTime &time, QWidget *parent)
    : QDialog(parent), ui(new Ui::DateTimeSettingDlg)
{
    initUI(QDateTime(date, time, Qt::LocalTime));
}

DateTimeSettingDlg::~DateTimeSettingDlg()
{
    delete ui;
}

void DateTimeSettingDlg::initUI(const QDateTime &dt)
{
    // Filled before the form exists: setting the initial values below already runs the
    // value-changed slots, and each of them writes the tip with a weekday name.
    QStringList &names = weekDayNames();
    if (names.size() != 7) {
        names << tr("Monday") << tr("Tuesday") << tr("Wednesday") << tr("Thursday") << tr("Friday")
              << tr("Saturday") << tr("Sunday");
    }
    ui->setupUi(this);
    setDateTime(dt);
    updateTip();
}

void DateTimeSettingDlg::setDate(const QDate &date)
{
    ui->yearEdit->setValue(date.year());
    ui->monthEdit->setValue(date.month());
    ui->dayEdit->setValue(date.day());
    ui->dayEdit->setMaximum(date.daysInMonth());
}

void DateTimeSettingDlg::setTime(const QTime &time)
{
    ui->hourEdit->setValue(time.hour());
    ui->minuteEdit->setValue(time.minute());
    ui->secondEdit->setValue(time.second());
}

void DateTimeSettingDlg::setDateTime(const QDateTime &dt)
{
    setDate(dt.date());
    setTime(dt.time());
}

QDate DateTimeSettingDlg::date() const
{
    return QDate(ui->yearEdit->value(), ui->monthEdit->value(), ui->dayEdit->value());
}

QTime DateTimeSettingDlg::time() const
{
    return QTime(ui->hourEdit->value(), ui->minuteEdit->value(), ui->secondEdit->value());
}

QDateTime DateTimeSettingDlg::dateTime() const
{
    return QDateTime(date(), time(), Qt::LocalTime);
}

void DateTimeSettingDlg::on_dayEdit_valueChanged(int)
{
    updateTip();
}

void DateTimeSettingDlg::on_monthEdit_valueChanged(int)
{
    updateTip();
    boundDayToMonth();
}

void DateTimeSettingDlg::on_yearEdit_valueChanged(int)
{
    updateTip();
    boundDayToMonth();
}

void DateTimeSettingDlg::boundDayToMonth()
{
    // The month is measured with the day as it stands and the day is not clamped first: a day
    // the new month lacks makes the date invalid, its length 0, and the day box 0 to 0 from
    // then on. Kept that way on purpose; only setDate() restores the bound.
    ui->dayEdit->setMaximum(dateTime().date().daysInMonth());
}

void DateTimeSettingDlg::updateTip()
{
    const QDateTime dt = dateTime();
    // value() rather than at(): an invalid date has weekday 0 and simply gets no name.
    const QString weekDay = weekDayNames().value(dt.date().dayOfWeek() - 1);
    ui->tipLabel->setText(tr("%1,%2").arg(dt.toString(tr("yyyy-MM-dd hh:mm:ss")), weekDay));
}

void DateTimeSettingDlg::setSystemDateTime()
{
    setSystemDateTime(dateTime());
}

void DateTimeSettingDlg::setSystemDateTime(const QDateTime &dt)
{
    runClockProgram(dt.toString(QStringLiteral("yyyy-MM-dd_hh:mm:ss")));
}

void DateTimeSettingDlg::setSystemDateTime(const QDate &date, const QTime &time)
{
    // This older form always sends zero seconds.
    runClockProgram(date.toString(QStringLiteral("yyyy.MM.dd")) + QLatin1Char('-') +
                    time.toString(QStringLiteral("hh:mm")) + QLatin1String(":00"));
}

void DateTimeSettingDlg::setClockProgram(const QString &program)
{
    clockProgram() = program;
}

void DateTimeSettingDlg::runClockProgram(const QString &argument)
{
    QProcess process;
    process.start(clockProgram(), QStringList() << argument, QIODevice::ReadWrite);
    // No overall limit: setting the hardware clock may take long, and the dialog has nothing
    // better to do than wait for it. The service watchdog is fed before every slice.
    do {
        ServiceNotify::keepAlive();
        process.waitForFinished(kClockWaitSliceMs);
    } while (process.state() == QProcess::Running);
    process.readAllStandardOutput();
    qCDebug(lcDateTime) << "clock program" << clockProgram() << argument << "exit status"
                        << process.exitCode();
}
