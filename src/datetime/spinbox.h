#ifndef TIDESHELL_SPINBOX_H
#define TIDESHELL_SPINBOX_H

#include <QImage>
#include <QPoint>
#include <QRect>
#include <QSpinBox>

class QTimer;

// A touch spin box drawn from the scroll-number artwork: a plus cap above a number panel above
// a minus cap. Touching a cap steps once and, while held, repeats; the line editor stays hidden
// and the number is painted scaled to fill the panel. Range and value are plain QSpinBox.
class SpinBox : public QSpinBox
{
    Q_OBJECT

public:
    explicit SpinBox(QWidget *parent = nullptr);

protected:
    void mousePressEvent(QMouseEvent *e) override;
    void mouseReleaseEvent(QMouseEvent *e) override;
    void paintEvent(QPaintEvent *e) override;
    void resizeEvent(QResizeEvent *e) override;

private slots:
    void onPressTimeout();

private:
    QImage topNormalImage;
    QImage topActiveImage;
    QImage middleImage;
    QImage bottomNormalImage;
    QImage bottomActiveImage;
    QImage minusImage;
    QImage plusImage;
    QTimer *pressTimer;
    QPoint topPos;
    QPoint middlePos;
    QPoint bottomPos;
    QPoint minusPos;
    QPoint plusPos;
    QRect upRect;
    QRect downRect;
    bool upPressed = false;
    bool downPressed = false;
};

#endif
