#pragma once

#include "scale/GridLine.h"

#include <QString>
#include <QtGlobal>

#include <array>
#include <memory>
#include <vector>

namespace quorval {

class Parameters;
struct ScalaTuning;

// ln 2 / 12: the natural log of one equal-tempered semitone's frequency ratio, shared by every
// conversion between note numbers and hertz.
inline constexpr double kSemitoneLog = 0.057762265046662105;

// The musical grid of one set of settings: key, mode, temperament (or a tuning read from a scale
// file), completeness, A frequency, tuning offset and the transposition notes are named in. A Scale
// is a snapshot: make one with current() per redraw or report and query it as often as needed; the
// queries read no options and allocate nothing (except the names and lines they return). Pitches
// are note numbers (semitones, 69 = A). Any thread.
class Scale
{
public:
    struct Settings
    {
        int keyPitchClass = 9; // 0..11, C = 0
        bool minor = false;
        int temperament = 0;       // index into the temperament tables, 0 = "Equal"
        int completenessLevel = 0; // 0 "Chromatic", 1 "Diatonic+2", 2 "Diatonic"
        double aFrequency = 440.0; // Hz
        double tuningOffset = 0.0; // semitones; moves every line unless the temperament is Equal
        // A tuning read from a scale file; when set it takes the temperament's place. Without a
        // keyboard mapping its 1/1 lies on the key's tonic (equal-tempered, plus the tuning
        // offset) and each key of the grid plays the next degree; with one, the lines are the
        // mapping's keys, tuned from its reference key (plus the tuning offset).
        std::shared_ptr<const ScalaTuning> tuning;
        // Semitones from sounding to written pitch of a transposing instrument (B♭: +2, so
        // that a sounding C is named D). Only names follow it; pitches stay as they sound.
        int transposition = 0;
    };

    static constexpr int kTemperamentCount = 11;

    explicit Scale(const Settings &settings);

    // The scale of the current options, with no tuning offset. Reads the store.
    static Scale current(const Parameters &parameters);
    // The same, from the application's option set.
    static Scale current();
    static Settings currentSettings(const Parameters &parameters);

    // Note number of a frequency (freqHz > 0), and back, for a given A frequency in Hz.
    static double noteNumber(double freqHz, double aFrequency);
    static double frequency(double noteNumber, double aFrequency);
    double noteNumber(double freqHz) const { return noteNumber(freqHz, settings_.aFrequency); }
    double frequency(double note) const { return frequency(note, settings_.aFrequency); }

    // Pitch class (0..11) of a key name such as "F♯" or "B♭" (or "F#", "Bb"); 9 (A) when it is
    // none.
    static int keyPitchClass(const QString &keyName);
    // The tuning of a scale file and an optional keyboard mapping (empty path: none), or null
    // with error set to a message naming the file and line at fault. Reads the files only when
    // a path or a modification time changed since the last call. Any thread.
    static std::shared_ptr<const ScalaTuning>
    tuningFromFiles(const QString &scalePath, const QString &mappingPath, QString &error);
    // Whether the options choose the tuning files' temperament and those cannot be read (the
    // grid then keeps to equal temperament); error says why. Any thread.
    static bool tuningUnreadable(const Parameters &parameters, QString &error);
    // Offsets in cents from equal temperament by scale degree, per temperament.
    static const std::array<std::array<double, 12>, kTemperamentCount> &temperamentCents();
    // The name of the note `semitones` (0..11) above the tonic of a major key (pitch class).
    static QString noteNameInKey(int keyPitchClass, int semitones);

    // The name in written pitch of the major or minor key on a sounding pitch class (0..11),
    // as the key lists spell it, e.g. "B♭" major, "G♯" minor.
    QString keyName(int keyPitchClass, bool minor) const;
    // The same with its mode: "E major", "C♯ minor".
    QString keyAndMode(int keyPitchClass, bool minor) const;

    const Settings &settings() const { return settings_; }

    // Degrees in the period: 12, or the pitches of a loaded tuning.
    int degreeCount() const;
    // Whether a tuning from a scale file replaces the temperament.
    bool hasTuning() const { return grid_ != nullptr; }

    // Lines are numbered by note number (key number of a loaded tuning; the two agree for a
    // twelve-pitch tuning without a mapping). A loaded tuning has lines for the keys it maps
    // only, over some fifteen octaves.

    // The line's degree: (n − key) modulo 12, always 0..11; a loaded tuning's degree within
    // its period, 0 for a key it leaves out.
    int degree(qint64 n) const;
    // Importance of note n's line, 0..5.
    qint64 rank(qint64 n) const;
    // Whether note n has a line at the current completeness.
    bool isShown(qint64 n) const;
    // Note number at which note n's line is drawn; NaN for a key a loaded tuning leaves out.
    double gridPitch(qint64 n) const;
    // The line nearest pitch p that the deviation is measured from (halfway: the lower).
    qint64 nearestLine(double p) const;
    // The pitch a reference tone for equal-tempered note n plays: its own line, or the nearest
    // line of a loaded tuning.
    double soundingPitch(qint64 n) const;
    // Signed distance in semitones from pitch p to the nearest shown line, positive when sharp;
    // halfway takes the lower line. p must be finite.
    double deviation(double p) const;
    // The shown lines whose grid pitch lies in [lowPitch, highPitch], lowest first.
    std::vector<GridLine> gridLines(double lowPitch, double highPitch) const;
    // The name of note n in this key and written pitch, e.g. "E♭". A loaded tuning of other
    // than twelve pitches names each line by the nearest equal-tempered note and its offset in
    // whole cents: "E♭-14".
    QString noteName(qint64 n) const;
    // The same with the written octave, middle C "C4".
    QString noteNameWithOctave(qint64 n) const;
    // The sounding note number of a note named in written pitch (B♭: written D4 sounds C4).
    qint64 soundingNote(qint64 writtenNote) const { return writtenNote - settings_.transposition; }

private:
    Settings settings_;
    // By degree: where the line of that degree sits relative to the note, its rank, and whether
    // it is shown. Worked out once so the queries stay cheap.
    std::array<double, 12> lineOffset_{};
    std::array<qint64, 12> rank_{};
    std::array<bool, 12> shown_{};
    // The row of the name table that spells this key's notes.
    int nameRow_ = 0;
    // The lines of a loaded tuning; null without one.
    struct TuningGrid;
    std::shared_ptr<const TuningGrid> grid_;

    std::shared_ptr<const TuningGrid> makeGrid() const;
    // The rank of a loaded tuning's degree: as in the temperaments for twelve pitches, else the
    // 1/1 first and every other degree a scale note.
    qint64 tuningRank(int degree) const;
    // The name and octave of equal-tempered note n in written pitch.
    QString writtenName(qint64 n, bool withOctave) const;
    // The name of line n, with its octave or without.
    QString lineName(qint64 n, bool withOctave) const;
};

} // namespace quorval
