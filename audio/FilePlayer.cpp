#include "audio/FilePlayer.h"

#include "analysis/WavFileOC.h"
#include "audio/SoundDevices.h"

#include <QAudioSink>
#include <QFile>
#include <QIODevice>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <rubberband/RubberBandStretcher.h>
#include <vector>

namespace quorval {

// The file's sound as the output pulls it: from a byte position in the data, going round to the
// start as many times as loops allow, then nothing. Audio thread.
class FileSource : public QIODevice
{
public:
    FileSource(const std::string &path, qint64 headerBytes, qint64 dataBytes, int frameBytes)
        : file(QString::fromStdString(path)), headerBytes(headerBytes), dataBytes(dataBytes),
          frameBytes(frameBytes)
    {
    }

    bool openFile() { return file.open(QIODevice::ReadOnly) && open(QIODevice::ReadOnly); }
    [[nodiscard]] bool isSequential() const override { return true; }

    void rewindTo(qint64 byte)
    {
        position = std::clamp<qint64>(byte - byte % frameBytes, 0, dataBytes);
        wrapsTaken = 0;
        bytesGiven = 0;
        reachedEnd = false;
        rawEnded = false;
        if (stretcher)
            stretcher->reset();
    }

    int loopsLeft = 0;
    int wrapsTaken = 0;    // times round to the start since rewindTo
    qint64 bytesGiven = 0; // handed to the output since rewindTo
    bool reachedEnd = false;

    // Playing speed, 0.25 to 1: below 1 the sound is stretched in time at its own pitch. Set
    // while the output is stopped; the stretch starts afresh.
    void setSpeed(double newSpeed, int channels, double sampleRate, bool eightBit)
    {
        speed = newSpeed;
        if (speed == 1.0)
            return;
        if (!stretcher) {
            using RubberBand::RubberBandStretcher;
            stretcher = std::make_unique<RubberBandStretcher>(
                static_cast<std::size_t>(sampleRate), static_cast<std::size_t>(channels),
                RubberBandStretcher::OptionProcessRealTime |
                    RubberBandStretcher::OptionPitchHighConsistency,
                1.0 / speed);
            stretcher->setMaxProcessSize(kStretchFrames);
            // Every buffer made here, once: the output's pulls allocate nothing.
            rawBytes.resize(static_cast<std::size_t>(kStretchFrames) * frameBytes);
            planes.assign(static_cast<std::size_t>(channels),
                          std::vector<float>(static_cast<std::size_t>(kStretchFrames)));
            for (std::vector<float> &plane : planes)
                planePointers.push_back(plane.data());
            unsigned8 = eightBit;
        }
        stretcher->reset();
        stretcher->setTimeRatio(1.0 / speed);
        rawEnded = false;
    }
    [[nodiscard]] double playingSpeed() const { return speed; }

protected:
    qint64 readData(char *data, qint64 maxBytes) override
    {
        const qint64 got =
            speed == 1.0 || !stretcher ? readFile(data, maxBytes) : readStretched(data, maxBytes);
        bytesGiven += got;
        return got;
    }

private:
    static constexpr int kStretchFrames = 4096;

    // The file's frames, stretched: the stretcher is fed until it holds what is asked for.
    qint64 readStretched(char *data, qint64 maxBytes)
    {
        const std::size_t channels = planes.size();
        const int sampleBytes = frameBytes / static_cast<int>(channels);
        qint64 wanted = maxBytes / frameBytes;
        while (stretcher->available() <
                   static_cast<int>(std::min<qint64>(wanted, kStretchFrames)) &&
               !rawEnded) {
            const std::size_t need =
                std::clamp<std::size_t>(stretcher->getSamplesRequired(), 256, kStretchFrames);
            const qint64 got =
                readFile(rawBytes.data(), static_cast<qint64>(need) * frameBytes) / frameBytes;
            for (qint64 i = 0; i < got; ++i)
                for (std::size_t c = 0; c < channels; ++c)
                    planes[c][static_cast<std::size_t>(i)] =
                        sampleAt(rawBytes.data() + i * frameBytes + c * sampleBytes);
            rawEnded = got < static_cast<qint64>(need);
            stretcher->process(planePointers.data(), static_cast<std::size_t>(got), rawEnded);
        }
        // The output's end comes when the stretch is spent too.
        reachedEnd = rawEnded && stretcher->available() <= 0;
        qint64 total = 0;
        while (wanted > 0 && stretcher->available() > 0) {
            const std::size_t take = static_cast<std::size_t>(
                std::min<qint64>({wanted, stretcher->available(), kStretchFrames}));
            const std::size_t got = stretcher->retrieve(planePointers.data(), take);
            for (std::size_t i = 0; i < got; ++i)
                for (std::size_t c = 0; c < channels; ++c)
                    putSample(data + (total + static_cast<qint64>(i)) * frameBytes +
                                  static_cast<qint64>(c) * sampleBytes,
                              planes[c][i]);
            total += static_cast<qint64>(got);
            wanted -= static_cast<qint64>(got);
            if (got == 0)
                break;
        }
        return total * frameBytes;
    }

