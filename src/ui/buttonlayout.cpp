#include "ui/buttonlayout.h"

int ButtonLayout::contentLeft(int buttonWidth, int circleWidth, int textWidth)
{
    return (buttonWidth - (circleWidth + Gap + textWidth)) / 2;
}

QString ButtonLayout::textStyle(bool withSpeedLine, int buttonWidth, int buttonHeight, int circleWidth, int textWidth,
                                int fontHeight)
{
    const int paddingLeft = circleWidth + Gap + contentLeft(buttonWidth, circleWidth, textWidth);
    if (!withSpeedLine)
        return QStringLiteral("font-size: 14px; text-align: left; padding-left: %1px;").arg(paddingLeft);
    return QStringLiteral("font-size: 14px; text-align: left; padding-left: %1px; padding-bottom: %2px;")
        .arg(paddingLeft)
        .arg(buttonHeight / 2 - fontHeight);
}

QPoint ButtonLayout::circlePosition(int buttonWidth, int buttonHeight, int circleWidth, int circleHeight, int textWidth)
{
    return {contentLeft(buttonWidth, circleWidth, textWidth), buttonHeight / 2 - circleHeight / 2};
}

QPoint ButtonLayout::speedLabelPosition(QPoint buttonOrigin, int buttonWidth, int buttonHeight, int circleWidth,
                                        int textWidth)
{
    return {buttonOrigin.x() + circleWidth + Gap + (buttonWidth - circleWidth - textWidth - Gap) / 2,
            buttonOrigin.y() + 2 + buttonHeight / 2};
}

QString ButtonLayout::speedText(qlonglong bytesPerSecond)
{
    if (bytesPerSecond >= 1048577)
        return QStringLiteral("%1 MB/s").arg(static_cast<double>(bytesPerSecond) / 1048576.0, 0, 'f', 1);
    if (bytesPerSecond <= 1024)
        return QStringLiteral("%1 B/s").arg(bytesPerSecond);
    return QStringLiteral("%1 KB/s").arg(static_cast<double>(bytesPerSecond) / 1024.0, 0, 'f', 1);
}

int ButtonLayout::verificationPercent(int filesChecked, int totalFiles)
{
    if (totalFiles <= 0)
        return 0;
    const float percent = static_cast<float>(filesChecked) / static_cast<float>(totalFiles) * 100.0f;
    return qBound(0, static_cast<int>(percent), 100);
}
