#pragma once

#include "scale/Scale.h"
#include "streams/DataStream.h"
#include "streams/DisplayColumn.h"
#include "streams/Quorval.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorval {

class GoodnessStream;
class MusicStream;
class PitchStream;
class WavStream;

// What the columns' colours and pitch search depend on, read from the options in one go.
struct ColumnSettings
{
    Scale scale{Scale::Settings{}};
    // "Tuning": deviations count five times, so the colours saturate at a tenth of a semitone.
    bool tuning = false;
    // Goodness at and above which a colour is shown at full brightness; below it the colour
    // darkens in proportion. 0 keeps every colour full bright. For scale: a clear harmonic tone
    // scores in the thousands, a flute-like one and white noise in the low hundreds.
    double goodnessThreshold = 0.0;
    // No option switches the borrowing off: a column without a pitch always looks at its
    // neighbours.
    bool fillAdjacentPitches = true;

    // The current scale, "Tuning", and "Quality threshold" as the goodness threshold. Reads the
    // options store: main thread (or a headless tool's).
    static ColumnSettings current();
};

// The volume and goodness of one column, for the reference volume.
struct VolumeAndGoodness
{
    double volume = 0.0; // the column's RMS volume
    double goodness = 0.0;
};

// A column's values as the display draws them, copied off the data queue.
struct ColumnValues
{
    std::int64_t index = 0;
    double displayPitch = 0.0; // note number; 0: none
    double goodness = 0.0;
    double minVolume = 0.0; // raw sample units
    double maxVolume = 0.0;
    double rmsVolume = -1.0; // -1: not measured (beyond the sound's end)
    std::optional<Rgba> color;
};

// The display's summary of a music stream, one column per pixel of a time range timeWidth
// seconds wide: xScale = timeWidth / size seconds per column, and column k covers
// [k × xScale, (k + 1) × xScale). The columns live in a ring of `size` objects (column k in slot
// k mod size) that a fill re-aims as the window scrolls, so only the columns that came into view
// are measured again.
//
// The display builds one stream per canvas width, time width and music stream, hands it to
// Quorval::setVisibleSegmentSource so that the calculation computes visible segments first, and
// on each redraw takes fill() from the first visible column. That reference keeps the music
// stream alive: the display replaces or clears it when the sound closes.
//
// Pass bookkeeping (the calculation's walk over the visible columns):
//   A pass walks the window of the last fill, [first, first + size), column by column and hands
//   the calculation each segment that a column still waits for: its own segment while that is
//   uncomputed, and, for a column whose own segment has no pitch, the neighbours the borrowing
//   search would reach before it finds a pitch. resumeSeed numbers the pass; resumeIndex is the
//   column the walk stands on. The walk stays on a column until its segments are computed, so a
//   whole pass costs one look-up per column plus one per segment handed out.
//   A new pass (resumeSeed + 1, resumeIndex back to the window's first column,
//   allPitchesCalculated_D cleared) starts when a fill starts at another column (scrolling),
//   on invalidateAll, when the pitch stream grows, and when the music stream's pitch stream is
//   replaced or reset (another object or another serial; the columns are then invalidated too).
//   When the walk passes the window's last column, every segment the window needs is computed:
//   allPitchesCalculated_D is set and the walk answers -1 at once until a new pass starts.
//   A column whose segment was uncomputed at a fill keeps pitch_D -1 and is looked up again by
//   every fill, so it takes its final pitch at the first fill after the calculation reached it.
//
// Threading: fields ending in _D and methods ending in _D are for the data queue only. The
// other methods are for any thread but the data queue (they take it themselves); recolor and
// invalidateAll post and return at once.
// Ownership: shares the music stream and its sound; owns its columns, which hold it weakly.
class DisplayColumnStream : public DataStream, public VisibleSegmentSource
{
public:
    // size >= 0 columns (0: an empty stream that draws nothing) over timeWidth > 0 seconds.
    // Not on the data queue.
    static std::shared_ptr<DisplayColumnStream> create(std::shared_ptr<MusicStream> music,
                                                       std::int64_t size, double timeWidth,
                                                       ColumnSettings settings);
    static std::shared_ptr<DisplayColumnStream> create(std::shared_ptr<MusicStream> music,
                                                       std::int64_t size, double timeWidth);

