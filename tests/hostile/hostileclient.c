// A Wayland client that misbehaves on purpose, one way per run: argv[1] names the case. The
// shell must survive every one of them and go on serving other clients; being disconnected
// with a protocol error is a fair answer. "good" is the well-behaved control: it maps a window
// and exits 0 once the shell has configured it and rendered a frame of it.
//
// Exit status: 0 the case ran to its end, 2 the shell disconnected us (protocol error or a
// closed socket), 1 bad usage or no shell, 3 the shell stopped answering.
#define _GNU_SOURCE
#include "xdg-shell-client-protocol.h"

#include <wayland-client.h>

#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

enum { TimeoutMs = 10000 };

static struct wl_display *display;
static struct wl_compositor *compositor;
static struct wl_subcompositor *subcompositor;
static struct wl_shm *shm;
static struct wl_seat *seat;
static struct xdg_wm_base *wm_base;

struct window
{
    struct wl_surface *surface;
    struct xdg_surface *xdg_surface;
    struct xdg_toplevel *toplevel;
    int configured;
};

struct shm_buffer
{
    int fd;
    struct wl_shm_pool *pool;
    struct wl_buffer *buffer;
};

static void wm_base_ping(void *data, struct xdg_wm_base *base, uint32_t serial)
{
    (void)data;
    xdg_wm_base_pong(base, serial);
}
static const struct xdg_wm_base_listener wm_base_listener = {wm_base_ping};

static void registry_global(void *data, struct wl_registry *registry, uint32_t name,
                            const char *interface, uint32_t version)
{
    (void)data;
    if (!strcmp(interface, wl_compositor_interface.name))
        compositor =
            wl_registry_bind(registry, name, &wl_compositor_interface, version < 4 ? version : 4);
    else if (!strcmp(interface, wl_subcompositor_interface.name))
        subcompositor = wl_registry_bind(registry, name, &wl_subcompositor_interface, 1);
    else if (!strcmp(interface, wl_shm_interface.name))
        shm = wl_registry_bind(registry, name, &wl_shm_interface, 1);
    else if (!strcmp(interface, wl_seat_interface.name))
        seat = wl_registry_bind(registry, name, &wl_seat_interface, version < 4 ? version : 4);
    else if (!strcmp(interface, xdg_wm_base_interface.name)) {
        wm_base = wl_registry_bind(registry, name, &xdg_wm_base_interface, 1);
        xdg_wm_base_add_listener(wm_base, &wm_base_listener, NULL);
    }
}
static void registry_global_remove(void *data, struct wl_registry *registry, uint32_t name)
{
    (void)data, (void)registry, (void)name;
}
static const struct wl_registry_listener registry_listener = {registry_global,
                                                              registry_global_remove};

static void xdg_surface_configure(void *data, struct xdg_surface *xdg_surface, uint32_t serial)
{
    xdg_surface_ack_configure(xdg_surface, serial);
    ((struct window *)data)->configured = 1;
}
static const struct xdg_surface_listener xdg_surface_listener = {xdg_surface_configure};

static void toplevel_configure(void *data, struct xdg_toplevel *toplevel, int32_t w, int32_t h,
                               struct wl_array *states)
{
    (void)data, (void)toplevel, (void)w, (void)h, (void)states;
}
static void toplevel_close(void *data, struct xdg_toplevel *toplevel)
{
    (void)data, (void)toplevel;
}
static const struct xdg_toplevel_listener toplevel_listener = {toplevel_configure, toplevel_close};

static void callback_done(void *data, struct wl_callback *callback, uint32_t time)
{
    (void)time;
    ++*(int *)data;
    wl_callback_destroy(callback);
}
static const struct wl_callback_listener callback_listener = {callback_done};

static void finish(int status)
{
    const int error = wl_display_get_error(display);
    if (error) {
        const struct wl_interface *interface = NULL;
        uint32_t id = 0;
        const uint32_t code = wl_display_get_protocol_error(display, &interface, &id);
        printf("disconnected: %s (%s@%u code %u)\n", strerror(error),
               interface ? interface->name : "-", id, code);
        status = 2;
    }
    fflush(stdout);
    exit(status);
}

static int64_t now_ms(void)
{
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (int64_t)ts.tv_sec * 1000 + ts.tv_nsec / 1000000;
}

