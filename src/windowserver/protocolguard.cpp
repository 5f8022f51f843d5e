#include "protocolguard.h"

#include <QLoggingCategory>
#include <QtWaylandCompositor/QWaylandCompositor>
#include <QtWaylandCompositor/QWaylandXdgShell>

#include <cstring>
#include <wayland-server-core.h>
#include <wayland-server-protocol.h>

Q_DECLARE_LOGGING_CATEGORY(lcWindowServer)

namespace {

// xdg-shell's xdg_surface.error.defunct_role_object.
constexpr uint32_t XdgSurfaceDefunctRoleObject = 6;

// Qt keeps an xdg surface's role pointer after the role object is gone; the window manager
// knows which roles still live.
std::function<bool(QWaylandXdgSurface *)> s_hasRole;

bool is(const wl_protocol_logger_message *m, const char *interface, const char *request)
{
    return std::strcmp(wl_resource_get_class(m->resource), interface) == 0 &&
           std::strcmp(m->message->name, request) == 0;
}

// A protocol logger sees every request before it is carried out, which makes it the one
// place to refuse a request whose handler we do not own. An error posted here ends the
// client as soon as the request returns.
void checkRequest(void *, wl_protocol_logger_type direction, const wl_protocol_logger_message *m)
{
    if (direction != WL_PROTOCOL_LOGGER_REQUEST)
        return;
    // The buffer scale divides the buffer size when the surface's size is worked out.
    if (is(m, "wl_surface", "set_buffer_scale") && m->arguments[0].i <= 0) {
        qCInfo(lcWindowServer) << "client error: buffer scale" << m->arguments[0].i;
        wl_resource_post_error(m->resource, WL_SURFACE_ERROR_INVALID_SCALE,
                               "buffer scale must be at least 1, not %d", m->arguments[0].i);
    }
    // An xdg_surface goes after its toplevel or popup; the other way round the role object
    // would live on without the surface it describes.
    if (is(m, "xdg_surface", "destroy")) {
        QWaylandXdgSurface *xdgSurface = QWaylandXdgSurface::fromResource(m->resource);
        if (xdgSurface && s_hasRole && s_hasRole(xdgSurface)) {
            qCInfo(lcWindowServer) << "client error: xdg_surface destroyed before its role";
            wl_resource_post_error(m->resource, XdgSurfaceDefunctRoleObject,
                                   "xdg_surface destroyed before its role object");
        }
    }
}

} // namespace

void ProtocolGuard::setRoleCheck(std::function<bool(QWaylandXdgSurface *)> hasRole)
{
    s_hasRole = std::move(hasRole);
}

wl_protocol_logger *ProtocolGuard::install(QWaylandCompositor *compositor)
{
    return wl_display_add_protocol_logger(compositor->display(), checkRequest, nullptr);
}
