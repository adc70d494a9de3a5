#include "streams/MusicStream.h"

#include "analysis/Check.h"
#include "options/Parameters.h"
#include "scale/Scale.h"
#include "streams/FFTStream.h"
#include "streams/PitchStream.h"
#include "streams/Quorval.h"
#include "streams/Warnings.h"
#include "streams/WavStream.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace quorval {

namespace {

std::shared_ptr<DataView> makeView(ViewType type, std::shared_ptr<DataStream> data, double maxY,
                                   double minY)
{
    auto view = std::make_shared<DataView>();
    view->viewType = type;
    view->data = std::move(data);
    view->setRange(maxY, minY);
    return view;
}

// The segment whose start lies at or just before timeSeconds.
std::int64_t segmentAt(const PitchStream &pitch, double timeSeconds)
{
    const double t = timeSeconds / pitch.xScale - pitch.overlap;
    const double index = std::isfinite(t) ? std::floor(t) : 0.0;
    return static_cast<std::int64_t>(std::clamp(index, 0.0, 0x1p62));
}

// Moves the pitch range up to the whole segments the sound holds (nothing when it holds none);
// true when that grew it. Data queue.
bool takeInHeldSegments_D(PitchStream &pitch)
{
    const std::int64_t n = pitch.segmentsHeld_D();
    if (n < 1)
        return false;
    const bool grew = n > pitch.maximumIndex_D();
    pitch.extendRange_D(n);
    return grew;
}

// Data queue.
void tellVisibleColumns_D()
{
    if (auto source = Quorval::visibleSegmentSource())
        source->pitchStreamGrew_D();
}

} // namespace

MusicStream::MusicStream(std::shared_ptr<WavStream> wav)
    : DoubleStream(wav->xScale, 0.0, wav->minNominalY, wav->maxNominalY), wavStream(std::move(wav))
{
}

// Segments computed together by a unit that goes on through the rest of the sound: small enough
// that visible segments asked for meanwhile wait well under a millisecond.
constexpr std::int64_t kRestBlockSegments = 16;

struct MusicStream::BlockWork
{
    std::weak_ptr<PitchStream> stream; // the pitch stream the scratch was made for
    std::unique_ptr<PitchStream::Scratch> scratch;
};

MusicStream::~MusicStream() = default;

std::int64_t MusicStream::minimumIndex_D() const
{
    return wavStream->minimumIndex_D();
}

std::int64_t MusicStream::maximumIndex_D() const
{
    return wavStream->maximumIndex_D();
}

std::shared_ptr<MusicStream> MusicStream::create(std::shared_ptr<WavStream> wav)
{
    QUORVAL_CHECK(wav != nullptr);
    auto music = std::shared_ptr<MusicStream>(new MusicStream(std::move(wav)));
    const auto &sound = music->wavStream;
    music->compositeView = makeView(ViewType::Composite, nullptr, 0.0, 0.0);
    music->wavView = makeView(ViewType::Amplitude, sound, sound->maxNominalY, sound->minNominalY);
    music->wavView->volumeData = sound;
    music->pitchView = makeView(ViewType::Pitch, nullptr, 0.0, 0.0);
    // Goodness has no upper bound; clear tones score in the hundreds, and "Quality threshold"
    // tops out at 1000.
    music->goodnessView = makeView(ViewType::Quality, nullptr, 1000.0, 0.0);
    music->fftView =
        makeView(ViewType::Spectrum, nullptr, 0.0, Parameters::shared().dbNoiseLimit.value());
    music->timeView = std::make_shared<HView>();
    music->frequencyView = std::make_shared<HView>();
    music->frequencyView->functionOfTime = false;
    music->noteRangeChanged();
    // Heard of from here on: growth before the streams exist is in the extent they are built
    // over, and growth while they are built is taken up by one more look afterwards.
    const bool growing = sound->copying;
    sound->setParent(music);
    music->resegment();
    if (growing)
        music->soundGrew();
    return music;
}

std::shared_ptr<PitchStream> MusicStream::pitchStream() const
{
    std::lock_guard lock(streamsMutex);
    return pitch;
}

std::shared_ptr<GoodnessStream> MusicStream::goodnessStream() const
{
    std::lock_guard lock(streamsMutex);
    return goodness;
}

