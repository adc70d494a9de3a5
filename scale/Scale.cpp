#include "scale/Scale.h"

#include "analysis/Check.h"
#include "options/NoteNames.h"
#include "options/Parameters.h"
#include "scale/ScalaTuning.h"

#include <QFile>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <optional>

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

// Note numbers the lines of a loaded tuning cover: the note range's ends and two octaves more.
constexpr double kLowestGridPitch = -24.0;
constexpr double kHighestGridPitch = 151.0;

} // namespace

struct Scale::TuningGrid
{
    qint64 firstKey = 0;
    std::vector<double> pitch; // by key from firstKey; NaN for a key left out
    std::vector<int> degree;   // by key: the degree within the period, -1 for a key left out
    // The shown lines, lowest pitch first.
    std::vector<std::pair<double, qint64>> shown;
    // Set when completeness would hide every key the mapping tunes, so all of them are shown.
    bool everyKeyShown = false;

    std::optional<std::size_t> at(qint64 key) const
    {
        if (key < firstKey || key - firstKey >= qint64(pitch.size()))
            return std::nullopt;
        const auto i = std::size_t(key - firstKey);
        return std::isnan(pitch[i]) ? std::nullopt : std::optional(i);
    }
};

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
    if (settings.tuning)
        grid_ = makeGrid();
}

std::shared_ptr<const Scale::TuningGrid> Scale::makeGrid() const
{
    const ScalaTuning &tuning = *settings_.tuning;
    const int size = tuning.size();
    ScalaTuning::Mapping mapping;
    double referencePitch = 0.0;
    if (tuning.mapping) {
        mapping = *tuning.mapping;
        referencePitch = noteNumber(mapping.referenceFreqHz);
    } else {
        // The 1/1 on the tonic nearest above middle C, and successive keys on successive
        // degrees as far as the grid reaches.
        mapping.middleKey = 60 + settings_.keyPitchClass;
        mapping.referenceKey = mapping.middleKey;
        referencePitch = mapping.middleKey;
        const double period = tuning.periodCents() / 100.0;
        const auto periodsBelow = qint64(std::ceil((referencePitch - kLowestGridPitch) / period));
        const auto periodsAbove = qint64(std::ceil((kHighestGridPitch - referencePitch) / period));
        mapping.firstKey = int(mapping.middleKey - (periodsBelow + 1) * size);
        mapping.lastKey = int(mapping.middleKey + (periodsAbove + 1) * size);
    }
    const std::optional<long long> referenceDegree = mapping.degreeOfKey(mapping.referenceKey);
    QUORVAL_CHECK(referenceDegree.has_value());
    const double referenceCents = tuning.degreeCents(*referenceDegree);

    auto grid = std::make_shared<TuningGrid>();
    grid->firstKey = mapping.firstKey;
    for (qint64 key = mapping.firstKey; key <= mapping.lastKey; ++key) {
        const std::optional<long long> degree = mapping.degreeOfKey(int(key));
        if (!degree) {
            grid->pitch.push_back(std::nan(""));
            grid->degree.push_back(-1);
            continue;
        }
        grid->pitch.push_back(referencePitch + settings_.tuningOffset +
                              (tuning.degreeCents(*degree) - referenceCents) / 100.0);
        grid->degree.push_back(int(((*degree % size) + size) % size));
    }
    for (std::size_t i = 0; i < grid->pitch.size(); ++i) {
        const qint64 key = grid->firstKey + qint64(i);
        if (!std::isnan(grid->pitch[i]) &&
            tuningRank(grid->degree[i]) <= kLowestRank - settings_.completenessLevel)
            grid->shown.emplace_back(grid->pitch[i], key);
    }
    // Completeness may hide every degree a sparse mapping plays; then all of them are lines.
    grid->everyKeyShown = grid->shown.empty();
    if (grid->everyKeyShown)
        for (std::size_t i = 0; i < grid->pitch.size(); ++i)
            if (!std::isnan(grid->pitch[i]))
                grid->shown.emplace_back(grid->pitch[i], grid->firstKey + qint64(i));
    QUORVAL_CHECK(!grid->shown.empty());
    std::sort(grid->shown.begin(), grid->shown.end());
    return grid;
}

