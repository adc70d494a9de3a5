#include "streams/DataView.h"

namespace quorval {

void DataView::setRange(double newMaxY, double newMinY)
{
    const bool inside = topY <= newMaxY && bottomY >= newMinY;
    const bool zoomedIn = maxY > minY && (topY - bottomY) / (maxY - minY) <= 0.99;
    if (!inside || !zoomedIn) {
        topY = newMaxY;
        bottomY = newMinY;
    }
    maxY = newMaxY;
    minY = newMinY;
}

void DataView::scrollY(double delta)
{
    const double margin = (topY - bottomY) * 0.01;
    if (topY + delta > maxY - margin)
        delta = maxY - topY;
    if (bottomY + delta < minY + margin)
        delta = minY - bottomY;
    topY += delta;
    bottomY += delta;
}

} // namespace quorval
