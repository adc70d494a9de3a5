#include "streams/MusicStream.h"

#include "analysis/tests/support/TestSignals.h"
#include "options/Parameters.h"
#include "streams/FFTStream.h"
#include "streams/PitchStream.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"
#include "streams/tests/OpenedSound.h"
#include "streams/tests/RecordedSound.h"
#include "streams/tests/SoundFiles.h"
#include "streams/tests/Tones.h"
#include "streams/tests/UnitLog.h"
#include "streams/tests/Wait.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <future>
#include <thread>

namespace quorval {
namespace {

using namespace std::chrono_literals;
using testsignals::noteToHz;

constexpr double kRate = 44100.0;
constexpr std::int64_t kRing = std::int64_t{1} << 28;

// A sound held in a new recording stream, as if it had been recorded.
std::shared_ptr<WavStream> soundOf(const std::vector<double> &samples)
{
    return test::recordedSound(test::toPCM(samples));
}

// Puts an option back to its default when the test ends.
class OptionGuard
{
public:
    explicit OptionGuard(Parameter &option) : option(option) {}
    ~OptionGuard() { option.resetToDefault(); }
    OptionGuard(const OptionGuard &) = delete;
    OptionGuard &operator=(const OptionGuard &) = delete;

private:
    Parameter &option;
};

// Pitches of the segments lying wholly inside [fromSeconds, toSeconds).
std::vector<double> pitchesBetween(const MusicStream &music, double fromSeconds, double toSeconds)
{
    std::vector<double> pitches;
    const double segmentSeconds = static_cast<double>(music.segLength()) / kRate;
    for (const MusicStream::SegmentValue &value : music.segmentValues())
        if (value.timeSeconds >= fromSeconds && value.timeSeconds + segmentSeconds <= toSeconds)
            pitches.push_back(value.pitch);
    return pitches;
}

void expectPitchesNear(const std::vector<double> &pitches, double note)
{
    ASSERT_FALSE(pitches.empty());
    for (double pitch : pitches)
        EXPECT_NEAR(pitch, note, 0.05) << "cents off: " << (pitch - note) * 100.0;
}

TEST(MusicStream, segmentationFollowsTheOptions)
{
    OptionGuard response(Parameters::shared().response);
    OptionGuard overlap(Parameters::shared().frameOverlap);
    EXPECT_EQ(MusicStream::segmentation(44100.0, kRing),
              std::make_pair(std::int64_t{1024}, std::int64_t{512}));
    // One period of the lowest note wants 225 samples: the next power of two is 256.
    ASSERT_TRUE(Parameters::shared().response.setValue(1.0));
    ASSERT_TRUE(Parameters::shared().frameOverlap.setValue(0.75));
    EXPECT_EQ(MusicStream::segmentation(44100.0, kRing),
              std::make_pair(std::int64_t{256}, std::int64_t{64}));
    EXPECT_EQ(MusicStream::segmentation(8000.0, kRing).first, 64);
}

TEST(MusicStream, lowestNotesTheAnalysisCannotSegmentAreReplaced)
{
    OptionGuard lowest(Parameters::shared().lowestNote);
    OptionGuard highest(Parameters::shared().highestNote);
    ASSERT_TRUE(Parameters::shared().highestNote.setValue(127.0));
    // The lowest note the options take is too low for a small ring: the segmentation stays
    // within the bounds, from a replaced note.
    const std::pair<double, std::int64_t> cases[] = {{0.0, 5000}, {0.0, 2000}};
    for (const auto &[note, ring] : cases) {
        ASSERT_TRUE(Parameters::shared().lowestNote.setValue(note));
        {
            const auto [length, spacing] = MusicStream::segmentation(kRate, ring);
            EXPECT_LE(length, std::min(PitchStream::kMaxSegLength, ring)) << note;
            EXPECT_GE(length, PitchStream::kMinSegLength) << note;
            EXPECT_GE(spacing, 1) << note;
            const PitchStream::LowestNote usable = PitchStream::usableLowestNote(kRate, ring);
            EXPECT_TRUE(usable.replaced()) << note;
            // The nearest usable value: a hundredth further and the segments no longer fit.
            ASSERT_TRUE(Parameters::shared().lowestNote.setValue(
                usable.used + (usable.used < note ? 0.01 : -0.01)));
            EXPECT_TRUE(PitchStream::usableLowestNote(kRate, ring).replaced()) << note;
            ASSERT_TRUE(Parameters::shared().lowestNote.setValue(usable.used));
            EXPECT_FALSE(PitchStream::usableLowestNote(kRate, ring).replaced()) << note;
            ASSERT_TRUE(Parameters::shared().lowestNote.setValue(note));
        }
    }
    // An opened sound always has room for the lowest note the options take: no warning.
    ASSERT_TRUE(Parameters::shared().lowestNote.setValue(0.0));
    test::MessageCatcher messages;
    test::OpenedSound sound(test::toneAt(60.0, 0.05));
    EXPECT_FALSE(
        PitchStream::usableLowestNote(kRate, sound.music->wavStream->maxFrames).replaced());
    EXPECT_TRUE(messages.texts.empty());
}

TEST(MusicStream, openedFileHasEverySegmentStartingInItTheSameEveryTime)
{
    // 700 frames: one segment, partly outside, which holds -1; 3000 frames: five, the last two
    // partly outside. Opened while the copy may still run, as the window opens them.
    for (const int frames : {700, 3000}) {
        testsignals::TempWav file(testsignals::tone({.freqHz = 440.0}, frames), {}, 2);
        ASSERT_TRUE(file.ok());
        for (int round = 0; round < 20; ++round) {
            auto wav = WavStream::createFromFile(file.path());
            ASSERT_NE(wav, nullptr);
            auto music = MusicStream::create(wav);
            ASSERT_TRUE(music->waitUntilCalculated(60s));
            const auto values = music->segmentValues();
            ASSERT_EQ(static_cast<int>(values.size()), frames / 512) << frames << " " << round;
            EXPECT_EQ(values.back().pitch, -1.0);
            for (const auto &value : values) {
                if (value.index * 512 + 1024 <= frames) {
                    EXPECT_GT(value.pitch, 0.0) << value.index;
                }
            }
        }
    }
}

TEST(MusicStream, computesEverySegmentOfASoundInTheBackground)
{
    const std::vector<double> samples = test::joined(
        test::joined(test::toneAt(60.3, 1.0), testsignals::silence(static_cast<int>(0.5 * kRate))),
        test::toneAt(72.0 - 0.2, 1.0));

    auto music = MusicStream::create(soundOf(samples));
    ASSERT_TRUE(music->waitUntilCalculated(60s));
    // A sound that may still grow holds only whole segments: a partial one would keep its -1.
    const std::int64_t segments = (static_cast<std::int64_t>(samples.size()) - 512) / 512;
    EXPECT_EQ(music->pitchStream()->maximumIndex(), segments);
    expectPitchesNear(pitchesBetween(*music, 0.0, 1.0), 60.3);
    expectPitchesNear(pitchesBetween(*music, 1.5, 2.5), 71.8);
    for (double pitch : pitchesBetween(*music, 1.0, 1.5))
        EXPECT_EQ(pitch, -1.0);
    for (const MusicStream::SegmentValue &value : music->segmentValues()) {
        EXPECT_NE(value.pitch, 0.0) << value.index;
        if (value.pitch > 0.0) {
            EXPECT_GT(value.goodness, 0.0) << value.index;
        }
    }
    EXPECT_EQ(music->timeRange().duration, static_cast<double>(samples.size()) / kRate);
    // On demand, the same answer as the background.
    EXPECT_DOUBLE_EQ(music->pitchAt(20), music->pitchStream()->valueAt(20));
}

// Hands out the uncalculated segments of a fixed window, in order.
class Window : public VisibleSegmentSource
{
public:
    Window(std::int64_t first, std::int64_t end) : first(first), end(end) {}
    std::int64_t nextVisibleSegment_D(const PitchStream &pitch) override
    {
        for (std::int64_t i = first; i < end; ++i)
            if (pitch.valueAt_D(i) == 0.0)
                return i;
        return -1;
    }

private:
    std::int64_t first;
    std::int64_t end;
};

TEST(MusicStream, visibleSegmentsComeFirstAndOneLoopServesEveryRequest)
{
    const auto wav = soundOf(test::toneAt(64.0, 1.0));
    auto log = std::make_shared<test::UnitLog>(true);
    Quorval::setVisibleSegmentSource(std::make_shared<Window>(40, 50));
    // The calc queue is held until the observer is in place, so the loop that create() starts
    // cannot compute anything unobserved.
    std::promise<void> observerSet;
    Quorval::calcQueue().async([ready = observerSet.get_future().share()] { ready.wait(); });
    auto music = MusicStream::create(wav);
    music->setUnitObserver([log](std::int64_t code) { (*log)(code); });
    observerSet.set_value();
    ASSERT_TRUE(log->waitForUnits(1));
    EXPECT_TRUE(music->isCalculating());
    const int loops = music->calculationLoopsStarted();
    for (int i = 0; i < 5; ++i)
        music->requestCalculation();
    EXPECT_EQ(music->calculationLoopsStarted(), loops);
    log->release();
    ASSERT_TRUE(music->waitUntilCalculated(60s));
    EXPECT_EQ(music->calculationLoopsStarted(), loops);
    Quorval::setVisibleSegmentSource(nullptr);

    std::vector<std::int64_t> computed;
    for (std::int64_t code : log->snapshot())
        if (code >= 0)
            computed.push_back(code);
    // The window first, in its order, then the rest from the start.
    auto window = std::find(computed.begin(), computed.end(), 40);
    ASSERT_NE(window, computed.end());
    ASSERT_GE(computed.end() - window, 11);
    for (std::int64_t i = 0; i < 10; ++i)
        EXPECT_EQ(window[i], 40 + i);
    EXPECT_NE(window[10], 50);
    for (auto it = computed.begin(); it != window; ++it)
        EXPECT_TRUE(*it < 40 || *it >= 50) << "window segment before the window: " << *it;
}

TEST(MusicStream, growsWithARecordingWhileCalculating)
{
    auto wav = WavStream::createForRecording(1, 2, kRate);
    ASSERT_NE(wav, nullptr);
    auto music = MusicStream::create(wav);
    EXPECT_EQ(music->pitchStream()->maximumIndex(), 0);
    const std::vector<std::int16_t> pcm = test::toPCM(test::toneAt(57.0, 2.0));

    Quorval::recording = true;
    bool spectrumWhileRecording = false;
    for (std::size_t start = 0; start < pcm.size(); start += 1024) {
        const std::size_t end = std::min(pcm.size(), start + 1024);
        Quorval::realtimeQueue().sync(
            [&] { EXPECT_TRUE(wav->appendSamples(std::span(pcm).subspan(start, end - start))); });
        // Half way, the loop has had its chance to take the newest segment's spectrum.
        if (start < pcm.size() / 2 && end >= pcm.size() / 2)
            spectrumWhileRecording =
                test::waitUntil([&music] { return music->fftPitchIndex >= 0; });
    }
    Quorval::recording = false;
    EXPECT_TRUE(spectrumWhileRecording);
    ASSERT_TRUE(music->waitUntilCalculated(60s));
    wav->modified = false;

    const std::int64_t whole = (static_cast<std::int64_t>(pcm.size()) - 512) / 512;
    EXPECT_EQ(music->pitchStream()->maximumIndex(), whole);
    expectPitchesNear(pitchesBetween(*music, 0.0, 2.0), 57.0);
    // The newest segment's spectrum was taken while recording.
    EXPECT_GE(music->fftPitchIndex, 0);
    EXPECT_EQ(music->fftStream()->maximumIndex(), 513);
}

TEST(MusicStream, optionChangesResegmentAndRecompute)
{
    Quorval::installOptionFollowUps();
    Parameters &options = Parameters::shared();
    OptionGuard response(options.response);
    OptionGuard highest(options.highestNote);
    auto music = MusicStream::create(soundOf(test::toneAt(62.0, 1.0)));
    Quorval::setMusicStream(music);
    ASSERT_TRUE(music->waitUntilCalculated(60s));
    const auto firstPitch = music->pitchStream();

    ASSERT_TRUE(options.response.setValue(2.0));
    const auto secondPitch = music->pitchStream();
    EXPECT_NE(secondPitch, firstPitch);
    EXPECT_EQ(secondPitch->segLength, 512);
    EXPECT_EQ(music->pitchView->data, secondPitch);
    EXPECT_EQ(music->goodnessView->data, music->goodnessStream());
    ASSERT_TRUE(music->waitUntilCalculated(60s));
    expectPitchesNear(pitchesBetween(*music, 0.0, 1.0), 62.0);

    // A note above the new highest note (and its extension) is no longer found.
    ASSERT_TRUE(options.highestNote.setValue(58.0));
    EXPECT_EQ(music->pitchStream(), secondPitch);
    EXPECT_EQ(music->pitchView->topY, 60.0);
    ASSERT_TRUE(music->waitUntilCalculated(60s));
    for (double pitch : pitchesBetween(*music, 0.0, 1.0))
        EXPECT_LT(pitch, 60.0);
    Quorval::setMusicStream(nullptr);
}

TEST(MusicStream, spectrumOfAFinishedSoundFollowsTheTimeAskedFor)
{
    const double note = 64.0;
    auto music = MusicStream::create(soundOf(test::toneAt(note, 1.0)));
    ASSERT_TRUE(music->waitUntilCalculated(60s));
    // Asked for once the calculation has gone idle, as a view chosen later asks: no further
    // request is needed, and a new time brings its own segment.
    for (const double t : {0.5, 0.8}) {
        SCOPED_TRACE(t);
        music->showSpectrumAt(t);
        ASSERT_TRUE(test::waitUntil(
            [&] { return music->fftPitchIndex == static_cast<std::int64_t>(t * kRate / 512.0); }));
    }
    ASSERT_TRUE(music->waitUntilCalculated(60s));
    music->showSpectrumAt(-1.0);

    const std::shared_ptr<FFTStream> spectrum = music->fftStream();
    ASSERT_EQ(spectrum->maximumIndex(), 513);
    std::int64_t loudest = 0;
    for (std::int64_t bin = 1; bin < 513; ++bin)
        if (spectrum->valueAt(bin) > spectrum->valueAt(loudest))
            loudest = bin;
    const double binHz = kRate / 1024.0;
    EXPECT_NEAR(static_cast<double>(loudest) * binHz, noteToHz(note), binHz);
    EXPECT_DOUBLE_EQ(spectrum->xScale, binHz);
}

TEST(MusicStream, viewsByTypeAndShortSounds)
{
    auto music = MusicStream::create(soundOf(testsignals::silence(700)));
    EXPECT_EQ(&music->viewFor(*viewTypeOfLetter(QChar('C'))), music->compositeView.get());
    EXPECT_FALSE(viewTypeOfLetter(QChar('X')));
    EXPECT_TRUE(music->viewFor(ViewType::RMSAmplitude).showRMS);
    DataView &amplitude = music->viewFor(ViewType::Amplitude);
    EXPECT_EQ(&amplitude, music->wavView.get());
    EXPECT_FALSE(amplitude.showRMS);
    EXPECT_EQ(music->viewFor(ViewType::Spectrum).viewType, ViewType::Spectrum);
    EXPECT_EQ(&music->viewFor(ViewType::Quality), music->goodnessView.get());

    // 700 frames hold one segment start but no whole segment: refresh leaves the range alone.
    ASSERT_TRUE(music->waitUntilCalculated(60s));
    const std::int64_t before = music->pitchStream()->maximumIndex();
    music->refresh();
    EXPECT_EQ(music->pitchStream()->maximumIndex(), before);
}

TEST(MusicStream, refinePitchRecomputesAndOffGivesTheSearchBack)
{
    Quorval::installOptionFollowUps();
    Parameters &options = Parameters::shared();
    OptionGuard refine(options.refinePitch);
    ASSERT_TRUE(options.refinePitch.setValue(false));
    const double note = 64.37;
    auto music = MusicStream::create(soundOf(test::toneAt(note, 1.0)));
    Quorval::setMusicStream(music);
    ASSERT_TRUE(music->waitUntilCalculated(60s));
    const std::vector<double> searched = pitchesBetween(*music, 0.02, 0.98);

    ASSERT_TRUE(options.refinePitch.setValue(true));
    ASSERT_TRUE(music->waitUntilCalculated(60s));
    const std::vector<double> refined = pitchesBetween(*music, 0.02, 0.98);
    ASSERT_EQ(refined.size(), searched.size());
    ASSERT_FALSE(refined.empty());
    double searchError = 0.0;
    for (std::size_t i = 0; i < refined.size(); i++) {
        EXPECT_NEAR(refined[i], note, 0.002) << "segment " << i;
        searchError = std::max(searchError, std::abs(searched[i] - note));
    }
    // The search alone is coarser, or the comparison would say nothing.
    EXPECT_GT(searchError, 0.002);
    for (const MusicStream::SegmentValue &value : music->segmentValues()) {
        if (value.pitch > 0.0) {
            EXPECT_GT(value.goodness, 0.0);
        }
    }

    // Off again: the search's own pitches, to the last bit.
    ASSERT_TRUE(options.refinePitch.setValue(false));
    ASSERT_TRUE(music->waitUntilCalculated(60s));
    EXPECT_EQ(pitchesBetween(*music, 0.02, 0.98), searched);
    Quorval::setMusicStream(nullptr);
}

TEST(MusicStream, aRefinedSegmentReadsTheSoundBesideItTheSameWhateverRanBefore)
{
    // A note attacked after one a fourth below, its first segment read in its own octave only
    // from the steady note after it; every segment the same in the background, block by block,
    // as computed alone on demand afterwards.
    Quorval::installOptionFollowUps();
    Parameters &options = Parameters::shared();
    OptionGuard refine(options.refinePitch);
    OptionGuard lowest(options.lowestNote);
    ASSERT_TRUE(options.refinePitch.setValue(true));
    ASSERT_TRUE(options.lowestNote.setValue(43.0));
    const auto [length, spacing] = MusicStream::segmentation(kRate, kRing);
    ASSERT_EQ(length, 2048);
    const int attack = 1024;
    const std::int64_t attacked = 6;
    // Segment `attacked` is centred halfway through the attack.
    const int change = static_cast<int>(attacked * spacing + length / 2 - attack / 2);
    const double high = noteToHz(57.0);
    auto music = MusicStream::create(soundOf(testsignals::attackAfterLowerNote(
        0.75 * high, high, 1500.0, change, attack, change + 3 * static_cast<int>(length))));
    ASSERT_TRUE(music->waitUntilCalculated(60s));
    auto pitch = music->pitchStream();
    EXPECT_NEAR(pitch->valueAt(attacked), 57.0, 0.25);
    std::vector<double> background;
    for (std::int64_t i = 0; i < pitch->maximumIndex(); ++i)
        background.push_back(pitch->valueAt(i));
    for (std::int64_t i = pitch->maximumIndex() - 1; i >= 0; --i)
        EXPECT_EQ(pitch->computePitch(i), background[static_cast<std::size_t>(i)]) << i;
}

TEST(PitchStream, edgeOperations)
{
    auto wav = soundOf(test::toneAt(69.0, 0.2)); // 8820 frames: segments 0 .. 16 start inside
    auto music = MusicStream::create(wav);
    ASSERT_TRUE(music->waitUntilCalculated(60s));
    auto pitch = music->pitchStream();
    auto goodness = music->goodnessStream();

    // Segment 16 ends past the sound: -1, and its goodness is left as it was.
    Quorval::dataQueue().sync([&] { goodness->store_D(0.25, 16); });
    EXPECT_EQ(pitch->computePitch(16), -1.0);
    EXPECT_EQ(goodness->valueAt(16), 0.25);
    EXPECT_NEAR(pitch->computePitch(3), 69.0, 0.05);

    Quorval::dataQueue().sync([&] {
        // Every slot holds a pitch or -1: nothing to do, and the mark reaches the end.
        EXPECT_EQ(pitch->nextUncalculatedIndex_D(), -1);
        EXPECT_EQ(pitch->allPitchesCalculatedTo, pitch->maximumIndex_D() - 1);
        // Moving past the ring's end clears exactly the slots entered and moves the start.
        const std::int64_t ring = pitch->size;
        const std::int64_t oldMax = pitch->maximumIndex_D();
        pitch->extendRange_D(ring + 5);
        EXPECT_EQ(pitch->minimumIndex_D(), 5);
        EXPECT_EQ(goodness->maximumIndex_D(), ring + 5);
        EXPECT_EQ(pitch->valueAt_D(oldMax), 0.0);
        EXPECT_EQ(pitch->valueAt_D(ring + 4), 0.0);
        EXPECT_NE(pitch->valueAt_D(5), 0.0);
        EXPECT_EQ(pitch->nextUncalculatedIndex_D(), oldMax);
        pitch->reset_D();
        EXPECT_EQ(pitch->nextUncalculatedIndex_D(), 5);
    });
    // A segment that has left the range keeps its result away from its slot's new owner.
    EXPECT_NEAR(pitch->computePitch(2), 69.0, 0.05);
    EXPECT_EQ(pitch->valueAt(pitch->size + 2), 0.0);
}

TEST(MusicStream, mp3PitchTrackLinesUpWithTheWavItWasMadeFrom)
{
    const int rate = 44100;
    std::vector<float> samples(static_cast<std::size_t>(rate), 0.0f); // 1 s of silence
    for (double v : test::toneAt(67.0, 1.0))
        samples.push_back(static_cast<float>(v / 32768.0));
    QTemporaryDir dir;
    const std::string wavPath = QDir(dir.path()).filePath("a.wav").toStdString();
    const std::string mp3Path = QDir(dir.path()).filePath("a.mp3").toStdString();
    ASSERT_TRUE(test::writeSoundFile(wavPath, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, rate, samples));
    ASSERT_TRUE(
        test::writeSoundFile(mp3Path, SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 1, rate, samples));
    auto firstPitched = [](const std::string &path) -> std::int64_t {
        auto wav = WavStream::createFromFile(path);
        EXPECT_NE(wav, nullptr);
        if (!wav)
            return -100;
        auto music = MusicStream::create(wav);
        EXPECT_TRUE(music->waitUntilCalculated(60s));
        for (const MusicStream::SegmentValue &value : music->segmentValues())
            if (value.pitch > 0.0)
                return value.index;
        return -100;
    };
    const std::int64_t fromWav = firstPitched(wavPath);
    const std::int64_t fromMp3 = firstPitched(mp3Path);
    EXPECT_GT(fromWav, 0);
    EXPECT_LE(std::abs(fromMp3 - fromWav), 1) << "wav " << fromWav << ", mp3 " << fromMp3;
}

} // namespace
} // namespace quorval
