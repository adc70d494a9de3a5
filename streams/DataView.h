#pragma once

#include "options/ViewType.h"

#include <memory>

namespace quorval {

class DataStream;

// The visible band of one view type's vertical axis and the data it shows. Plain state, owned
// by the music stream, read and changed on the main thread only. Values are in the units of the
// trace (note numbers for pitch, sample units for amplitude, goodness for quality, dB for the
// spectrum).
struct DataView
{
    ViewType viewType = ViewType::Composite; // Amplitude stands for RMS amplitude too
    std::shared_ptr<DataStream> data;        // the stream drawn
    std::shared_ptr<DataStream> volumeData;  // the volume drawn under the trace, if any
    bool showRMS = false;                    // the amplitude view draws RMS amplitude
    double topY = 0.0;                       // value at the top edge of the canvas
    double bottomY = 0.0;                    // value at the bottom edge
    double maxY = 0.0;                       // highest value of the full range
    double minY = 0.0;                       // lowest value of the full range
    double rms = 0.0;                        // RMS level of the data (amplitude views)
    double canvasHeight = -1.0;              // points, set at each redraw
    double pixelHeight = -1.0;               // (topY - bottomY) / canvasHeight
    double yGridSize = 50.0;                 // wanted distance between grid lines, points
    double saveTopY = -1.0;                  // band saved by the last vertical toggle
    double saveBottomY = -1.0;

    // A new full range: a zoomed-in band that still lies inside it is kept; otherwise the band
    // becomes the whole range.
    void setRange(double newMaxY, double newMinY);
    // Scrolls the band by delta, clamped to the full range (the bottom clamp wins).
    void scrollY(double delta);
    // Narrows (factor > 1) or widens the band about zero while zero is in view, else about its
    // middle; never narrower than a thousandth of the full range.
    void vZoom(double factor);
    // Whole range and back: with canVScrollOut the band is saved and the whole range shown;
    // otherwise a saved band comes back.
    void vToggle(bool canVScrollOut);

    // The band is narrower than the whole range (the vertical scroller shows).
    [[nodiscard]] bool showsLessThanWhole() const;
    // The scroller's knob size (0..1) and position (0 at the top .. 1 at the bottom).
    [[nodiscard]] double scrollerProportion() const;
    [[nodiscard]] double scrollerPosition() const;
    // Moves the band to a scroller position through the clamps of scrollY.
    void setScrollerPosition(double value);
};

// What the horizontal axis operations need of the data shown: its extent on the axis,
// "Preferred display length" (seconds), which a time axis zoomed all the way out still spans,
// and whether the data may still grow (a recording), which a time axis leaves room for past
// its end. A finished sound's view ends at its end.
struct HExtent
{
    double lowestX = 0.0;
    double highestX = 0.0;
    double preferredLength = 10.0;
    bool growing = true;

    [[nodiscard]] double span() const { return highestX - lowestX; }
};

// The visible stretch of a horizontal axis (time in seconds, or frequency in hertz for the
// spectrum) and its selection. Plain state, main thread only.
struct HView
{
    // Some axis moved in a way the scroll bars must follow; the trace area's next redraw
    // updates them and clears it. Process-wide, main thread.
    static inline bool needsScrollerUpdate = false;

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

    [[nodiscard]] bool hasSelection() const { return selectionStart >= 0.0; }
    // Share of the width a time axis may show of the data: the rest is room past its end for a
    // recording that grows.
    [[nodiscard]] double dataShare() const { return functionOfTime ? 0.8 : 1.0; }
    // dataShare() for data that may grow, else the whole width.
    [[nodiscard]] double dataShare(const HExtent &extent) const
    {
        return extent.growing ? dataShare() : 1.0;
    }

    // Clamped scroll: the left edge stays within the data, a time axis of growing data running
    // at most 20% of its width past the end (the lower clamp wins when the two cross).
    void setLeftTime(double t, const HExtent &extent, bool flagScrollers);
    // Zooms in (factor > 1) or out about the needle when it is in view on a time axis, else
    // about the middle; zooming in with a selection of some length shows the selection instead.
    // Zooming out past the whole snaps to the whole and saves the view it left.
    void hZoom(double factor, const HExtent &extent, double needleTime);
    // Whole and back: with canHScrollOut the view is saved and the whole shown; otherwise a
    // saved view comes back (and stays saved, so the toggle repeats).
    void hToggle(bool canHScrollOut, const HExtent &extent);
    // Keeps the needle within the first dataShare() of the view while playing or recording.
    void followNeedle(double needleTime, const HExtent &extent);

    // The span zoomed all the way out: a time axis adds room for growth and spans at least the
    // preferred length.
    [[nodiscard]] double fullWidth(const HExtent &extent) const;
    // What the horizontal scroller spans.
    [[nodiscard]] double scrollableWidth(const HExtent &extent) const;
    [[nodiscard]] bool showsLessThanWhole(const HExtent &extent) const;
    [[nodiscard]] double scrollerProportion(const HExtent &extent) const;
    [[nodiscard]] double scrollerPosition(const HExtent &extent) const;
    void setScrollerPosition(double value, const HExtent &extent);
};

} // namespace quorval
