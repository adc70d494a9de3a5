#pragma once

#include "streams/DataView.h"

namespace quorval {

// Maps axis values to canvas points and back for one redraw. Values run up the canvas from its
// bottom edge; the toolkit's y runs down from the top, and the flip happens here and nowhere
// else. Painters of the trace area and of both headers take one of these.
struct Geometry
{
    double leftTime = 0.0;     // axis value at the left edge
    double pixelWidth = 1.0;   // axis units per point across
    double bottomY = 0.0;      // value at the bottom edge
    double pixelHeight = 1.0;  // value units per point up
    double canvasWidth = 0.0;  // points
    double canvasHeight = 0.0; // points

    static Geometry of(const HView &h, const DataView &v)
    {
        return {h.leftTime, h.pixelWidth, v.bottomY, v.pixelHeight, h.canvasWidth, v.canvasHeight};
    }

    [[nodiscard]] double x(double value) const { return (value - leftTime) / pixelWidth; }
    // Height above the bottom edge, in points.
    [[nodiscard]] double up(double value) const { return (value - bottomY) / pixelHeight; }
    // The toolkit's y of a height above the bottom edge, and of a value.
    [[nodiscard]] double flip(double upPoints) const { return canvasHeight - upPoints; }
    [[nodiscard]] double y(double value) const { return flip(up(value)); }
    // The axis values at the right and top edges.
    [[nodiscard]] double rightValue() const { return leftTime + pixelWidth * canvasWidth; }
    [[nodiscard]] double topValue() const { return bottomY + pixelHeight * canvasHeight; }
    [[nodiscard]] double valueAtY(double yPoints) const
    {
        return bottomY + pixelHeight * (canvasHeight - yPoints);
    }
};

} // namespace quorval
