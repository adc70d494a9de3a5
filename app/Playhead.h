#pragma once

#include "audio/Player.h"
#include "audio/PlayerView.h"
#include "display/PlaybackState.h"

#include <QObject>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace quorval {

class Recorder;
class WavStream;

// The needle and the stretch it plays: the player, what the trace area shows of it (needle,
// playing, selection, loop) and the practice speed. It plays and stops when told; what the user
// asked for is the transport's. The needle stays put while the recorder it is handed records.
//
// Main thread only, but for the needle's redraw handler, which the player calls on the
// "display" queue.
class Playhead : public QObject
{
    Q_OBJECT

public:
    // redraw: the needle moved ("display" queue); playback: what the trace area shows, null for
    // its own.
    Playhead(const Recorder &recorder, std::function<void()> redraw,
             Player::AudioPlayerFactory audioPlayer, std::shared_ptr<PlaybackState> playback);
    ~Playhead() override;
    Playhead(const Playhead &) = delete;
    Playhead &operator=(const Playhead &) = delete;

    // Stops playing, clears the selection and puts the needle at the sound's start.
    void setSound(std::shared_ptr<WavStream> wav);

    // The sound's first and last time, and its frame count, read on the data queue.
    struct Extent
    {
        double lowest = 0.0;
        double highest = 0.0;
        std::int64_t frames = 0;
    };
    [[nodiscard]] Extent extent() const;

    // Plays from the needle (from the start when it is at the end); finished() when it ends by
    // itself.
    void play();
    void stop();
    [[nodiscard]] bool isPlaying() const { return shown->playing; }

    [[nodiscard]] bool canMoveNeedle() const;
    // Puts the needle (and where playing starts) at the sound's start or end and answers that
    // time; nothing while there is no sound or it is recording.
    std::optional<double> rewind();
    std::optional<double> fastForward();
    // The needle, while nothing plays or records.
    void moveNeedle(double seconds);
    // The needle wherever it is asked, as recording follows the sound's end.
    void placeNeedle(double seconds) { shown->needleTime = seconds; }
    // Whether the trace area shows the sound being recorded.
    void setRecording(bool on) { shown->recording = on; }

    // A negative start, or an end not after the start: no selection.
    void setSelection(double start, double end);
    void setLoop(bool on);
    [[nodiscard]] bool loop() const;
    // The practice speed (Player::kSpeeds); false for any other.
    bool setSpeed(double speed);
    [[nodiscard]] double speed() const;

    // The needle and whether sound runs, as kept for the trace area.
    [[nodiscard]] const std::shared_ptr<PlaybackState> &playback() const { return shown; }

signals:
    // Playing ended by itself.
    void finished();
    void loopChanged();

private:
    // The player's view of the display: the needle and whether it plays are the shown state's.
    class NeedleView : public SharedPlayerView
    {
    public:
        NeedleView(PlaybackState &state, std::function<void()> redraw)
            : SharedPlayerView(std::move(redraw)), state(state)
        {
        }
        [[nodiscard]] double playMark() const override { return state.needleTime; }
        void setPlayMark(double seconds) override { state.needleTime = seconds; }
        void setPlaying(bool on) override { state.playing = on; }

    private:
        PlaybackState &state;
    };

    // The needle to one end of the sound (Extent::lowest or ::highest), where it may move.
    std::optional<double> needleToEnd(double Extent::*end);

    const Recorder &recorder;
    std::function<void()> redraw;
    std::shared_ptr<PlaybackState> shown;
    std::shared_ptr<WavStream> wav;
    NeedleView needleView;
    std::unique_ptr<Player> player;
};

} // namespace quorval
