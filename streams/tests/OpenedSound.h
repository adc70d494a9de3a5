#pragma once

#include "analysis/tests/support/TestSignals.h"
#include "streams/MusicStream.h"
#include "streams/WavStream.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <vector>

namespace quorval::test {

// A harmonic tone (the test signals' default timbre) at a note number, seconds long.
inline std::vector<double> toneAt(double note, double seconds, double vibratoCents = 0.0,
                                  double vibratoHz = 0.0)
{
    testsignals::Tone shape;
    shape.freqHz = testsignals::noteToHz(note);
    shape.vibratoDepthCents = vibratoCents;
    shape.vibratoHz = vibratoHz;
    return testsignals::tone(shape, static_cast<int>(seconds * testsignals::kSampleRate));
}

// a followed by b.
inline std::vector<double> joined(std::vector<double> a, const std::vector<double> &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// A sound opened from a WAV file, as the window opens one, with every pitch calculated.
class OpenedSound
{
public:
    explicit OpenedSound(const std::vector<double> &samples) : file(samples, {}, 2)
    {
        EXPECT_TRUE(file.ok());
        auto wav = WavStream::createFromFile(file.path());
        EXPECT_NE(wav, nullptr);
        wav->waitForCopy();
        music = MusicStream::create(wav);
        EXPECT_TRUE(music->waitUntilCalculated(std::chrono::seconds(60)));
    }

    testsignals::TempWav file;
    std::shared_ptr<MusicStream> music;
};

} // namespace quorval::test
