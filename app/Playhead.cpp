#include "app/Playhead.h"

#include "audio/Recorder.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

namespace quorval {

Playhead::Playhead(const Recorder &recorder, std::function<void()> givenRedraw,
                   Player::AudioPlayerFactory audioPlayer, std::shared_ptr<PlaybackState> playback)
    : recorder(recorder), redraw(std::move(givenRedraw)),
      shown(playback ? std::move(playback) : std::make_shared<PlaybackState>()),
      needleView(*shown, redraw),
      player(std::make_unique<Player>(needleView, std::move(audioPlayer)))
{
}

Playhead::~Playhead()
{
    player->stop();
}

void Playhead::setSound(std::shared_ptr<WavStream> sound)
{
    stop();
    wav = std::move(sound);
    needleView.setSelection(-1.0, -1.0);
    placeNeedle(extent().lowest);
}

Playhead::Extent Playhead::extent() const
{
    if (!wav)
        return {};
    return Quorval::dataQueue().sync([this] {
        Extent e;
        e.lowest = wav->xScale * static_cast<double>(wav->minimumIndex_D());
        e.highest = wav->xScale * static_cast<double>(wav->maximumIndex_D());
        e.frames = wav->maximumIndex_D() - wav->minimumIndex_D();
        return e;
    });
}

void Playhead::play()
{
    if (!wav)
        return;
    // Playback reads the working file: everything copied into it must be there.
    wav->waitForCopy();
    const Extent e = extent();
    // The needle belongs to the player's queue while it plays.
    if (shown->needleTime >= e.highest)
        Quorval::displayQueue().sync([this, &e] { shown->needleTime = e.lowest; });
    // The shown state plays only once the player has started.
    (void)player->start(*wav, [this] {
        QMetaObject::invokeMethod(this, &Playhead::finished, Qt::QueuedConnection);
    });
}

void Playhead::stop()
{
    if (!isPlaying())
        return;
    player->stop();
    if (redraw)
        redraw();
}

bool Playhead::canMoveNeedle() const
{
    return !recorder.isRecording() && extent().frames > 0;
}

std::optional<double> Playhead::rewind()
{
    return needleToEnd(&Extent::lowest);
}

std::optional<double> Playhead::fastForward()
{
    return needleToEnd(&Extent::highest);
}

std::optional<double> Playhead::needleToEnd(double Extent::*end)
{
    // One read of the sound's extent, for the check and the time alike.
    if (recorder.isRecording())
        return std::nullopt;
    const Extent e = extent();
    if (e.frames <= 0)
        return std::nullopt;
    placeNeedle(e.*end);
    return e.*end;
}

void Playhead::moveNeedle(double seconds)
{
    if (!isPlaying() && !recorder.isRecording())
        placeNeedle(seconds);
}

void Playhead::setSelection(double start, double end)
{
    needleView.setSelection(start, end);
}

void Playhead::setLoop(bool on)
{
    needleView.setLoop(on);
    emit loopChanged();
}

bool Playhead::loop() const
{
    return needleView.loop();
}

bool Playhead::setSpeed(double speed)
{
    return player->setSpeed(speed);
}

double Playhead::speed() const
{
    return player->playingSpeed();
}

} // namespace quorval
