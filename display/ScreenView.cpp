#include "display/ScreenView.h"

#include "streams/MusicStream.h"

#include <QPainter>

namespace quorval {

ScreenView::ScreenView(QWidget *parent) : QWidget(parent)
{
    // Every pixel is painted each time: nothing behind needs drawing first.
    setAttribute(Qt::WA_OpaquePaintEvent);
}

bool ScreenView::bindAxes()
{
    musicStream = source ? source->music : nullptr;
    if (!musicStream || !musicStream->compositeView) {
        dataView = nullptr;
        return false;
    }
    viewType = source->viewType;
    dataView = &musicStream->viewFor(viewType);
    hView = viewType == ViewType::Spectrum ? musicStream->frequencyView : musicStream->timeView;
    return hView != nullptr;
}

void ScreenView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    paint(painter, QSizeF(size()));
}

} // namespace quorval
