#pragma once

#include <functional>

class QWaylandCompositor;
class QWaylandXdgSurface;

// Requests that QtWaylandCompositor takes on trust although the protocol forbids them. Each
// one is answered with the protocol error the protocol names for it, which
// disconnects the client before the request can do harm.
namespace ProtocolGuard {
void install(QWaylandCompositor *compositor);
// Tells whether an xdg surface's role object (a toplevel) still exists.
void setRoleCheck(std::function<bool(QWaylandXdgSurface *)> hasRole);
} // namespace ProtocolGuard
