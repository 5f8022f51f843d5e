#include "spinbox.h"

#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QResizeEvent>
#include <QTextOption>
#include <QTimer>

#include <cmath>

namespace {
// The face is always composed at the artwork's natural size (caps 57 + panel 70 + caps 57, all
// 111 wide) and scaled to the widget afterwards, so the dialog can shrink the boxes freely.
const int kCanvasWidth = 111;
const int kCanvasHeight = 184;
const int kFirstRepeatMs = 500;
const int kRepeatMs = 100;
} // namespace

SpinBox::SpinBox(QWidget *parent)
    : QSpinBox(parent), topNormalImage(QStringLiteral(":/scroll_number/top_normal.png")),
      topActiveImage(QStringLiteral(":/scroll_number/top_active.png")),
      middleImage(QStringLiteral(":/scroll_number/middle.png")),
      bottomNormalImage(QStringLiteral(":/scroll_number/bottom_normal.png")),
      bottomActiveImage(QStringLiteral(":/scroll_number/bottom_active.png")),
      minusImage(QStringLiteral(":/scroll_number/minus.png")),
      plusImage(QStringLiteral(":/scroll_number/plus.png")), pressTimer(new QTimer(this))
{
    // Everything is placed from the pictures' own sizes, so redrawn artwork lays itself out.
    topPos = QPoint(0, 0);
    middlePos = QPoint(0, topNormalImage.height());
    bottomPos = QPoint(0, topNormalImage.height() + middleImage.height());
    minusPos = QPoint((bottomNormalImage.width() - minusImage.width()) / 2,
                      bottomPos.y() + (bottomNormalImage.height() - minusImage.height()) / 2);
    plusPos = QPoint((topNormalImage.width() - plusImage.width()) / 2,
                     (topNormalImage.height() - plusImage.height()) / 2);

    // The number is painted, never edited in place; keys and the wheel still reach the box.
    lineEdit()->setVisible(false);
    pressTimer->setSingleShot(true);
    connect(pressTimer, SIGNAL(timeout()), this, SLOT(onPressTimeout()));
}

void SpinBox::resizeEvent(QResizeEvent *e)
{
    const int w = e->size().width();
    const int h = e->size().height();
    if (w < 1 || h < 1)
        return;
    const int stacked = topNormalImage.height() + middleImage.height() + bottomNormalImage.height();
    // Both touch regions are as tall as the scaled top cap; the caps are drawn equal, and the
    // panel between them is dead to touch so a finger resting on the number does nothing.
    const int t = stacked > 0 ? h * topNormalImage.height() / stacked : 0;
    upRect = QRect(0, 0, w, t);
    downRect = QRect(0, h - t, w, t);
}

void SpinBox::mousePressEvent(QMouseEvent *e)
{
    upPressed = false;
    downPressed = false;
    const QPoint pos = e->position().toPoint();
    if (upRect.contains(pos)) {
        upPressed = true;
        stepUp();
    } else if (downRect.contains(pos)) {
        downPressed = true;
        stepDown();
    }
    if (!upPressed && !downPressed)
        return;
    pressTimer->start(kFirstRepeatMs);
    update();
}

void SpinBox::mouseReleaseEvent(QMouseEvent *)
{
    // Wherever the finger lifts: sliding off a cap while holding keeps repeating until here.
    upPressed = false;
    downPressed = false;
    pressTimer->stop();
    update();
}

void SpinBox::onPressTimeout()
{
    pressTimer->start(kRepeatMs);
    if (upPressed)
        stepUp();
    else if (downPressed)
        stepDown();
    else
        pressTimer->stop();
    update();
}

void SpinBox::paintEvent(QPaintEvent *e)
{
    e->ignore();

    // Not cleared: the three opaque stacked pieces cover every pixel.
    QImage canvas(kCanvasWidth, kCanvasHeight, QImage::Format_ARGB32);
    QPainter painter(&canvas);
    painter.drawImage(topPos, upPressed ? topActiveImage : topNormalImage);
    painter.drawImage(middlePos, middleImage);
    painter.drawImage(bottomPos, downPressed ? bottomActiveImage : bottomNormalImage);
    painter.drawImage(plusPos, plusImage);
    painter.drawImage(minusPos, minusImage);

    // The number is measured in the painter's default font and then scaled as a whole, so one
    // digit and four digits both fill the panel: wide text is fitted to the panel's width, tall
    // text to its height. The arithmetic is single precision and the baseline origin truncated,
    // which decides on which pixel row the digits sit.
    const QString text = QString::number(value(), 10);
    const QRectF bounds = painter.boundingRect(QRectF(geometry()), text, QTextOption());
    const float bw = float(bounds.width());
    const float bh = float(bounds.height());
    const float mw = float(middleImage.width());
    const float mh = float(middleImage.height());
    if (mh * bw > mw * bh) {
        const float s = (mw - 2) / bw;
        painter.setTransform(QTransform::fromScale(s, s));
        const float y = std::trunc((float(bottomPos.y()) + (mh - s * bh) * -0.5f) / s);
        painter.drawText(QPointF(0, y), text);
    } else {
        const float s = (mh - 2) / bh;
        painter.setTransform(QTransform::fromScale(s, s));
        const float x = std::trunc((mw - s * bw) / (s + s));
        const float y = std::trunc((float(topNormalImage.height()) + mh) / s - 1.0f);
        painter.drawText(QPointF(x, y), text);
    }
    painter.end();

    QPainter widgetPainter(this);
    widgetPainter.drawImage(QRectF(0, 0, width(), height()), canvas,
                            QRectF(0, 0, canvas.width(), canvas.height()));
}
