// Measuring helpers for bench/compare.sh, one per subcommand. Every figure covers a process
// and all of its descendants (a compositor with the clients it starts for itself).
//
//   benchtool startup SOCKETPATH -- PROGRAM ARGS...
//       Starts PROGRAM, connects to SOCKETPATH as soon as it appears and finishes one
//       wl_display_roundtrip. Prints "pid PID ms MS cpu_ms CPU": the server's pid, the time
//       from exec to the round trip done, and the CPU the server's processes used by then.
//       The server keeps running (it is handed to init when this program ends).
//   benchtool cpu PID        CPU time used so far, in microseconds
//   benchtool rss PID        resident memory, in KiB
//   benchtool ctxt PID       wake-ups so far: voluntary context switches of every thread
//   benchtool skey PORT COUNT FILE
//       Sends COUNT alternating press and release datagrams of the key "a" to the control
//       port, one every 5 ms, and reads from FILE the lines "k NS" a client writes for each
//       key event it gets (CLOCK_MONOTONIC). Prints the latencies' p50, p99 and max in ms.
#define _GNU_SOURCE
#include <arpa/inet.h>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>
#include <wayland-client.h>

static long long nowNs(void)
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec * 1000000000LL + ts.tv_nsec;
}

static int readFile(const char *path, char *buf, size_t size)
{
    int fd = open(path, O_RDONLY);
    if (fd < 0)
        return -1;
    ssize_t n = read(fd, buf, size - 1);
    close(fd);
    if (n < 0)
        return -1;
    buf[n] = 0;
    return (int)n;
}

// Fills pids with root and its descendants; returns their number.
static int processTree(pid_t root, pid_t *pids, int max)
{
    int n = 0;
    pids[n++] = root;
    for (int i = 0; i < n; ++i) {
        DIR *proc = opendir("/proc");
        struct dirent *e;
        while (proc && (e = readdir(proc)) && n < max) {
            char path[300], buf[1024];
            if (e->d_name[0] < '0' || e->d_name[0] > '9')
                continue;
            snprintf(path, sizeof(path), "/proc/%s/stat", e->d_name);
            if (readFile(path, buf, sizeof(buf)) <= 0)
                continue;
            const char *rp = strrchr(buf, ')');
            int ppid = 0;
            if (rp && sscanf(rp + 2, "%*c %d", &ppid) == 1 && ppid == pids[i])
                pids[n++] = atoi(e->d_name);
        }
        if (proc)
            closedir(proc);
    }
    return n;
}

