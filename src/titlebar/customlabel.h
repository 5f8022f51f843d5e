#pragma once

#include <QLabel>

// A label that reports clicks: any button's release, or a touch, anywhere counts, even after
// the pointer was dragged off. Used for the bar's own labels and the ones programs add.
class CustomLabel : public QLabel
{
    Q_OBJECT
public:
    explicit CustomLabel(QWidget *parent = nullptr);

signals:
    void clicked();

protected:
    void mouseReleaseEvent(QMouseEvent *event) override;
};
