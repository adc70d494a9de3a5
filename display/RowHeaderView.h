#pragma once

#include "display/ScreenView.h"

namespace quorval {

// The strip at the left of the trace area. In the composite view it draws a piano keyboard
// aligned with the note lines (Keyboard); in the others the numbers of the vertical axis.
// Dragging it scrolls the trace area up and down. Main thread.
class RowHeaderView : public ScreenView
{
    Q_OBJECT

public:
    explicit RowHeaderView(QWidget *parent = nullptr);

    void paint(QPainter &painter, QSizeF size) override;

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;

private:
    double lastMouseY = 0.0;
};

} // namespace quorval
