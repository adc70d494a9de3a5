#include "scale/Scale.h"

#include "analysis/Check.h"
#include "options/NoteNames.h"
#include "options/Parameters.h"

#include <algorithm>
#include <cmath>

namespace quorval {

namespace {

// Cents from equal temperament, in the order of the "Temperament" choices. Kept exactly as
// the tables were published, odd digits included (Salinas -31.3, Bagpipes -31.2).
constexpr std::array<std::array<double, 12>, Scale::kTemperamentCount> kCents = {{
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},                                        // Equal
    {0, 11.7, 3.9, 15.6, -13.7, -2.0, -9.8, 2.0, 13.7, -15.6, -3.9, -11.7},      // Just
    {0, -9.8, 3.9, -5.9, 7.8, -2.0, 11.7, 2.0, -7.8, 5.9, -3.9, 9.8},            // Pythagorean
    {0, -36.5, -10.4, 15.6, -20.9, 5.2, -31.3, -5.2, -41.7, -15.6, 10.4, -26.1}, // Salinas
    {0, -24.0, -6.8, 10.3, -13.7, 3.4, -20.5, -3.4, -27.4, -10.3, 6.8, -17.1},   // Mean Tone
    {0, -11.4, -3.3, 4.9, -6.5, 1.6, -9.8, -1.6, -13.0, -4.9, 3.3, -8.1},        // Silberman
    {3.9, 2.0, 0, 2.0, -3.9, 5.9, 0, 2.0, 2.0, -2.0, 2.0, -2.0},                 // Lehman
    {0, -9.8, -6.8, -5.9, -13.7, -2.0, -9.8, -3.4, -7.8, -10.3, -3.9, -11.7},    // Kirnberger
    {3.9, -2.0, 0, 2.0, -3.9, 5.9, -3.9, 2.0, 0, -2.0, 3.9, -5.9},               // Vallotti
    {0, -9.8, -7.8, -5.9, -9.8, -2.0, -11.7, -3.9, 7.8, 11.7, -3.9, -7.8},       // Werckmeister
    {0, 11.7, 3.9, 15.6, -13.7, -2.0, -9.8, 2.0, 13.7, -15.6, -31.2, -11.7},     // Bagpipes
}};

constexpr std::array<qint64, 12> kMajorRank = {0, 5, 3, 5, 2, 3, 4, 1, 5, 3, 4, 3};
constexpr std::array<qint64, 12> kMinorRank = {0, 5, 3, 2, 5, 3, 4, 1, 3, 5, 3, 4};

// In minor the temperament and rank tables are read nine degrees on.
constexpr int kMinorShift = 9;
constexpr qint64 kLowestRank = 5;

// Row k names the notes 0..11 semitones above the tonic of the major key with pitch class k.
// Each row gives every degree of the key its own letter, so G♭ major's minor third is B♭♭ and
// B major's augmented fifth F♯♯: a name with one sign would read as another degree.
const char16_t *const kNoteNames[12][12] = {
    {u"C", u"C♯", u"D", u"E♭", u"E", u"F", u"F♯", u"G", u"G♯", u"A", u"B♭", u"B"},
    {u"D♭", u"D", u"E♭", u"F♭", u"F", u"G♭", u"G", u"A♭", u"A", u"B♭", u"C♭", u"C"},
    {u"D", u"D♯", u"E", u"F", u"F♯", u"G", u"G♯", u"A", u"A♯", u"B", u"C", u"C♯"},
    {u"E♭", u"E", u"F", u"G♭", u"G", u"A♭", u"A", u"B♭", u"B", u"C", u"D♭", u"D"},
    {u"E", u"E♯", u"F♯", u"G", u"G♯", u"A", u"A♯", u"B", u"B♯", u"C♯", u"D", u"D♯"},
    {u"F", u"F♯", u"G", u"A♭", u"A", u"B♭", u"B", u"C", u"C♯", u"D", u"E♭", u"E"},
    {u"G♭", u"G", u"A♭", u"B♭♭", u"B♭", u"C♭", u"C", u"D♭", u"D", u"E♭", u"F♭", u"F"},
    {u"G", u"G♯", u"A", u"B♭", u"B", u"C", u"C♯", u"D", u"D♯", u"E", u"F", u"F♯"},
    {u"A♭", u"A", u"B♭", u"C♭", u"C", u"D♭", u"D", u"E♭", u"E", u"F", u"G♭", u"G"},
    {u"A", u"A♯", u"B", u"C", u"C♯", u"D", u"D♯", u"E", u"E♯", u"F♯", u"G", u"G♯"},
    {u"B♭", u"B", u"C", u"D♭", u"D", u"E♭", u"E", u"F", u"F♯", u"G", u"A♭", u"A"},
    {u"B", u"B♯", u"C♯", u"D", u"D♯", u"E", u"E♯", u"F♯", u"F♯♯", u"G♯", u"A", u"A♯"},
};

int wrap12(qint64 n)
{
    const qint64 r = n % 12;
    return int(r < 0 ? r + 12 : r);
}

} // namespace

