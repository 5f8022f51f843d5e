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
//
// Scripts call it once per command, so it is plain POSIX: no toolkit to load and start.

#include <netinet/in.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <netdb.h>
#include <string>

namespace {

constexpr unsigned short defaultPort = 60000; // the shell's control port

const char usage[] =
    "usage: tidectl [--host H] [--port P] [--wait] [--count N] [--timeout MS] COMMAND...";

const char help[] =
    "Sends one command to the tideshell control port (UDP, 127.0.0.1:60000 by default;\n"
    "TIDESHELL_CONTROL_PORT or --port change the port). The words of COMMAND are joined by\n"
    "blanks into one datagram.\n"
    "\n"
    "Options (before the command; -- ends them):\n"
    "  --host H       send to host H (name or address)\n"
    "  --port P       send to port P\n"
    "  --wait         stay and print each click report as a line, until SIGINT/SIGTERM\n"
    "  --count N      stop waiting after N reports (implies --wait)\n"
    "  --timeout MS   stop waiting after MS milliseconds; exit status 1 if --count was not\n"
    "                 reached (implies --wait)\n"
    "\n"
    "Commands:\n"
    "  tclose                   hide the bar                    tidectl tclose\n"
    "  topen                    show the bar                    tidectl topen\n"
    "  ttoggle                  show the bar if hidden, else hide it\n"
    "  ttop                     put the bar at the top and show it\n"
    "  tbottom                  put the bar at the bottom and show it\n"
    "  kbdshow [METHOD]         show the keyboard; 0 English, 1 pinyin, -1 next method\n"
    "                                                           tidectl kbdshow 1\n"
    "  kbdhide                  hide the keyboard\n"
    "  kbdtoggle                show the keyboard if hidden, else hide it\n"
    "  taddlabel NAME,TEXT      add a label to the bar (or change its text); its taps are\n"
    "                           reported as \"clicked:NAME\"\n"
    "                                                           tidectl --wait taddlabel "
    "wifi,WLAN\n"
    "  tdellabel NAME           remove a label                  tidectl tdellabel wifi\n"
    "  ttextcolor R,G,B,A       colour of the bar's texts       tidectl ttextcolor 255,255,0,255\n"
    "  twindowcolor R,G,B,A     colour of the bar's background  tidectl twindowcolor 0,0,0,128\n"
    "  smouse X,Y,BUTTONS,WHEEL pointer event at X,Y; BUTTONS 1 left, 2 right, 0 none\n"
    "                                                           tidectl smouse 100,200,1,0\n"
    "  skey UNICODE,KEY,MODIFIERS,PRESSED\n"
    "                           key event (Qt key code, decimal modifier mask, 1 press/0 release)\n"
    "                                                           tidectl skey 65,65,0,1\n";

int usageError(const std::string &reason)
{
    fprintf(stderr, "tidectl: %s; %s\n", reason.c_str(), usage);
    return 2;
}

struct Options
{
    std::string host = "127.0.0.1";
    unsigned short port = defaultPort;
    bool wait = false;
    int count = -1;   // -1: no limit
    int timeout = -1; // milliseconds, -1: none
    std::string command;
};

// A decimal number within [min, max]; blanks around it and a sign are accepted.
bool toNumber(const char *text, long min, long max, int *out)
{
    if (!text)
        return false;
    while (isspace(static_cast<unsigned char>(*text)))
        ++text;
    if (!*text || isspace(static_cast<unsigned char>(*text)))
        return false;
    char *end = nullptr;
    errno = 0;
    const long value = strtol(text, &end, 10);
    if (end == text || errno == ERANGE)
        return false;
    while (isspace(static_cast<unsigned char>(*end)))
        ++end;
    if (*end || value < min || value > max)
        return false;
    *out = int(value);
    return true;
}

bool startsWith(const std::string &s, const char *prefix)
{
    return s.compare(0, strlen(prefix), prefix) == 0;
}

// Options stand only before the command, so a command word or parameter that starts with a
// dash (a negative coordinate) is sent as it is; "--" ends the options explicitly.
// Returns an empty string on success, else the reason the arguments were refused.
std::string parseArguments(int argc, char **argv, Options *opt)
{
    int envPort = 0;
    if (toNumber(getenv("TIDESHELL_CONTROL_PORT"), 1, 65535, &envPort))
        opt->port = static_cast<unsigned short>(envPort);
    int i = 1;
    for (; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--") {
            ++i;
            break;
        }
        if (!startsWith(arg, "--"))
            break;
        std::string value;
        const size_t eq = arg.find('=');
        const bool inlineValue = eq != std::string::npos && eq > 0;
        if (inlineValue) {
            value = arg.substr(eq + 1);
            arg.resize(eq);
        }
        if (arg == "--wait" && !inlineValue) {
            opt->wait = true;
            continue;
        }
        if (arg != "--host" && arg != "--port" && arg != "--count" && arg != "--timeout")
            return std::string("unknown option ") + argv[i];
        if (!inlineValue) {
            if (++i >= argc)
                return arg + " needs a value";
            value = argv[i];
        }
        int number = 0;
        if (arg == "--host") {
            if (value.empty())
                return "empty host";
            opt->host = value;
        } else if (arg == "--port") {
            if (!toNumber(value.c_str(), 1, 65535, &number))
                return "bad port " + value;
            opt->port = static_cast<unsigned short>(number);
        } else if (arg == "--count") {
            if (!toNumber(value.c_str(), 0, INT_MAX, &number))
                return "bad count " + value;
            opt->count = number;
            opt->wait = true;
        } else {
            if (!toNumber(value.c_str(), 0, INT_MAX, &number))
                return "bad timeout " + value;
            opt->timeout = number;
            opt->wait = true;
        }
    }
    if (i >= argc)
        return "no command";
    for (; i < argc; ++i) {
        opt->command += argv[i];
        if (i + 1 < argc)
            opt->command += ' ';
    }
    return std::string();
}

