#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

namespace quorval {

class DataStream;
class DisplayColumnStream;

// A colour with straight (not premultiplied) alpha, each component 0..1. The display converts
// it to its toolkit's colour.
struct Rgba
{
    float r = 0.0f;
    float g = 0.0f;
    float b = 0.0f;
    float a = 1.0f;

    friend bool operator==(const Rgba &, const Rgba &) = default;
};

// The trace's colour of a pitch `deviation` semitones from its line (+ sharp): white in tune,
// turning red as it goes sharp and blue as it goes flat, saturated at half a semitone, or at a
// tenth with tuning (which counts deviations five times); darkened toward black in proportion
// below goodnessThreshold (0: never). Any thread.
Rgba traceColor(double deviation, bool tuning, double goodness, double goodnessThreshold);

// Where column k of a column stream lies: on the time axis, in the pitch segments and in the
// sound's frames. Pure arithmetic on the streams' xScale and overlap; any thread.
struct ColumnLayout
{
    double leftX = 0.0;             // seconds
    double midX = 0.0;              // seconds
    double rightX = 0.0;            // seconds
    std::int64_t pitchIndex = 0;    // segment under midX, >= 0
    bool highEnd = false;           // midX lies in the later half of that segment's index cell
    std::int64_t leftWavIndex = 0;  // first frame under the column, >= 0
    std::int64_t rightWavIndex = 0; // frame at the right edge, >= 0
    std::int64_t wavSamples = 1;    // frames measured, >= 1

    // columnSeconds > 0. A floor that is not finite or leaves the signed 64-bit range is a
    // broken invariant.
    static ColumnLayout of(std::int64_t k, double columnSeconds, const DataStream &pitch,
                           const DataStream &wav);
};

// The segments a column without a pitch of its own may borrow from, nearest first: at each
// distance 1..4 the side the middle leans to (later when highEnd), then the other side. May
// hold negative indices; callers skip what lies outside the pitch range.
std::array<std::int64_t, 8> neighbourSearchOrder(std::int64_t pitchIndex, bool highEnd);

// The summary of one pixel column of the display: its stretch of time, sound and pitch
// segments, its volume, the pitch drawn (its own segment's, or a neighbour's) with its goodness,
// and its colour. A column object lives in its stream's ring and is re-aimed at many column
// indices in turn.
//
// Threading: fields ending in _D and every method are for the data queue only; the layout
// fields (leftX .. wavSamples, highEnd) are written there by reaim_D too.
// Ownership: the stream owns its columns; a column holds its stream weakly.
class DisplayColumn
{
public:
    explicit DisplayColumn(std::weak_ptr<DisplayColumnStream> parent);

    std::weak_ptr<DisplayColumnStream> parent;
    std::int64_t index_D = -1;     // column index described now; -1: none
    std::int64_t pitchIndex_D = 0; // pitch segment under the middle
    double leftX = 0.0;            // seconds
    double midX = 0.0;             // seconds
    double rightX = 0.0;           // seconds
    bool highEnd = false;
    double pitch_D = 0.0;        // note number of its own segment; 0: not looked up; -1: none
    double displayPitch_D = 0.0; // note number drawn, maybe a neighbour's; 0: none
    double goodness_D = 0.0;     // goodness of displayPitch_D's segment
    double minVolume_D = 0.0;    // raw sample units
    double maxVolume_D = 0.0;    // raw sample units
    double rmsVolume_D = -1.0;   // raw sample units; -1: not measured
    std::int64_t leftWavIndex = 0;
    std::int64_t rightWavIndex = 0;
    std::int64_t wavSamples = 1;
    std::optional<Rgba> color_D; // empty until computed
    bool fillAdjacentPitches = true;
    double goodnessThreshold = 0.0; // goodness at and above which the colour is full bright

    // Aims the column at index k: unmeasured (RMS -1, extremes 0, pitches 0, no colour), laid
    // out anew.
    void reaim_D(std::int64_t k);
    // Min, max and RMS of the column's frames, when they all lie within the sound's range.
    void measureVolume_D();
    // The pitch of the column's segment, or a neighbour's; skipped once pitch_D is above 0.
    void lookUpPitch_D();
    // The colour of pitch_D (else displayPitch_D) from its deviation from the scale's nearest
    // line and its goodness; empty without a pitch. Kept in color_D, shared through the
    // stream's one-entry cache.
    std::optional<Rgba> computeColor_D();

private:
    [[nodiscard]] std::shared_ptr<DisplayColumnStream> requireParent() const;
};

} // namespace quorval
