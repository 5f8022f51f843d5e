#ifndef TIDESHELL_SERVICENOTIFY_H
#define TIDESHELL_SERVICENOTIFY_H

class QObject;

// Talks to a supervising service manager (systemd's notification socket, NOTIFY_SOCKET).
// Without that socket every call here does nothing, and no timer is made.
namespace ServiceNotify {

// Reports the shell ready (READY=1 with its own pid as MAINPID, since a detached shell is not
// the process the manager started) as soon as the event loop runs. When the manager asks for
// a watchdog (WATCHDOG_USEC, for this process), a timer owned by `owner` keeps it fed at half
// its interval for as long as the event loop turns.
void start(QObject *owner);

// Feeds the watchdog by hand; for code about to block the event loop for long.
void keepAlive();

} // namespace ServiceNotify

#endif
