#include "frames.h"

#include <QFontMetrics>
#include <QMouseEvent>
#include <QPainter>

namespace {
enum Button { CloseButton, MaximizeButton, LowerButton, ButtonCount };
}

WindowFrame::WindowFrame(QQuickItem *parent) : QQuickPaintedItem(parent)
{
    setAcceptedMouseButtons(Qt::LeftButton);
    setHeight(Height);
}

void WindowFrame::setTitle(const QString &title)
{
    m_title = title;
    update();
}

void WindowFrame::setActive(bool active)
{
    m_active = active;
    update();
}

void WindowFrame::setMaximized(bool maximized)
{
    m_maximized = maximized;
    update();
}

void WindowFrame::placeAbove(const QRect &window)
{
    setPosition(QPointF(window.x(), window.y() - Height));
    setWidth(window.width());
}

QRectF WindowFrame::buttonRect(int index) const
{
    return QRectF(width() - (index + 1) * ButtonWidth, 0, ButtonWidth, Height);
}

int WindowFrame::buttonAt(const QPointF &pos) const
{
    for (int i = 0; i < ButtonCount; ++i) {
        if (buttonRect(i).contains(pos))
            return i;
    }
    return -1;
}

void WindowFrame::act(Action action, QPointF delta)
{
    if (onAction)
        onAction(action, delta);
}

void WindowFrame::paint(QPainter *painter)
{
    const QColor background = m_active ? QColor(48, 64, 80) : QColor(112, 120, 128);
    painter->fillRect(QRectF(0, 0, width(), Height), background);
    painter->setRenderHint(QPainter::Antialiasing);

    QPen pen(Qt::white, 2);
    painter->setPen(pen);
    // The glyphs are drawn, not taken from a font: every device has the same ones.
    for (int i = 0; i < ButtonCount; ++i) {
        const QRectF r = buttonRect(i);
        if (m_pressed == i)
            painter->fillRect(r, background.lighter(150));
        const QPointF c = r.center();
        switch (i) {
        case CloseButton:
            painter->drawLine(c + QPointF(-8, -8), c + QPointF(8, 8));
            painter->drawLine(c + QPointF(-8, 8), c + QPointF(8, -8));
            break;
        case MaximizeButton:
            if (m_maximized) {
                painter->drawRect(QRectF(c + QPointF(-8, -4), QSizeF(12, 12)));
                painter->drawPolyline(
                    QPolygonF({c + QPointF(-4, -4), c + QPointF(-4, -8), c + QPointF(8, -8),
                               c + QPointF(8, 4), c + QPointF(4, 4)}));
            } else {
                painter->drawRect(QRectF(c + QPointF(-9, -9), QSizeF(18, 18)));
            }
            break;
        case LowerButton:
            // Two stacked sheets with the front one gone behind: "to the back".
            painter->drawRect(QRectF(c + QPointF(-9, -9), QSizeF(12, 12)));
            painter->fillRect(QRectF(c + QPointF(-3, -3), QSizeF(12, 12)), background);
            painter->drawRect(QRectF(c + QPointF(-3, -3), QSizeF(12, 12)));
            break;
        }
    }

    QFont font = painter->font();
    font.setPixelSize(16);
    painter->setFont(font);
    const QRectF titleRect(10, 0, width() - ButtonCount * ButtonWidth - 20, Height);
    const QString text =
        QFontMetrics(font).elidedText(m_title, Qt::ElideRight, int(titleRect.width()));
    painter->drawText(titleRect, Qt::AlignVCenter | Qt::AlignLeft, text);
}

void WindowFrame::mousePressEvent(QMouseEvent *event)
{
    m_pressed = buttonAt(event->position());
    m_lastScenePos = event->scenePosition();
    update();
    act(Action::Raise);
}

void WindowFrame::mouseMoveEvent(QMouseEvent *event)
{
    if (m_pressed != -1 || m_maximized)
        return;
    const QPointF delta = event->scenePosition() - m_lastScenePos;
    m_lastScenePos = event->scenePosition();
    act(Action::Move, delta);
}

void WindowFrame::mouseReleaseEvent(QMouseEvent *event)
{
    const int pressed = m_pressed;
    m_pressed = -2;
    update();
    // A button acts when the finger is lifted on it, as everywhere else.
    if (pressed < 0 || buttonAt(event->position()) != pressed)
        return;
    switch (pressed) {
    case CloseButton:
        act(Action::Close);
        break;
    case MaximizeButton:
        act(Action::ToggleMaximized);
        break;
    case LowerButton:
        act(Action::Lower);
        break;
    }
}

void WindowFrame::mouseUngrabEvent()
{
    m_pressed = -2;
    update();
}
