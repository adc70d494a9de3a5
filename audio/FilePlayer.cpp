#include "audio/FilePlayer.h"

#include "analysis/WavFileOC.h"
#include "audio/SoundDevices.h"

#include <QAudioSink>
#include <QFile>
#include <QIODevice>

#include <algorithm>
#include <cmath>

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
        reachedEnd = false;
    }

    int loopsLeft = 0;
    int wrapsTaken = 0; // times round to the start since rewindTo
    bool reachedEnd = false;

protected:
    qint64 readData(char *data, qint64 maxBytes) override
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

private:
    QFile file;
    qint64 headerBytes;
    qint64 dataBytes;
    int frameBytes;
    qint64 position = 0;
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
        QObject::connect(
            self->sink, &QAudioSink::stateChanged, self->sink, [self](QAudio::State state) {
                if (state != QAudio::IdleState || !self->playing || !self->source->reachedEnd)
                    return;
                // Everything has been heard: the end of the file.
                self->playing = false;
                self->startSeconds = self->durationSeconds;
                QMetaObject::invokeMethod(
                    self->sink,
                    [self] {
                        self->sink->stop();
                        if (self->finished)
                            self->finished();
                    },
                    Qt::QueuedConnection);
            });
        made = true;
    });
    return made ? std::move(player) : nullptr;
}

FilePlayer::~FilePlayer()
{
    audio.run([this] {
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
    double t = startSeconds + static_cast<double>(sink->processedUSecs()) * 1e-6;
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
    sink->stop();
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
