#pragma once

#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

namespace quorval::test {

// Samples rounded and clipped to 16 bits, as a sound file holds them.
inline std::vector<std::int16_t> toPCM(const std::vector<double> &samples)
{
    std::vector<std::int16_t> pcm;
    pcm.reserve(samples.size());
    for (double v : samples)
        pcm.push_back(static_cast<std::int16_t>(std::lround(std::clamp(v, -32768.0, 32767.0))));
    return pcm;
}

// A mono 16-bit sound at sampleRate held in a new recording stream, as if it had been
// recorded; it leaves no unsaved recording behind.
inline std::shared_ptr<WavStream> recordedSound(const std::vector<std::int16_t> &pcm,
                                                double sampleRate = 44100.0)
{
    auto wav = WavStream::createForRecording(1, 2, sampleRate);
    EXPECT_NE(wav, nullptr);
    if (!wav)
        return nullptr;
    Quorval::dataQueue().sync([&] {
        EXPECT_TRUE(wav->appendSamples_D(pcm.data(), static_cast<std::int64_t>(pcm.size())));
    });
    wav->modified = false;
    return wav;
}

} // namespace quorval::test
