#include "audio/ReferenceTone.h"

#include "audio/SoundDevices.h"

#include <QAudioFormat>
#include <QAudioSink>
#include <QIODevice>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numbers>

namespace quorval {

// The sine as 16-bit mono samples, made as the output reads them. Its frequency and whether it
// should sound are atomics the other threads set; the gain moves towards the wanted one by a
// fade's step per sample, and the phase runs on, so that no change clicks.
class SineSource : public QIODevice
{
public:
    std::atomic<double> frequencyHz{440.0};
    std::atomic<bool> wanted{false};

    [[nodiscard]] bool silentNow() const { return gain.load() == 0.0 && !wanted.load(); }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        const qint64 frames = maxSize / 2;
        const double step =
            2.0 * std::numbers::pi * frequencyHz.load() / ReferenceTone::kSampleRate;
        const double fadeStep = 1.0 / (ReferenceTone::kFadeSeconds * ReferenceTone::kSampleRate);
        const double target = wanted.load() ? 1.0 : 0.0;
        double g = gain.load();
        for (qint64 i = 0; i < frames; ++i) {
            g = target > g ? std::min(target, g + fadeStep) : std::max(target, g - fadeStep);
            const double value = ReferenceTone::kAmplitude * g * std::sin(phase) * 32767.0;
            phase += step;
            if (phase > 2.0 * std::numbers::pi)
                phase -= 2.0 * std::numbers::pi;
            const auto sample = static_cast<std::int16_t>(std::lround(value));
            std::memcpy(data + 2 * i, &sample, 2);
        }
        gain = g;
        return frames * 2;
    }
    qint64 writeData(const char *, qint64) override { return -1; }
    [[nodiscard]] bool isSequential() const override { return true; }
    [[nodiscard]] qint64 bytesAvailable() const override
    {
        return 4096 + QIODevice::bytesAvailable();
    }

private:
    double phase = 0.0; // audio thread
    std::atomic<double> gain{0.0};
};

ReferenceTone::ReferenceTone() = default;

std::unique_ptr<ReferenceTone> ReferenceTone::make()
{
    const std::optional<QAudioDevice> output = SoundDevices::defaultOutput();
    if (!output)
        return nullptr;
    QAudioFormat format;
    format.setSampleRate(static_cast<int>(kSampleRate));
    format.setChannelCount(1);
    format.setSampleFormat(QAudioFormat::Int16);
    std::unique_ptr<ReferenceTone> tone(new ReferenceTone);
    bool made = false;
    tone->audio.run([&] {
        if (!output->isFormatSupported(format))
            return;
        tone->source = new SineSource;
        tone->source->open(QIODevice::ReadOnly);
        tone->sink = new QAudioSink(*output, format, tone->audio.context());
        made = true;
    });
    return made ? std::move(tone) : nullptr;
}

ReferenceTone::~ReferenceTone()
{
    audio.run([this] {
        if (sink)
            sink->stop();
        delete sink;
        delete source;
    });
}

void ReferenceTone::start(double frequencyHz)
{
    audio.run([this, frequencyHz] {
        source->frequencyHz = frequencyHz;
        source->wanted = true;
        if (sink->state() != QAudio::ActiveState)
            sink->start(source);
    });
}

void ReferenceTone::setFrequency(double frequencyHz)
{
    source->frequencyHz = frequencyHz;
}

void ReferenceTone::stop()
{
    // The fade goes on in the buffers already asked for; the output keeps reading silence
    // until the next start.
    source->wanted = false;
}

bool ReferenceTone::isSounding() const
{
    return source->wanted.load();
}

double ReferenceTone::frequency() const
{
    return source->frequencyHz.load();
}

} // namespace quorval