qint64 Scale::tuningRank(int degree) const
{
    if (settings_.tuning->size() == 12)
        return rank_[std::size_t(degree)];
    return degree == 0 ? 0 : 2;
}

Scale::Settings Scale::currentSettings(const Parameters &parameters)
{
    Settings settings;
    const Parameters::CurrentKey key = parameters.currentKey();
    if (key.index >= 0)
        settings.keyPitchClass = keyPitchClass(Parameters::majorKeyNames().at(key.index));
    settings.minor = key.minor;
    // An unknown stored choice falls back on the first entry, as does the choice of a scale file
    // (its tuning takes the temperament's place).
    const auto temperament =
        static_cast<int>(Parameters::temperamentNames().indexOf(parameters.temperament.value()));
    settings.temperament = temperament > 0 && temperament < kTemperamentCount ? temperament : 0;
    settings.completenessLevel = std::max(parameters.completeness.index(), 0);
    settings.aFrequency = parameters.aFrequency.value();
    settings.transposition = parameters.transposition.writtenMinusSounding();
    if (parameters.temperament.value() == Parameters::scalaTemperamentName()) {
        QString error;
        // A file that went bad since it was chosen leaves equal temperament; the command that
        // reads it says why.
        settings.tuning = tuningFromFiles(parameters.scalaFile.value(),
                                          parameters.keyboardMappingFile.value(), error);
    }
    return settings;
}

bool Scale::tuningUnreadable(const Parameters &parameters, QString &error)
{
    return parameters.temperament.value() == Parameters::scalaTemperamentName() &&
           !tuningFromFiles(parameters.scalaFile.value(), parameters.keyboardMappingFile.value(),
                            error);
}

