#pragma once

#include "analysis/tests/support/TestSignals.h"
#include "streams/MusicStream.h"
#include "streams/WavStream.h"
#include "streams/tests/Tones.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <vector>

namespace quorval::test {

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
