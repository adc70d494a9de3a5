#pragma once

#include "display/ScreenView.h"

#include <vector>

namespace quorval {

// The ruler above the trace area: the time of each vertical grid line (hours, minutes, seconds
// and the decimals the spacing needs), or the frequency in the spectrum view. Dragging it
// scrolls the trace area in time. Main thread.
class ColumnHeaderView : public ScreenView
{
    Q_OBJECT

public:
    explicit ColumnHeaderView(QWidget *parent = nullptr);

    void paint(QPainter &painter, QSizeF size) override;

    // The spacing of the grid lines across h, which the ruler labels: the grid's own spacing,
    // widened until the widest label fits between two lines with room to spare, so labels
    // never run into each other. 0 for no grid. Main thread (measures the label font).
    static double lineSpacing(const HView &h, bool spectrum);

    // Where the last paint put its labels, in points, left to right.
    std::vector<QRectF> labelRects;

    double lastHeight = 0.0; // the display canvas height at the last redraw
    double lastMouseX = 0.0;

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
};

} // namespace quorval
