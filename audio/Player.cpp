#include "audio/Player.h"

#include "audio/FilePlayer.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace quorval {

Player::Player(PlayerView &view, AudioPlayerFactory factory)
    : view(view), makeAudioPlayer(std::move(factory)),
      displayTimer(Quorval::displayQueue(), kTickInterval, [this] { tick(); })
{
    if (!makeAudioPlayer)
        makeAudioPlayer = [](const std::string &path) -> std::unique_ptr<AudioPlayer> {
            return FilePlayer::open(path);
        };
}

Player::~Player()
{
    stop();
    displayTimer.suspend();
    // The audio player goes first, so that no finish call is posted after the flush below.
    if (Quorval::isShuttingDown()) {
        audioPlayer.reset();
        return;
    }
    Quorval::displayQueue().sync([this] { audioPlayer.reset(); });
    // Finish calls posted while the audio player went run before this object goes.
    Quorval::displayQueue().sync([] {});
}

bool Player::start(WavStream &wav, std::function<void()> finish)
{
    // Read through the stream's queue before taking the display queue.
    const std::int64_t first = wav.minimumIndex();
    const std::int64_t last = wav.maximumIndex();
    return Quorval::displayQueue().sync([&] {
        if (playing) {
            displayTimer.suspend();
            audioPlayer->pause();
            playing = false;
        }
        url = wav.fileURL;
        audioPlayer = makeAudioPlayer(url);
        if (!audioPlayer)
            return false;
        // The end of a file played before must not end this one.
        const std::uint64_t serial = ++audioPlayerSerial;
        audioPlayer->setFinishCallback([this, serial] {
            Quorval::displayQueue().async([this, serial] {
                if (serial == audioPlayerSerial)
                    audioPlayerDidFinishPlaying();
            });
        });
        finishCallback = std::move(finish);
        (void)audioPlayer->setSpeed(speed);
        minX = static_cast<double>(first) * wav.xScale;
        maxX = static_cast<double>(last) * wav.xScale;
        maxRange = static_cast<double>(wav.maxFrames) * wav.xScale;

        // The range is the selection, or without one the whole recording; play starts at the
        // mark only when the mark lies inside it.
        const double m = view.playMark();
        const std::optional<PlayerView::Selection> selection = view.selection();
        const double s = selection ? selection->start : minX;
        const double e = selection ? selection->end : maxX;
        double from = m;
        if (!(e > m && m >= s)) {
            view.setPlayMark(s);
            from = s;
        }
        loopStartTime = s;
        endTime = e;
        startTime = from;
        beginPass();
        displayTimer.resume();
        playing = true;
        view.setPlaying(true);
        return true;
    });
}

void Player::stop()
{
    if (Quorval::isShuttingDown())
        return;
    Quorval::displayQueue().sync([this] {
        if (!playing)
            return;
        displayTimer.suspend();
        audioPlayer->pause();
        playing = false;
        view.setPlaying(false);
    });
}

bool Player::setSpeed(double newSpeed)
{
    if (!isPracticeSpeed(newSpeed))
        return false;
    Quorval::displayQueue().sync([this, newSpeed] {
        speed = newSpeed;
        if (audioPlayer)
            (void)audioPlayer->setSpeed(speed);
    });
    return true;
}

double Player::playingSpeed()
{
    return Quorval::displayQueue().sync([this] { return speed; });
}

bool Player::isPracticeSpeed(double speed)
{
    return std::find(kSpeeds.begin(), kSpeeds.end(), speed) != kSpeeds.end();
}

void Player::beginPass()
{
    startMark = std::fmod(startTime, maxRange);
    lastTime = startTime;
    audioPlayer->setCurrentTime(startMark);
    lastMark = startMark;
    // At most one extra time through the file: when what is left to play lies in a later
    // period of the ring. Deliberately 0 or 1, never more.
    const bool laterPeriod = std::ceil(maxX / maxRange) - 1.0 > std::trunc(startTime / maxRange);
    audioPlayer->setNumberOfLoops(laterPeriod ? 1 : 0);
    audioPlayer->play();
}

void Player::tick()
{
    if (!playing || !audioPlayer)
        return;
    const double c = audioPlayer->currentTime();
    if (c == lastMark)
        return;
    const double delta = std::fmod(c - lastMark + maxRange, maxRange);
    if (delta >= maxRange / 2.0)
        return; // a jump backwards, or too far to be playing
    const double t = lastTime + delta;
    if (endTime > t) {
        lastTime = t;
        lastMark = c;
        view.setPlayMark(t);
    } else {
        audioPlayer->pause();
        if (view.loop()) {
            startTime = loopStartTime;
            beginPass();
            view.setPlayMark(loopStartTime);
        } else {
            // Deliberately the recording's end here and endTime when the file runs out: where
            // the mark rests after play depends on which of the two ended it.
            finishPlaying(maxX);
        }
    }
    view.redraw();
}

void Player::audioPlayerDidFinishPlaying()
{
    if (!playing)
        return;
    if (view.loop()) {
        startTime = loopStartTime;
        beginPass();
        return;
    }
    finishPlaying(endTime);
}

void Player::finishPlaying(double markTime)
{
    displayTimer.suspend();
    playing = false;
    view.setPlaying(false);
    view.setPlayMark(markTime);
    if (finishCallback)
        finishCallback();
}

} // namespace quorval
