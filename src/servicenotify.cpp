#include "servicenotify.h"

#include <QTimer>

#include <climits>
#include <systemd/sd-daemon.h>
#include <unistd.h>

namespace {

// The pid the service manager started, taken before main() and so before a detaching fork.
const pid_t startedPid = getpid();
bool watchdogWanted = false;

// The watchdog interval in microseconds when the manager wants one from this shell, else 0.
// WATCHDOG_PID names the process the manager started, which a detached shell no longer is.
quint64 watchdogInterval()
{
    bool ok = false;
    const quint64 usec = qEnvironmentVariable("WATCHDOG_USEC").toULongLong(&ok);
    if (!ok || usec == 0)
        return 0;
    if (qEnvironmentVariableIsSet("WATCHDOG_PID")) {
        const qint64 pid = qEnvironmentVariableIntValue("WATCHDOG_PID");
        if (pid != getpid() && pid != startedPid)
            return 0;
    }
    return usec;
}

} // namespace

void ServiceNotify::start(QObject *owner)
{
    if (qEnvironmentVariableIsEmpty("NOTIFY_SOCKET"))
        return;
    QTimer::singleShot(0, owner, [] {
        sd_notifyf(0, "READY=1\nMAINPID=%lu", static_cast<unsigned long>(getpid()));
    });

    const quint64 usec = watchdogInterval();
    if (usec == 0)
        return;
    watchdogWanted = true;
    auto *timer = new QTimer(owner);
    timer->setInterval(int(qBound<quint64>(1, usec / 2000, INT_MAX)));
    QObject::connect(timer, &QTimer::timeout, owner, &ServiceNotify::keepAlive);
    timer->start();
}

void ServiceNotify::keepAlive()
{
    if (watchdogWanted)
        sd_notify(0, "WATCHDOG=1");
}
