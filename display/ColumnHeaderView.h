#pragma once

#include "display/ScreenView.h"

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

    double lastHeight = 0.0; // the display canvas height at the last redraw
    double lastMouseX = 0.0;

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
};

} // namespace quorval
