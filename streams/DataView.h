#pragma once

#include <memory>
#include <string>

namespace quorval {

class DataStream;

// The visible band of one view type's vertical axis and the data it shows. Plain state, owned
// by the music stream, read and changed on the main thread only. Values are in the units of the
// trace (note numbers for pitch, sample units for amplitude, goodness for quality).
struct DataView
{
    std::string viewType;                   // "C", "R"/"A" (one view), "P", "Q" or "S"
    std::shared_ptr<DataStream> data;       // the stream drawn
    std::shared_ptr<DataStream> volumeData; // the volume drawn under the trace, if any
    bool showRMS = false;                   // the amplitude view draws RMS amplitude
    double topY = 0.0;                      // value at the top edge of the canvas
    double bottomY = 0.0;                   // value at the bottom edge
    double maxY = 0.0;                      // highest value of the full range
    double minY = 0.0;                      // lowest value of the full range
    double rms = 0.0;                       // RMS level of the data (amplitude views)
    double canvasHeight = -1.0;             // points, set at each redraw
    double pixelHeight = -1.0;              // (topY - bottomY) / canvasHeight
    double yGridSize = 50.0;                // wanted distance between grid lines, points
    double saveTopY = -1.0;                 // band saved by the last vertical toggle
    double saveBottomY = -1.0;

    // A new full range: a zoomed-in band that still lies inside it is kept; otherwise the band
    // becomes the whole range.
    void setRange(double newMaxY, double newMinY);
    // Scrolls the band by delta, clamped to the full range (the bottom clamp wins).
    void scrollY(double delta);
};

// The visible stretch of a horizontal axis (time in seconds, or frequency in hertz for the
// spectrum) and its selection. Plain state, main thread only.
struct HView
{
    double leftTime = 0.0;        // axis value at the left edge
    double timeWidth = 0.0;       // axis span of the whole canvas width
    bool functionOfTime = true;   // false for the frequency axis
    double mouseDown = -1.0;      // anchor of a drag selection
    double selectionStart = -1.0; // negative: no selection
    double selectionEnd = -1.0;
    double canvasWidth = -1.0;  // points, set at each redraw
    double pixelWidth = -1.0;   // axis units per point
    double xGridSize = 50.0;    // wanted distance between grid lines, points
    double saveLeftTime = -1.0; // saved by the last toggle; negative: nothing saved
    double saveTimeWidth = -1.0;
};

} // namespace quorval