std::shared_ptr<const ScalaTuning>
Scale::tuningFromFiles(const QString &scalePath, const QString &mappingPath, QString &error)
{
    // Every redraw asks: the files are read again only when a path or a modification time
    // changes.
    struct Read
    {
        std::string scalePath;
        std::string mappingPath;
        std::filesystem::file_time_type scaleTime;
        std::filesystem::file_time_type mappingTime;
        std::shared_ptr<const ScalaTuning> tuning;
        std::string error;
    };
    static std::mutex mutex;
    static Read last;
    const auto timeOf = [](const std::string &path) {
        std::error_code ignored;
        return path.empty() ? std::filesystem::file_time_type()
                            : std::filesystem::last_write_time(path, ignored);
    };
    Read wanted;
    wanted.scalePath = QFile::encodeName(scalePath).toStdString();
    wanted.mappingPath = QFile::encodeName(mappingPath).toStdString();
    wanted.scaleTime = timeOf(wanted.scalePath);
    wanted.mappingTime = timeOf(wanted.mappingPath);
    const std::lock_guard lock(mutex);
    if ((!last.tuning && last.error.empty()) || wanted.scalePath != last.scalePath ||
        wanted.mappingPath != last.mappingPath || wanted.scaleTime != last.scaleTime ||
        wanted.mappingTime != last.mappingTime) {
        if (wanted.scalePath.empty()) {
            wanted.error = "no scale file is chosen";
        } else if (std::optional<ScalaTuning> tuning =
                       ScalaTuning::readFiles(wanted.scalePath, wanted.mappingPath, wanted.error)) {
            wanted.tuning = std::make_shared<const ScalaTuning>(std::move(*tuning));
        }
        last = std::move(wanted);
    }
    error = QString::fromStdString(last.error);
    return last.tuning;
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

QString Scale::keyName(int pitchClass, bool minor) const
{
    QUORVAL_CHECK(pitchClass >= 0 && pitchClass < 12);
    const int written = wrap12(pitchClass + settings_.transposition);
    for (const QString &name : minor ? Parameters::minorKeyNames() : Parameters::majorKeyNames())
        if (keyPitchClass(name) == written)
            return name;
    QUORVAL_CHECK(false);
    return {};
}

QString Scale::keyAndMode(int pitchClass, bool minor) const
{
    return keyName(pitchClass, minor) +
           (minor ? QStringLiteral(" minor") : QStringLiteral(" major"));
}

int Scale::degreeCount() const
{
    return grid_ ? settings_.tuning->size() : 12;
}

int Scale::degree(qint64 n) const
{
    if (grid_) {
        const auto i = grid_->at(n);
        return i ? grid_->degree[*i] : 0;
    }
    return wrap12(n - settings_.keyPitchClass);
}

qint64 Scale::rank(qint64 n) const
{
    if (grid_)
        return grid_->at(n) ? tuningRank(degree(n)) : kLowestRank;
    return rank_[std::size_t(degree(n))];
}

bool Scale::isShown(qint64 n) const
{
    if (grid_)
        return grid_->at(n) &&
               (grid_->everyKeyShown || rank(n) <= kLowestRank - settings_.completenessLevel);
    return shown_[std::size_t(degree(n))];
}

double Scale::gridPitch(qint64 n) const
{
    if (grid_) {
        const auto i = grid_->at(n);
        return i ? grid_->pitch[*i] : std::nan("");
    }
    return lineOffset_[std::size_t(degree(n))] + double(n);
}

qint64 Scale::nearestLine(double p) const
{
    // Far beyond any audible pitch, and keeps the note numbers below within range.
    QUORVAL_CHECK(std::isfinite(p) && std::abs(p) < 1e9);
    if (grid_) {
        const auto &shown = grid_->shown;
        const auto above =
            std::upper_bound(shown.begin(), shown.end(), p,
                             [](double x, const auto &line) { return x < line.first; });
        if (above == shown.begin())
            return above->second;
        const auto below = std::prev(above);
        if (above == shown.end())
            return below->second;
        return p - below->first <= above->first - p ? below->second : above->second;
    }
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
    return p - gl <= gh - p ? lo : hi;
}

double Scale::deviation(double p) const
{
    return p - gridPitch(nearestLine(p));
}

double Scale::soundingPitch(qint64 n) const
{
    return gridPitch(grid_ ? nearestLine(double(n)) : n);
}

std::vector<GridLine> Scale::gridLines(double lowPitch, double highPitch) const
{
    std::vector<GridLine> lines;
    if (!(lowPitch <= highPitch) || !std::isfinite(lowPitch) || !std::isfinite(highPitch))
        return lines;
    if (grid_) {
        for (const auto &[pitch, key] : grid_->shown)
            if (pitch >= lowPitch && pitch <= highPitch)
                lines.push_back({pitch, rank(key), noteName(key)});
        return lines;
    }
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

QString Scale::writtenName(qint64 n, bool withOctave) const
{
    const qint64 written = n + settings_.transposition;
    const int row = wrap12(nameRow_ + settings_.transposition);
    QString name = noteNameInKey(row, wrap12(written - row));
    if (withOctave) {
        // The octave follows the letter: B♯3 is written where C4 sounds.
        const qint64 letterShift = name.startsWith(u'B') && wrap12(written) < 6   ? -1
                                   : name.startsWith(u'C') && wrap12(written) > 6 ? 1
                                                                                  : 0;
        const qint64 octave = (written - wrap12(written)) / 12 - 1 + letterShift;
        name += QString::number(octave);
    }
    return name;
}

QString Scale::lineName(qint64 n, bool withOctave) const
{
    if (!grid_ || settings_.tuning->size() == 12)
        return writtenName(n, withOctave);
    const double pitch = gridPitch(n);
    if (std::isnan(pitch))
        return writtenName(n, withOctave);
    const qint64 nearest = std::llround(pitch);
    const qint64 cents = std::llround((pitch - double(nearest)) * 100.0);
    QString name = writtenName(nearest, withOctave);
    if (cents != 0)
        name += (cents > 0 ? QStringLiteral("+") : QStringLiteral("-")) +
                QString::number(std::abs(cents));
    return name;
}

QString Scale::noteName(qint64 n) const
{
    return lineName(n, false);
}

QString Scale::noteNameWithOctave(qint64 n) const
{
    return lineName(n, true);
}

} // namespace quorval
