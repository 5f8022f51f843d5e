#pragma once

#include <functional>

class QWaylandCompositor;
class QWaylandXdgSurface;
struct wl_protocol_logger;

// Requests that QtWaylandCompositor takes on trust although the protocol forbids them. Each
// one is answered with the protocol error the protocol names for it, which
// disconnects the client before the request can do harm.
namespace ProtocolGuard {
// The guard lives until the returned logger is destroyed (wl_protocol_logger_destroy).
wl_protocol_logger *install(QWaylandCompositor *compositor);
// Tells whether an xdg surface's role object (a toplevel) still exists.
void setRoleCheck(std::function<bool(QWaylandXdgSurface *)> hasRole);
} // namespace ProtocolGuard
