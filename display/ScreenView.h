#pragma once

#include "display/Geometry.h"
#include "options/ViewType.h"
#include "streams/DataView.h"

#include <QColor>
#include <QFont>
#include <QWidget>

#include <memory>

namespace quorval {

class DisplayView;
class MusicStream;

// The common base of the trace area and its two headers: binds a surface to the open sound's
// axes for the view type in force. Every redraw starts with setup(); a surface with nothing to
// show draws nothing. Main thread only.
class ScreenView : public QWidget
{
    Q_OBJECT

public:
    explicit ScreenView(QWidget *parent = nullptr);

    // Takes the shared music stream, the DataView of the "View type" in force and the axis that
    // view runs along (the frequency axis for the spectrum, else time). False without a music
    // stream that has its views, and then nothing is drawn.
    bool setup();

    // Paints the surface into painter at size (points): what paintEvent draws, and what a
    // picture of the window is made of.
    virtual void paint(QPainter &painter, QSizeF size) = 0;

    std::shared_ptr<HView> hView = std::make_shared<HView>();
    DataView *dataView = nullptr; // the music stream's, valid while musicStream is held
    std::shared_ptr<MusicStream> musicStream;
    ViewType viewType = ViewType::Composite;
    double charWidth = 6.0;   // points per label character
    double charHeight = 14.0; // points per label line

    // The trace area the headers follow; set by DisplayView::setHeaders.
    DisplayView *displayView = nullptr;

    // The system font at a size in points, as every label is drawn.
    static QFont labelFont(double points);
    static QColor grey(double level) { return QColor::fromRgbF(level, level, level); }
    static const QColor kDarkGrey;
    static const QColor kGrey;
    static const QColor kDarkGreen;

protected:
    void paintEvent(QPaintEvent *event) override;
};

} // namespace quorval
