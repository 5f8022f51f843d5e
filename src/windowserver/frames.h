#pragma once

#include <QQuickPaintedItem>

#include <functional>

// The frame the shell draws above a client window that leaves its decoration to the server:
// the title and three buttons big enough for a finger: send the window to the back, maximise
// or restore it, close it. A press anywhere on the frame brings the window to the front;
// dragging the title moves a window that is not maximised.
class WindowFrame : public QQuickPaintedItem
{
public:
    enum class Action { Raise, Lower, ToggleMaximized, Close, Move };
    static constexpr int Height = 36;
    static constexpr int ButtonWidth = 48;

    explicit WindowFrame(QQuickItem *parent);

    void setTitle(const QString &title);
    void setActive(bool active);
    void setMaximized(bool maximized);
    // Puts the frame right above the window's rectangle (in the item's coordinates), as wide.
    void placeAbove(const QRect &window);

    // Told what the user asked for; a move comes with the distance dragged.
    std::function<void(Action, QPointF)> onAction;

    void paint(QPainter *painter) override;

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseUngrabEvent() override;

private:
    // Buttons from the right edge: close, maximise/restore, to the back; -1 for the title.
    int buttonAt(const QPointF &pos) const;
    QRectF buttonRect(int index) const;
    void act(Action action, QPointF delta = QPointF());

    QString m_title;
    bool m_active = false;
    bool m_maximized = false;
    int m_pressed = -2; // -2 nothing pressed, -1 the title, else a button
    QPointF m_lastScenePos;
};
