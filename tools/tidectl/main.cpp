// tidectl: the command-line client of the shell's control port.
//
//   tidectl [--host H] [--port P] [--wait] [--count N] [--timeout MS] COMMAND...
//
// The words of COMMAND are joined by blanks and sent as one datagram. With --wait the same
// socket then stays open and every datagram that comes back (the shell's click reports for
// labels this command added) is printed as one line, until SIGINT/SIGTERM, until --count
// reports were printed, or until --timeout milliseconds passed (exit status 1 if --count was
// not reached by then). Bad arguments give exit status 2 and a usage line on stderr. The port
// is TIDESHELL_CONTROL_PORT when set, like the shell's, unless --port names one.

#include "controlcommand.h"

#include <QCoreApplication>
#include <QHostAddress>
#include <QHostInfo>
#include <QSocketNotifier>
#include <QStringList>
#include <QTimer>
#include <QUdpSocket>

#include <csignal>
#include <cstdio>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

const char usage[] =
    "usage: tidectl [--host H] [--port P] [--wait] [--count N] [--timeout MS] COMMAND...";

int usageError(const QString &reason)
{
    fprintf(stderr, "tidectl: %s; %s\n", qPrintable(reason), usage);
    return 2;
}

struct Options
{
    QString host = QStringLiteral("127.0.0.1");
    quint16 port = ControlPort;
    bool wait = false;
    int count = -1;   // -1: no limit
    int timeout = -1; // milliseconds, -1: none
    QByteArray command;
};

bool toNumber(const QString &text, int min, int max, int *out)
{
    bool ok = false;
    const int value = text.toInt(&ok, 10);
    if (!ok || value < min || value > max)
        return false;
    *out = value;
    return true;
}

// Options stand only before the command, so a command word or parameter that starts with a
// dash (a negative coordinate) is sent as it is; "--" ends the options explicitly.
// Returns an empty string on success, else the reason the arguments were refused.
QString parseArguments(const QStringList &args, Options *opt)
{
    int envPort = 0;
    if (toNumber(qEnvironmentVariable("TIDESHELL_CONTROL_PORT"), 1, 65535, &envPort))
        opt->port = quint16(envPort);
    int i = 1;
    for (; i < args.size(); ++i) {
        QString arg = args.at(i);
        if (arg == QLatin1String("--")) {
            ++i;
            break;
        }
        if (!arg.startsWith(QLatin1String("--")))
            break;
        QString value;
        const qsizetype eq = arg.indexOf(QLatin1Char('='));
        const bool inlineValue = eq > 0;
        if (inlineValue) {
            value = arg.mid(eq + 1);
            arg.truncate(eq);
        }
        if (arg == QLatin1String("--wait") && !inlineValue) {
            opt->wait = true;
            continue;
        }
        const bool takesValue = arg == QLatin1String("--host") || arg == QLatin1String("--port") ||
                                arg == QLatin1String("--count") ||
                                arg == QLatin1String("--timeout");
        if (!takesValue)
            return QStringLiteral("unknown option %1").arg(args.at(i));
        if (!inlineValue) {
            if (++i >= args.size())
                return QStringLiteral("%1 needs a value").arg(arg);
            value = args.at(i);
        }
        int number = 0;
        if (arg == QLatin1String("--host")) {
            if (value.isEmpty())
                return QStringLiteral("empty host");
            opt->host = value;
        } else if (arg == QLatin1String("--port")) {
            if (!toNumber(value, 1, 65535, &number))
                return QStringLiteral("bad port %1").arg(value);
            opt->port = quint16(number);
        } else if (arg == QLatin1String("--count")) {
            if (!toNumber(value, 0, INT_MAX, &number))
                return QStringLiteral("bad count %1").arg(value);
            opt->count = number;
            opt->wait = true;
        } else {
            if (!toNumber(value, 0, INT_MAX, &number))
                return QStringLiteral("bad timeout %1").arg(value);
            opt->timeout = number;
            opt->wait = true;
        }
    }
    if (i >= args.size())
        return QStringLiteral("no command");
    opt->command = args.mid(i).join(QLatin1Char(' ')).toUtf8();
    return QString();
}

QHostAddress resolve(const QString &host)
{
    QHostAddress address;
    if (address.setAddress(host))
        return address;
    const QList<QHostAddress> found = QHostInfo::fromName(host).addresses();
    return found.isEmpty() ? QHostAddress() : found.first();
}

} // namespace

int main(int argc, char **argv)
{
    // SIGINT and SIGTERM are taken through a signalfd so that they end the event loop like any
    // other event; they must be blocked before Qt starts threads that would inherit the mask.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    sigprocmask(SIG_BLOCK, &stopSignals, nullptr);

    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() == 2 && (args.at(1) == QLatin1String("--help") || args.at(1) == "-h")) {
        printf("%s\n", usage);
        return 0;
    }

    Options opt;
    const QString problem = parseArguments(args, &opt);
    if (!problem.isEmpty())
        return usageError(problem);

    const QHostAddress target = resolve(opt.host);
    if (target.isNull()) {
        fprintf(stderr, "tidectl: cannot resolve host %s\n", qPrintable(opt.host));
        return 1;
    }

    // Bound before sending, so the shell sees (and reports clicks to) the port we listen on.
    QUdpSocket socket;
    const bool v6 = target.protocol() == QAbstractSocket::IPv6Protocol;
    if (!socket.bind(v6 ? QHostAddress::AnyIPv6 : QHostAddress::AnyIPv4, 0)) {
        fprintf(stderr, "tidectl: %s\n", qPrintable(socket.errorString()));
        return 1;
    }
    if (socket.writeDatagram(opt.command, target, opt.port) != opt.command.size()) {
        fprintf(stderr, "tidectl: cannot send to %s:%u: %s\n", qPrintable(opt.host),
                unsigned(opt.port), qPrintable(socket.errorString()));
        return 1;
    }
    if (!opt.wait || opt.count == 0)
        return 0;

    int printed = 0;
    QObject::connect(&socket, &QUdpSocket::readyRead, &app, [&] {
        while (socket.hasPendingDatagrams()) {
            QByteArray report(qMax<qint64>(socket.pendingDatagramSize(), 0), '\0');
            const qint64 size = socket.readDatagram(report.data(), report.size());
            if (size < 0)
                continue;
            report.truncate(size);
            report.append('\n');
            fwrite(report.constData(), 1, size_t(report.size()), stdout);
            fflush(stdout);
            if (opt.count > 0 && ++printed >= opt.count) {
                app.exit(0);
                return;
            }
        }
    });

    const int sigFd = signalfd(-1, &stopSignals, SFD_CLOEXEC | SFD_NONBLOCK);
    QSocketNotifier signalNotifier(sigFd, QSocketNotifier::Read);
    QObject::connect(&signalNotifier, &QSocketNotifier::activated, &app, [&] {
        signalfd_siginfo info;
        while (read(sigFd, &info, sizeof info) > 0) {
        }
        app.exit(0);
    });

    if (opt.timeout >= 0) {
        QTimer::singleShot(opt.timeout, &app,
                           [&] { app.exit(opt.count > 0 && printed < opt.count ? 1 : 0); });
    }
    const int status = app.exec();
    close(sigFd);
    return status;
}
