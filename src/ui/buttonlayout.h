#pragma once

#include <QPoint>
#include <QString>

// Arithmetic that lays out the manage button's busy look: the circle and the
// text centred together, the speed label stacked under the text. Integer
// division truncates toward zero, as the layout was cut for.
namespace ButtonLayout
{
    // Gap between the circle and the text.
    constexpr int Gap = 10;

    // Left edge of the circle when circle, gap and text are centred together.
    int contentLeft(int buttonWidth, int circleWidth, int textWidth);

    // The button's own style sheet that puts its text beside the circle; with
    // the speed label below, the text is lifted by a bottom padding.
    QString textStyle(bool withSpeedLine, int buttonWidth, int buttonHeight, int circleWidth, int textWidth,
                      int fontHeight);

    QPoint circlePosition(int buttonWidth, int buttonHeight, int circleWidth, int circleHeight, int textWidth);

    // Top-left of the speed label in window coordinates, under the text.
    QPoint speedLabelPosition(QPoint buttonOrigin, int buttonWidth, int buttonHeight, int circleWidth, int textWidth);

    // "512 B/s", "1.5 KB/s", "12.3 MB/s".
    QString speedText(qlonglong bytesPerSecond);

    // Whole percent of files checked, 0 when there is nothing to check.
    int verificationPercent(int filesChecked, int totalFiles);
}
