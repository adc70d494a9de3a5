#include "streams/DataView.h"

#include <algorithm>

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

void DataView::vZoom(double factor)
{
    if (factor >= 1.0 && (maxY - minY) * 0.001 >= topY - bottomY)
        return;
    const double centre = bottomY <= 0.0 && 0.0 <= topY ? 0.0 : (topY + bottomY) * 0.5;
    bottomY = centre - (centre - bottomY) / factor;
    topY = centre + (topY - centre) / factor;
}

void DataView::vToggle(bool canVScrollOut)
{
    if (canVScrollOut) {
        saveTopY = topY;
        saveBottomY = bottomY;
        bottomY = minY;
        topY = maxY;
    } else if (saveTopY != saveBottomY) {
        topY = saveTopY;
        bottomY = saveBottomY;
    }
}

bool DataView::showsLessThanWhole() const
{
    return topY - bottomY <= 0.99 * (maxY - minY);
}

double DataView::scrollerProportion() const
{
    return maxY > minY ? (topY - bottomY) / (maxY - minY) : 1.0;
}

double DataView::scrollerPosition() const
{
    const double room = (maxY - minY) - (topY - bottomY);
    return room > 0.0 ? (maxY - topY) / room : 0.0;
}

void DataView::setScrollerPosition(double value)
{
    const double newBottom = minY + (1.0 - value) * ((maxY - minY) - (topY - bottomY));
    scrollY(newBottom - bottomY);
}

void HView::setLeftTime(double t, const HExtent &extent, bool flagScrollers)
{
    const double limit = extent.highestX - timeWidth * dataShare(extent);
    leftTime = std::max(std::min(t, limit), extent.lowestX);
    if (flagScrollers)
        needsScrollerUpdate = true;
}

double HView::fullWidth(const HExtent &extent) const
{
    if (!functionOfTime)
        return extent.span();
    return std::max(extent.span() / dataShare(extent), extent.preferredLength);
}

void HView::hZoom(double factor, const HExtent &extent, double needleTime)
{
    if (factor > 1.0 && hasSelection() && selectionStart != selectionEnd) {
        timeWidth = selectionEnd - selectionStart;
        setLeftTime(selectionStart, extent, true);
        selectionStart = -1.0;
        return;
    }
    double newWidth = timeWidth / factor;
    if (newWidth <= 0.0001)
        return;
    const bool needleInView =
        functionOfTime && needleTime >= leftTime && needleTime < leftTime + timeWidth;
    const double centre = needleInView ? needleTime : leftTime + timeWidth * 0.5;
    const double newLeft = centre - (centre - leftTime) / factor;
    const double whole = fullWidth(extent);
    if (whole * 0.99 < newWidth) {
        if (timeWidth < whole) {
            saveLeftTime = leftTime;
            saveTimeWidth = timeWidth;
        }
        newWidth = whole;
    }
    timeWidth = newWidth;
    setLeftTime(newLeft, extent, true);
}

void HView::hToggle(bool canHScrollOut, const HExtent &extent)
{
    if (canHScrollOut) {
        saveLeftTime = leftTime;
        saveTimeWidth = timeWidth;
        setLeftTime(0.0, extent, true);
        timeWidth = fullWidth(extent);
    } else if (saveLeftTime >= 0.0) {
        leftTime = saveLeftTime;
        timeWidth = saveTimeWidth;
        needsScrollerUpdate = true;
    }
}

void HView::followNeedle(double needleTime, const HExtent &extent)
{
    const double w = timeWidth * dataShare();
    if (needleTime < leftTime)
        setLeftTime(needleTime, extent, true);
    else if (needleTime > leftTime + w)
        setLeftTime(needleTime - w, extent, true);
}

double HView::scrollableWidth(const HExtent &extent) const
{
    if (!functionOfTime)
        return extent.span();
    return std::max(extent.span() + (1.0 - dataShare(extent)) * timeWidth, extent.preferredLength);
}

bool HView::showsLessThanWhole(const HExtent &extent) const
{
    return timeWidth <= 0.99 * scrollableWidth(extent);
}

double HView::scrollerProportion(const HExtent &extent) const
{
    const double whole = scrollableWidth(extent);
    return whole > 0.0 ? std::min(timeWidth / whole, 1.0) : 1.0;
}

double HView::scrollerPosition(const HExtent &extent) const
{
    const double room = scrollableWidth(extent) - timeWidth;
    return room > 0.0 ? std::clamp((leftTime - extent.lowestX) / room, 0.0, 1.0) : 0.0;
}

void HView::setScrollerPosition(double value, const HExtent &extent)
{
    setLeftTime(extent.lowestX + value * (scrollableWidth(extent) - timeWidth), extent, false);
}

} // namespace quorval