// Dispatches events until *counter reaches target. Ends the program when the shell
// disconnects us or stops answering.
static void dispatch_until(const int *counter, int target)
{
    const int64_t deadline = now_ms() + TimeoutMs;
    while (*counter < target) {
        while (wl_display_prepare_read(display) != 0)
            if (wl_display_dispatch_pending(display) < 0)
                finish(2);
        if (*counter >= target) {
            wl_display_cancel_read(display);
            break;
        }
        // Requests the socket could not take yet (a flood of them) must still go out: wait
        // for room as well as for events.
        short events = POLLIN;
        if (wl_display_flush(display) < 0) {
            if (errno != EAGAIN) {
                wl_display_cancel_read(display);
                finish(2);
            }
            events |= POLLOUT;
        }
        // A client whose events overflowed the shell's buffer loses them and is dropped, but
        // only when it next sends something: after a second of silence, ask for a sync.
        const int64_t left = deadline - now_ms();
        struct pollfd pfd = {wl_display_get_fd(display), events, 0};
        const int ready = left > 0 ? poll(&pfd, 1, left < 1000 ? (int)left : 1000) : 0;
        if (ready <= 0) {
            wl_display_cancel_read(display);
            if (ready < 0 && errno == EINTR)
                continue;
            if (left > 0) {
                wl_display_sync(display);
                continue;
            }
            printf("no answer from the shell\n");
            finish(3);
        }
        if (!(pfd.revents & (POLLIN | POLLHUP | POLLERR))) {
            wl_display_cancel_read(display); // room to write, nothing to read yet
            continue;
        }
        if (wl_display_read_events(display) < 0 || wl_display_dispatch_pending(display) < 0)
            finish(2);
    }
}

static void roundtrip(void)
{
    int done = 0;
    wl_callback_add_listener(wl_display_sync(display), &callback_listener, &done);
    dispatch_until(&done, 1);
}

static int make_fd(off_t size)
{
    const int fd = memfd_create("tide-hostile", MFD_CLOEXEC);
    if (fd < 0 || ftruncate(fd, size) != 0) {
        perror("memfd");
        exit(1);
    }
    return fd;
}

// A pool of pool_size bytes over a file of file_size bytes, painted up to the smaller of the
// two, and one ARGB buffer in it.
static struct shm_buffer make_buffer_in(int width, int height, int stride, int offset,
                                        int32_t pool_size, off_t file_size)
{
    struct shm_buffer b;
    b.fd = make_fd(file_size);
    // At most the first MiB is painted, so a huge pool stays a sparse file.
    size_t painted = (size_t)(file_size < pool_size ? file_size : pool_size);
    painted = painted < (1u << 20) ? painted : (1u << 20);
    uint32_t *pixels = mmap(NULL, painted, PROT_READ | PROT_WRITE, MAP_SHARED, b.fd, 0);
    if (pixels != MAP_FAILED) {
        for (size_t i = 0; i < painted / 4; ++i)
            pixels[i] = 0xff3080c0;
        munmap(pixels, painted);
    }
    b.pool = wl_shm_create_pool(shm, b.fd, pool_size);
    b.buffer =
        wl_shm_pool_create_buffer(b.pool, offset, width, height, stride, WL_SHM_FORMAT_ARGB8888);
    return b;
}

static struct shm_buffer make_buffer(int width, int height)
{
    return make_buffer_in(width, height, width * 4, 0, width * height * 4,
                          (off_t)width * height * 4);
}

static void show(struct wl_surface *surface, struct wl_buffer *buffer, int width, int height)
{
    wl_surface_attach(surface, buffer, 0, 0);
    wl_surface_damage(surface, 0, 0, width, height);
}

// Commits the surface with a frame callback and waits until the shell has drawn it.
static void commit_and_wait_frame(struct wl_surface *surface)
{
    int frames = 0;
    wl_callback_add_listener(wl_surface_frame(surface), &callback_listener, &frames);
    wl_surface_commit(surface);
    dispatch_until(&frames, 1);
}

static struct window *create_window(const char *title)
{
    struct window *w = calloc(1, sizeof(*w));
    w->surface = wl_compositor_create_surface(compositor);
    w->xdg_surface = xdg_wm_base_get_xdg_surface(wm_base, w->surface);
    xdg_surface_add_listener(w->xdg_surface, &xdg_surface_listener, w);
    w->toplevel = xdg_surface_get_toplevel(w->xdg_surface);
    xdg_toplevel_add_listener(w->toplevel, &toplevel_listener, w);
    xdg_toplevel_set_title(w->toplevel, title);
    wl_surface_commit(w->surface);
    dispatch_until(&w->configured, 1);
    return w;
}

// A configured toplevel showing a 200 x 100 buffer that the shell has drawn once.
static struct window *map_window(const char *title, struct shm_buffer *out)
{
    struct window *w = create_window(title);
    struct shm_buffer b = make_buffer(200, 100);
    show(w->surface, b.buffer, 200, 100);
    commit_and_wait_frame(w->surface);
    if (out)
        *out = b;
    return w;
}

static struct xdg_positioner *positioner(int width, int height, int anchored)
{
    struct xdg_positioner *p = xdg_wm_base_create_positioner(wm_base);
    xdg_positioner_set_size(p, width, height);
    if (anchored)
        xdg_positioner_set_anchor_rect(p, 0, 0, 10, 10);
    return p;
}

