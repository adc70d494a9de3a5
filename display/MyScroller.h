#pragma once

#include <QScrollBar>

namespace quorval {

// A scroll bar of the trace area. Knob drags go through the usual valueChanged; a press in the
// track pages by half a view instead of the toolkit's own page step, reported by pageRequested.
// Positions are 0 .. 1 (0 at the left or top). Main thread.
class MyScroller : public QScrollBar
{
    Q_OBJECT

public:
    explicit MyScroller(Qt::Orientation orientation, QWidget *parent = nullptr);

    bool horizontal;

    // Shows a knob of proportion (0..1] of the track at position (0..1), without signalling.
    void setKnob(double proportion, double position);
    // The knob's position, 0 .. 1.
    [[nodiscard]] double position() const;

signals:
    // direction -1: towards the start (left or top); +1: towards the end.
    void pageRequested(int direction);
    // The user moved the knob to position (0..1).
    void positionChanged(double position);

protected:
    void mousePressEvent(QMouseEvent *event) override;

private:
    static constexpr int kSteps = 100000;
};

} // namespace quorval
