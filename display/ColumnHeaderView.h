#pragma once

#include "display/ScreenView.h"

#include <vector>

namespace quorval {

// The ruler above the trace area (Ruler): the time of each vertical grid line, or the
// frequency in the spectrum view. Dragging it scrolls the trace area in time. Main thread.
class ColumnHeaderView : public ScreenView
{
    Q_OBJECT

public:
    explicit ColumnHeaderView(QWidget *parent = nullptr);

    void paint(QPainter &painter, QSizeF size) override;

    // Where the last paint put its labels, in points, left to right.
    std::vector<QRectF> labelRects;

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;

private:
    double lastMouseX = 0.0;
};

} // namespace quorval
