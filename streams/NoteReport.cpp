#include "streams/NoteReport.h"

#include "options/Parameters.h"
#include "scale/Scale.h"
#include "streams/Deviations.h"
#include "streams/MusicStream.h"
#include "streams/PitchStream.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>

namespace quorval {

namespace {

// Sums of a run of deviations (cents), for means and spreads.
struct Sums
{
    int count = 0;
    double sum = 0.0;
    double sumOfSquares = 0.0;
    double goodness = 0.0;

    void add(double cents, double goodnessValue)
    {
        ++count;
        sum += cents;
        sumOfSquares += cents * cents;
        goodness += goodnessValue;
    }
    [[nodiscard]] double mean() const { return sum / count; }
    // RMS about the mean.
    [[nodiscard]] double spread() const
    {
        const double m = mean();
        return std::sqrt(std::max(0.0, sumOfSquares / count - m * m));
    }
};

template <class... Args> void appendf(std::string &text, const char *format, Args... args)
{
    char buffer[256];
    const int n = std::snprintf(buffer, sizeof buffer, format, args...);
    if (n > 0)
        text.append(buffer, static_cast<std::size_t>(std::min<int>(n, sizeof buffer - 1)));
}

// printf pads by bytes: pad a UTF-8 name to `width` characters by hand.
std::string padded(const std::string &name, int width)
{
    int characters = 0;
    for (const char c : name)
        characters += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
    return name + std::string(static_cast<std::size_t>(std::max(0, width - characters)), ' ');
}

} // namespace

NoteReport NoteReport::fromSegments(const std::vector<Segment> &segments, double segmentSeconds,
                                    const Scale &scale)
{
    NoteReport report;
    const auto degrees = static_cast<std::size_t>(scale.degreeCount());
    std::vector<Sums> byDegree(degrees);
    std::vector<std::vector<std::size_t>> notesOfDegree(degrees);

    // Each counted segment's line; then the short interruptions a held note bridges.
    const std::size_t n = segments.size();
    std::vector<qint64> lines(n, 0);
    for (std::size_t k = 0; k < n; ++k)
        if (segments[k].counts)
            lines[k] = scale.nearestLine(segments[k].pitch);
    const auto onLine = [&](std::size_t k, qint64 line) {
        return segments[k].counts && lines[k] == line;
    };
    std::vector<bool> bridged(n, false);
    for (std::size_t k = 1; k < n; ++k) {
        if (!segments[k - 1].counts || onLine(k, lines[k - 1]))
            continue;
        std::size_t j = k;
        while (j < n && j - k < kMaxBridge && !onLine(j, lines[k - 1]))
            ++j;
        if (j < n && onLine(j, lines[k - 1])) {
            std::fill(bridged.begin() + static_cast<std::ptrdiff_t>(k),
                      bridged.begin() + static_cast<std::ptrdiff_t>(j), true);
            k = j;
        }
    }

    Sums run;
    qint64 runLine = 0;
    std::size_t runStart = 0;
    auto closeRun = [&](std::size_t end) {
        if (run.count >= kMinSegments) {
            Note note;
            note.startSeconds = segments[runStart].timeSeconds;
            note.endSeconds = segments[end - 1].timeSeconds + segmentSeconds;
            note.noteNumber = runLine;
            note.name = scale.noteName(runLine).toStdString();
            note.nameWithOctave = scale.noteNameWithOctave(runLine).toStdString();
            note.degree = degreeNumber(scale.degree(runLine), scale.settings().minor);
            note.meanCents = run.mean();
            note.spreadCents = run.spread();
            note.meanGoodness = run.goodness / run.count;
            note.segments = run.count;
            const auto degree = static_cast<std::size_t>(scale.degree(runLine));
            for (std::size_t k = runStart; k < end; ++k)
                if (!bridged[k])
                    byDegree[degree].add(scale.deviation(segments[k].pitch) * 100.0, 0.0);
            notesOfDegree[degree].push_back(report.notes.size());
            report.notes.push_back(std::move(note));
        }
        run = {};
    };
    for (std::size_t k = 0; k < n; ++k) {
        if (bridged[k])
            continue;
        const Segment &segment = segments[k];
        const double d = segment.counts ? scale.deviation(segment.pitch) : 0.0;
        const qint64 line = lines[k];
        if (run.count > 0 && (!segment.counts || line != runLine))
            closeRun(k);
        if (!segment.counts)
            continue;
        if (run.count == 0) {
            runStart = k;
            runLine = line;
        }
        run.add(d * 100.0, segment.goodness);
    }
    closeRun(segments.size());

    for (std::size_t degree = 0; degree < degrees; ++degree) {
        const std::vector<std::size_t> &members = notesOfDegree[degree];
        if (members.empty())
            continue;
        Degree row;
        row.degree = static_cast<int>(degree);
        // A tuning of other than twelve pitches numbers its own degrees, the 1/1 first.
        row.number = degrees == 12 ? degreeNumber(row.degree, scale.settings().minor)
                                   : std::to_string(row.degree + 1);
        row.name = report.notes[members.front()].name;
        row.notes = static_cast<int>(members.size());
        row.totalSeconds = byDegree[degree].count * segmentSeconds;
        // Segments are equally long, so their plain mean is the time-weighted one.
        row.meanCents = byDegree[degree].mean();
        row.spreadCents = byDegree[degree].spread();
        row.worstNote = *std::max_element(
            members.begin(), members.end(), [&report](std::size_t a, std::size_t b) {
                return std::abs(report.notes[a].meanCents) < std::abs(report.notes[b].meanCents);
            });
        report.degrees.push_back(std::move(row));
    }
    return report;
}

std::string NoteReport::degreeNumber(int semitones, bool minor)
{
    static const char *const inMajor[12] = {"1", "\u266D2", "2", "\u266D3", "3", "4", "\u266F4",
                                            "5", "\u266D6", "6", "\u266D7", "7"};
    static const char *const inMinor[12] = {
        "1", "\u266D2", "2", "3", "\u266E3", "4", "\u266F4", "5", "6", "\u266E6", "7", "\u266E7"};
    const int i = ((semitones % 12) + 12) % 12;
    return minor ? inMinor[i] : inMajor[i];
}

std::optional<NoteReport> NoteReport::compute(MusicStream &music, double t0, double t1,
                                              const std::atomic<bool> &canceled)
{
    return compute(music, t0, t1, canceled, Scale::current());
}

std::optional<KeyGuess::Result> NoteReport::guessKey(MusicStream &music, double t0, double t1,
                                                     const std::atomic<bool> &canceled)
{
    Scale::Settings chromatic;
    chromatic.aFrequency = Parameters::shared().aFrequency.value();
    const std::optional<NoteReport> report = compute(music, t0, t1, canceled, Scale(chromatic));
    if (!report)
        return std::nullopt;
    KeyGuess guess;
    for (const Note &note : report->notes)
        guess.add(note.noteNumber, note.endSeconds - note.startSeconds);
    return guess.guess();
}

std::optional<NoteReport> NoteReport::compute(MusicStream &music, double t0, double t1,
                                              const std::atomic<bool> &canceled, const Scale &scale)
{
    const double goodnessFloor = Parameters::shared().qualityThreshold.value();
    std::vector<Segment> segments;
    const std::optional<Deviations::Stretch> stretch =
        Deviations::walk(music, t0, t1, canceled, [&](const Deviations::Segment &segment) {
            Segment cut;
            cut.timeSeconds = segment.timeSeconds;
            cut.counts = segment.loud && segment.pitch > 0.0 && segment.goodness >= goodnessFloor;
            cut.pitch = segment.pitch;
            cut.goodness = segment.goodness;
            segments.push_back(cut);
        });
    if (!stretch)
        return std::nullopt;
    const std::shared_ptr<PitchStream> pitch = music.pitchStream();
    return fromSegments(segments, pitch->xScale, scale);
}

std::string NoteReport::text() const
{
    std::string text = "Notes\n   Start      End  Note          Cents  Spread  Goodness\n";
    for (const Note &note : notes)
        appendf(text, "%8.3f %8.3f  %s %4lld  %+6.1f  %6.1f  %8.1f\n", note.startSeconds,
                note.endSeconds, padded(note.name, 4).c_str(),
                static_cast<long long>(note.noteNumber), note.meanCents, note.spreadCents,
                note.meanGoodness);
    text += "\nScale degrees\n  Degree    Notes   Time (s)   Cents  Spread  Worst note\n";
    for (const Degree &degree : degrees) {
        const Note &worst = notes[degree.worstNote];
        appendf(text, "  %s %5d %10.3f  %+6.1f  %6.1f  %s (%lld) at %.3f s, %+.1f\n",
                padded(degree.number + " " + degree.name, 8).c_str(), degree.notes,
                degree.totalSeconds, degree.meanCents, degree.spreadCents, worst.name.c_str(),
                static_cast<long long>(worst.noteNumber), worst.startSeconds, worst.meanCents);
    }
    return text;
}

} // namespace quorval
