#pragma once

#include "app/Playhead.h"

#include <QObject>

#include <functional>
#include <memory>

class QTimer;

namespace quorval {

class Recorder;
class WavStream;

// The window's transport: what the user asked of play, pause and record, over the recorder and
// the playhead (player and needle) it owns. The state is the user's intent; whether sound is
// actually running is isPlaying() and isRecording() (a recorder that may not start leaves the state
// at recording with nothing recording, a player that cannot start leaves it at playing).
//
// One touch (oneTouch() answering true): a click that turns play or record on prepares it (its
// paused state) instead of starting, and the pause control then starts and stops. A new sound
// comes prepared, for record when it is empty and may be recorded into, else for play; playing
// that ends by itself comes back prepared.
//
// Main thread only, but for the needle's redraw handler, which the player calls on the
// "display" queue.
class Transport : public QObject
{
    Q_OBJECT

public:
    enum class State
    {
        idle,
        playing,
        playPaused,
        recording,
        recordPaused
    };

    struct Hooks
    {
        std::function<bool()> oneTouch;          // the option in force; off when not given
        std::function<void()> redraw;            // the needle moved; "display" queue
        Player::AudioPlayerFactory audioPlayer;  // opens a file for playing (tests give a fake)
        std::shared_ptr<PlaybackState> playback; // what the trace area shows; null: its own
    };

    explicit Transport(Hooks hooks, QObject *parent = nullptr);
    ~Transport() override;
    Transport(const Transport &) = delete;
    Transport &operator=(const Transport &) = delete;

    // The sound played and recorded into (may be null): stops everything, clears the
    // selection, puts the needle at the sound's start and prepares it for one touch.
    void setSound(std::shared_ptr<WavStream> wav);
    [[nodiscard]] const std::shared_ptr<WavStream> &sound() const { return wav; }

    [[nodiscard]] State state() const { return current; }
    // Whether a click on play or record only prepares it.
    [[nodiscard]] bool oneTouch() const;
    // The paused state came from a one-touch preparation, not from pausing.
    [[nodiscard]] bool prepared() const { return preparedFlag; }
    [[nodiscard]] bool playOn() const;
    [[nodiscard]] bool recordOn() const;
    [[nodiscard]] bool pauseOn() const;
    [[nodiscard]] bool isPlaying() const;
    [[nodiscard]] bool isRecording() const;

    // What each control may do now; the commands below do nothing otherwise.
    [[nodiscard]] bool canTogglePlay() const;
    [[nodiscard]] bool canToggleRecord() const { return canRecordInto(); }
    [[nodiscard]] bool canTogglePause() const { return current != State::idle; }

    // How a command came: one touch changes only what a click on play or record does; a key or
    // menu command that names play or record starts it at once.
    enum class Via
    {
        click,
        command
    };

    // Play, record or pause turned on or off, as a button that stays down.
    void togglePlay(Via via = Via::click);
    void toggleRecord(Via via = Via::click);
    void togglePause();
    // Back to idle, stopping whatever runs.
    void stop();

    // The recorder delivers 16-bit mono at its own rate, and appends it as it comes.
    [[nodiscard]] bool canRecordInto() const;

    [[nodiscard]] const Recorder &recorder() const { return *recorderPtr; }
    // The needle, the selection, loop and speed; it plays and stops as the state says.
    [[nodiscard]] Playhead &playhead() { return head; }
    [[nodiscard]] const Playhead &playhead() const { return head; }
    [[nodiscard]] const std::shared_ptr<PlaybackState> &playback() const { return head.playback(); }

signals:
    // The state, or whether sound runs, changed.
    void stateChanged();
    // The sound's state shown in the title changed (modified, length while recording).
    void soundChanged();
    // A recording the user stopped is complete in the sound.
    void recordingStopped();

private:
    void enter(State state, bool prepared = false);
    // Turns play or record (named by its running and paused states) on or off; turning one on
    // turns the other off.
    void toggle(State running, State paused, Via via);
    // Enters playing or recording and starts the sound.
    void run(State running);
    void startRecording();
    void stopRecording();
    void playbackFinished();
    void recordingEnded();
    void followRecording();

    Hooks hooks;
    std::shared_ptr<WavStream> wav;
    State current = State::idle;
    bool preparedFlag = false;
    std::unique_ptr<Recorder> recorderPtr;
    Playhead head;
    QTimer *recordTimer;
};

} // namespace quorval