std::shared_ptr<FFTStream> MusicStream::fftStream() const
{
    std::lock_guard lock(streamsMutex);
    return fft;
}

DataView &MusicStream::viewFor(ViewType type)
{
    std::shared_ptr<DataView> view = compositeView;
    switch (type) {
    case ViewType::Amplitude:
    case ViewType::RMSAmplitude:
        view = wavView;
        if (view)
            view->showRMS = type == ViewType::RMSAmplitude;
        break;
    case ViewType::Pitch:
        view = pitchView;
        break;
    case ViewType::Quality:
        view = goodnessView;
        break;
    case ViewType::Spectrum:
        view = fftView;
        break;
    case ViewType::Composite:
        break;
    }
    QUORVAL_CHECK(view != nullptr);
    return *view;
}

std::pair<std::int64_t, std::int64_t> MusicStream::segmentation(double sampleRate,
                                                                std::int64_t ringFrames)
{
    Parameters &options = Parameters::shared();
    const double lowest = PitchStream::usableLowestNote(sampleRate, ringFrames).used;
    const double lowFreq = options.aFrequency.value() * std::exp((lowest - 69.0) * kSemitoneLog);
    const double wantedSamples = options.response.value() / lowFreq * sampleRate;
    std::int64_t length = 1;
    while (static_cast<double>(length) < wantedSamples) {
        QUORVAL_CHECK(length < (std::int64_t{1} << 62));
        length *= 2;
    }
    const double spacing = (1.0 - options.frameOverlap.value()) * static_cast<double>(length);
    QUORVAL_CHECK(std::isfinite(spacing) && spacing >= 0.0 && spacing < 0x1p63);
    const auto spacingFrames = static_cast<std::int64_t>(spacing);
    QUORVAL_CHECK(spacingFrames > 0);
    return {length, spacingFrames};
}

void MusicStream::resegment()
{
    const PitchStream::LowestNote lowest =
        PitchStream::usableLowestNote(wavStream->sampleRate(), wavStream->maxFrames);
    if (lowest.replaced() && lowest.requested != warnedLowestNote) {
        warnedLowestNote = lowest.requested;
        showWarning(QStringLiteral("\"%1\" %2 needs analysis segments %3 than can be used at %4 "
                                   "Hz; %5 is used instead")
                        .arg(Parameters::shared().lowestNote.name)
                        .arg(lowest.requested)
                        .arg(lowest.used > lowest.requested ? "longer" : "shorter")
                        .arg(wavStream->sampleRate())
                        .arg(lowest.used));
    }
    // Plain variables, not a structured binding: the lambda below captures them.
    const std::pair<std::int64_t, std::int64_t> chosen =
        segmentation(wavStream->sampleRate(), wavStream->maxFrames);
    const std::int64_t length = chosen.first;
    const std::int64_t spacing = chosen.second;
    const std::shared_ptr<PitchStream> current = pitchStream();
    if (current && current->segLength == length && current->segSpacing == spacing) {
        refresh();
        return;
    }
    // Enough ring for every segment the sound can ever hold.
    const std::int64_t ringSize = wavStream->maxFrames / spacing + 1;
    auto [newPitch, newGoodness] = Quorval::dataQueue().sync([&] {
        auto madePitch = std::make_shared<PitchStream>(wavStream, length, spacing, ringSize);
        auto madeGoodness = std::make_shared<GoodnessStream>(*madePitch);
        madePitch->attachGoodnessStream(madeGoodness);
        return std::make_pair(madePitch, madeGoodness);
    });
    auto newFFT =
        std::make_shared<FFTStream>(1.0 / (wavStream->xScale * static_cast<double>(length)),
                                    Parameters::shared().dbNoiseLimit.value());
    {
        std::lock_guard lock(streamsMutex);
        pitch = newPitch;
        goodness = newGoodness;
        fft = newFFT;
        segLengthValue = length;
        segSpacingValue = spacing;
    }
    fftPitchIndex = -1;
    ++serial;
    compositeView->data = newPitch;
    compositeView->volumeData = wavStream;
    pitchView->data = newPitch;
    goodnessView->data = newGoodness;
    fftView->data = newFFT;
    requestCalculation();
}