Scale::Scale(const Settings &settings) : settings_(settings)
{
    QUORVAL_CHECK(settings.keyPitchClass >= 0 && settings.keyPitchClass < 12);
    QUORVAL_CHECK(settings.temperament >= 0 && settings.temperament < kTemperamentCount);
    QUORVAL_CHECK(settings.completenessLevel >= 0 && settings.completenessLevel <= 2);
    const std::array<double, 12> &cents = kCents[std::size_t(settings.temperament)];
    for (int d = 0; d < 12; ++d) {
        const int shifted = settings.minor ? (d + kMinorShift) % 12 : d;
        // Equal temperament is measured against the A frequency alone; the offset exists to
        // slide an unequal temperament to where the tonic was actually tuned.
        lineOffset_[std::size_t(d)] =
            settings.temperament == 0 ? 0.0
                                      : settings.tuningOffset + cents[std::size_t(shifted)] / 100.0;
        rank_[std::size_t(d)] =
            settings.minor ? kMinorRank[std::size_t(shifted)] : kMajorRank[std::size_t(d)];
        shown_[std::size_t(d)] = rank_[std::size_t(d)] <= kLowestRank - settings.completenessLevel;
    }
    // A minor key holds the notes of the major key three semitones up, whose row spells them
    // with the accidentals of the minor key's name (G♯ minor as in B major, not A♭).
    nameRow_ = settings.minor ? (settings.keyPitchClass + 3) % 12 : settings.keyPitchClass;
}

Scale::Settings Scale::currentSettings(const Parameters &parameters)
{
    Settings settings;
    const Parameters::CurrentKey key = parameters.currentKey();
    if (key.index >= 0)
        settings.keyPitchClass = keyPitchClass(Parameters::majorKeyNames().at(key.index));
    settings.minor = key.minor;
    // An unknown stored choice falls back on the first entry.
    settings.temperament = std::max(parameters.temperament.index(), 0);
    settings.completenessLevel = std::max(parameters.completeness.index(), 0);
    settings.aFrequency = parameters.aFrequency.value();
    return settings;
}

Scale Scale::current(const Parameters &parameters)
{
    return Scale(currentSettings(parameters));
}

Scale Scale::current()
{
    return current(Parameters::shared());
}

double Scale::noteNumber(double freqHz, double aFrequency)
{
    QUORVAL_CHECK(freqHz > 0.0 && aFrequency > 0.0);
    return 69.0 + std::log(freqHz / aFrequency) / kSemitoneLog;
}

double Scale::frequency(double noteNumber, double aFrequency)
{
    return aFrequency * std::exp((noteNumber - 69.0) * kSemitoneLog);
}

int Scale::keyPitchClass(const QString &keyName)
{
    static const std::pair<const char16_t *, int> kClasses[] = {
        {u"C", 0},  {u"C♯", 1}, {u"D♭", 1}, {u"D", 2},   {u"E♭", 3},
        {u"E", 4},  {u"F", 5},  {u"F♯", 6}, {u"G♭", 6},  {u"G", 7},
        {u"G♯", 8}, {u"A♭", 8}, {u"A", 9},  {u"B♭", 10}, {u"B", 11},
    };
    const QString spelled = withAccidentalSigns(keyName);
    for (const auto &[name, pitchClass] : kClasses) {
        if (spelled == QStringView(name))
            return pitchClass;
    }
    return 9;
}

const std::array<std::array<double, 12>, Scale::kTemperamentCount> &Scale::temperamentCents()
{
    return kCents;
}

QString Scale::noteNameInKey(int keyPitchClass, int semitones)
{
    QUORVAL_CHECK(keyPitchClass >= 0 && keyPitchClass < 12 && semitones >= 0 && semitones < 12);
    return QString::fromUtf16(kNoteNames[keyPitchClass][semitones]);
}

int Scale::degree(qint64 n) const
{
    return wrap12(n - settings_.keyPitchClass);
}

qint64 Scale::rank(qint64 n) const
{
    return rank_[std::size_t(degree(n))];
}

bool Scale::isShown(qint64 n) const
{
    return shown_[std::size_t(degree(n))];
}

double Scale::gridPitch(qint64 n) const
{
    return lineOffset_[std::size_t(degree(n))] + double(n);
}

double Scale::deviation(double p) const
{
    // Far beyond any audible pitch, and keeps the note numbers below within range.
    QUORVAL_CHECK(std::isfinite(p) && std::abs(p) < 1e9);
    auto lo = qint64(std::floor(p));
    auto hi = qint64(std::ceil(p));
    // Every level shows the tonic, so each search ends within an octave.
    if (settings_.completenessLevel > 0) {
        while (!isShown(lo))
            --lo;
        while (!isShown(hi))
            ++hi;
    }
    const double gl = gridPitch(lo);
    const double gh = gridPitch(hi);
    return p - gl <= gh - p ? p - gl : p - gh;
}

std::vector<GridLine> Scale::gridLines(double lowPitch, double highPitch) const
{
    std::vector<GridLine> lines;
    if (!(lowPitch <= highPitch) || !std::isfinite(lowPitch) || !std::isfinite(highPitch))
        return lines;
    // Lines sit off their notes by at most the largest offset, so look that far beyond.
    const auto [minOffset, maxOffset] = std::minmax_element(lineOffset_.begin(), lineOffset_.end());
    const auto first = qint64(std::floor(lowPitch - *maxOffset));
    const auto last = qint64(std::ceil(highPitch - *minOffset));
    for (qint64 n = first; n <= last; ++n) {
        if (!isShown(n))
            continue;
        const double pitch = gridPitch(n);
        if (pitch >= lowPitch && pitch <= highPitch)
            lines.push_back({pitch, rank(n), noteName(n)});
    }
    return lines;
}

QString Scale::noteName(qint64 n) const
{
    return noteNameInKey(nameRow_, wrap12(n - nameRow_));
}

} // namespace quorval
