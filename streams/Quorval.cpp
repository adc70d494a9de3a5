#include "streams/Quorval.h"

#include "analysis/FFTOC.h"
#include "options/DeveloperMode.h"
#include "options/FollowUps.h"
#include "streams/MusicStream.h"
#include "streams/WorkingFiles.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace quorval {

std::atomic<bool> Quorval::recording{false};

namespace {

enum QueueIndex
{
    kData,
    kCalc,
    kCrunch,
    kCopy,
    kDisplay,
    kRealtime,
    kQueueCount
};

// Copying a sound in is background work: it yields to the calculation of what is on screen.
constexpr int kCopyNiceness = 10;

struct Queues
{
    std::array<std::unique_ptr<SerialQueue>, kQueueCount> queues;

    Queues()
    {
        const std::array<const char *, kQueueCount> names = {"data", "calc",    "crunch",
                                                             "copy", "display", "realtime"};
        for (int i = 0; i < kQueueCount; ++i)
            queues[i] = std::make_unique<SerialQueue>(std::string(Quorval::kQueuePrefix) + names[i],
                                                      i == kCopy ? kCopyNiceness : 0);
    }

    // Producers first, so that what they post while finishing still reaches a live consumer.
    void stopAll()
    {
        for (QueueIndex index : {kRealtime, kDisplay, kCopy, kCalc, kCrunch, kData})
            queues[index]->stop();
    }
};

std::atomic<bool> shuttingDown{false};

Queues &queues()
{
    static Queues instance;
    static std::once_flag exitHook;
    std::call_once(exitHook, [] { std::atexit([] { Quorval::shutdown(); }); });
    return instance;
}

SerialQueue &queue(QueueIndex index)
{
    return *queues().queues[index];
}

struct MainState
{
    std::mutex mutex;
    Quorval::MainPoster poster;
    std::function<void()> redisplayHandler;
    std::function<void()> recolorHandler;
    std::thread::id mainThread;
    std::shared_ptr<MusicStream> musicStream;
    std::shared_ptr<VisibleSegmentSource> visibleSource;
};

// Never destroyed: queue threads may still reach it while statics are torn down at exit.
MainState &mainState()
{
    static auto *state = new MainState;
    return *state;
}

std::atomic<bool> redisplayPending{false};

// Every post to the main thread counts itself here (see Quorval::postToMain).
std::atomic<std::uint64_t> postsToMain{0};

// Copies of the main state's members, taken and replaced under its lock.
template <class T> T loadShared(T MainState::*field)
{
    MainState &state = mainState();
    std::lock_guard lock(state.mutex);
    return state.*field;
}

template <class T> void storeShared(T MainState::*field, T value)
{
    MainState &state = mainState();
    std::lock_guard lock(state.mutex);
    state.*field = std::move(value);
}

} // namespace

SerialQueue &Quorval::dataQueue()
{
    return queue(kData);
}
SerialQueue &Quorval::calcQueue()
{
    return queue(kCalc);
}
SerialQueue &Quorval::crunchQueue()
{
    return queue(kCrunch);
}
SerialQueue &Quorval::copyQueue()
{
    return queue(kCopy);
}
SerialQueue &Quorval::displayQueue()
{
    return queue(kDisplay);
}
SerialQueue &Quorval::realtimeQueue()
{
    return queue(kRealtime);
}

void Quorval::shutdown()
{
    shuttingDown = true;
    queues().stopAll();
    // What the queues' last items let go of is removed before the program ends.
    WorkingFiles::finishRemovals();
}

bool Quorval::isShuttingDown()
{
    return shuttingDown;
}

void Quorval::installMainPoster(MainPoster poster)
{
    MainState &state = mainState();
    std::lock_guard lock(state.mutex);
    state.poster = std::move(poster);
    state.mainThread = std::this_thread::get_id();
}

bool Quorval::isMainThread()
{
    MainState &state = mainState();
    std::lock_guard lock(state.mutex);
    return state.poster && state.mainThread == std::this_thread::get_id();
}

void Quorval::postToMain(std::function<void()> fn)
{
    const MainPoster poster = loadShared(&MainState::poster);
    if (!poster)
        return;
    // Qt's event queue orders the post before the call under a lock of its own, which the
    // thread sanitizer cannot see in a Qt not built for it: this release and acquire state the
    // same order where it can, so that what fn carries (a snapshot built on a queue) reads as
    // written before it runs. One counter serves every post: an acquire that reads a later
    // count is ordered after every post before it.
    postsToMain.fetch_add(1, std::memory_order_release);
    poster([fn = std::move(fn)] {
        (void)postsToMain.load(std::memory_order_acquire);
        fn();
    });
}

void Quorval::setRedisplayHandler(std::function<void()> handler)
{
    storeShared(&MainState::redisplayHandler, std::move(handler));
}

void Quorval::setRecolorHandler(std::function<void()> handler)
{
    storeShared(&MainState::recolorHandler, std::move(handler));
}

void Quorval::redisplay()
{
    auto runHandler = [] {
        const std::function<void()> handler = loadShared(&MainState::redisplayHandler);
        if (handler)
            handler();
    };
    if (isMainThread()) {
        runHandler();
        return;
    }
    if (redisplayPending.exchange(true))
        return;
    postToMain([runHandler] {
        // Cleared before drawing, so that a change made while drawing asks for another pass.
        redisplayPending = false;
        runHandler();
    });
}

bool Quorval::developerMode()
{
    return ::quorval::developerMode();
}

void Quorval::setDeveloperMode(bool on)
{
    ::quorval::setDeveloperMode(on);
}

void Quorval::installOptionFollowUps()
{
    FollowUpHandlers handlers;
    handlers.resegment = [] {
        if (auto music = musicStream()) {
            music->noteRangeChanged();
            music->resegment();
        }
    };
    handlers.recompute = [] {
        if (auto music = musicStream()) {
            music->noteRangeChanged();
            music->recompute();
        }
    };
    handlers.recolor = [] {
        auto recolor = [] {
            if (const std::function<void()> handler = loadShared(&MainState::recolorHandler))
                handler();
            redisplay();
        };
        if (isMainThread())
            recolor();
        else
            postToMain(recolor);
    };
    handlers.redisplay = [] { redisplay(); };
    setFollowUpHandlers(std::move(handlers));
}

FFTOC &Quorval::sharedFFT()
{
    // Never destroyed, for the same reason as the main state.
    static auto *fft = new FFTOC;
    return *fft;
}

void Quorval::setMusicStream(std::shared_ptr<MusicStream> stream)
{
    storeShared(&MainState::musicStream, std::move(stream));
}

std::shared_ptr<MusicStream> Quorval::musicStream()
{
    return loadShared(&MainState::musicStream);
}

void Quorval::setVisibleSegmentSource(std::shared_ptr<VisibleSegmentSource> source)
{
    storeShared(&MainState::visibleSource, std::move(source));
}

std::shared_ptr<VisibleSegmentSource> Quorval::visibleSegmentSource()
{
    return loadShared(&MainState::visibleSource);
}

} // namespace quorval