long long nowMs()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec * 1000LL + ts.tv_nsec / 1000000;
}

// Prints every report that comes back until the count, the timeout or a stop signal.
int waitForReports(int fd, const Options &opt, const sigset_t &stopSignals)
{
    const int sigFd = signalfd(-1, &stopSignals, SFD_CLOEXEC | SFD_NONBLOCK);
    const long long deadline = opt.timeout >= 0 ? nowMs() + opt.timeout : -1;
    static char report[65536 + 1];
    int printed = 0;
    for (;;) {
        int waitMs = -1;
        if (deadline >= 0)
            waitMs = int(deadline - nowMs() > 0 ? deadline - nowMs() : 0);
        pollfd fds[2] = {{fd, POLLIN, 0}, {sigFd, POLLIN, 0}};
        const int ready = poll(fds, sigFd >= 0 ? 2 : 1, waitMs);
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready < 0 || (sigFd >= 0 && (fds[1].revents & POLLIN)))
            return 0;
        if (ready == 0)
            return opt.count > 0 && printed < opt.count ? 1 : 0;
        for (;;) {
            const ssize_t size = recv(fd, report, sizeof report - 1, MSG_DONTWAIT);
            if (size < 0)
                break;
            report[size] = '\n';
            fwrite(report, 1, size_t(size) + 1, stdout);
            fflush(stdout);
            if (opt.count > 0 && ++printed >= opt.count)
                return 0;
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    // SIGINT and SIGTERM end a --wait through a signalfd, like any other event.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    sigprocmask(SIG_BLOCK, &stopSignals, nullptr);

    if (argc == 2 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
        printf("%s\n\n%s", usage, help);
        return 0;
    }

    Options opt;
    const std::string problem = parseArguments(argc, argv, &opt);
    if (!problem.empty())
        return usageError(problem);

    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(opt.host.c_str(), nullptr, &hints, &found) != 0 || !found) {
        fprintf(stderr, "tidectl: cannot resolve host %s\n", opt.host.c_str());
        return 1;
    }
    sockaddr_storage target{};
    memcpy(&target, found->ai_addr, found->ai_addrlen);
    const socklen_t targetLen = found->ai_addrlen;
    const int family = found->ai_family;
    freeaddrinfo(found);
    if (family == AF_INET6)
        reinterpret_cast<sockaddr_in6 *>(&target)->sin6_port = htons(opt.port);
    else
        reinterpret_cast<sockaddr_in *>(&target)->sin_port = htons(opt.port);

    // The socket the command leaves from is the one the shell reports clicks to.
    const int fd = socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        fprintf(stderr, "tidectl: %s\n", strerror(errno));
        return 1;
    }
    if (sendto(fd, opt.command.data(), opt.command.size(), 0,
               reinterpret_cast<const sockaddr *>(&target),
               targetLen) != ssize_t(opt.command.size())) {
        fprintf(stderr, "tidectl: cannot send to %s:%u: %s\n", opt.host.c_str(), unsigned(opt.port),
                strerror(errno));
        return 1;
    }
    if (!opt.wait || opt.count == 0)
        return 0;
    const int status = waitForReports(fd, opt, stopSignals);
    close(fd);
    return status;
}
