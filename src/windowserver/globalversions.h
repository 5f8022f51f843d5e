#pragma once

class QWaylandCompositor;

// Offers wl_seat and wl_data_device_manager at the versions current clients ask for (foot
// refuses to start below wl_seat 5 and wl_data_device_manager 3), where Qt 6.4 offers 4 and 1.
// Qt's own globals are hidden from clients; the globals offered instead create their
// resources through Qt's implementation, at the version the client binds. The requests the
// higher versions add are all known to that implementation (it is generated from a current
// wayland.xml) and do nothing there.
namespace GlobalVersions {
void install(QWaylandCompositor *compositor);
}