// A popup on a fresh surface, committed with a buffer.
static void popup(struct xdg_surface *parent, struct xdg_positioner *p)
{
    struct window pw = {0};
    pw.surface = wl_compositor_create_surface(compositor);
    pw.xdg_surface = xdg_wm_base_get_xdg_surface(wm_base, pw.surface);
    xdg_surface_add_listener(pw.xdg_surface, &xdg_surface_listener, &pw);
    xdg_surface_get_popup(pw.xdg_surface, parent, p);
    wl_surface_commit(pw.surface);
    dispatch_until(&pw.configured, 1);
    struct shm_buffer b = make_buffer(50, 50);
    show(pw.surface, b.buffer, 50, 50);
    commit_and_wait_frame(pw.surface);
}

// Raw bytes on the connection, past libwayland's own marshalling.
static void write_raw(const void *bytes, size_t size)
{
    wl_display_flush(display);
    if (write(wl_display_get_fd(display), bytes, size) != (ssize_t)size)
        perror("write");
}

static void run_case(const char *name)
{
    struct shm_buffer b;
    struct window *w;

    if (!strcmp(name, "good")) {
        map_window("good", NULL);
        printf("good\n");
    } else if (!strcmp(name, "surface-before-toplevel")) {
        w = map_window("doomed", NULL);
        wl_surface_destroy(w->surface);
        xdg_toplevel_set_title(w->toplevel, "after its surface");
    } else if (!strcmp(name, "shm-truncated")) {
        w = map_window("shrinking", &b);
        if (ftruncate(b.fd, 0) != 0)
            perror("ftruncate");
        show(w->surface, b.buffer, 200, 100);
        commit_and_wait_frame(w->surface);
    } else if (!strcmp(name, "buffer-scale-zero")) {
        w = create_window("scale 0");
        b = make_buffer(200, 100);
        wl_surface_set_buffer_scale(w->surface, 0);
        show(w->surface, b.buffer, 200, 100);
        commit_and_wait_frame(w->surface);
    } else if (!strcmp(name, "stride-too-small")) {
        // The stride counts bytes, the check in libwayland only pixels: a row of 1024 pixels
        // in 1024 bytes. Drawing it reads four times the pool.
        w = create_window("narrow stride");
        b = make_buffer_in(1024, 1024, 1024, 0, 1024 * 1024, 1024 * 1024);
        show(w->surface, b.buffer, 1024, 1024);
        commit_and_wait_frame(w->surface);
    } else if (!strcmp(name, "buffer-past-pool")) {
        w = create_window("past the pool");
        b = make_buffer_in(200, 100, 800, 4096, 200 * 100 * 4, 200 * 100 * 4);
        show(w->surface, b.buffer, 200, 100);
        commit_and_wait_frame(w->surface);
    } else if (!strcmp(name, "pool-beyond-file")) {
        // The pool claims 4 MiB of a file of one page.
        w = create_window("hollow pool");
        b = make_buffer_in(1024, 1024, 4096, 0, 4096 * 1024, 4096);
        show(w->surface, b.buffer, 1024, 1024);
        commit_and_wait_frame(w->surface);
    } else if (!strcmp(name, "huge-buffer")) {
        w = create_window("huge");
        b = make_buffer_in(16384, 16384, 16384 * 4, 0, 1 << 30, (off_t)1 << 30);
        show(w->surface, b.buffer, 16384, 16384);
        commit_and_wait_frame(w->surface);
    } else if (!strcmp(name, "max-width")) {
        w = create_window("widest");
        b = make_buffer_in(INT_MAX, 1, INT_MAX, 0, 1 << 20, 1 << 20);
        show(w->surface, b.buffer, INT_MAX, 1);
        commit_and_wait_frame(w->surface);
    } else if (!strcmp(name, "wide-buffer")) {
        w = create_window("wide");
        b = make_buffer_in(1 << 22, 1, 1 << 24, 0, 1 << 24, 1 << 24);
        show(w->surface, b.buffer, 1 << 22, 1);
        commit_and_wait_frame(w->surface);
    } else if (!strcmp(name, "pool-before-buffer")) {
        w = create_window("orphan buffer");
        b = make_buffer(200, 100);
        wl_shm_pool_destroy(b.pool);
        close(b.fd);
        show(w->surface, b.buffer, 200, 100);
        commit_and_wait_frame(w->surface);
        wl_buffer_destroy(b.buffer);
        wl_surface_commit(w->surface);
    } else if (!strcmp(name, "buffer-before-commit")) {
        w = create_window("vanishing buffer");
        b = make_buffer(200, 100);
        show(w->surface, b.buffer, 200, 100);
        wl_buffer_destroy(b.buffer);
        wl_surface_commit(w->surface); // nothing to draw, so no frame to wait for
    } else if (!strcmp(name, "xdg-surface-before-toplevel")) {
        w = map_window("half", NULL);
        xdg_surface_destroy(w->xdg_surface);
        xdg_toplevel_set_title(w->toplevel, "after its xdg_surface");
        commit_and_wait_frame(w->surface);
    } else if (!strcmp(name, "seat-objects")) {
        w = map_window("seat", NULL);
        struct wl_pointer *pointer = wl_seat_get_pointer(seat);
        struct wl_keyboard *keyboard = wl_seat_get_keyboard(seat);
        struct wl_touch *touch = wl_seat_get_touch(seat);
        struct wl_surface *cursor = wl_compositor_create_surface(compositor);
        b = make_buffer(16, 16);
        show(cursor, b.buffer, 16, 16);
        wl_surface_commit(cursor);
        wl_pointer_set_cursor(pointer, 0, cursor, 0, 0);
        wl_surface_destroy(cursor);
        wl_proxy_destroy((struct wl_proxy *)seat);
        wl_pointer_release(pointer);
        wl_keyboard_release(keyboard);
        wl_touch_release(touch);
        commit_and_wait_frame(w->surface);
    } else if (!strcmp(name, "subsurface-cycle")) {
        struct wl_surface *a = wl_compositor_create_surface(compositor);
        struct wl_surface *s = wl_compositor_create_surface(compositor);
        wl_subcompositor_get_subsurface(subcompositor, a, s);
        wl_subcompositor_get_subsurface(subcompositor, s, a);
        b = make_buffer(20, 20);
        show(a, b.buffer, 20, 20);
        wl_surface_commit(a);
        wl_surface_commit(s);
        roundtrip();
    } else if (!strcmp(name, "subsurface-self")) {
        w = map_window("own parent", NULL);
        struct wl_surface *s = wl_compositor_create_surface(compositor);
        wl_subcompositor_get_subsurface(subcompositor, s, s);
        b = make_buffer(20, 20);
        show(s, b.buffer, 20, 20);
        wl_surface_commit(s);
        commit_and_wait_frame(w->surface);
    } else if (!strcmp(name, "popup-zero-size")) {
        w = map_window("parent", NULL);
        popup(w->xdg_surface, positioner(0, 0, 1));
    } else if (!strcmp(name, "popup-no-anchor")) {
        w = map_window("parent", NULL);
        popup(w->xdg_surface, positioner(50, 50, 0));
    } else if (!strcmp(name, "popup-no-parent")) {
        map_window("bystander", NULL);
        popup(NULL, positioner(50, 50, 1));
    } else if (!strcmp(name, "garbage")) {
        roundtrip();
        unsigned char bytes[512];
        srand(60000);
        for (size_t i = 0; i < sizeof(bytes); ++i)
            bytes[i] = (unsigned char)rand();
        write_raw(bytes, sizeof(bytes));
        // The garbage may announce a message longer than what follows; say that nothing
        // more comes, and wait for the shell to hang up.
        shutdown(wl_display_get_fd(display), SHUT_WR);
        int never = 0;
        dispatch_until(&never, 1);
    } else if (!strcmp(name, "unknown-object")) {
        roundtrip();
        // wl_surface.attach-sized requests to an id nobody created, then to a server-side id.
        const uint32_t requests[] = {4242, (20u << 16) | 1, 0, 0, 0, 0xff000123u, 8u << 16};
        write_raw(requests, sizeof(requests));
        roundtrip();
    } else if (!strcmp(name, "frame-flood")) {
        w = map_window("flood", NULL);
        enum { Flood = 20000 };
        int frames = 0;
        for (int i = 0; i < Flood; ++i)
            wl_callback_add_listener(wl_surface_frame(w->surface), &callback_listener, &frames);
        wl_surface_commit(w->surface);
        dispatch_until(&frames, Flood);
    } else {
        fprintf(stderr, "unknown case %s\n", name);
        exit(1);
    }
    roundtrip();
    printf("survived %s\n", name);
}

int main(int argc, char **argv)
{
    setvbuf(stdout, NULL, _IOLBF, 0);
    if (argc != 2) {
        fprintf(stderr, "usage: %s CASE\n", argv[0]);
        return 1;
    }
    display = wl_display_connect(NULL);
    if (!display) {
        perror("wl_display_connect");
        return 1;
    }
    wl_registry_add_listener(wl_display_get_registry(display), &registry_listener, NULL);
    wl_display_roundtrip(display);
    if (!compositor || !subcompositor || !shm || !seat || !wm_base) {
        fprintf(stderr, "the shell lacks a global this client needs\n");
        return 1;
    }
    run_case(argv[1]);
    finish(0);
}
