#pragma once

// Real recordings with an annotated pitch, as bench/setup-evaluation.sh prepares them: a list of
// parts, "instrument<TAB>wav path<TAB>pitch file path" a line, and for each part a pitch file of
// one frame a line, "centre_seconds midi note_index", in time order, the frames of a note
// consecutive. Frames with no pitch are not listed.

#include "analysis/WavFileOC.h"

#include <cmath>
#include <fstream>
#include <istream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace quorval {

struct AnnotatedFrame
{
    double timeSeconds = 0.0; // the frame's centre
    double midi = 0.0;        // MIDI note number, fractional
    int note = 0;             // index of the note holding the frame, from 0
};

struct AnnotatedPart
{
    std::string instrument;
    std::string wavPath;
    std::string pitchPath;
};

// The parts listed at path; empty when there is no list.
inline std::vector<AnnotatedPart> readPartList(const std::string &path)
{
    std::vector<AnnotatedPart> parts;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        const auto tab = line.find('\t');
        const auto second = line.find('\t', tab + 1);
        if (tab != std::string::npos && second != std::string::npos)
            parts.push_back({line.substr(0, tab), line.substr(tab + 1, second - tab - 1),
                             line.substr(second + 1)});
    }
    return parts;
}

// The samples of the WAV file at path (integer units, channels averaged); nullopt when it cannot
// be read or its rate is not sampleRate.
inline std::optional<std::vector<double>> readSamples(const std::string &path, double sampleRate)
{
    WavFileOC wav;
    if (!wav.setupFromPath(path) || !wav.isVerified() || wav.getSampleRate() != sampleRate)
        return std::nullopt;
    const int frameBytes = wav.getNChannels() * wav.getBytesPerSample();
    if (frameBytes <= 0)
        return std::nullopt;
    std::vector<double> samples(static_cast<std::size_t>(wav.getFileDataLength() / frameBytes));
    if (!wav.getSamples(samples.data(), 0, static_cast<int>(samples.size())))
        return std::nullopt;
    return samples;
}

// The frames of in; nullopt when a line does not parse or time runs backwards.
inline std::optional<std::vector<AnnotatedFrame>> readAnnotatedPitch(std::istream &in)
{
    std::vector<AnnotatedFrame> frames;
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        AnnotatedFrame frame;
        if (!(fields >> frame.timeSeconds >> frame.midi >> frame.note) || frame.note < 0 ||
            (!frames.empty() && frame.timeSeconds <= frames.back().timeSeconds))
            return std::nullopt;
        frames.push_back(frame);
    }
    return frames;
}

// The annotated pitch at timeSeconds: interpolated (in MIDI numbers, so in cents) between the two
// frames around it when both belong to the same note, with that note's index. Nothing between
// notes, before the first or after the last frame of a note.
inline std::optional<AnnotatedFrame> annotatedPitchAt(const std::vector<AnnotatedFrame> &frames,
                                                      double timeSeconds)
{
    // The first frame after the time.
    std::size_t lo = 0;
    std::size_t hi = frames.size();
    while (lo < hi) {
        const std::size_t mid = (lo + hi) / 2;
        if (frames[mid].timeSeconds <= timeSeconds)
            lo = mid + 1;
        else
            hi = mid;
    }
    if (lo == 0)
        return std::nullopt;
    const AnnotatedFrame &before = frames[lo - 1];
    if (before.timeSeconds == timeSeconds)
        return before;
    if (lo == frames.size() || frames[lo].note != before.note)
        return std::nullopt;
    const AnnotatedFrame &after = frames[lo];
    const double w = (timeSeconds - before.timeSeconds) / (after.timeSeconds - before.timeSeconds);
    return AnnotatedFrame{timeSeconds, std::lerp(before.midi, after.midi, w), before.note};
}

} // namespace quorval
