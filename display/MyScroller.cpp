#include "display/MyScroller.h"

#include <QMouseEvent>
#include <QSignalBlocker>
#include <QStyle>
#include <QStyleOptionSlider>

#include <algorithm>
#include <cmath>

namespace quorval {

MyScroller::MyScroller(Qt::Orientation orientation, QWidget *parent)
    : QScrollBar(orientation, parent), horizontal(orientation == Qt::Horizontal)
{
    setRange(0, kSteps);
    connect(this, &QScrollBar::valueChanged, this, [this] { emit positionChanged(position()); });
}

void MyScroller::setKnob(double proportion, double position)
{
    proportion = std::clamp(proportion, 0.0, 1.0);
    // The toolkit's knob is pageStep / (maximum + pageStep) of the track.
    const int page = std::max(1, static_cast<int>(std::lround(kSteps * proportion)));
    const int room = std::max(0, kSteps - page);
    const QSignalBlocker quiet(this);
    setRange(0, room);
    setPageStep(page);
    setSingleStep(std::max(1, page / 10));
    setValue(static_cast<int>(std::lround(std::clamp(position, 0.0, 1.0) * room)));
}

double MyScroller::position() const
{
    return maximum() > 0 ? static_cast<double>(value()) / maximum() : 0.0;
}

void MyScroller::mousePressEvent(QMouseEvent *event)
{
    QStyleOptionSlider option;
    initStyleOption(&option);
    const QStyle::SubControl part = style()->hitTestComplexControl(
        QStyle::CC_ScrollBar, &option, event->position().toPoint(), this);
    if (event->button() == Qt::LeftButton &&
        (part == QStyle::SC_ScrollBarSubPage || part == QStyle::SC_ScrollBarAddPage)) {
        emit pageRequested(part == QStyle::SC_ScrollBarSubPage ? -1 : 1);
        event->accept();
        return;
    }
    QScrollBar::mousePressEvent(event);
}

} // namespace quorval
