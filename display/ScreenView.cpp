#include "display/ScreenView.h"

#include "options/Parameters.h"
#include "streams/MusicStream.h"
#include "streams/Quorval.h"

#include <QFontDatabase>
#include <QPainter>

namespace quorval {

const QColor ScreenView::kDarkGrey = QColor::fromRgbF(1.0 / 3.0, 1.0 / 3.0, 1.0 / 3.0);
const QColor ScreenView::kGrey = QColor::fromRgbF(0.5, 0.5, 0.5);
const QColor ScreenView::kDarkGreen = QColor::fromRgbF(0.0, 0.5, 0.0);

ScreenView::ScreenView(QWidget *parent) : QWidget(parent)
{
    // Every pixel is painted each time: nothing behind needs drawing first.
    setAttribute(Qt::WA_OpaquePaintEvent);
}

bool ScreenView::setup()
{
    musicStream = Quorval::musicStream();
    if (!musicStream || !musicStream->compositeView) {
        dataView = nullptr;
        return false;
    }
    viewType = Parameters::shared().currentViewType();
    dataView = &musicStream->viewFor(viewType);
    hView = viewType == ViewType::Spectrum ? musicStream->frequencyView : musicStream->timeView;
    return hView != nullptr;
}

QFont ScreenView::labelFont(double points)
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    // Sizes are in the canvas's points, which are logical pixels here.
    font.setPixelSize(static_cast<int>(points + 0.5));
    return font;
}

void ScreenView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    paint(painter, QSizeF(size()));
}

} // namespace quorval
