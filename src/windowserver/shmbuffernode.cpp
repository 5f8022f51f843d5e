#include "shmbuffernode.h"

#include <QPainter>
#include <QQuickWindow>
#include <QSGRendererInterface>

void ShmBufferNode::setImage(const QImage &image, const QRectF &target, const QRectF &source,
                             bool smooth)
{
    m_image = image;
    m_target = target;
    m_source = source.isValid() ? source : QRectF(m_image.rect());
    m_smooth = smooth;
    markDirty(QSGNode::DirtyMaterial);
}

void ShmBufferNode::render(const RenderState *state)
{
    auto *painter = static_cast<QPainter *>(m_window->rendererInterface()->getResource(
        m_window, QSGRendererInterface::PainterResource));
    if (!painter || m_image.isNull())
        return;
    // The clip is the part of the view being repainted, in view coordinates.
    painter->resetTransform();
    if (const QRegion *clip = state->clipRegion())
        painter->setClipRegion(*clip, Qt::ReplaceClip);
    painter->setTransform(matrix()->toTransform());
    const qreal opacity = inheritedOpacity();
    painter->setOpacity(opacity);
    if (opacity >= 1.0)
        painter->setCompositionMode(QPainter::CompositionMode_Source);
    painter->setRenderHint(QPainter::SmoothPixmapTransform, m_smooth);
    if (m_target.size() == m_source.size())
        painter->drawImage(m_target.topLeft(), m_image, m_source);
    else
        painter->drawImage(m_target, m_image, m_source);
}