    [[nodiscard]] float sampleAt(const char *at) const
    {
        if (unsigned8)
            return (static_cast<float>(static_cast<unsigned char>(*at)) - 128.0f) / 128.0f;
        std::int16_t sample = 0;
        std::memcpy(&sample, at, 2);
        return static_cast<float>(sample) / 32768.0f;
    }

    void putSample(char *at, float value) const
    {
        const float clipped = std::clamp(value, -1.0f, 32767.0f / 32768.0f);
        if (unsigned8) {
            *at =
                static_cast<char>(static_cast<unsigned char>(std::lround(clipped * 128.0f) + 128));
            return;
        }
        const auto sample = static_cast<std::int16_t>(std::lround(clipped * 32768.0f));
        std::memcpy(at, &sample, 2);
    }

    qint64 readFile(char *data, qint64 maxBytes)
    {
        qint64 total = 0;
        maxBytes -= maxBytes % frameBytes;
        while (maxBytes > 0) {
            if (position >= dataBytes) {
                if (loopsLeft <= 0 || dataBytes == 0) {
                    reachedEnd = true;
                    break;
                }
                --loopsLeft;
                ++wrapsTaken;
                position = 0;
            }
            const qint64 want = std::min(maxBytes, dataBytes - position);
            if (!file.seek(headerBytes + position))
                break;
            const qint64 got = file.read(data + total, want);
            if (got <= 0) {
                reachedEnd = true; // the file is shorter than its header says
                break;
            }
            position += got;
            total += got;
            maxBytes -= got;
        }
        return total;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

    QFile file;
    qint64 headerBytes;
    qint64 dataBytes;
    int frameBytes;
    qint64 position = 0;
    double speed = 1.0;
    std::unique_ptr<RubberBand::RubberBandStretcher> stretcher;
    std::vector<char> rawBytes;
    std::vector<std::vector<float>> planes;
    std::vector<float *> planePointers;
    bool unsigned8 = false;
    bool rawEnded = false;
};

FilePlayer::FilePlayer() = default;

std::unique_ptr<FilePlayer> FilePlayer::open(const std::string &path)
{
    WavFileOC wav;
    if (!wav.setupFromPath(path) || !wav.isVerified())
        return nullptr;
    const int bytesPerSample = wav.getBytesPerSample();
    const int channels = wav.getNChannels();
    if ((bytesPerSample != 1 && bytesPerSample != 2) || channels < 1 || wav.getSampleRate() < 1.0)
        return nullptr;
    const std::optional<QAudioDevice> output = SoundDevices::defaultOutput();
    if (!output)
        return nullptr;

    std::unique_ptr<FilePlayer> player(new FilePlayer);
    player->format.setSampleRate(static_cast<int>(wav.getSampleRate()));
    player->format.setChannelCount(channels);
    player->format.setSampleFormat(bytesPerSample == 1 ? QAudioFormat::UInt8 : QAudioFormat::Int16);
    const int frameBytes = bytesPerSample * channels;
    const qint64 dataBytes = wav.getFileDataLength() - wav.getFileDataLength() % frameBytes;
    player->durationSeconds = static_cast<double>(dataBytes / frameBytes) / wav.getSampleRate();
    bool made = false;
    FilePlayer *self = player.get();
    self->audio.run([&] {
        auto *source = new FileSource(path, wav.getHeaderLength(), dataBytes, frameBytes);
        source->setParent(self->audio.context());
        if (!source->openFile()) {
            delete source;
            return;
        }
        self->source = source;
        self->sink = new QAudioSink(*output, self->format, self->audio.context());
        // The output goes idle once the file has run out, while the sound server still holds
        // what it was given: the end is watched for in the output's processed time.
        self->drainTimer = new QTimer(self->audio.context());
        self->drainTimer->setInterval(kDrainPollMs);
        QObject::connect(self->drainTimer, &QTimer::timeout, self->drainTimer,
                         [self] { self->finishWhenPlayedOut_A(); });
        QObject::connect(self->sink, &QAudioSink::stateChanged, self->sink,
                         [self](QAudio::State state) {
                             if (state != QAudio::IdleState || !self->playing ||
                                 !self->source->reachedEnd || self->drainTimer->isActive())
                                 return;
                             self->drainDeadline.setRemainingTime(self->unplayedUSecs_A() / 1000 +
                                                                  kDrainSlackMs);
                             // Not from inside the output's own signal: it is stopped there.
                             self->drainTimer->start();
                         });
        made = true;
    });
    return made ? std::move(player) : nullptr;
}

FilePlayer::~FilePlayer()
{
    audio.run([this] {
        delete drainTimer;
        drainTimer = nullptr;
        if (sink)
            sink->stop();
        delete sink;
        delete source;
        sink = nullptr;
        source = nullptr;
    });
}

double FilePlayer::currentTime_A() const
{
    if (!playing)
        return startSeconds;
    // What was heard, in the file's own time: slower playback covers less of it.
    double t =
        startSeconds + static_cast<double>(sink->processedUSecs()) * 1e-6 * source->playingSpeed();
    if (durationSeconds > 0.0 && t >= durationSeconds) {
        // Round to the start only as often as the source has actually gone round.
        const double wraps =
            std::min(std::floor(t / durationSeconds), static_cast<double>(source->wrapsTaken));
        t -= wraps * durationSeconds;
    }
    return std::min(t, durationSeconds);
}

void FilePlayer::stopOutput_A()
{
    startSeconds = currentTime_A();
    playing = false;
    drainTimer->stop();
    sink->stop();
}

qint64 FilePlayer::unplayedUSecs_A() const
{
    const qint64 givenUSecs = source->bytesGiven * 1000000 /
                              (static_cast<qint64>(format.bytesPerFrame()) * format.sampleRate());
    return std::max<qint64>(0, givenUSecs - sink->processedUSecs());
}

void FilePlayer::finishWhenPlayedOut_A()
{
    if (!playing || !source->reachedEnd) {
        drainTimer->stop();
        return;
    }
    // A server that stops playing (suspended, gone) still lets the end come, a little late.
    if (unplayedUSecs_A() > 0 && !drainDeadline.hasExpired())
        return;
    drainTimer->stop();
    // Everything has been heard: the end of the file.
    playing = false;
    startSeconds = durationSeconds;
    sink->stop();
    if (finished)
        finished();
}

double FilePlayer::currentTime()
{
    double t = 0.0;
    audio.run([&] { t = currentTime_A(); });
    return t;
}

void FilePlayer::setCurrentTime(double seconds)
{
    audio.run([&] {
        const bool wasPlaying = playing;
        if (wasPlaying)
            stopOutput_A();
        startSeconds = std::clamp(seconds, 0.0, durationSeconds);
        if (wasPlaying)
            play();
    });
}

bool FilePlayer::setSpeed(double speed)
{
    if (!(speed >= kSlowestSpeed && speed <= 1.0))
        return false;
    audio.run([&] {
        if (speed == source->playingSpeed())
            return;
        const bool wasPlaying = playing;
        if (wasPlaying)
            stopOutput_A();
        source->setSpeed(speed, format.channelCount(), format.sampleRate(),
                         format.sampleFormat() == QAudioFormat::UInt8);
        if (wasPlaying)
            play();
    });
    return true;
}

void FilePlayer::setNumberOfLoops(int loops)
{
    audio.run([&] { source->loopsLeft = std::max(0, loops); });
}

void FilePlayer::play()
{
    audio.run([this] {
        if (playing)
            return;
        source->rewindTo(static_cast<qint64>(std::llround(startSeconds * format.sampleRate())) *
                         format.bytesPerFrame());
        playing = true;
        sink->start(source);
    });
}

void FilePlayer::pause()
{
    audio.run([this] {
        if (playing)
            stopOutput_A();
    });
}

void FilePlayer::setFinishCallback(std::function<void()> callback)
{
    audio.run([&] { finished = std::move(callback); });
}

} // namespace quorval
