#include "protocolguard.h"

#include <QLoggingCategory>
#include <QtWaylandCompositor/QWaylandCompositor>

#include <cstring>
#include <wayland-server-core.h>
#include <wayland-server-protocol.h>

Q_DECLARE_LOGGING_CATEGORY(lcWindowServer)

namespace {

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
}

} // namespace

void ProtocolGuard::install(QWaylandCompositor *compositor)
{
    wl_display_add_protocol_logger(compositor->display(), checkRequest, nullptr);
}
