#pragma once

#include <QImage>
#include <QRectF>
#include <QSGRenderNode>

class QQuickWindow;

// Paints a client's shared-memory buffer straight into the desktop view's image with Qt
// Quick's software renderer. The stock item first copies every new buffer into a pixmap
// (converting it when it has an alpha channel) and then paints the copy: two or three passes
// over every frame of an animating client where one does. Like the stock item, the node
// shows the buffer as opaque. The item that owns the node must hold a reference to the
// buffer for as long as the node shows it: nodes outlive the compositor at exit, buffer
// references must not.
class ShmBufferNode : public QSGRenderNode
{
public:
    explicit ShmBufferNode(QQuickWindow *window) : m_window(window) {}

    // target in item coordinates, source in buffer pixels.
    void setImage(const QImage &image, const QRectF &target, const QRectF &source, bool smooth);

    void render(const RenderState *state) override;
    StateFlags changedStates() const override { return {}; }
    RenderingFlags flags() const override { return BoundedRectRendering | OpaqueRendering; }
    QRectF rect() const override { return m_target; }

private:
    QQuickWindow *m_window;
    QImage m_image;
    QRectF m_target;
    QRectF m_source;
    bool m_smooth = false;
};
