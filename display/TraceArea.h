#pragma once

#include <QImage>
#include <QSizeF>
#include <QString>
#include <QWidget>

namespace quorval {

class ColumnHeaderView;
class DisplayView;
class MyScroller;
class OverviewStrip;
class RowHeaderView;
class TracePointer;

// The trace area as the window embeds it: the whole sound's overview strip and the ruler on top,
// the keyboard at the left, the display with its two scrollers, wired together. It draws the
// sound its owner hands the display, with the playback state handed it. Also makes pictures of
// the same views without a window. Main thread.
class TraceArea : public QWidget
{
    Q_OBJECT

public:
    explicit TraceArea(QWidget *parent = nullptr);

    DisplayView *displayView;
    RowHeaderView *rowHeaderView;
    ColumnHeaderView *columnHeaderView;
    MyScroller *hScroller;
    MyScroller *vScroller;
    TracePointer *pointer; // the mouse over the display
    OverviewStrip *overviewStrip;

    // The whole picture's size for a trace canvas of traceSize points: keyboard and ruler added.
    [[nodiscard]] QSizeF pictureSize(QSizeF traceSize) const;
    // Fetches the data for a canvas of traceSize points (waiting for it) and paints keyboard,
    // ruler and trace into painter. False when there is no sound to draw.
    bool paintPicture(QPainter &painter, QSizeF traceSize);
    // The picture at a device pixel ratio of scale; null when there is nothing to draw.
    QImage picture(QSizeF traceSize, double scale);
    // Writes the picture: SVG for a ".svg" path, else an image format by the path's suffix
    // (PNG by default). False when it cannot be written or there is nothing to draw.
    bool writePicture(const QString &path, QSizeF traceSize, double scale);
};

} // namespace quorval
