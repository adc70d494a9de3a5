#include "app/Transport.h"

#include "audio/Recorder.h"
#include "streams/Quorval.h"
#include "streams/WavStream.h"

#include <QTimer>

namespace quorval {

Transport::Transport(Hooks givenHooks, QObject *parent)
    : QObject(parent), hooks(std::move(givenHooks)), recorderPtr(std::make_unique<Recorder>()),
      head(*recorderPtr, hooks.redraw, hooks.audioPlayer, hooks.playback),
      recordTimer(new QTimer(this))
{
    connect(&head, &Playhead::finished, this, &Transport::playbackFinished);
    connect(&head, &Playhead::loopChanged, this, &Transport::stateChanged);
    // While recording the needle follows the end of the sound and the title its modified mark.
    recordTimer->setInterval(50);
    connect(recordTimer, &QTimer::timeout, this, &Transport::followRecording);
    recorderPtr->setEndedCallback([this] {
        QMetaObject::invokeMethod(this, &Transport::recordingEnded, Qt::QueuedConnection);
    });
}

Transport::~Transport()
{
    head.stop();
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
    head.setSound(wav);
    const Playhead::Extent e = head.extent();
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
    return head.isPlaying();
}

bool Transport::isRecording() const
{
    return recorderPtr->isRecording();
}

bool Transport::canTogglePlay() const
{
    return current != State::recording && head.extent().frames > 0;
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
    head.stop();
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
        head.play();
    else
        startRecording();
}

void Transport::togglePause()
{
    switch (current) {
    case State::idle:
        return;
    case State::playing:
        head.stop();
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
    head.stop();
    stopRecording();
    enter(State::idle);
    emit stateChanged();
}

bool Transport::canRecordInto() const
{
    return wav && wav->nChannels() == Recorder::nChannels &&
           wav->bytesPerSample() == Recorder::bitDepth / 8 &&
           wav->sampleRate() == Recorder::sampleRate;
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
    head.setRecording(true);
    head.placeNeedle(head.extent().highest);
    recordTimer->start();
    emit soundChanged();
}

void Transport::stopRecording()
{
    if (!isRecording())
        return;
    recorderPtr->stop();
    head.setRecording(false);
    recordTimer->stop();
    followRecording();
    emit recordingStopped();
}

void Transport::recordingEnded()
{
    head.setRecording(false);
    recordTimer->stop();
    if (recordOn())
        enter(State::idle);
    followRecording();
    emit stateChanged();
}

void Transport::followRecording()
{
    head.placeNeedle(head.extent().highest);
    if (hooks.redraw)
        hooks.redraw();
    emit soundChanged();
}

} // namespace quorval