void MusicStream::refresh()
{
    const std::shared_ptr<PitchStream> current = pitchStream();
    if (!current)
        return;
    Quorval::dataQueue().sync([&] {
        (void)takeInHeldSegments_D(*current);
        // Told even when nothing grew: a refresh also follows an option change.
        if (current->maximumIndex_D() > 0)
            tellVisibleColumns_D();
    });
}

void MusicStream::soundGrew()
{
    refresh();
    requestCalculation();
}

void MusicStream::noteRangeChanged()
{
    Parameters &options = Parameters::shared();
    const double extension = options.scaleExtension.value();
    const double top = options.highestNote.value() + extension;
    const double bottom = options.lowestNote.value() - extension;
    compositeView->setRange(top, bottom);
    pitchView->setRange(top, bottom);
}

MusicStream::TimeRange MusicStream::timeRange() const
{
    const auto [first, last] = Quorval::dataQueue().sync([this] {
        return std::make_pair(wavStream->minimumIndex_D(), wavStream->maximumIndex_D());
    });
    TimeRange range;
    range.start = wavStream->xScale * static_cast<double>(first);
    range.end = wavStream->xScale * static_cast<double>(last);
    range.duration = range.end - range.start;
    return range;
}

double MusicStream::pitchAt(std::int64_t i)
{
    const std::shared_ptr<PitchStream> current = pitchStream();
    QUORVAL_CHECK(current != nullptr);
    return current->computePitch(i);
}

void MusicStream::requestCalculation()
{
    if (running.exchange(true)) {
        requestedAgain = true;
        return;
    }
    ++loopsStarted;
    std::weak_ptr<MusicStream> weakSelf = std::static_pointer_cast<MusicStream>(shared_from_this());
    Quorval::calcQueue().async([weakSelf] { calculationLoop(weakSelf); });
}

void MusicStream::calculationLoop(const std::weak_ptr<MusicStream> &weakSelf)
{
    for (;;) {
        std::shared_ptr<MusicStream> self = weakSelf.lock();
        if (!self)
            return;
        if (Quorval::isShuttingDown()) {
            self->running = false;
            self->notifyIdle();
            return;
        }
        const std::int64_t code = Quorval::crunchQueue().sync([&self] {
            const std::int64_t unitCode = self->unitOfWork();
            std::function<void(std::int64_t)> observer;
            {
                std::lock_guard lock(self->observerMutex);
                observer = self->unitObserver;
            }
            if (observer)
                observer(unitCode);
            return unitCode;
        });
        if (code != -1) {
            Quorval::redisplay();
            continue;
        }
        if (self->requestedAgain.exchange(false))
            continue;
        self->running = false;
        // A request made between the check above and clearing the flag saw the loop running
        // and only set requestedAgain: take it up unless a new loop has been posted already.
        if (self->requestedAgain.exchange(false) && !self->running.exchange(true))
            continue;
        self->notifyIdle();
        return;
    }
}

void MusicStream::notifyIdle()
{
    {
        std::lock_guard lock(idleMutex);
    }
    idleSignal.notify_all();
}

void MusicStream::showSpectrumAt(double timeSeconds)
{
    const double wanted = std::isfinite(timeSeconds) ? timeSeconds : -1.0;
    spectrumTime = wanted;
    const std::shared_ptr<PitchStream> current = pitchStream();
    if (wanted >= 0.0 && current && segmentAt(*current, wanted) != fftPitchIndex)
        requestCalculation();
}

std::int64_t MusicStream::spectrumStep(PitchStream &current)
{
    SerialQueue &data = Quorval::dataQueue();
    const std::shared_ptr<FFTStream> spectrum = fftStream();
    if (Quorval::recording) {
        const std::int64_t newest = data.sync([&current] {
            const std::int64_t last = current.maximumIndex_D() - 1;
            return last >= 0 && current.valueAt_D(last) == 0.0 ? last : -1;
        });
        if (newest >= 0) {
            current.computePitch(newest);
            const std::vector<double> values = current.lastSpectrum();
            data.sync([&] {
                spectrum->setSpectrum_D(values.data(), static_cast<std::int64_t>(values.size()));
            });
            fftPitchIndex = newest;
            return newest;
        }
    }
    const double wantedTime = spectrumTime;
    if (wantedTime < 0.0)
        return -1;
    const std::int64_t needleIndex = segmentAt(current, wantedTime);
    const std::int64_t count =
        data.sync([&current] { return current.maximumIndex_D() - current.minimumIndex_D(); });
    if (count <= 0 || needleIndex == fftPitchIndex)
        return -1;
    fftPitchIndex = needleIndex;
    const std::vector<double> values = current.spectrumOf(needleIndex, Quorval::sharedFFT());
    if (values.empty())
        return -1;
    data.sync(
        [&] { spectrum->setSpectrum_D(values.data(), static_cast<std::int64_t>(values.size())); });
    return -2;
}

