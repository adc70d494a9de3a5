#pragma once

#include "display/Geometry.h"
#include "options/ViewType.h"
#include "scale/GridLine.h"
#include "streams/DisplayColumnStream.h"

#include <QColor>
#include <QFont>
#include <QRectF>
#include <QString>

#include <cstdint>
#include <utility>
#include <vector>

class QFontMetricsF;
class QPainter;

namespace quorval {

// The painters of the trace area: stateless, each drawing one layer from what it is given into
// a painter whose origin is the canvas's top-left corner, through a Geometry. They read no
// option and no shared state, so a test paints them into a QImage. Main thread (fonts).

// The system font at a size in points, as every label is drawn.
QFont labelFont(double points);
// The room a label takes across, in points.
double labelWidth(const QFontMetricsF &metrics, const QString &text);
inline QColor grey(double level)
{
    return QColor::fromRgbF(level, level, level);
}
inline const QColor kDarkGrey = QColor::fromRgbF(1.0 / 3.0, 1.0 / 3.0, 1.0 / 3.0);
inline const QColor kGrey = QColor::fromRgbF(0.5, 0.5, 0.5);
inline const QColor kDarkGreen = QColor::fromRgbF(0.0, 0.5, 0.0);

// Crisp one-point lines: the middle of the point the value falls in.
double crisp(double points);

// A line down the canvas at every multiple of spacing (time or frequency); none for spacing <= 0.
void paintAcrossLines(QPainter &painter, const Geometry &g, double spacing);
// A line across the canvas at every multiple of step between its bottom and top values.
void paintValueLines(QPainter &painter, const Geometry &g, double step);

// The scale's note lines, lighter for the more important ones.
void paintNoteLines(QPainter &painter, const Geometry &g, const std::vector<GridLine> &lines);

// Each note line's name on a dark backing in a narrow margin at the canvas's left edge, drawn
// over the trace so that it stays readable. Where names would touch, the more important line's
// name is kept (lower rank, then lower pitch). Answers where the names went.
std::vector<QRectF> paintNoteNames(QPainter &painter, const Geometry &g,
                                   const std::vector<GridLine> &lines);

// The selection's band, from start to end on the horizontal axis.
void paintSelection(QPainter &painter, const Geometry &g, double start, double end);
// The needle at a time; nothing when it lies off the canvas.
void paintNeedle(QPainter &painter, const Geometry &g, double timeSeconds, const QColor &color);
// A line of text over the canvas's top-left corner.
void paintPrompt(QPainter &painter, const QString &message);

// The columns of a time view as strokes two points wide, centred on each column's left edge.
struct ColumnTrace
{
    ViewType viewType = ViewType::Composite;
    const std::vector<ColumnValues> *columns = nullptr;
    std::int64_t first = 0;      // index of the column at the canvas's left edge
    double volumeScale = 0.0;    // composite: the RMS volume drawn at full thickness
    double thickness = 0.0;      // composite: full thickness, points
    double minTraceHeight = 0.5; // composite: smallest half-height of a stroke, points
    QColor volumeColor = Qt::white;
};
void paintColumns(QPainter &painter, const Geometry &g, const ColumnTrace &trace);

// The spectrum of one segment as a filled curve (dB per bin), its peaks as yellow marks, the
// harmonics of its pitch ticked from the top and a caption at the top right.
struct SpectrumTrace
{
    const std::vector<double> *spectrum = nullptr; // dB per bin
    double hzPerBin = 0.0;
    const std::vector<std::pair<double, double>> *peaks = nullptr; // hertz, dB
    double fundamentalHz = 0.0;                                    // <= 0: no pitch
    QString caption;
    QColor volumeColor = Qt::white;
};
// The curve's fill, as a test looks for it.
inline const QColor kSpectrumFill = QColor::fromRgbF(0.55, 0.7, 1.0, 0.45);
void paintSpectrum(QPainter &painter, const Geometry &g, const SpectrumTrace &trace);

} // namespace quorval
