#pragma once

#include "display/ScreenView.h"

#include <array>

namespace quorval {

// The strip at the left of the trace area. In the composite view it draws a piano keyboard
// aligned with the note lines (a dot on the A above D 62, key labels as "Label Piano Keys"
// says); in the others the numbers of the vertical axis. Dragging it scrolls the trace area
// up and down. Main thread.
class RowHeaderView : public ScreenView
{
    Q_OBJECT

public:
    explicit RowHeaderView(QWidget *parent = nullptr);

    void paint(QPainter &painter, QSizeF size) override;

    double lastWidth = 0.0; // the trace canvas width at the last redraw
    // Boundaries of the seven white keys of an octave from its base D, in semitones: all white
    // keys are 12/7 of a semitone high, as on a real keyboard.
    static constexpr std::array<double, 8> whiteKeySpacings = {
        -6.0 / 7, 6.0 / 7, 18.0 / 7, 30.0 / 7, 6.0, 54.0 / 7, 66.0 / 7, 78.0 / 7};
    static constexpr std::array<double, 5> blackKeySpacings = {6.0 / 7, 30.0 / 7, 6.0, 54.0 / 7,
                                                               78.0 / 7};
    static constexpr std::array<int, 7> whiteKeyNoteIncrements = {0, 2, 3, 5, 7, 9, 10};
    static constexpr double blackKeyHeightHalf = 0.5;
    static constexpr std::array<const char *, 7> whiteKeyLabels = {"A", "B", "C", "D",
                                                                   "E", "F", "G"};
    // How much lower than the canvas the strip reaches (it runs on beside the horizontal
    // scroller), in points; set at each redraw.
    double shiftUp = 0.0;
    double lastMouseY = 0.0;

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;

private:
    void paintKeyboard(QPainter &painter, QSizeF size);
    void paintValueLabels(QPainter &painter, QSizeF size);
};

} // namespace quorval