std::int64_t MusicStream::unitOfWork()
{
    const std::shared_ptr<PitchStream> current = pitchStream();
    if (!current)
        return -1;
    if (const std::int64_t spectrumCode = spectrumStep(*current); spectrumCode != -1)
        return spectrumCode;

    const std::shared_ptr<VisibleSegmentSource> source = Quorval::visibleSegmentSource();
    const bool copyUnderWay = wavStream->copying;
    bool fromTheRest = false;
    // One visit to the data queue chooses the segment and reads its samples.
    const std::int64_t chosen = current->computeChosenInBackground([&]() -> std::int64_t {
        if (source) {
            const std::int64_t visible = source->nextVisibleSegment_D(*current);
            // Only segments inside the range: a store past its end would move the range.
            if (visible >= current->minimumIndex_D() && visible < current->maximumIndex_D())
                return visible;
        }
        if (copyUnderWay)
            return -1;
        fromTheRest = true;
        return current->nextUncalculatedIndex_D();
    });
    if (fromTheRest && chosen >= 0)
        computeBlockAfter(current, chosen + 1);
    return chosen;
}

void MusicStream::computeBlockAfter(const std::shared_ptr<PitchStream> &current, std::int64_t first)
{
    if (!blockWork || blockWork->stream.lock() != current) {
        blockWork = std::make_unique<BlockWork>();
        blockWork->stream = current;
        blockWork->scratch = current->makeScratch();
    }
    (void)current->computeBlockInBackground(first, first + kRestBlockSegments - 1,
                                            *blockWork->scratch);
}

void MusicStream::recompute()
{
    if (const std::shared_ptr<PitchStream> current = pitchStream()) {
        Quorval::dataQueue().async([current] { current->reset_D(); });
        requestCalculation();
    }
}

bool MusicStream::waitUntilCalculated(std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        {
            std::unique_lock lock(idleMutex);
            if (!idleSignal.wait_until(lock, deadline,
                                       [this] { return !running && !wavStream->copying; }))
                return false;
        }
        const std::shared_ptr<PitchStream> current = pitchStream();
        if (!current)
            return true;
        const bool done = Quorval::dataQueue().sync([&current] {
            // A copy that has just ended may not have told the pitch stream of its last
            // segments yet: they are taken in before anything counts as done.
            if (takeInHeldSegments_D(*current))
                tellVisibleColumns_D();
            return current->nextUncalculatedIndex_D() < 0;
        });
        if (done)
            return true;
        requestCalculation();
    }
}

std::vector<MusicStream::SegmentValue> MusicStream::segmentValues() const
{
    const std::shared_ptr<PitchStream> current = pitchStream();
    if (!current)
        return {};
    return Quorval::dataQueue().sync([&current] {
        std::vector<SegmentValue> values;
        const std::shared_ptr<GoodnessStream> &goodnessOf = current->goodnessStream();
        for (std::int64_t i = current->minimumIndex_D(); i < current->maximumIndex_D(); ++i)
            values.push_back({i, current->xScale * static_cast<double>(i), current->valueAt_D(i),
                              goodnessOf->valueAt_D(i)});
        return values;
    });
}

std::string MusicStream::description() const
{
    std::string text = "musicStream serial " + std::to_string(serial.load()) + "\n";
    const std::shared_ptr<PitchStream> current = pitchStream();
    if (current)
        text += current->description() + "\n";
    else
        text += "pitchStream is nil\n";
    if (const std::shared_ptr<GoodnessStream> currentGoodness = goodnessStream())
        text += "goodnessStream serial " + std::to_string(currentGoodness->serial.load());
    else
        text += "goodnessStream is nil";
    return text;
}

void MusicStream::setUnitObserver(std::function<void(std::int64_t)> observer)
{
    std::lock_guard lock(observerMutex);
    unitObserver = std::move(observer);
}

} // namespace quorval
