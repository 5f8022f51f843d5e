#include "customlabel.h"

CustomLabel::CustomLabel(QWidget *parent) : QLabel(parent) {}

void CustomLabel::mouseReleaseEvent(QMouseEvent *)
{
    emit clicked();
}
