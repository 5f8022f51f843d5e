#include "globalversions.h"

#include "qwayland-server-wayland.h"

#include <QLoggingCategory>
#include <QtWaylandCompositor/QWaylandCompositor>

Q_DECLARE_LOGGING_CATEGORY(lcWindowServer)

namespace {

struct Replacement
{
    const wl_interface *interface;
    int version;
    void *qtImplementation = nullptr; // the user data of Qt's global: its generated class
    wl_global *global = nullptr;
};

Replacement replacements[] = {{&wl_seat_interface, 5}, {&wl_data_device_manager_interface, 3}};

// Sees every global each client could bind: Qt's own of the replaced interfaces are noted
// and hidden, everything else is shown.
bool filterGlobal(const wl_client *, const wl_global *global, void *)
{
    for (Replacement &r : replacements) {
        if (wl_global_get_interface(global) != r.interface || global == r.global)
            continue;
        r.qtImplementation = wl_global_get_user_data(global);
        return false;
    }
    return true;
}

template <typename Implementation>
void bindThrough(wl_client *client, void *data, uint32_t version, uint32_t id)
{
    auto *r = static_cast<Replacement *>(data);
    if (!r->qtImplementation) {
        wl_client_post_no_memory(client);
        return;
    }
    static_cast<Implementation *>(r->qtImplementation)->add(client, id, int(version));
}

} // namespace

void GlobalVersions::install(QWaylandCompositor *compositor)
{
    wl_display *display = compositor->display();
    wl_display_set_global_filter(display, filterGlobal, nullptr);
    replacements[0].global =
        wl_global_create(display, replacements[0].interface, replacements[0].version,
                         &replacements[0], bindThrough<QtWaylandServer::wl_seat>);
    replacements[1].global =
        wl_global_create(display, replacements[1].interface, replacements[1].version,
                         &replacements[1], bindThrough<QtWaylandServer::wl_data_device_manager>);
}