// CPU of one process: the exact run time of its live threads, or the kernel's tick count of
// the whole process (which includes threads that have ended) when that is larger.
static long long processCpuUs(pid_t pid)
{
    char path[300], buf[1024];
    long long liveNs = 0;
    snprintf(path, sizeof(path), "/proc/%d/task", pid);
    DIR *tasks = opendir(path);
    struct dirent *e;
    while (tasks && (e = readdir(tasks))) {
        if (e->d_name[0] == '.')
            continue;
        snprintf(path, sizeof(path), "/proc/%d/task/%s/schedstat", pid, e->d_name);
        if (readFile(path, buf, sizeof(buf)) > 0)
            liveNs += atoll(buf);
    }
    if (tasks)
        closedir(tasks);
    long long ticksUs = 0;
    snprintf(path, sizeof(path), "/proc/%d/stat", pid);
    if (readFile(path, buf, sizeof(buf)) > 0) {
        const char *rp = strrchr(buf, ')');
        unsigned long ut = 0, st = 0;
        if (rp &&
            sscanf(rp + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu", &ut, &st) == 2)
            ticksUs = (long long)(ut + st) * 1000000 / sysconf(_SC_CLK_TCK);
    }
    const long long liveUs = liveNs / 1000;
    return ticksUs > liveUs + 20000 ? ticksUs : liveUs;
}

static long long statusField(const char *path, const char *field)
{
    char buf[8192];
    if (readFile(path, buf, sizeof(buf)) <= 0)
        return 0;
    const char *at = strstr(buf, field);
    return at ? atoll(at + strlen(field)) : 0;
}

static long long treeSum(pid_t root, int what)
{
    pid_t pids[256];
    const int n = processTree(root, pids, 256);
    long long sum = 0;
    for (int i = 0; i < n; ++i) {
        char path[300];
        if (what == 0) {
            sum += processCpuUs(pids[i]);
        } else if (what == 1) {
            snprintf(path, sizeof(path), "/proc/%d/status", pids[i]);
            sum += statusField(path, "VmRSS:");
        } else {
            snprintf(path, sizeof(path), "/proc/%d/task", pids[i]);
            DIR *tasks = opendir(path);
            struct dirent *e;
            while (tasks && (e = readdir(tasks))) {
                if (e->d_name[0] == '.')
                    continue;
                snprintf(path, sizeof(path), "/proc/%d/task/%s/status", pids[i], e->d_name);
                sum += statusField(path, "voluntary_ctxt_switches:");
            }
            if (tasks)
                closedir(tasks);
        }
    }
    return sum;
}

static int startup(const char *socketPath, char **argv)
{
    char dir[4096];
    snprintf(dir, sizeof(dir), "%s", socketPath);
    char *slash = strrchr(dir, '/');
    if (!slash)
        return 2;
    *slash = 0;
    const int watch = inotify_init1(IN_CLOEXEC);
    inotify_add_watch(watch, dir, IN_CREATE);

    const long long t0 = nowNs();
    const pid_t pid = fork();
    if (pid == 0) {
        close(watch);
        setsid();   // the server outlives this helper; the script ends it by its pid
        dup2(2, 1); // whoever reads this helper's output must not wait for the server's end
        execvp(argv[0], argv);
        _exit(127);
    }
    // Wait for the socket file, then connect; a socket bound but not yet listening refuses.
    struct stat st;
    while (stat(socketPath, &st) != 0) {
        char events[4096];
        if (read(watch, events, sizeof(events)) < 0 && errno != EINTR)
            return 3;
    }
    close(watch);
    struct wl_display *display = NULL;
    while (!(display = wl_display_connect(socketPath))) {
        if (nowNs() - t0 > 20000000000LL)
            return 4;
        usleep(100);
    }
    if (wl_display_roundtrip(display) < 0)
        return 5;
    const long long t1 = nowNs();
    const long long cpu = treeSum(pid, 0);
    wl_display_disconnect(display);
    printf("pid %d ms %.2f cpu_ms %.2f\n", pid, (t1 - t0) / 1e6, cpu / 1e3);
    return 0;
}

static int cmpLL(const void *a, const void *b)
{
    const long long x = *(const long long *)a, y = *(const long long *)b;
    return x < y ? -1 : x > y;
}

static int skey(int port, int count, const char *file)
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    struct sockaddr_in to = {.sin_family = AF_INET, .sin_port = htons(port)};
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    long long *sent = calloc(count, sizeof(long long));
    long long *seen = calloc(count, sizeof(long long));
    FILE *in = fopen(file, "r");
    if (!in)
        return 2;
    // Skip what the client wrote before.
    char line[256];
    while (fgets(line, sizeof(line), in)) {
    }
    int got = 0;
    for (int i = 0; i < count; ++i) {
        const char *cmd = i % 2 == 0 ? "skey 97,65,0,1" : "skey 97,65,0,0";
        sent[i] = nowNs();
        sendto(fd, cmd, strlen(cmd), 0, (struct sockaddr *)&to, sizeof(to));
        const long long deadline = sent[i] + 5000000;
        while (nowNs() < deadline) {
            clearerr(in);
            while (got < count && fgets(line, sizeof(line), in)) {
                if (line[0] == 'k')
                    seen[got++] = atoll(line + 2);
            }
            usleep(200);
        }
    }
    const long long until = nowNs() + 1000000000LL;
    while (got < count && nowNs() < until) {
        clearerr(in);
        while (got < count && fgets(line, sizeof(line), in))
            if (line[0] == 'k')
                seen[got++] = atoll(line + 2);
        usleep(1000);
    }
    if (got < count) {
        printf("lost %d of %d\n", count - got, count);
        return 1;
    }
    for (int i = 0; i < count; ++i)
        seen[i] -= sent[i];
    qsort(seen, count, sizeof(long long), cmpLL);
    printf("p50 %.3f p99 %.3f max %.3f\n", seen[count / 2] / 1e6, seen[(count * 99) / 100] / 1e6,
           seen[count - 1] / 1e6);
    return 0;
}

int main(int argc, char **argv)
{
    if (argc >= 5 && !strcmp(argv[1], "startup") && !strcmp(argv[3], "--"))
        return startup(argv[2], argv + 4);
    if (argc == 3 && !strcmp(argv[1], "cpu"))
        return printf("%lld\n", treeSum(atoi(argv[2]), 0)) < 0;
    if (argc == 3 && !strcmp(argv[1], "rss"))
        return printf("%lld\n", treeSum(atoi(argv[2]), 1)) < 0;
    if (argc == 3 && !strcmp(argv[1], "ctxt"))
        return printf("%lld\n", treeSum(atoi(argv[2]), 2)) < 0;
    if (argc == 5 && !strcmp(argv[1], "skey"))
        return skey(atoi(argv[2]), atoi(argv[3]), argv[4]);
    fprintf(stderr, "usage: see the head of benchtool.c\n");
    return 2;
}
