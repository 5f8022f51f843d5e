#pragma once

#include <QProxyStyle>

// The system menu's style: Fusion with 32-pixel menu icons, big enough for a finger.
class QTMyIconStyle : public QProxyStyle
{
    Q_OBJECT
public:
    QTMyIconStyle();

    int pixelMetric(PixelMetric metric, const QStyleOption *option = nullptr,
                    const QWidget *widget = nullptr) const override;
};
