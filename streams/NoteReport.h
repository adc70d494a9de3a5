#pragma once

#include "scale/KeyGuess.h"

#include <QtGlobal>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quorval {

class MusicStream;
class Scale;

// Which notes were played out of tune: the stretch cut into notes, each measured against its
// grid line, and the notes gathered by scale degree.
//
// A note is a run of at least kMinSegments consecutive segments that are loud enough (the
// volume floor of the deviation statistics), have a pitch whose goodness reaches "Quality
// threshold", and share the nearest shown grid line; vibrato that stays nearest to one line
// stays in its note. A held note is not cut by up to kMaxBridge segments between two parts on
// its line (a wobble past the half-way mark, a one-segment octave slip, a bad segment): those
// are left out of its figures instead. Deviations are in cents, + sharp. Names are UTF-8.
class NoteReport
{
public:
    static constexpr int kMinSegments = 3;
    static constexpr int kMaxBridge = 2;

    struct Note
    {
        double startSeconds = 0.0;
        double endSeconds = 0.0; // where its last segment's spacing ends
        qint64 noteNumber = 0;   // of the grid line (a loaded tuning's key number)
        std::string name;        // the grid line's name in the current key, e.g. "F♯"
        std::string degree;      // its scale degree's number, as Degree::number
        double meanCents = 0.0;
        double spreadCents = 0.0; // RMS about the mean
        double meanGoodness = 0.0;
        int segments = 0;
        // The name with its octave as written (a transposing instrument's), e.g. "F♯4".
        std::string nameWithOctave = {};
    };
    struct Degree
    {
        int degree = 0;     // semitones above the tonic, 0 .. 11, or a loaded tuning's degree
        std::string number; // in the key's major or minor scale: "1", "♭3", "♯4", "♮7"; a
                            // tuning of other than twelve pitches counts from "1"
        std::string name;   // as the grid names it in the current key
        int notes = 0;
        double totalSeconds = 0.0;
        double meanCents = 0.0;    // weighted by time
        double spreadCents = 0.0;  // RMS of its segments about meanCents
        std::size_t worstNote = 0; // index into notes: the greatest |meanCents|
    };

    std::vector<Note> notes;     // in time order
    std::vector<Degree> degrees; // the degrees played, in scale order from the tonic

    // A degree's number in the major or minor scale: the scale's own notes 1 to 7, the notes
    // between them with the accidental that names them most often.
    static std::string degreeNumber(int semitones, bool minor);

    // One segment as the note cutting needs it.
    struct Segment
    {
        double timeSeconds = 0.0;
        bool counts = false; // loud enough, pitched, and good enough
        double pitch = 0.0;  // note number
        double goodness = 0.0;
    };
    // Cuts segments (consecutive, segmentSeconds apart) into notes and gathers the degrees.
    static NoteReport fromSegments(const std::vector<Segment> &segments, double segmentSeconds,
                                   const Scale &scale);

    // Over [t0, t1) seconds of music (zero width: the whole sound), with the current options.
    // Nothing when the stretch runs backwards or canceled was set. Any thread but the data
    // queue; computes segments not yet calculated on the calling thread.
    static std::optional<NoteReport> compute(MusicStream &music, double t0, double t1,
                                             const std::atomic<bool> &canceled);
    // The same against the lines of scale.
    static std::optional<NoteReport> compute(MusicStream &music, double t0, double t1,
                                             const std::atomic<bool> &canceled, const Scale &scale);

    // The key the notes of [t0, t1) seconds suggest (zero width: the whole sound), from the
    // notes cut as above but against the equal-tempered chromatic lines, so that the key and
    // temperament in force do not sway the answer. Nothing when the stretch runs backwards, was
    // canceled, or holds no notes to go by. Threads as compute.
    static std::optional<KeyGuess::Result> guessKey(MusicStream &music, double t0, double t1,
                                                    const std::atomic<bool> &canceled);

    // Both tables as text to read, cents with one decimal.
    [[nodiscard]] std::string text() const;
};

} // namespace quorval