    const std::int64_t size;
    const double timeWidth; // seconds
    const std::shared_ptr<MusicStream> musicStream;
    const std::shared_ptr<WavStream> wavStream;

    // The window of the last fill: [first, first + size); empty before the first fill.
    [[nodiscard]] std::int64_t minimumIndex_D() const override;
    [[nodiscard]] std::int64_t maximumIndex_D() const override;

    // Brings the `size` columns from firstIndex up to date: re-aims the slots that held other
    // columns, measures what is unmeasured, looks up the pitches still missing and colours every
    // column with a display pitch. Answers the reference volume when some column has a display
    // pitch, else -1. Data queue.
    double fill_D(std::int64_t firstIndex);
    // fill_D and a copy of the columns in window order. Not on the data queue.
    struct Fill
    {
        double referenceVolume = -1.0;
        std::vector<ColumnValues> columns;
    };
    [[nodiscard]] Fill fill(std::int64_t firstIndex);
    // fill_D and the copy, on the data queue.
    [[nodiscard]] Fill fillAndCopy_D(std::int64_t firstIndex);

    // The goodness-weighted top-decile RMS volume of the columns (0 when their goodness adds up
    // to 1 or less), raw sample units. Data queue.
    [[nodiscard]] double referenceVolume_D();

    // Every column is re-aimed and measured again at the next fill. Data queue / posts to it.
    void invalidateAll_D();
    void invalidateAll();
    // New colouring settings: every colour is dropped (pitches and volumes kept) and the colour
    // cache emptied. Data queue / posts to it.
    void recolor_D(const ColumnSettings &settings);
    void recolor(ColumnSettings settings);

    // The ring slot that column index k uses (k may be negative). Data queue.
    [[nodiscard]] DisplayColumn &column_D(std::int64_t k);

    // "%d display columns with %d volumes, %d pitches". Data queue / not on it.
    [[nodiscard]] std::string description_D() const;
    [[nodiscard]] std::string description() const;

    // The calculation's visible-first choice; see Pass bookkeeping. Data queue.
    std::int64_t nextVisibleSegment_D(const PitchStream &pitchStream) override;
    void pitchStreamGrew_D() override;

    // Pass bookkeeping, data queue.
    std::int64_t resumeSeed = 0;
    std::int64_t resumeIndex = 0;
    bool allPitchesCalculated_D = false;

private:
    friend class DisplayColumn;

    DisplayColumnStream(std::shared_ptr<MusicStream> music, std::int64_t size, double timeWidth,
                        ColumnSettings settings);

    // Takes up the music stream's present pitch stream; when it is another one or was reset,
    // invalidates the columns. False when the music stream has none.
    bool adoptPitchStream_D();
    void startPass_D();
    void dropColumnIndices_D();
    // The first segment that column k waits for, or -1.
    [[nodiscard]] std::int64_t segmentWanted_D(std::int64_t k) const;

    std::vector<DisplayColumn> columns_D;
    std::vector<VolumeAndGoodness> volumes;
    std::optional<std::int64_t> windowFirst_D; // first column of the last fill
    std::shared_ptr<PitchStream> pitch_D;      // the pitch stream the columns are aimed at
    std::shared_ptr<GoodnessStream> goodness_D;
    std::int64_t pitchSerial_D = 0;
    ColumnSettings settings_D;
    // One entry shared by every column: the last pitch coloured and its colour.
    std::optional<double> cachedPitch_D;
    Rgba cachedColor_D;
};

} // namespace quorval
