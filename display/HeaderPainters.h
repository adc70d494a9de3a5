#pragma once

#include "display/Geometry.h"

#include <QRectF>
#include <QSizeF>
#include <QString>

#include <array>
#include <vector>

class QPainter;

namespace quorval {

// The painters of the trace area's two headers: stateless, each drawing into a painter whose
// origin is the header's top-left corner, with the canvas's Geometry, so that they draw the
// same grid the canvas does. Main thread (fonts).

// The keyboard: a piano keyboard aligned with the note lines of the composite view.
struct Keyboard
{
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
    // The note carrying the dot: the A above D 62.
    static constexpr double dotNote = 62.0 + (whiteKeySpacings[4] + whiteKeySpacings[5]) / 2.0;

    enum class Labels
    {
        Letters,
        Numbers,
        None,
    };

    // By sounding pitch class (C = 0), what a white key's letter says instead: a transposing
    // instrument's written names. Empty: the letters themselves.
    using WrittenNames = std::array<QString, 12>;

    // strip: the header's size; its top edge is the canvas's, and it may run on below the
    // canvas (beside the horizontal scroller). Labels that would touch are left out; answers
    // where the drawn ones went, bottom to top.
    static std::vector<QRectF> paint(QPainter &painter, const Geometry &g, QSizeF strip,
                                     Labels labels, const WrittenNames &written = {});
};

// The numbers of the vertical axis every step, right-aligned against ticks at the strip's edge.
void paintValueLabels(QPainter &painter, const Geometry &g, QSizeF strip, double step);

// The ruler above the canvas: the time of each line down the canvas (hours, minutes, seconds and
// the decimals the spacing needs), or the frequency in the spectrum view.
struct Ruler
{
    // The spacing of the lines down the canvas, which the ruler labels: the axis's grid spacing
    // for gridPoints between lines, widened until the widest label fits between two lines with
    // room to spare. 0 for no grid.
    static double lineSpacing(const Geometry &g, double gridPoints, bool functionOfTime,
                              bool spectrum);
    // Paints the labels of the lines every spacing across size; answers where they went, left
    // to right. Labels at either end are moved in to stay whole, or left out.
    static std::vector<QRectF> paint(QPainter &painter, const Geometry &g, QSizeF size,
                                     double spacing, bool spectrum);
};

} // namespace quorval
