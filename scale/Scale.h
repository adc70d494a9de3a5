#pragma once

#include "scale/GridLine.h"

#include <QString>
#include <QtGlobal>

#include <array>
#include <vector>

namespace quorval {

class Parameters;

// ln 2 / 12: the natural log of one equal-tempered semitone's frequency ratio, shared by every
// conversion between note numbers and hertz.
inline constexpr double kSemitoneLog = 0.057762265046662105;

// The musical grid of one set of settings: key, mode, temperament, completeness, A frequency
// and tuning offset. A Scale is a snapshot: make one with current() per redraw or report and
// query it as often as needed; the queries read no options and allocate nothing (except the
// names and lines they return). Pitches are note numbers (semitones, 69 = A). Any thread.
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
    // Offsets in cents from equal temperament by scale degree, per temperament.
    static const std::array<std::array<double, 12>, kTemperamentCount> &temperamentCents();
    // The name of the note `semitones` (0..11) above the tonic of a major key (pitch class).
    static QString noteNameInKey(int keyPitchClass, int semitones);

    const Settings &settings() const { return settings_; }

    // (n − key) modulo 12, always 0..11.
    int degree(qint64 n) const;
    // Importance of note n's line, 0..5.
    qint64 rank(qint64 n) const;
    // Whether note n has a line at the current completeness.
    bool isShown(qint64 n) const;
    // Note number at which note n's line is drawn.
    double gridPitch(qint64 n) const;
    // Signed distance in semitones from pitch p to the nearest shown line, positive when sharp;
    // halfway takes the lower line. p must be finite.
    double deviation(double p) const;
    // The shown lines whose grid pitch lies in [lowPitch, highPitch], lowest first.
    std::vector<GridLine> gridLines(double lowPitch, double highPitch) const;
    // The name of note n in this key, e.g. "E♭".
    QString noteName(qint64 n) const;

private:
    Settings settings_;
    // By degree: where the line of that degree sits relative to the note, its rank, and whether
    // it is shown. Worked out once so the queries stay cheap.
    std::array<double, 12> lineOffset_{};
    std::array<qint64, 12> rank_{};
    std::array<bool, 12> shown_{};
    // The row of the name table that spells this key's notes.
    int nameRow_ = 0;
};

} // namespace quorval
