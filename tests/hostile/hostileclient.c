// A Wayland client that misbehaves on purpose, one way per run: argv[1] names the case. The shell
// must survive every one of them and go on serving other clients; being disconnected with a
// protocol error is a fair answer.
//
// Exit status: 0 the case ran to its end, 2 the shell disconnected us (protocol error or a
// closed socket), 1 bad usage or no shell.
#define _GNU_SOURCE
#include "xdg-shell-client-protocol.h"

#include <wayland-client.h>

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

static struct wl_display *display;
static struct wl_compositor *compositor;
static struct wl_shm *shm;
static struct xdg_wm_base *wm_base;

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
    else if (!strcmp(interface, wl_shm_interface.name))
        shm = wl_registry_bind(registry, name, &wl_shm_interface, 1);
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

// Both count into the int that data points to.
static void xdg_surface_configure(void *data, struct xdg_surface *xdg_surface, uint32_t serial)
{
    xdg_surface_ack_configure(xdg_surface, serial);
    ++*(int *)data;
}
static const struct xdg_surface_listener xdg_surface_listener = {xdg_surface_configure};

static void callback_done(void *data, struct wl_callback *callback, uint32_t time)
{
    (void)time;
    ++*(int *)data;
    wl_callback_destroy(callback);
}
static const struct wl_callback_listener callback_listener = {callback_done};

static void finish(int status)
{
    if (wl_display_get_error(display)) {
        const struct wl_interface *interface = NULL;
        const uint32_t code = wl_display_get_protocol_error(display, &interface, NULL);
        printf("disconnected: %s code %u\n", interface ? interface->name : "-", code);
        status = 2;
    }
    exit(status);
}

// Dispatches events until *counter reaches target; requests the socket could not take yet
// (a flood of them) go out meanwhile. Ends the program when the shell disconnects us.
static void dispatch_until(const int *counter, int target)
{
    while (*counter < target)
        if (wl_display_dispatch(display) < 0)
            finish(2);
}

static int shm_fd; // the file behind the last buffer made

// An ARGB buffer in a pool of pool_size bytes over a file of file_size bytes.
static struct wl_buffer *make_buffer(int width, int height, int32_t pool_size, off_t file_size)
{
    shm_fd = memfd_create("tide-hostile", MFD_CLOEXEC);
    if (shm_fd < 0 || ftruncate(shm_fd, file_size) != 0) {
        perror("memfd");
        exit(1);
    }
    struct wl_shm_pool *pool = wl_shm_create_pool(shm, shm_fd, pool_size);
    return wl_shm_pool_create_buffer(pool, 0, width, height, width * 4, WL_SHM_FORMAT_ARGB8888);
}

// Attaches the buffer unless it is NULL, commits with a frame callback and waits until the
// shell has drawn the surface.
static void show(struct wl_surface *surface, struct wl_buffer *buffer)
{
    int frames = 0;
    if (buffer) {
        wl_surface_attach(surface, buffer, 0, 0);
        wl_surface_damage(surface, 0, 0, INT32_MAX, INT32_MAX);
    }
    wl_callback_add_listener(wl_surface_frame(surface), &callback_listener, &frames);
    wl_surface_commit(surface);
    dispatch_until(&frames, 1);
}

struct window
{
    struct wl_surface *surface;
    struct xdg_surface *xdg_surface;
    struct xdg_toplevel *toplevel;
    int configured;
};

// A configured toplevel, without a buffer yet.
static struct window *create_window(const char *title)
{
    struct window *w = calloc(1, sizeof(*w));
    w->surface = wl_compositor_create_surface(compositor);
    w->xdg_surface = xdg_wm_base_get_xdg_surface(wm_base, w->surface);
    xdg_surface_add_listener(w->xdg_surface, &xdg_surface_listener, &w->configured);
    w->toplevel = xdg_surface_get_toplevel(w->xdg_surface);
    xdg_toplevel_set_title(w->toplevel, title);
    wl_surface_commit(w->surface);
    dispatch_until(&w->configured, 1);
    return w;
}

// A configured toplevel showing a 200 x 100 buffer that the shell has drawn once.
static struct window *map_window(const char *title)
{
    struct window *w = create_window(title);
    show(w->surface, make_buffer(200, 100, 80000, 80000));
    return w;
}

// The file behind a drawn buffer shrinks to nothing; the shell draws it again.
static void shm_truncated(void)
{
    struct window *w = create_window("truncated");
    struct wl_buffer *buffer = make_buffer(200, 100, 80000, 80000);
    show(w->surface, buffer);
    if (ftruncate(shm_fd, 0) == 0)
        show(w->surface, buffer);
}

static void buffer_scale_zero(void)
{
    struct window *w = create_window("scale zero");
    wl_surface_set_buffer_scale(w->surface, 0);
    show(w->surface, make_buffer(200, 100, 80000, 80000));
}

// A pool of 4 MiB over a file of 4 KiB.
static void pool_beyond_file(void)
{
    struct window *w = create_window("beyond");
    show(w->surface, make_buffer(1024, 1024, 4 << 20, 4096));
}

static void surface_before_toplevel(void)
{
    struct window *w = map_window("doomed");
    wl_surface_destroy(w->surface);
    xdg_toplevel_set_title(w->toplevel, "after its surface");
}

static void xdg_surface_before_toplevel(void)
{
    struct window *w = map_window("half");
    xdg_surface_destroy(w->xdg_surface);
    xdg_toplevel_set_title(w->toplevel, "after its xdg_surface");
    show(w->surface, NULL);
}

static void frame_flood(void)
{
    struct window *w = map_window("flood");
    enum { Flood = 5000 };
    int frames = 0;
    for (int i = 0; i < Flood; ++i) {
        wl_callback_add_listener(wl_surface_frame(w->surface), &callback_listener, &frames);
        // Out before the next one: libwayland gives up on a request its buffer cannot take.
        struct pollfd room = {wl_display_get_fd(display), POLLOUT, 0};
        while (wl_display_flush(display) < 0 && errno == EAGAIN)
            poll(&room, 1, -1);
    }
    wl_surface_commit(w->surface);
    dispatch_until(&frames, Flood);
}

static const struct
{
    const char *name;
    void (*run)(void);
} cases[] = {
    {"shm-truncated", shm_truncated},
    {"buffer-scale-zero", buffer_scale_zero},
    {"pool-beyond-file", pool_beyond_file},
    {"surface-before-toplevel", surface_before_toplevel},
    {"xdg-surface-before-toplevel", xdg_surface_before_toplevel},
    {"frame-flood", frame_flood},
};
enum { CaseCount = sizeof(cases) / sizeof(cases[0]) };

int main(int argc, char **argv)
{
    setvbuf(stdout, NULL, _IOLBF, 0);
    const char *name = argc == 2 ? argv[1] : "";
    int which = -1;
    for (int i = 0; i < CaseCount; ++i)
        if (!strcmp(name, cases[i].name))
            which = i;
    if (which < 0) {
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
    if (!compositor || !shm || !wm_base) {
        fprintf(stderr, "the shell lacks a global this client needs\n");
        return 1;
    }
    cases[which].run();
    int done = 0; // a round trip: every request so far has been dealt with
    wl_callback_add_listener(wl_display_sync(display), &callback_listener, &done);
    dispatch_until(&done, 1);
    printf("survived %s\n", name);
    finish(0);
}
