#pragma once

#include "display/Geometry.h"
#include "options/ViewType.h"
#include "streams/DataView.h"

#include <QWidget>

#include <memory>

namespace quorval {

class DisplayView;
class MusicStream;

// What a trace area draws: a sound (none: nothing) in a view type.
struct TraceSource
{
    std::shared_ptr<MusicStream> music;
    ViewType viewType = ViewType::Composite;
};

// The common base of the trace area and its two headers: binds a surface to the axes of the
// sound its trace area draws, for the view type in force. A surface with nothing to show draws
// nothing. Main thread only.
class ScreenView : public QWidget
{
    Q_OBJECT

public:
    explicit ScreenView(QWidget *parent = nullptr);

    // Binds hView, dataView and musicStream to source's sound: the DataView of its view type and
    // the axis that view runs along (the frequency axis for the spectrum, else time). False
    // without a source or a sound that has its views. Before acting on the axes; never in paint.
    bool bindAxes();

    // Paints the surface into painter at size (points): what paintEvent draws, and what a
    // picture of the window is made of. Draws what was prepared; changes nothing.
    virtual void paint(QPainter &painter, QSizeF size) = 0;

    std::shared_ptr<HView> hView = std::make_shared<HView>();
    DataView *dataView = nullptr; // the music stream's, valid while musicStream is held
    std::shared_ptr<MusicStream> musicStream;
    ViewType viewType = ViewType::Composite;

    // The trace area this surface belongs to (itself, for the trace area), and what it draws;
    // both set by the trace area.
    DisplayView *displayView = nullptr;
    const TraceSource *source = nullptr;

protected:
    void paintEvent(QPaintEvent *event) override;
};

} // namespace quorval
