#pragma once

#include <QList>
#include <QObject>
#include <QPointer>

class QSocketNotifier;
class QWaylandCompositor;
class QWaylandSurface;

// Safe reads of client memory. A client's shared-memory buffer is a mapping of a file the
// client owns; if the client shrinks the file, reading the buffer faults with SIGBUS, and
// Qt reads buffers without any guard. The guard catches such faults: it puts zero pages in
// place of the lost mapping so that the read goes on, then, back in the event loop, ends the
// client whose buffer it was with a protocol error. Faults anywhere else stay fatal.
class ShmGuard : public QObject
{
    Q_OBJECT
public:
    explicit ShmGuard(QWaylandCompositor *compositor);
    ~ShmGuard() override;

private:
    void handleLostMappings();
    void disconnectOwner(quintptr start, quintptr end);

    QWaylandCompositor *m_compositor;
    QSocketNotifier *m_notifier = nullptr;
    QList<QPointer<QWaylandSurface>> m_surfaces;
};
