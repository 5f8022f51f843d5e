#include "shmguard.h"

#include <QLoggingCategory>
#include <QSocketNotifier>
#include <QtWaylandCompositor/QWaylandBufferRef>
#include <QtWaylandCompositor/QWaylandClient>
#include <QtWaylandCompositor/QWaylandCompositor>
#include <QtWaylandCompositor/QWaylandSurface>
#include <QtWaylandCompositor/QWaylandView>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-server-core.h>
#include <wayland-server-protocol.h>

Q_DECLARE_LOGGING_CATEGORY(lcWindowServer)

namespace {

// Everything the signal handler touches: plain memory and file descriptors only.
struct LostMapping
{
    uintptr_t start;
    uintptr_t end;
};
constexpr int MaxLost = 64;
LostMapping s_lost[MaxLost];
std::atomic<int> s_lostCount{0};
int s_wakePipe[2] = {-1, -1};
struct sigaction s_previous;
char s_maps[1 << 20];

uintptr_t parseHex(const char *&p)
{
    uintptr_t value = 0;
    for (;; ++p) {
        const char c = *p;
        if (c >= '0' && c <= '9')
            value = value * 16 + uintptr_t(c - '0');
        else if (c >= 'a' && c <= 'f')
            value = value * 16 + uintptr_t(c - 'a' + 10);
        else
            return value;
    }
}

// Finds the shared writable mapping holding addr in /proc/self/maps, with async-signal-safe
// calls only. Shared memory of clients is mapped read-write and shared; nothing else the
// shell maps that way can lose its backing file.
bool findSharedMapping(uintptr_t addr, uintptr_t *start, uintptr_t *end)
{
    const int fd = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    size_t used = 0;
    for (ssize_t n;
         used < sizeof(s_maps) - 1 && (n = read(fd, s_maps + used, sizeof(s_maps) - 1 - used)) > 0;)
        used += size_t(n);
    close(fd);
    s_maps[used] = '\0';
    // Each line: "start-end perms offset dev inode path".
    for (const char *p = s_maps; *p;) {
        const uintptr_t from = parseHex(p);
        const uintptr_t to = *p == '-' ? parseHex(++p) : 0;
        const bool sharedWritable = p[0] == ' ' && p[2] == 'w' && p[4] == 's';
        if (sharedWritable && addr >= from && addr < to) {
            *start = from;
            *end = to;
            return true;
        }
        while (*p && *p != '\n')
            ++p;
        if (*p)
            ++p;
    }
    return false;
}

void onBusError(int signal, siginfo_t *info, void *context)
{
    uintptr_t start = 0, end = 0;
    const int slot = s_lostCount.load();
    if (info->si_code == BUS_ADRERR && slot < MaxLost &&
        findSharedMapping(uintptr_t(info->si_addr), &start, &end) &&
        mmap(reinterpret_cast<void *>(start), end - start, PROT_READ | PROT_WRITE,
             MAP_FIXED | MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) != MAP_FAILED) {
        s_lost[slot] = {start, end};
        s_lostCount.store(slot + 1);
        const char byte = 0;
        (void)!write(s_wakePipe[1], &byte, 1);
        return; // the read starts over and finds zeros
    }
    // Not a client's memory: the fault is ours and must end the process as it always did.
    if ((s_previous.sa_flags & SA_SIGINFO) && s_previous.sa_sigaction) {
        s_previous.sa_sigaction(signal, info, context);
        return;
    }
    if (s_previous.sa_handler != SIG_DFL && s_previous.sa_handler != SIG_IGN) {
        s_previous.sa_handler(signal);
        return;
    }
    ::signal(SIGBUS, SIG_DFL); // the faulting access repeats and kills us with SIGBUS
}

} // namespace

ShmGuard::ShmGuard(QWaylandCompositor *compositor) : QObject(compositor), m_compositor(compositor)
{
    connect(compositor, &QWaylandCompositor::surfaceCreated, this,
            [this](QWaylandSurface *surface) {
                m_surfaces.removeAll(nullptr);
                m_surfaces.append(surface);
            });
    if (s_wakePipe[0] >= 0 || pipe2(s_wakePipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    m_notifier = new QSocketNotifier(s_wakePipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &ShmGuard::handleLostMappings);
    struct sigaction action = {};
    action.sa_sigaction = onBusError;
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    sigemptyset(&action.sa_mask);
    sigaction(SIGBUS, &action, &s_previous);
}

ShmGuard::~ShmGuard()
{
    if (!m_notifier)
        return;
    sigaction(SIGBUS, &s_previous, nullptr);
    close(s_wakePipe[0]);
    close(s_wakePipe[1]);
    s_wakePipe[0] = s_wakePipe[1] = -1;
}

void ShmGuard::handleLostMappings()
{
    char drain[64];
    while (read(s_wakePipe[0], drain, sizeof(drain)) > 0) {
    }
    // The handler only appends; the slots are freed once no new fault came in meanwhile.
    for (int done = 0;;) {
        int count = s_lostCount.load();
        for (; done < count; ++done)
            disconnectOwner(s_lost[done].start, s_lost[done].end);
        if (s_lostCount.compare_exchange_strong(count, 0))
            break;
    }
}

void ShmGuard::disconnectOwner(quintptr start, quintptr end)
{
    for (const QPointer<QWaylandSurface> &surface : std::as_const(m_surfaces)) {
        if (!surface || surface->isDestroyed())
            continue;
        const QList<QWaylandView *> views = surface->views();
        for (QWaylandView *view : views) {
            wl_resource *resource = view->currentBuffer().wl_buffer();
            wl_shm_buffer *buffer = resource ? wl_shm_buffer_get(resource) : nullptr;
            const auto data = buffer ? quintptr(wl_shm_buffer_get_data(buffer)) : 0;
            if (data < start || data >= end)
                continue;
            QWaylandClient *client = surface->client();
            qCInfo(lcWindowServer) << "client error: shared memory shrank under a buffer, pid"
                                   << (client ? client->processId() : 0);
            wl_resource_post_error(resource, WL_SHM_ERROR_INVALID_FD,
                                   "the file behind this buffer was truncated");
            // Outside of request dispatch the error alone would wait for the client to
            // speak again.
            wl_client *wl = wl_resource_get_client(resource);
            wl_client_flush(wl);
            wl_client_destroy(wl);
            return;
        }
    }
    qCInfo(lcWindowServer) << "client shared memory shrank; its owner is gone";
}
