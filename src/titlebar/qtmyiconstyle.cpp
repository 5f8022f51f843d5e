#include "qtmyiconstyle.h"

#include <QStyleFactory>

QTMyIconStyle::QTMyIconStyle() : QProxyStyle(QStyleFactory::create(QStringLiteral("Fusion"))) {}

int QTMyIconStyle::pixelMetric(PixelMetric metric, const QStyleOption *option,
                               const QWidget *widget) const
{
    const int base = QProxyStyle::pixelMetric(metric, option, widget);
    return metric == PM_SmallIconSize ? 32 : base;
}
