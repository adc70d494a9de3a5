#include "app/Transport.h"

#include "audio/Recorder.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QTimer>

namespace quorval {

Transport::Transport(Hooks givenHooks, QObject *parent)
    : QObject(parent), hooks(std::move(givenHooks)),
      shown(hooks.playback ? hooks.playback : std::make_shared<PlaybackState>()),
      needleView(*shown, hooks.redraw),
      player(std::make_unique<Player>(needleView, hooks.audioPlayer)),
      recorderPtr(std::make_unique<Recorder>()), recordTimer(new QTimer(this))
{
    // While recording the needle follows the end of the sound and the title its modified mark.
    recordTimer->setInterval(50);
    connect(recordTimer, &QTimer::timeout, this, &Transport::followRecording);
    recorderPtr->setEndedCallback([this] {
        QMetaObject::invokeMethod(this, &Transport::recordingEnded, Qt::QueuedConnection);
    });
}

Transport::~Transport()
{
    player->stop();
    recorderPtr->stop();
}

bool Transport::oneTouch() const
{
    return hooks.oneTouch && hooks.oneTouch();
}

void Transport::setSound(std::shared_ptr<WavStream> sound)
{
    stop();
    wav = std::move(sound);
    needleView.setSelection(-1.0, -1.0);
    const Extent e = extent();
    placeNeedle(e.lowest);
    if (wav && oneTouch()) {
        if (e.frames == 0 && canRecordInto())
            enter(State::recordPaused, true);
        else
            enter(State::playPaused, true);
    }
    emit stateChanged();
}

bool Transport::playOn() const
{
    return current == State::playing || current == State::playPaused;
}

bool Transport::recordOn() const
{
    return current == State::recording || current == State::recordPaused;
}

bool Transport::pauseOn() const
{
    return current == State::playPaused || current == State::recordPaused;
}

bool Transport::isPlaying() const
{
    return shown->playing;
}

bool Transport::isRecording() const
{
    return recorderPtr->isRecording();
}

bool Transport::canTogglePlay() const
{
    return current != State::recording && extent().frames > 0;
}

bool Transport::canMoveNeedle() const
{
    return !isRecording() && extent().frames > 0;
}

void Transport::enter(State state, bool prepared)
{
    current = state;
    preparedFlag = prepared;
}

void Transport::togglePlay(Via via)
{
    if (canTogglePlay())
        toggle(State::playing, State::playPaused, via);
}

void Transport::toggleRecord(Via via)
{
    if (canToggleRecord())
        toggle(State::recording, State::recordPaused, via);
}

void Transport::toggle(State running, State paused, Via via)
{
    const bool wasPaused = pauseOn();
    // A command names what it does: from the prepared state it starts, as space would.
    const bool startingPrepared = via == Via::command && current == paused && preparedFlag;
    const bool turningOff = (current == running || current == paused) && !startingPrepared;
    stopPlayback();
    stopRecording();
    if (turningOff)
        enter(State::idle);
    else if (via == Via::click && (oneTouch() || wasPaused))
        enter(paused, oneTouch());
    else
        run(running);
    emit stateChanged();
}

void Transport::run(State running)
{
    enter(running);
    if (running == State::playing)
        startPlayback();
    else
        startRecording();
}

void Transport::togglePause()
{
    switch (current) {
    case State::idle:
        return;
    case State::playing:
        stopPlayback();
        enter(State::playPaused);
        break;
    case State::recording:
        stopRecording();
        enter(State::recordPaused);
        break;
    case State::playPaused:
        run(State::playing);
        break;
    case State::recordPaused:
        run(State::recording);
        break;
    }
    emit stateChanged();
}

void Transport::stop()
{
    stopPlayback();
    stopRecording();
    enter(State::idle);
    emit stateChanged();
}

std::optional<double> Transport::rewind()
{
    return needleToEnd(&Extent::lowest);
}

std::optional<double> Transport::fastForward()
{
    return needleToEnd(&Extent::highest);
}

std::optional<double> Transport::needleToEnd(double Extent::*end)
{
    if (!canMoveNeedle())
        return std::nullopt;
    const double t = extent().*end;
    placeNeedle(t);
    return t;
}

void Transport::moveNeedle(double seconds)
{
    if (!isPlaying() && !isRecording())
        placeNeedle(seconds);
}

void Transport::placeNeedle(double seconds)
{
    shown->needleTime = seconds;
}

void Transport::setSelection(double start, double end)
{
    needleView.setSelection(start, end);
}

void Transport::setLoop(bool on)
{
    needleView.setLoop(on);
    emit stateChanged();
}

bool Transport::loop() const
{
    return needleView.loop();
}

bool Transport::setSpeed(double speed)
{
    return player->setSpeed(speed);
}

double Transport::speed() const
{
    return player->playingSpeed();
}

Transport::Extent Transport::extent() const
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

bool Transport::canRecordInto() const
{
    return wav && wav->nChannels() == Recorder::nChannels &&
           wav->bytesPerSample() == Recorder::bitDepth / 8 &&
           wav->sampleRate() == Recorder::sampleRate;
}

void Transport::startPlayback()
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
        QMetaObject::invokeMethod(this, &Transport::playbackFinished, Qt::QueuedConnection);
    });
}

void Transport::stopPlayback()
{
    if (!isPlaying())
        return;
    player->stop();
    if (hooks.redraw)
        hooks.redraw();
}

void Transport::playbackFinished()
{
    if (isPlaying() || current != State::playing)
        return;
    if (oneTouch())
        enter(State::playPaused, true);
    else
        enter(State::idle);
    emit stateChanged();
}

void Transport::startRecording()
{
    if (!wav || !canRecordInto())
        return;
    // The recorder says why it cannot start; the state stays with nothing recording.
    if (!recorderPtr->start(wav))
        return;
    wav->modified = true;
    shown->recording = true;
    placeNeedle(extent().highest);
    recordTimer->start();
    emit soundChanged();
}

void Transport::stopRecording()
{
    if (!isRecording())
        return;
    recorderPtr->stop();
    shown->recording = false;
    recordTimer->stop();
    followRecording();
    emit recordingStopped();
}

void Transport::recordingEnded()
{
    shown->recording = false;
    recordTimer->stop();
    if (recordOn())
        enter(State::idle);
    followRecording();
    emit stateChanged();
}

void Transport::followRecording()
{
    shown->needleTime = extent().highest;
    if (hooks.redraw)
        hooks.redraw();
    emit soundChanged();
}

} // namespace quorval
