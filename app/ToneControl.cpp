#include "app/ToneControl.h"

#include "audio/ReferenceTone.h"
#include "scale/Scale.h"
#include "streams/MusicStream.h"
#include "streams/PitchStream.h"
#include "streams/Quorval.h"

#include <QTimer>

#include <cmath>

namespace quorval {

ToneControl::ToneControl(std::function<std::shared_ptr<MusicStream>()> soundShown,
                         std::shared_ptr<const PlaybackState> shown,
                         std::function<void(const QString &)> tell, QObject *parent)
    : QObject(parent), sound(std::move(soundShown)), playback(std::move(shown)),
      say(std::move(tell)), follow(new QTimer(this))
{
    follow->setInterval(100);
    connect(follow, &QTimer::timeout, this, [this] {
        if (tone && tone->isSounding())
            tone->setFrequency(frequency());
    });
}

ToneControl::~ToneControl() = default;

void ToneControl::start()
{
    if (!tone)
        tone = ReferenceTone::make();
    if (!tone) {
        say(tr("No sound output for the reference tone"));
        return;
    }
    tone->start(frequency());
    follow->start();
}

void ToneControl::stop()
{
    follow->stop();
    if (tone)
        tone->stop();
}

bool ToneControl::sounding() const
{
    return tone && tone->isSounding();
}

double ToneControl::frequency()
{
    const Scale scale = Scale::current();
    const std::shared_ptr<MusicStream> music = sound();
    if (const std::shared_ptr<PitchStream> pitch = music ? music->pitchStream() : nullptr) {
        const double at = playback->needleTime / pitch->xScale - pitch->overlap;
        const auto count = static_cast<double>(pitch->maximumIndex());
        if (std::isfinite(at) && at >= 0.0 && at < count) {
            const double p = music->pitchAt(static_cast<std::int64_t>(at));
            if (p > 0.0)
                lastPitch = p;
        }
    }
    // Without a pitch heard yet: the tonic above middle C.
    const double p = lastPitch > 0.0 ? lastPitch : 60.0 + scale.settings().keyPitchClass;
    return scale.frequency(p - scale.deviation(p));
}

} // namespace quorval
