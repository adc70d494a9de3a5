#pragma once

#include "streams/SerialQueue.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

namespace quorval {

class FFTOC;
class MusicStream;
class PitchStream;

// What the display's column stream tells the calculation: the next segment that a visible column
// still needs, so that visible columns are computed first. Called on the data queue only.
class VisibleSegmentSource
{
public:
    virtual ~VisibleSegmentSource() = default;
    // The index of a segment of pitchStream whose pitch a visible column still waits for, or -1.
    virtual std::int64_t nextVisibleSegment_D(const PitchStream &pitchStream) = 0;
    // The pitch stream's range grew: columns that had found nothing may now find a pitch.
    virtual void pitchStreamGrew_D() {}
};

// The application's central static class: the six serial work queues, the way back to the main
// thread, and the little state the whole application shares.
//
// Queues (labels kQueuePrefix + last component), made together on first use:
//   "data"     every access to stream contents and sound-file bytes; never waits on another queue
//   "calc"     the pitch calculation loop, one item at a time
//   "crunch"   the units of that loop, taken synchronously from "calc"
//   "copy"     copying sound into the working sound file
//   "display"  the player's display timer
//   "realtime" delivery of microphone buffers
// Synchronous waits, each queue waiting only on queues to its right: main -> data, copy,
// display, realtime; calc -> crunch -> data; copy -> data; realtime -> data. Nothing waits on
// the main queue.
class Quorval
{
public:
    Quorval() = delete;

    static constexpr const char *kQueuePrefix = "org.quorval.Quorval.";

    static SerialQueue &dataQueue();
    static SerialQueue &calcQueue();
    static SerialQueue &crunchQueue();
    static SerialQueue &copyQueue();
    static SerialQueue &displayQueue();
    static SerialQueue &realtimeQueue();

    // Stops every queue, producers before consumers, after telling long loops to give up. Called
    // by the application before its event loop object goes, and at exit otherwise. Once called,
    // posts are dropped; it is final. Main thread only.
    static void shutdown();
    // True once shutdown() has begun: long-running work items return early.
    [[nodiscard]] static bool isShuttingDown();

    // The main queue. The application (or a headless tool) installs the poster; the installing
    // thread becomes the main thread. Without a poster, posts to the main queue are dropped.
    using MainPoster = std::function<void(std::function<void()>)>;
    static void installMainPoster(MainPoster poster);
    [[nodiscard]] static bool isMainThread();
    // Any thread.
    static void postToMain(std::function<void()> fn);

    // Redisplay: runs the handler at once on the main thread; from any other thread posts it to
    // the main queue, with requests made while one is pending merged into that one.
    static void setRedisplayHandler(std::function<void()> handler);
    static void redisplay();

    // Recolour: a colouring option changed and the display's colours must be computed afresh.
    // The handler runs on the main thread, before the redisplay that follows it.
    static void setRecolorHandler(std::function<void()> handler);

    // Installs the work that option changes ask for into the options' follow-up hook: re-cut
    // and recompute the open sound, recolour, redraw. Main thread, at start-up.
    static void installOptionFollowUps();

    // Application-wide state, any thread.
    // Developer mode, off at start: kept by the options, which sit below and read it too.
    [[nodiscard]] static bool developerMode();
    static void setDeveloperMode(bool on);
    // The recorder is filling the sound: the analysis treats its end as growing.
    static std::atomic<bool> recording;

    // The transform used for the spectrum of one chosen segment. Crunch queue only.
    static FFTOC &sharedFFT();

    // The music stream of the open sound, and the display's column stream for the visible range
    // (either may be empty). Any thread; the objects are shared.
    static void setMusicStream(std::shared_ptr<MusicStream> stream);
    [[nodiscard]] static std::shared_ptr<MusicStream> musicStream();
    static void setVisibleSegmentSource(std::shared_ptr<VisibleSegmentSource> source);
    [[nodiscard]] static std::shared_ptr<VisibleSegmentSource> visibleSegmentSource();
};

} // namespace quorval
